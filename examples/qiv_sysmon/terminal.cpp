#include "terminal.h"

#include <langinfo.h>
#include <qiv/poll.h>
#include <qiv/string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace sysmon {
namespace {

constexpr const char* kOtherScreen = "\x1b[?1049h\x1b[?25l";
constexpr const char* kFormerScreen = "\x1b[?25h\x1b[?1049l";
constexpr int kNoLimit = -1;
constexpr Size kUsualSize = {80, 24};

// Not through stdio: a screen is written as a whole or the terminal is gone.
bool Write(const std::string& text) {
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t count = write(STDOUT_FILENO, text.data() + written, text.size() - written);
    if (count > 0) written += static_cast<std::size_t>(count);
    if (count == -1 && errno == EAGAIN) {
      pollfd record = {STDOUT_FILENO, POLLOUT, 0};
      QIV_Poll(&record, 1, kNoLimit);
    } else if (count == -1 && errno != EINTR) {
      return false;
    }
  }
  return true;
}

bool IsUtf8(const char* codeset) {
  return QIV_Strcasecmp(codeset, "UTF-8") == 0 || QIV_Strcasecmp(codeset, "UTF8") == 0;
}

// What the user's locale says behind its dot is asked too: not every C library has that locale.
bool ShowsUtf8() {
  if (IsUtf8(nl_langinfo(CODESET))) return true;
  for (const char* const name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* const locale = std::getenv(name);
    if (locale == nullptr || *locale == '\0') continue;
    const char* const dot = std::strrchr(locale, '.');
    return dot != nullptr && IsUtf8(dot + 1);
  }
  return false;
}

}  // namespace

bool HasScreen() {
  const char* const kind = std::getenv("TERM");
  return isatty(STDOUT_FILENO) == 1 && kind != nullptr && QIV_Strcmp(kind, "dumb") != 0;
}

Style StyleOfTerminal() {
  const char* const noColour = std::getenv("NO_COLOR");
  return {ShowsUtf8(), noColour == nullptr || *noColour == '\0'};
}

Size SizeOfTerminal() {
  winsize size = {};
  const bool isKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0;
  return {isKnown && size.ws_col > 0 ? size.ws_col : kUsualSize.columns,
          isKnown && size.ws_row > 0 ? size.ws_row : kUsualSize.rows};
}

Screen::Screen() : m_hasKeys(tcgetattr(STDIN_FILENO, &m_former) == 0) { Enter(); }

Screen::~Screen() { Leave(); }

void Screen::Enter() {
  if (m_hasKeys) {
    termios mode = m_former;
    mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    mode.c_cc[VMIN] = 1;
    mode.c_cc[VTIME] = 0;
    tcsetattr(STDIN_FILENO, TCSANOW, &mode);
  }
  Write(kOtherScreen);
  m_isEntered = true;
}

void Screen::Leave() {
  if (!m_isEntered) return;
  Write(kFormerScreen);
  // What was typed for this program is not for the next one.
  if (m_hasKeys) tcsetattr(STDIN_FILENO, TCSAFLUSH, &m_former);
  m_isEntered = false;
}

bool Screen::Show(const std::vector<std::string>& lines, std::size_t rows) {
  std::string text;
  for (std::size_t i = 0; i < rows; ++i) {
    // Each line is placed and emptied before it is written: nothing depends on what the terminal
    // does behind a line's last column.
    text += "\x1b[" + std::to_string(i + 1) + ";1H\x1b[2K";
    if (i < lines.size()) text += lines[i];
  }
  return Write(text);
}

}  // namespace sysmon

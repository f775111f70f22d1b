#include <qiv/socket.h>
#include <csignal>
extern "C" int QIV_InitNetwork_Inter(void) noexcept {
  struct sigaction ignore = {};
  ignore.sa_handler = SIG_IGN;
  sigemptyset(&ignore.sa_mask);
  sigaction(SIGPIPE, &ignore, nullptr);
  return QIV_OK;
}
extern "C" int QIV_FiniNetwork_Inter(void) noexcept { return QIV_OK; }

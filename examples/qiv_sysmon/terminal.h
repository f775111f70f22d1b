// The terminal: what it can show, its size, and the time for which the program has it for itself.
#pragma once

#include <termios.h>

#include <string>
#include <vector>

#include "view.h"

namespace sysmon {

// True when standard output is a terminal that understands more than text.
bool HasScreen();

// By the locale, and by NO_COLOR, which forbids colour when it is set to anything.
Style StyleOfTerminal();

Size SizeOfTerminal();

// Takes the terminal's other screen during its life, without cursor and without echo of what is
// typed, and gives everything back as it was.
class Screen {
 public:
  Screen();
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  // Once more, after somebody else has had the terminal.
  void Enter();
  void Leave();

  // False when the terminal is gone.
  bool Show(const std::vector<std::string>& lines, std::size_t rows);

  // Whether keys come from the terminal, through standard input.
  bool HasKeys() const { return m_hasKeys; }

 private:
  termios m_former = {};
  bool m_hasKeys;
  bool m_isEntered = false;
};

}  // namespace sysmon

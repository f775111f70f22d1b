// Wakes the main thread: rung by completion callbacks, and by SIGINT and SIGTERM.
//
// Ring() may be called on any thread and in a signal handler; all else belongs to the main thread.
// At most one bell may exist in a process.
#pragma once

namespace echo {

class Bell {
 public:
  Bell();  // takes over SIGINT and SIGTERM; throws std::system_error
  ~Bell();
  Bell(const Bell&) = delete;
  Bell& operator=(const Bell&) = delete;

  void Ring() noexcept;

  // Waits until the bell has been rung since the last Wait(), or for `timeoutMs` milliseconds
  // (-1: no limit).
  void Wait(int timeoutMs);

  // Whether SIGINT or SIGTERM has arrived.
  bool StopAsked() const;

 private:
  int m_readEnd = -1;
  int m_writeEnd = -1;
};

}  // namespace echo

// Signals as bytes of a pipe, so that the main thread can wait for them together with other things.
#pragma once

#include <initializer_list>
#include <optional>

namespace sysmon {

// There is one in a program, to its end. A signal that the program was started to ignore, as nohup
// does, stays ignored.
class Signals {
 public:
  Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  void Catch(std::initializer_list<int> signals);

  // Readable while a signal waits to be taken.
  int Descriptor() const { return m_readEnd; }
  std::optional<int> Take();

  // Stops the process as the signal does that nobody catches; returns when it goes on.
  void StopProcess();

 private:
  int m_readEnd = -1;
};

}  // namespace sysmon

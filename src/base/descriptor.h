// Owns a descriptor: closed at the end of the scope. close() is a cancellation point, and neither a
// destructor nor a function that may not throw can be unwound: the thread is not cancelled in it.
#ifndef QIV_BASE_DESCRIPTOR_H
#define QIV_BASE_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

#include "base/no_cancellation.h"

namespace qiv::base {

class Descriptor {
 public:
  /** @param number  what a system call has returned: -1 is none */
  explicit Descriptor(int number) noexcept : m_number(number) {}
  ~Descriptor() {
    if (IsOpen()) Close();
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  [[nodiscard]] bool IsOpen() const noexcept { return m_number != -1; }
  [[nodiscard]] int Get() const noexcept { return m_number; }

  /** False when the platform reports that what was written is lost. */
  bool Close() noexcept {
    const NoCancellation noCancellation;
    return close(std::exchange(m_number, -1)) == 0;
  }

 private:
  int m_number;
};

}  // namespace qiv::base

#endif

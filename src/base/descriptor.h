// Owns a descriptor: closed at the end of the scope.
#ifndef QIV_BASE_DESCRIPTOR_H
#define QIV_BASE_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace qiv::base {

class Descriptor {
 public:
  /** @param number  what a system call has returned: -1 is none */
  explicit Descriptor(int number) noexcept : m_number(number) {}
  ~Descriptor() {
    if (IsOpen()) close(m_number);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  [[nodiscard]] bool IsOpen() const noexcept { return m_number != -1; }
  [[nodiscard]] int Get() const noexcept { return m_number; }

  /** False when the platform reports that what was written is lost. */
  bool Close() noexcept { return close(std::exchange(m_number, -1)) == 0; }

 private:
  int m_number;
};

}  // namespace qiv::base

#endif

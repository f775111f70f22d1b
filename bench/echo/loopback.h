// Loopback TCP connections for the benchmarks. Everything throws std::system_error on failure.
#pragma once

#include <utility>
#include <vector>

namespace bench {

// Owns a descriptor.
class Descriptor {
 public:
  explicit Descriptor(int value);  // throws, with errno, for -1
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept : m_value(std::exchange(other.m_value, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;

  int Get() const { return m_value; }

 private:
  int m_value;
};

// Throws when `result` is -1.
void Check(int result, const char* what);

// The two ends of as many connections, all without Nagle's delay.
struct Connections {
  std::vector<Descriptor> clientEnds;
  std::vector<Descriptor> serverEnds;
};
Connections MakeConnections(int count);

}  // namespace bench

// A cycle buffer and a record of what its reads deliver.
#ifndef QIV_TESTS_MEMORY_CYCLE_BUFFER_FIXTURE_H
#define QIV_TESTS_MEMORY_CYCLE_BUFFER_FIXTURE_H

#include <gtest/gtest.h>
#include <pthread.h>
#include <qiv/cycle_buffer.h>

#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace qiv::test {

/** One call of the callback. */
struct Delivery {
  std::ptrdiff_t offset;  // from the start of the ring
  std::string bytes;
};

inline bool operator==(const Delivery& a, const Delivery& b) {
  return a.offset == b.offset && a.bytes == b.bytes;
}

inline void PrintTo(const Delivery& delivery, std::ostream* out) {
  *out << delivery.bytes.size() << " bytes from offset " << delivery.offset << ": "
       << ::testing::PrintToString(delivery.bytes);
}

using Deliveries = std::vector<Delivery>;

/** The ring's bytes stand behind a pointer, four numbers, the mutex and two pointers. */
constexpr std::size_t kCycleBufferHeader = 3 * sizeof(void*) + 16 + sizeof(pthread_mutex_t);

class CycleBuffer {
 public:
  explicit CycleBuffer(int capacity) {
    EXPECT_EQ(0, QIV_CycleBufferInit(&m_handle, capacity, Record, this));
  }
  ~CycleBuffer() { QIV_CycleBufferDestroy(m_handle); }
  CycleBuffer(const CycleBuffer&) = delete;
  CycleBuffer& operator=(const CycleBuffer&) = delete;

  /** Runs inside each call of the callback. */
  std::function<void()> onDelivery;

  QIV_HANDLE Handle() const { return m_handle; }

  int Write(const std::string& bytes) {
    return QIV_CycleBufferWrite(m_handle, bytes.data(), static_cast<int>(bytes.size()));
  }

  int Read() { return QIV_CycleBufferRead(m_handle); }

  unsigned int Count() const {
    unsigned int count = 77;
    EXPECT_EQ(0, QIV_CycleBufferValue(m_handle, &count));
    return count;
  }

  /** What has been delivered since the last time. */
  Deliveries TakeDeliveries() {
    Deliveries taken;
    taken.swap(m_deliveries);
    return taken;
  }

  /** Reads, and gives what is delivered. */
  Deliveries ReadAll() {
    EXPECT_EQ(0, Read());
    return TakeDeliveries();
  }

  /** Moves both offsets of an empty buffer from 0 to `offset`. */
  void StartAt(std::size_t offset) {
    EXPECT_EQ(0, Write(std::string(offset, '.')));
    EXPECT_EQ(0, Read());
    m_deliveries.clear();
  }

 private:
  static void Record(char* data, int len, void* user) {
    auto* const self = static_cast<CycleBuffer*>(user);
    const char* const start = static_cast<char*>(self->m_handle) + kCycleBufferHeader;
    self->m_deliveries.push_back({data - start, std::string(data, static_cast<std::size_t>(len))});
    if (self->onDelivery) self->onDelivery();
  }

  QIV_HANDLE m_handle = nullptr;
  Deliveries m_deliveries;
};

}  // namespace qiv::test

#endif

// Random writes and reads against a second, plainer ring, and a writer beside a reader.
#include <gtest/gtest.h>
#include <qiv/cycle_buffer.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <iostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "memory/cycle_buffer_fixture.h"
#include "support/leak_check.h"
#include "support/test_limit.h"

namespace qiv::test {
namespace {

constexpr unsigned int kSeed = 20261121;
constexpr int kOperations = 100000;
constexpr int kOperationsPerBuffer = 200;

/** A ring that moves one byte at a time, with as many zeros behind it. */
class Model {
 public:
  explicit Model(std::size_t capacity) : m_capacity(capacity), m_memory(2 * capacity) {}

  int Write(const std::string& bytes) {
    if (bytes.empty() || m_stored + bytes.size() > m_capacity) return -1;
    for (const char byte : bytes) {
      m_memory[m_writeAt] = byte;
      m_writeAt = (m_writeAt + 1) % m_capacity;
    }
    m_stored += bytes.size();
    return 0;
  }

  int Read(Deliveries* deliveries) {
    if (m_stored == 0) return -1;
    if (m_readAt + m_stored < m_capacity) {
      deliveries->push_back(DeliveryOf(m_readAt, m_stored));
    } else {
      deliveries->push_back(DeliveryOf(m_readAt, m_capacity - m_stored));
      deliveries->push_back(DeliveryOf(0, m_writeAt));
    }
    m_readAt = m_writeAt;
    m_stored = 0;
    return 0;
  }

  std::size_t Count() const { return m_stored; }

 private:
  Delivery DeliveryOf(std::size_t offset, std::size_t length) const {
    Delivery delivery = {static_cast<std::ptrdiff_t>(offset), {}};
    for (std::size_t i = 0; i < length; ++i) delivery.bytes += m_memory[offset + i];
    return delivery;
  }

  std::size_t m_capacity;
  std::vector<char> m_memory;
  std::size_t m_writeAt = 0;
  std::size_t m_readAt = 0;
  std::size_t m_stored = 0;
};

std::string RandomBytes(std::size_t length, std::mt19937& random) {
  std::string bytes;
  for (std::size_t i = 0; i < length; ++i) bytes += static_cast<char>(random() % 256);
  return bytes;
}

bool AgreeOnOneOperation(CycleBuffer& buffer, Model& model, std::size_t capacity,
                         std::mt19937& random) {
  if (random() % 3 == 0) {
    Deliveries expected;
    if (buffer.Read() != model.Read(&expected)) return false;
    if (!(buffer.TakeDeliveries() == expected)) return false;
  } else {
    // Often as much as fits exactly, and now and then too much.
    const std::size_t room = capacity - model.Count();
    const std::size_t length = random() % 4 == 0 ? room : random() % (capacity + 2);
    const std::string bytes = RandomBytes(length, random);
    if (buffer.Write(bytes) != model.Write(bytes)) return false;
  }
  return buffer.Count() == model.Count();
}

class CycleBufferRandomTest : public LeakCheckedTest {};

TEST_F(CycleBufferRandomTest, AgreesWithTheModel) {
  std::cout << "seed " << kSeed << '\n';
  std::mt19937 random(kSeed);
  const int operations = ScaledLoad(kOperations);
  for (int done = 0; done < operations; done += kOperationsPerBuffer) {
    const std::size_t capacity = 1 + random() % 40;
    CycleBuffer buffer(static_cast<int>(capacity));
    Model model(capacity);
    for (int i = 0; i < kOperationsPerBuffer; ++i) {
      ASSERT_TRUE(AgreeOnOneOperation(buffer, model, capacity, random))
          << "operation " << done + i << ", capacity " << capacity;
    }
  }
}

/** The byte that a writer puts at a position of its stream. */
char StreamByte(std::size_t position) { return static_cast<char>(1 + position % 251); }

/** Checks deliveries against the stream that a writer writes, and follows its read offset. */
class StreamChecker {
 public:
  explicit StreamChecker(std::size_t capacity) : m_capacity(capacity) {}

  /** Takes the calls of one read; false when they are not what the stream makes them. */
  bool Take(const Deliveries& deliveries) {
    if (deliveries.empty() || deliveries.size() > 2) return false;
    const std::string& first = deliveries[0].bytes;
    const bool wrapped = deliveries.size() == 2;
    const std::size_t stored = wrapped ? m_capacity - first.size() : first.size();
    const std::size_t toTheEnd = m_capacity - m_readAt;
    if (wrapped != (m_readAt + stored >= m_capacity)) return false;
    if (deliveries[0].offset != static_cast<std::ptrdiff_t>(m_readAt)) return false;
    if (!IsStreamThenZeros(first, m_position, std::min(first.size(), toTheEnd))) return false;
    if (wrapped) {
      const std::string& second = deliveries[1].bytes;
      if (deliveries[1].offset != 0 || second.size() != stored - toTheEnd) return false;
      if (!IsStreamThenZeros(second, m_position + toTheEnd, second.size())) return false;
    }
    m_position += stored;
    m_readAt = (m_readAt + stored) % m_capacity;
    return true;
  }

  std::size_t Position() const { return m_position; }

 private:
  static bool IsStreamThenZeros(const std::string& bytes, std::size_t position,
                                std::size_t ofTheStream) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      const char expected = i < ofTheStream ? StreamByte(position + i) : '\0';
      if (bytes[i] != expected) return false;
    }
    return true;
  }

  std::size_t m_capacity;
  std::size_t m_position = 0;
  std::size_t m_readAt = 0;
};

void WriteStream(CycleBuffer& buffer, std::size_t total, std::size_t capacity) {
  std::mt19937 random(kSeed);
  std::size_t position = 0;
  while (position < total) {
    std::string bytes;
    const std::size_t length = std::min<std::size_t>(total - position, 1 + random() % capacity);
    for (std::size_t i = 0; i < length; ++i) bytes += StreamByte(position + i);
    while (buffer.Write(bytes) != 0) std::this_thread::yield();
    position += length;
  }
}

TEST_F(CycleBufferRandomTest, ReaderGetsTheStreamOfAWriterOnAnotherThread) {
  constexpr std::size_t kCapacity = 97;
  const auto total = static_cast<std::size_t>(ScaledLoad(1000000));
  CycleBuffer buffer(kCapacity);
  StreamChecker checker(kCapacity);
  std::atomic<bool> written{false};
  std::thread writer([&] {
    WriteStream(buffer, total, kCapacity);
    written.store(true, std::memory_order_release);
  });
  bool right = true;
  while (!written.load(std::memory_order_acquire) || buffer.Count() != 0) {
    if (buffer.Read() != 0) {
      std::this_thread::yield();
    } else {
      right = checker.Take(buffer.TakeDeliveries()) && right;
    }
  }
  writer.join();
  EXPECT_TRUE(right);
  EXPECT_EQ(total, checker.Position());
}

}  // namespace
}  // namespace qiv::test

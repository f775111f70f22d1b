// What a tracked pool must do, by a plain model that knows its chunks and nothing of its code. Idle
// chunks are never given back in it, and no request is of 0 bytes.
#ifndef QIV_TESTS_MEMORY_TRACKED_POOL_MODEL_H
#define QIV_TESTS_MEMORY_TRACKED_POOL_MODEL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <vector>

namespace qiv::test {

class TrackedPoolModel {
 public:
  TrackedPoolModel(unsigned int initial, unsigned int maximum, unsigned int chunkSize)
      : m_total(std::max(initial, 1u)),
        m_maximum(std::max(m_total, maximum)),
        m_chunkSize(chunkSize) {}

  /** Whether an allocation of that size must be refused. */
  bool Refuses(unsigned int size) const {
    return size > m_chunkSize || (!FitsCurrent(size) && m_chunks.size() == m_maximum);
  }

  /** Whether `result` is right for an allocation of that size. */
  ::testing::AssertionResult Alloc(unsigned int size, char* result) {
    if (size > m_chunkSize) return Expect(result == nullptr, "too large a request is served");
    if (!FitsCurrent(size)) {
      m_current = nullptr;
      if (m_chunks.size() == m_maximum) return Expect(result == nullptr, "a chunk too many");
      if (result == nullptr) return Expect(false, "no chunk is served");
      if (!StartsIdleChunk(result)) return Expect(false, "not the chunk that came back last");
      if (Overlaps(result)) return Expect(false, "overlaps a chunk in use");
      m_chunks[result] = {0, 0};
      m_current = result;
      m_total = std::max<unsigned int>(m_total, static_cast<unsigned int>(m_chunks.size()));
    }
    Chunk& chunk = m_chunks[m_current];
    const auto expected = m_current + chunk.carved;
    chunk.carved += size;
    ++chunk.live;
    m_allocations[expected] = m_current;
    m_last = expected;
    return Expect(result == expected, "not behind the allocation before it");
  }

  void Free(char* pointer) {
    char* const start = m_allocations[pointer];
    m_allocations.erase(pointer);
    Chunk& chunk = m_chunks[start];
    --chunk.live;
    if (start == m_current) {
      if (chunk.live == 0) {
        chunk.carved = 0;
      } else if (pointer == m_last) {
        chunk.carved = static_cast<unsigned int>(pointer - start);
      }
    } else if (chunk.live == 0) {
      m_chunks.erase(start);
      m_returned.push_back(start);
    }
  }

  unsigned int Size() const { return m_total * m_chunkSize; }
  unsigned int IdleSize() const {
    const auto inUse = static_cast<unsigned int>(m_chunks.size());
    const unsigned int rest =
        m_current == nullptr ? 0 : m_chunkSize - m_chunks.at(m_current).carved;
    return (m_total - inUse) * m_chunkSize + rest;
  }

 private:
  struct Chunk {
    unsigned int carved;
    int live;
  };

  static ::testing::AssertionResult Expect(bool holds, const char* complaint) {
    return holds ? ::testing::AssertionSuccess() : ::testing::AssertionFailure() << complaint;
  }
  bool FitsCurrent(unsigned int size) const {
    return m_current != nullptr && m_chunkSize - m_chunks.at(m_current).carved >= size;
  }
  /** Where the idle chunks that came back are known, the last one must be next. */
  bool StartsIdleChunk(const char* start) {
    if (m_returned.empty()) return true;
    const bool isLast = m_returned.back() == start;
    m_returned.pop_back();
    return isLast;
  }
  bool Overlaps(const char* start) const {
    return std::any_of(m_chunks.begin(), m_chunks.end(), [&](const auto& chunk) {
      return start < chunk.first + m_chunkSize && chunk.first < start + m_chunkSize;
    });
  }

  unsigned int m_total;
  unsigned int m_maximum;
  unsigned int m_chunkSize;
  std::map<char*, Chunk> m_chunks;  // in use, by their starts
  std::map<char*, char*> m_allocations;
  std::vector<char*> m_returned;
  char* m_current = nullptr;
  char* m_last = nullptr;
};

}  // namespace qiv::test

#endif

// Tracked pool: carves allocations out of chunks of an idle-timeout pool.
//
// m_mutex guards the current chunk, the records and the books of allocations; without a lock the
// caller serialises. Lock order: m_mutex, then the chunk pool's. The chunk pool's idle check, on a
// thread of its own, takes the latter alone.
#include <qiv/memory_pool_ex.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <new>

#include "base/contract.h"
#include "memory/pool_lock.h"
#include "memory/pool_size.h"
#include "memory/spare_nodes.h"

namespace qiv {

static_assert(offsetof(CUsedRecord, m_pAllocPtr) == 0, "in order");
static_assert(offsetof(CUsedRecord, m_pIdlePtr) == sizeof(void*), "in order");
static_assert(offsetof(CUsedRecord, m_nRemainBytes) == 2 * sizeof(void*), "in order");
static_assert(offsetof(CUsedRecord, m_iUsedNum) == 2 * sizeof(void*) + 4, "in order");
static_assert(sizeof(CUsedRecord) == 2 * sizeof(void*) + 8, "nothing else");

namespace {

using memory::PoolLock;

constexpr std::size_t kDescriptionSize = 128;

constexpr const char* kFile = "../real_memory_pool_ex.cpp";
constexpr base::ContractPlace kInCleanup = {kFile, 70, "void qiv::CRealMemoryPoolEx::Cleanup()"};
constexpr base::ContractPlace kInAlloc = {kFile, 142,
                                          "void* qiv::CRealMemoryPoolEx::Alloc(size_t)"};
constexpr base::ContractPlace kInFree = {kFile, 181, "void qiv::CRealMemoryPoolEx::Free(void*)"};

// Into the caller's storage: leaks are reported when memory is short, too.
void Describe(const CUsedRecord& record, char (&text)[kDescriptionSize]) {
  // Kept: no opening brace, and "0x" before what the platform prints for a pointer.
  std::snprintf(text, sizeof(text),
                ", \"AllocPtr\": \"0x%p\", \"IdlePtr\": \"0x%p\", \"RemainBytes\": %u"
                ", \"UsedNum\": %d }",
                static_cast<void*>(record.m_pAllocPtr), static_cast<void*>(record.m_pIdlePtr),
                record.m_nRemainBytes, record.m_iUsedNum);
}

void CountFreed(CUsedRecord& record, const base::ContractPlace& place) {
  base::Require(record.m_iUsedNum > 0, "pUsedRecord->m_iUsedNum > 0", place);
  --record.m_iUsedNum;
}

}  // namespace

std::string CUsedRecord::ToString() const {
  char text[kDescriptionSize];
  Describe(*this, text);
  return text;
}

CRealMemoryPoolEx::CRealMemoryPoolEx(unsigned int initialChunks, unsigned int maximumChunks,
                                     long long idleTimeout, bool noLock, unsigned int chunkSize)
    : m_pool(chunkSize, std::max(initialChunks, 1u), maximumChunks, false, idleTimeout, noLock),
      m_bNoLock(noLock),
      m_nChunkSize(chunkSize),
      m_mutex(0),
      m_pLastAlloc(nullptr),
      m_pCurrentRecord(nullptr) {}

CRealMemoryPoolEx::~CRealMemoryPoolEx() { Cleanup(); }

void CRealMemoryPoolEx::Start() noexcept { m_pool.Start(); }

void CRealMemoryPoolEx::Stop() QIV_NO_THREAD_SAFETY_ANALYSIS {
  if (m_pCurrentRecord != nullptr && m_pCurrentRecord->m_iUsedNum == 0) {
    m_pool.Free(m_pCurrentRecord->m_pAllocPtr);
    // The record stays current, without the chunk: an allocation after the stop takes a new one.
    m_pCurrentRecord->m_pAllocPtr = nullptr;
    m_pCurrentRecord->m_pIdlePtr = nullptr;
  }
  char text[kDescriptionSize];
  for (const auto& entry : m_mapUsedRecords) {
    Describe(*entry.second, text);
    std::printf("memory_pool_ex[%p] check memory leaked, Used record: %s\n",
                static_cast<void*>(this), text);
  }
  m_pool.Stop();
}

void* CRealMemoryPoolEx::Alloc(size_t size) noexcept {
  if (size > m_nChunkSize) return nullptr;
  const PoolLock lock(m_mutex, m_bNoLock);
  if (!memory::HasSpareNode(m_mapSpareNodes)) return nullptr;
  if (!HasRoom(size) && !StartChunk()) return nullptr;
  CUsedRecord& record = *m_pCurrentRecord;
  char* const allocated = record.m_pIdlePtr;
  record.m_pIdlePtr += size;
  record.m_nRemainBytes -= static_cast<unsigned int>(size);
  ++record.m_iUsedNum;
  const bool isNew =
      memory::EnterWithSpareNode(m_mapUsedRecords, m_mapSpareNodes, allocated, &record);
  base::Require(isNew, "m_mapUsedRecords.find(pRet) == m_mapUsedRecords.end()", kInAlloc);
  m_pLastAlloc = allocated;
  return allocated;
}

void CRealMemoryPoolEx::Free(void* pointer) noexcept {
  const PoolLock lock(m_mutex, m_bNoLock);
  const auto entry = m_mapUsedRecords.find(pointer);
  if (entry == m_mapUsedRecords.end()) return;
  CUsedRecord& record = *entry->second;
  CountFreed(record, kInFree);
  memory::RemoveAndKeepNode(m_mapUsedRecords, m_mapSpareNodes, entry);
  if (&record == m_pCurrentRecord) {
    GiveBackRoom(static_cast<char*>(pointer));
  } else if (record.m_iUsedNum == 0) {
    m_pool.Free(record.m_pAllocPtr);
    GiveRecord(&record);
  }
}

unsigned int CRealMemoryPoolEx::Size() const noexcept {
  const PoolLock lock(m_mutex, m_bNoLock);
  return m_pool.Size();
}

unsigned int CRealMemoryPoolEx::IdleSize() const noexcept {
  const PoolLock lock(m_mutex, m_bNoLock);
  const unsigned int remain = m_pCurrentRecord == nullptr ? 0 : m_pCurrentRecord->m_nRemainBytes;
  return memory::SizeFigure(qiv_uint64{m_pool.IdleSize()} + remain);
}

void CRealMemoryPoolEx::Cleanup() noexcept {
  const PoolLock lock(m_mutex, m_bNoLock);
  for (const auto& entry : m_mapUsedRecords) {
    CUsedRecord* const record = entry.second;
    CountFreed(*record, kInCleanup);
    if (record == m_pCurrentRecord || record->m_iUsedNum > 0) continue;
    m_pool.Free(record->m_pAllocPtr);
    delete record;
  }
  m_mapUsedRecords.clear();
  if (m_pCurrentRecord != nullptr) m_pool.Free(m_pCurrentRecord->m_pAllocPtr);
  delete m_pCurrentRecord;
  m_pCurrentRecord = nullptr;
  m_pLastAlloc = nullptr;
  m_mapSpareNodes.clear();
  m_spareRecords.clear();
}

/** Whether the current chunk has room. There is no chunk at first, when the last one could not be
 *  had, and after the stop. */
bool CRealMemoryPoolEx::HasRoom(size_t size) const noexcept {
  return m_pCurrentRecord != nullptr && m_pCurrentRecord->m_pAllocPtr != nullptr &&
         m_pCurrentRecord->m_nRemainBytes >= size;
}

/** Lets the current chunk go, which its last free returns, and makes another one current. */
bool CRealMemoryPoolEx::StartChunk() noexcept {
  if (m_pCurrentRecord != nullptr && m_pCurrentRecord->m_iUsedNum == 0) {
    GiveRecord(m_pCurrentRecord);  // only after the stop: it has no chunk
  }
  m_pCurrentRecord = nullptr;
  char* const chunk = static_cast<char*>(m_pool.Alloc());
  if (chunk == nullptr) return false;
  // Kept: without memory for its record the chunk stays lent until the pool ends.
  m_pCurrentRecord = TakeRecord();
  if (m_pCurrentRecord == nullptr) return false;
  *m_pCurrentRecord = CUsedRecord{chunk, chunk, m_nChunkSize, 0};
  return true;
}

CUsedRecord* CRealMemoryPoolEx::TakeRecord() noexcept {
  if (m_spareRecords.empty()) return new (std::nothrow) CUsedRecord;
  CUsedRecord* const record = m_spareRecords.back().release();
  m_spareRecords.pop_back();
  return record;
}

/** Keeps a record for the next chunk. */
void CRealMemoryPoolEx::GiveRecord(CUsedRecord* record) noexcept try {
  std::unique_ptr<CUsedRecord> spare(record);
  m_spareRecords.push_back(std::move(spare));
} catch (const std::bad_alloc&) {
  return;  // it is deleted
}

/** In the current chunk: all of it once nothing is left there, otherwise that of the latest
 *  allocation. */
void CRealMemoryPoolEx::GiveBackRoom(char* freed) noexcept {
  CUsedRecord& record = *m_pCurrentRecord;
  if (record.m_iUsedNum == 0) {
    record.m_pIdlePtr = record.m_pAllocPtr;
    record.m_nRemainBytes = m_nChunkSize;
  } else if (freed == m_pLastAlloc) {
    record.m_nRemainBytes += static_cast<unsigned int>(record.m_pIdlePtr - freed);
    record.m_pIdlePtr = freed;
  }
}

}  // namespace qiv

// Idle-timeout pool: a list of idle blocks, the most recently returned first, and a map of lent
// ones.
//
// m_mutex guards the containers and the check state; a pool without a lock has no clock thread
// either, and its caller serialises. Lock order: m_mutex, then the list lock of the alarm clock.
// The idle check runs on the clock's thread, which the destructor ends before anything else goes.
//
// A block has a node in the list and one in the map for as long as it lives; the one that it does
// not need waits among the spare ones. So there are as many spare nodes of the list as lent blocks,
// and as many of the map as idle ones.
#include <qiv/memory_pool.h>

#include <qiv/thread.h>
#include <qiv/time.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <new>

#include "base/contract.h"
#include "base/no_cancellation.h"
#include "memory/pool_lock.h"
#include "memory/pool_size.h"
#include "memory/spare_nodes.h"

namespace qiv {
namespace {

using memory::PoolLock;
using memory::SizeFigure;

constexpr int kIdleCheckAlarm = 1;

constexpr const char* kFile = "../real_memory_pool.cpp";
constexpr const char* kTask = "void qiv::CRealMemoryPool::OnCheckIdleTimeoutTask(QIV_INT32)";
constexpr base::ContractPlace kInFree = {kFile, 146, "void qiv::CRealMemoryPool::Free(void*)"};
constexpr base::ContractPlace kInCheck = {kFile, 167,
                                          "void qiv::CRealMemoryPool::CheckIdleTimeout(qiv_int64)"};
constexpr base::ContractPlace kAtSurplus = {kFile, 196, kTask};
constexpr base::ContractPlace kAtTick = {kFile, 203, kTask};
constexpr base::ContractPlace kAtBlock = {kFile, 209, kTask};

QIV_HANDLE CallingThread() {
  return reinterpret_cast<QIV_HANDLE>(static_cast<std::uintptr_t>(QIV_Thread_GetSelfId()));
}

}  // namespace

CRealMemoryPool::CRealMemoryPool(unsigned int blockSize, unsigned int initialCount,
                                 unsigned int maximumCount, bool checkBoundary,
                                 long long idleTimeout, bool noLock)
    : m_nBlockSize(blockSize),
      m_nInitCount(initialCount),
      m_nMaxCount(std::max(maximumCount, initialCount)),
      m_bCheckBoundary(checkBoundary),
      m_iIdleTimeoutMillis(idleTimeout),
      m_bNoLock(noLock && idleTimeout < 0),
      m_mutex(0),
      m_eCheckState(idleTimeout < 0 ? kCheckScheduled : kNoCheck),
      m_bCheckIsLost(false) {}

CRealMemoryPool::~CRealMemoryPool() {
  const base::NoCancellation noCancellation;  // a destructor may not be left by unwinding
  m_alarmClock.Stop();
  Cleanup();
}

void CRealMemoryPool::Start() noexcept {
  Init();
  if (m_iIdleTimeoutMillis >= 0) m_alarmClock.Start();
}

void CRealMemoryPool::Stop() QIV_NO_THREAD_SAFETY_ANALYSIS {
  m_alarmClock.Stop();
  char text[CMemoryBlock::kDescriptionSize];
  for (const auto& entry : m_mapUsedBlocks) {
    entry.second->Describe(text);
    std::printf("memory_pool[%p] check memory leaked, Block: %s\n", static_cast<void*>(this), text);
  }
}

void CRealMemoryPool::Init() noexcept {
  const PoolLock lock(m_mutex, m_bNoLock);
  for (unsigned int i = 0; i < m_nInitCount; ++i) {
    if (!AddIdleBlock()) return;
  }
}

void* CRealMemoryPool::Alloc() noexcept {
  const PoolLock lock(m_mutex, m_bNoLock);
  if (m_listIdleBlocks.empty()) {
    if (m_mapUsedBlocks.size() >= m_nMaxCount || !AddIdleBlock()) return nullptr;
    if (m_eCheckState == kNoCheck) m_eCheckState = kCheckOnceIdle;
  }
  CMemoryBlock* const block = m_listIdleBlocks.front();
  char* const user = block->Ptr(CallingThread());
  m_listSpareNodes.splice(m_listSpareNodes.begin(), m_listIdleBlocks, m_listIdleBlocks.begin());
  memory::EnterWithSpareNode(m_mapUsedBlocks, m_mapSpareNodes, user, block);
  return user;
}

void CRealMemoryPool::Free(void* block) noexcept {
  const PoolLock lock(m_mutex, m_bNoLock);
  const auto entry = m_mapUsedBlocks.find(block);
  if (entry == m_mapUsedBlocks.end()) return;
  CMemoryBlock* const returned = entry->second;
  returned->Reset();
  base::Require(!m_bCheckBoundary || !returned->BoundaryOverflow(), "Check_boundary_overflow",
                kInFree);
  memory::RemoveAndKeepNode(m_mapUsedBlocks, m_mapSpareNodes, entry);
  m_listSpareNodes.front() = returned;
  m_listIdleBlocks.splice(m_listIdleBlocks.begin(), m_listSpareNodes, m_listSpareNodes.begin());
  if (m_eCheckState == kCheckOnceIdle) {
    base::Require(m_listIdleBlocks.size() == 1, "m_listIdleBlocks.size() == 1", kInFree);
    CheckIdleTimeout(m_iIdleTimeoutMillis);
  } else if (m_bCheckIsLost && m_iIdleTimeoutMillis >= 0) {
    CheckIdleTimeout(m_iIdleTimeoutMillis);
  }
}

unsigned int CRealMemoryPool::Size() const noexcept {
  const PoolLock lock(m_mutex, m_bNoLock);
  return SizeFigure(qiv_uint64{m_listIdleBlocks.size() + m_mapUsedBlocks.size()} * m_nBlockSize);
}

unsigned int CRealMemoryPool::IdleSize() const noexcept {
  const PoolLock lock(m_mutex, m_bNoLock);
  return SizeFigure(qiv_uint64{m_listIdleBlocks.size()} * m_nBlockSize);
}

void CRealMemoryPool::CheckIdleTimeout(qiv_int64 delayedMillis) noexcept {
  base::Require(delayedMillis >= 0, "delayedMillis >= 0", kInCheck);
  m_eCheckState = kCheckScheduled;
  // An alarm that memory was too short for is added by a later Free().
  m_bCheckIsLost = !m_alarmClock.AddAlarm(kIdleCheckAlarm, OnAlarm, this, delayedMillis);
}

void CRealMemoryPool::OnCheckIdleTimeoutTask(QIV_INT32 /*alarmId*/) noexcept {
  if (m_iIdleTimeoutMillis < 0) return;
  const PoolLock lock(m_mutex, m_bNoLock);
  m_bCheckIsLost = false;
  const std::size_t idle = m_listIdleBlocks.size();
  if (idle == 0) {
    m_eCheckState = StateWithoutIdleBlocks();
    return;
  }
  const std::size_t total = idle + m_mapUsedBlocks.size();
  if (total <= m_nInitCount) {  // fewer where memory was short at the start
    m_eCheckState = kNoCheck;
    return;
  }
  m_eCheckState = ReleaseIdleBlocks(total - m_nInitCount);
}

void CRealMemoryPool::OnAlarm(void* /*clock*/, int id, void* pool) {
  if (pool != nullptr) static_cast<CRealMemoryPool*>(pool)->OnCheckIdleTimeoutTask(id);
}

void CRealMemoryPool::Cleanup() noexcept {
  const PoolLock lock(m_mutex, m_bNoLock);
  for (const auto& entry : m_mapUsedBlocks) delete entry.second;
  for (const CMemoryBlock* block : m_listIdleBlocks) delete block;
  m_mapUsedBlocks.clear();
  m_listIdleBlocks.clear();
  m_listSpareNodes.clear();
  m_mapSpareNodes.clear();
}

/** Makes a block, with its nodes, and puts it first; false when memory is short. */
bool CRealMemoryPool::AddIdleBlock() noexcept try {
  if (m_nBlockSize == 0) return false;  // such a block lends null
  std::unique_ptr<CMemoryBlock> block(new (std::nothrow) CMemoryBlock(m_nBlockSize));
  if (!block || block->AllocPtr() == nullptr) return false;
  BlockList node(1, block.get());
  memory::AddSpareNode(m_mapSpareNodes);
  m_listIdleBlocks.splice(m_listIdleBlocks.begin(), node);
  static_cast<void>(block.release());  // the list's now
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

/** Gives back at most `canDelete` idle blocks, at least 1, the oldest first, as far as they have
 * been idle for long enough; schedules the next look where one has not. The check state afterwards.
 */
CRealMemoryPool::ECheckState CRealMemoryPool::ReleaseIdleBlocks(std::size_t canDelete) noexcept {
  base::Require(canDelete > 0, "canDelete > 0", kAtSurplus);
  const auto uCurrent = static_cast<qiv_uint64>(QIV_GetTimeTick64());
  base::Require(static_cast<qiv_int64>(uCurrent) >= m_iIdleTimeoutMillis,
                "static_cast<qiv_int64>(uCurrent) >= m_iIdleTimeoutMillis", kAtTick);
  const qiv_uint64 threshold = uCurrent - static_cast<qiv_uint64>(m_iIdleTimeoutMillis);
  for (std::size_t left = std::min(canDelete, m_listIdleBlocks.size()); left > 0; --left) {
    const CMemoryBlock* const oldest = m_listIdleBlocks.back();
    base::Require(oldest != nullptr, "pBlock", kAtBlock);
    const qiv_int64 remaining = oldest->TimeOffset(threshold);
    if (remaining >= 1) {
      CheckIdleTimeout(remaining);
      return kCheckScheduled;
    }
    DestroyOldestIdleBlock();
  }
  return m_listIdleBlocks.empty() ? StateWithoutIdleBlocks() : kNoCheck;
}

CRealMemoryPool::ECheckState CRealMemoryPool::StateWithoutIdleBlocks() const noexcept {
  return m_mapUsedBlocks.size() == m_nInitCount ? kNoCheck : kCheckOnceIdle;
}

void CRealMemoryPool::DestroyOldestIdleBlock() noexcept {
  delete m_listIdleBlocks.back();
  m_listIdleBlocks.pop_back();
  m_mapSpareNodes.erase(m_mapSpareNodes.begin());
}

}  // namespace qiv

// Guarded block: an allocation with guard bytes around the user's part.
#include <qiv/memory_block.h>

#include <qiv/time.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "base/contract.h"

namespace qiv {
namespace {

constexpr unsigned char kGuardByte = 0x16;
constexpr std::size_t kGuardSize = 4;

constexpr const char* kFile = "../memory_block.cpp";
constexpr base::ContractPlace kInPtr = {kFile, 25, "char* qiv::CMemoryBlock::Ptr(QIV_HANDLE)"};
constexpr base::ContractPlace kInReset = {kFile, 37, "void qiv::CMemoryBlock::Reset()"};
constexpr base::ContractPlace kInTimeOffset = {
    kFile, 71, "qiv_int64 qiv::CMemoryBlock::TimeOffset(qiv_uint64) const"};

qiv_uint64 CurrentTick() { return static_cast<qiv_uint64>(QIV_GetTimeTick64()); }

char* Allocate(unsigned int size) {
  const qiv_uint64 bytes = qiv_uint64{size} + 2 * kGuardSize;
  if (bytes > std::numeric_limits<std::size_t>::max()) return nullptr;  // on 32-bit systems
  return static_cast<char*>(std::malloc(static_cast<std::size_t>(bytes)));
}

bool IsIntact(const char* guard) {
  return std::all_of(guard, guard + kGuardSize, [](char byte) { return byte == kGuardByte; });
}

/** The text of four guard bytes, or an empty one for null. */
struct GuardText {
  explicit GuardText(const char* guard) noexcept {
    if (guard == nullptr) return;
    unsigned char bytes[kGuardSize];
    std::memcpy(bytes, guard, kGuardSize);
    std::snprintf(text, sizeof(text), " 0x%x 0x%x 0x%x 0x%x", bytes[0], bytes[1], bytes[2],
                  bytes[3]);
  }

  char text[kGuardSize * sizeof(" 0xff")] = "";
};

/** The local wall-clock time of a tick. */
struct TickText {
  TickText(QIV_TIME_T timeOfTickZero, qiv_uint64 tick) noexcept {
    QIV_CTime(text, timeOfTickZero + static_cast<QIV_TIME_T>(tick) * 1000);
  }

  char text[25];
};

}  // namespace

CMemoryBlock::CMemoryBlock(unsigned int size) noexcept
    : m_nBlockSize(size),
      m_pAlloc(Allocate(size)),
      m_pUser(m_pAlloc == nullptr || size == 0 ? nullptr : m_pAlloc + kGuardSize),
      m_bUsed(false),
      m_hLastThread(nullptr),
      m_iCreateTime(CurrentTick()),
      m_iLastTime(m_iCreateTime) {
  static_assert(sizeof(void*) != 4 || offsetof(CMemoryBlock, m_pAlloc) == 4, "in order");
  static_assert(sizeof(void*) != 4 || offsetof(CMemoryBlock, m_pUser) == 8, "in order");
  static_assert(sizeof(void*) != 4 || offsetof(CMemoryBlock, m_bUsed) == 12, "in order");
  static_assert(sizeof(void*) != 4 || offsetof(CMemoryBlock, m_hLastThread) == 16, "in order");
  static_assert(offsetof(CMemoryBlock, m_iCreateTime) + 16 == sizeof(CMemoryBlock), "in order");
  static_assert(offsetof(CMemoryBlock, m_iLastTime) + 8 == sizeof(CMemoryBlock), "last");
  ResetBoundary();
}

CMemoryBlock::~CMemoryBlock() { std::free(m_pAlloc); }

char* CMemoryBlock::Ptr(QIV_HANDLE owner) noexcept {
  base::Require(!m_bUsed, "!m_bUsed", kInPtr);
  m_hLastThread = owner;
  m_bUsed = true;
  m_iLastTime = CurrentTick();
  return m_pUser;
}

void CMemoryBlock::Reset() noexcept {
  base::Require(m_bUsed, "m_bUsed", kInReset);
  m_bUsed = false;
  m_iLastTime = CurrentTick();
}

char* CMemoryBlock::AllocPtr() const noexcept { return m_pAlloc; }

bool CMemoryBlock::BoundaryOverflow() const noexcept {
  return HasUserArea() && !(IsIntact(m_pUser + m_nBlockSize) && IsIntact(m_pAlloc));
}

void CMemoryBlock::ResetBoundary() noexcept {
  if (!HasUserArea()) return;
  std::memset(m_pAlloc, kGuardByte, kGuardSize);
  std::memset(m_pUser + m_nBlockSize, kGuardByte, kGuardSize);
}

qiv_int64 CMemoryBlock::TimeOffset(qiv_uint64 now) const noexcept {
  base::Require(!m_bUsed, "!m_bUsed", kInTimeOffset);
  return static_cast<qiv_int64>(m_iLastTime - now);
}

std::string CMemoryBlock::ToString() const {
  char text[kDescriptionSize];
  Describe(text);
  return text;
}

bool CMemoryBlock::HasUserArea() const noexcept { return m_pUser != nullptr; }

// Into the caller's storage: leaks are reported when memory is short, too.
void CMemoryBlock::Describe(char (&text)[kDescriptionSize]) const noexcept {
  const QIV_TIME_T timeOfTickZero = QIV_TimeNow() - QIV_GetTimeTick64() * 1000;
  const TickText createTime(timeOfTickZero, m_iCreateTime);
  const TickText lastTime(timeOfTickZero, m_iLastTime);
  const GuardText header(HasUserArea() ? m_pAlloc : nullptr);
  const GuardText tail(HasUserArea() ? m_pUser + m_nBlockSize : nullptr);
  // Kept: "0x" stands before what the platform prints for a pointer, which may begin so itself.
  std::snprintf(text, sizeof(text),
                "{ \"BlockSize\": %u, \"Alloc\": \"0x%p\", \"User\": \"0x%p\", \"Used\": %s"
                ", \"LastThreadId\": \"0x%p\", \"CreateTime\": \"%s\", \"LastTime\": \"%s\""
                ", \"HeaderBoundary\": \"%s\", \"TailBoundary\": \"%s\" }",
                m_nBlockSize, static_cast<void*>(m_pAlloc), static_cast<void*>(m_pUser),
                m_bUsed ? "true" : "false", m_hLastThread, createTime.text, lastTime.text,
                header.text, tail.text);
}

}  // namespace qiv

// Buffer watch: runs two routines on a block of 8 bytes and tells which one writes beyond its end.
#include <qiv/memory_block.h>
#include <qiv/thread.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

const unsigned int kFieldSize = 8;

void WriteShortName(char* field) { std::memcpy(field, "bolt", sizeof "bolt"); }

// The bug: eight characters, and no room for the NUL.
void WriteLongName(char* field) { std::memcpy(field, "fastener", sizeof "fastener"); }

QIV_HANDLE ThisThread() {
  return reinterpret_cast<QIV_HANDLE>(static_cast<std::uintptr_t>(QIV_Thread_GetSelfId()));
}

bool StaysInside(qiv::CMemoryBlock& block, void (*write)(char*)) {
  char* const field = block.Ptr(ThisThread());
  write(field);
  const bool isInside = !block.BoundaryOverflow();
  if (!isInside) block.ResetBoundary();  // ready for the next user
  block.Reset();
  return isInside;
}

}  // namespace

int main() {
  qiv::CMemoryBlock block(kFieldSize);
  if (block.AllocPtr() == nullptr) return 1;

  const bool shortIsInside = StaysInside(block, WriteShortName);
  const bool longIsInside = StaysInside(block, WriteLongName);
  const bool shortIsInsideAgain = StaysInside(block, WriteShortName);
  std::printf("short name: %s\n", shortIsInside ? "inside" : "overflow");
  std::printf("long name:  %s\n", longIsInside ? "inside" : "overflow");
  std::printf("short name: %s\n", shortIsInsideAgain ? "inside" : "overflow");
  return shortIsInside && !longIsInside && shortIsInsideAgain ? 0 : 1;
}

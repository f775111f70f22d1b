// The checksums of many files, computed by a pool of workers and printed in the order of the files,
// as cksum(1) prints them.
//
// usage: file_checksums FILE...
//
// Ends with 1 when a file could not be read.
#include <qiv/library.h>
#include <qiv/thread_pool.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

constexpr unsigned int kWorkers = 4;

struct File {
  const char* name;
  bool ok = false;
  std::uint32_t checksum = 0;
  std::uintmax_t size = 0;
};

/** The cyclic redundancy check of POSIX, most significant bit first. */
std::uint32_t AddByte(std::uint32_t crc, unsigned int byte) {
  crc ^= static_cast<std::uint32_t>(byte) << 24;
  for (int bit = 0; bit < 8; ++bit) {
    crc = (crc & 0x80000000U) != 0 ? (crc << 1) ^ 0x04C11DB7U : crc << 1;
  }
  return crc;
}

bool Read(File* file) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(file->name, "rb"),
                                                               std::fclose);
  if (!stream) return false;
  unsigned char block[16384];
  std::uint32_t crc = 0;
  for (;;) {
    const std::size_t length = std::fread(block, 1, sizeof(block), stream.get());
    for (std::size_t i = 0; i < length; ++i) crc = AddByte(crc, block[i]);
    file->size += length;
    if (length < sizeof(block)) break;
  }
  if (std::ferror(stream.get()) != 0) return false;
  for (std::uintmax_t size = file->size; size != 0; size >>= 8) crc = AddByte(crc, size & 0xFF);
  file->checksum = ~crc;
  return true;
}

void* ComputeChecksum(void* argument) {
  auto* const file = static_cast<File*>(argument);
  file->ok = Read(file);
  return nullptr;
}

bool Print(const File& file) {
  if (file.ok) {
    std::printf("%ju %ju %s\n", static_cast<std::uintmax_t>(file.checksum), file.size, file.name);
  } else {
    std::fprintf(stderr, "file_checksums: cannot read '%s'\n", file.name);
  }
  return file.ok;
}

int Fail(const char* why) {
  std::fprintf(stderr, "file_checksums: %s\n", why);
  return 1;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount < 2) {
    std::fprintf(stderr, "usage: file_checksums FILE...\n");
    return 2;
  }
  if (QIV_Init() != QIV_OK) return Fail("the library does not start");
  QIV_HANDLE pool = QIV_ThreadPool_Create(1, kWorkers);  // more workers as they are needed
  if (pool == nullptr) return Fail("there is no pool");

  std::vector<File> files;
  for (int i = 1; i < argumentCount; ++i) files.push_back({arguments[i]});
  bool all = true;
  for (File& file : files) {
    // The last argument: wait while all workers are busy.
    all = QIV_ThreadPool_WorkEx(pool, ComputeChecksum, &file, 1) == QIV_OK && all;
  }
  QIV_ThreadPool_Destroy(pool);  // after the last item
  for (const File& file : files) all = Print(file) && all;
  QIV_Fini();
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
    return Fail("the checksums cannot be written");
  return all ? 0 : 1;
}

// The transfer of a file's content.
#ifndef QIV_SYS_FILE_COPY_H
#define QIV_SYS_FILE_COPY_H

#include <sys/types.h>

#include <cstddef>

namespace qiv {

constexpr std::size_t kCopyBlockBytes = std::size_t{128} * 1024;

/** Copies `count` bytes from one descriptor's position to the other's through a block of
 *  kCopyBlockBytes; false when the source ends before or a call fails. */
bool CopyBytes(int source, int target, off_t count, char* block) noexcept;

}  // namespace qiv

#endif

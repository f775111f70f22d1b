// The transfer of a file's content.
#ifndef QIV_SYS_FILE_COPY_H
#define QIV_SYS_FILE_COPY_H

#include <sys/types.h>

namespace qiv {

/** Copies `count` bytes from one descriptor's position to the other's; false when the source ends
 *  before, a call fails or memory is short. */
bool CopyBytes(int source, int target, off_t count) noexcept;

}  // namespace qiv

#endif

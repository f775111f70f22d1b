// The library-wide table from a socket descriptor to its object.
#ifndef QIV_AIO_SOCKET_TABLE_H
#define QIV_AIO_SOCKET_TABLE_H

#include <atomic>

#include "aio/socket_operation.h"

/**
 * Entries change under both side mutexes of their socket, so that either of them keeps an entry,
 * and the object behind it, as it is.
 */
extern std::atomic<CSocketOperation*> gSocketOpr[qiv::aio::kSocketLimit];

namespace qiv::aio {

/** The entry of a socket, of which the caller holds a side mutex. */
inline CSocketOperation* TableEntry(int socket) noexcept {
  return gSocketOpr[socket].load(std::memory_order_relaxed);  // ordered by the side mutex
}

}  // namespace qiv::aio

#endif

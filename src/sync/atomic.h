// The lock of the atomic functions, shared with the tests.
#ifndef QIV_SYNC_ATOMIC_H
#define QIV_SYNC_ATOMIC_H

#include "base/constant_mutex.h"

namespace qiv::sync {

extern base::ConstantMutex g_atomicsMutex;

}  // namespace qiv::sync

#endif

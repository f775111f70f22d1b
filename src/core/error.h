// State of the last-error store, shared with its tests.
#ifndef QIV_CORE_ERROR_H
#define QIV_CORE_ERROR_H

#include <pthread.h>

#include <atomic>

namespace qiv {

extern std::atomic<pthread_key_t> g_cQivTlsKey;

/** 1 while the key exists, else 0: the only test of whether the store can be used. */
extern std::atomic<unsigned char> g_bQivCreateTlsKeySuccess;

}  // namespace qiv

#endif

// The key of the trace records, shared with the tests.
#ifndef QIV_LOG_TRACE_INFO_H
#define QIV_LOG_TRACE_INFO_H

#include <atomic>

namespace qiv {

/** The thread-local key under which each thread keeps its context; all bits set without a key. */
extern std::atomic<unsigned int> g_qiv_store_tls_handle;

}  // namespace qiv

#endif

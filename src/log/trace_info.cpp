// Trace information: one thread-local key that holds the address of each thread's context, and one
// owner of all contexts.
//
// m_contexts is guarded by m_mutex; under it only the mutex of a context is taken. A context's
// content belongs to its thread. The key is written while the library is loaded and unloaded and
// read without a lock: once it is gone, no thread finds a context, so no thread that still runs
// while the process ends reaches the owner's map or mutex after their destruction.
#include "log/trace_info.h"

#include <qiv/thread.h>
#include <qiv/trace_info.h>

#include <new>

#include "base/diagnostic.h"
#include "base/load_order.h"
#include "base/scoped_lock.h"

namespace qiv {

std::atomic<unsigned int> g_qiv_store_tls_handle{QIV_INVALID_ID};

namespace {

unsigned int StoreKey() { return g_qiv_store_tls_handle.load(std::memory_order_acquire); }

CTraceInfo_context* ContextOfThisThread() {
  return static_cast<CTraceInfo_context*>(QIV_ThreadTls_GetValue(StoreKey()));
}

bool StoreContext(CTraceInfo_context* context) {
  const unsigned int key = StoreKey();
  if (QIV_ThreadTls_SetValue(key, context) == QIV_OK) return true;
  base::Diagnose("QIV_ThreadTls_SetValue failed! g_qiv_store_tls_handle{%llu}\r\n",
                 static_cast<unsigned long long>(key));
  return false;
}

bool IsEmpty(const QIV_TRACEINFO& record) {
  return record.firstText[0] == '\0' && record.secondText[0] == '\0';
}

/** Makes the key live as long as the library. */
class StoreKeyLifetime {
 public:
  StoreKeyLifetime() noexcept { qiv_at_initprocess(); }
  ~StoreKeyLifetime() { qiv_at_finiproccess(); }
  StoreKeyLifetime(const StoreKeyLifetime&) = delete;
  StoreKeyLifetime& operator=(const StoreKeyLifetime&) = delete;
};

QIV_LOAD_ORDER(QIV_LOAD_TRACE_KEY) StoreKeyLifetime g_storeKeyLifetime;

}  // namespace

// A plain mutex: a child made by fork() may unlock it.
qiv_tlsTraceInfoOperImpl::qiv_tlsTraceInfoOperImpl() : m_mutex(0) {}

/** Waits until detached threads, which nobody joins, have let go of the mutex. */
qiv_tlsTraceInfoOperImpl::~qiv_tlsTraceInfoOperImpl() { const base::ScopedLock lock(m_mutex); }

int qiv_tlsTraceInfoOperImpl::setTraceInfo(const QIV_TRACEINFO* record) noexcept {
  if (record == nullptr || IsEmpty(*record)) return QIV_ERROR;
  try {
    CTraceInfo_context* const current = ContextOfThisThread();
    const ContextPointer context(current != nullptr ? current : new CTraceInfo_context);
    context->assign(*record);
    if (!StoreContext(context.get())) return QIV_ERROR;
    return current != nullptr || enter(context) ? QIV_OK : QIV_ERROR;
  } catch (const std::bad_alloc&) {
    return QIV_ERROR;
  }
}

int qiv_tlsTraceInfoOperImpl::getTraceInfo(QIV_TRACEINFO* record) const noexcept {
  if (record == nullptr) {
    base::Diagnose("traceInfo is null ptr\r\n");
    return QIV_ERROR;
  }
  const CTraceInfo_context* const context = ContextOfThisThread();
  if (context == nullptr) {
    *record = QIV_TRACEINFO();
    return QIV_ERROR;
  }
  context->copyTo(record);
  return QIV_OK;
}

int qiv_tlsTraceInfoOperImpl::eraseTraceInfo() noexcept {
  CTraceInfo_context* const context = ContextOfThisThread();
  if (context != nullptr) {
    const base::ScopedLock lock(m_mutex);
    m_contexts.erase(context);
  }
  QIV_ThreadTls_SetValue(StoreKey(), nullptr);
  return QIV_OK;
}

std::size_t qiv_tlsTraceInfoOperImpl::contextCount() noexcept {
  const base::ScopedLock lock(m_mutex);
  return m_contexts.size();
}

void qiv_tlsTraceInfoOperImpl::lockForFork() noexcept QIV_NO_THREAD_SAFETY_ANALYSIS {
  m_mutex.Lock();
}

void qiv_tlsTraceInfoOperImpl::unlockAfterFork() noexcept QIV_NO_THREAD_SAFETY_ANALYSIS {
  m_mutex.Unlock();
}

/** Takes over a context that this thread has just stored, or takes it out of the thread again. */
bool qiv_tlsTraceInfoOperImpl::enter(const ContextPointer& context) noexcept {
  try {
    const base::ScopedLock lock(m_mutex);
    m_contexts.emplace(context.get(), context);
    return true;
  } catch (const std::bad_alloc&) {
    QIV_ThreadTls_SetValue(StoreKey(), nullptr);
    return false;
  }
}

QIV_LOAD_ORDER(QIV_LOAD_TRACE_SINGLETON)
qiv_tlsTraceInfoOper qiv_tlsTraceInfoOper::m_tlsTraceInfoOper;

qiv_tlsTraceInfoOper* qiv_tlsTraceInfoOper::instance() noexcept { return &m_tlsTraceInfoOper; }

qiv_tlsTraceInfoOper::qiv_tlsTraceInfoOper() noexcept
    : m_impl(new (std::nothrow) qiv_tlsTraceInfoOperImpl) {}

qiv_tlsTraceInfoOper::~qiv_tlsTraceInfoOper() {
  delete m_impl.exchange(nullptr, std::memory_order_acq_rel);
}

int qiv_tlsTraceInfoOper::setTraceInfo(const QIV_TRACEINFO* record) noexcept {
  qiv_tlsTraceInfoOperImpl* const impl = m_impl.load(std::memory_order_acquire);
  return impl == nullptr ? QIV_ERROR : impl->setTraceInfo(record);
}

int qiv_tlsTraceInfoOper::getTraceInfo(QIV_TRACEINFO* record) noexcept {
  const qiv_tlsTraceInfoOperImpl* const impl = m_impl.load(std::memory_order_acquire);
  if (impl != nullptr) return impl->getTraceInfo(record);
  if (record != nullptr) *record = QIV_TRACEINFO();
  return QIV_ERROR;
}

int qiv_tlsTraceInfoOper::eraseTraceInfo() noexcept {
  qiv_tlsTraceInfoOperImpl* const impl = m_impl.load(std::memory_order_acquire);
  return impl == nullptr ? QIV_ERROR : impl->eraseTraceInfo();
}

void qiv_tlsTraceInfoOper::lockForFork() noexcept {
  qiv_tlsTraceInfoOperImpl* const impl = m_impl.load(std::memory_order_acquire);
  if (impl != nullptr) impl->lockForFork();
}

void qiv_tlsTraceInfoOper::unlockAfterFork() noexcept {
  qiv_tlsTraceInfoOperImpl* const impl = m_impl.load(std::memory_order_acquire);
  if (impl != nullptr) impl->unlockAfterFork();
}

int qiv_tls_alloc() noexcept {
  const unsigned int key = QIV_ThreadTls_Create();
  const unsigned int replaced = g_qiv_store_tls_handle.exchange(key, std::memory_order_acq_rel);
  QIV_ThreadTls_Destroy(replaced);
  if (key == QIV_INVALID_ID) {
    base::Diagnose("tls_alloc, but QIV_ThreadTls_Create failed!\r\n");
    return QIV_ERROR;
  }
  base::Diagnose("qiv tls index{%llu}\r\n", static_cast<unsigned long long>(key));
  return QIV_OK;
}

int qiv_tls_free() noexcept {
  // Threads that still run must find no key rather than one that another library may get next.
  const unsigned int key =
      g_qiv_store_tls_handle.exchange(QIV_INVALID_ID, std::memory_order_acq_rel);
  return key == QIV_INVALID_ID ? QIV_ERROR : QIV_ThreadTls_Destroy(key);
}

void qiv_at_initprocess() noexcept { qiv_tls_alloc(); }

void qiv_at_finiproccess() noexcept { qiv_tls_free(); }

}  // namespace qiv

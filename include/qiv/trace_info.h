/**
 * @file
 * Trace information: a record per thread that identifies the piece of work the thread is doing.
 *
 * The record travels with the work: a new thread starts with its creator's record, a pooled work
 * item brings its submitter's. What the texts and flags mean is the application's business; the
 * library only copies them. C programs reach the record through the threads they create; reading
 * and writing it is a matter of the classes below.
 */
#ifndef QIV_TRACE_INFO_H
#define QIV_TRACE_INFO_H

#include <qiv/mutex.h>
#include <qiv/types.h>

/** Bytes of each text of a trace record: up to 64 characters and the final NUL. */
#define QIV_TRACE_TEXT_SIZE 65

QIV_EXTERN_C_BEGIN

/**
 * A trace record: 197 bytes without gaps.
 *
 * It counts as empty when its first and its second text are empty, whatever the rest holds. A text
 * without a NUL is read as its first 64 characters.
 */
typedef struct QIV_TRACEINFO {
  char firstText[QIV_TRACE_TEXT_SIZE];  /**< empty together with the second: an empty record */
  char secondText[QIV_TRACE_TEXT_SIZE]; /**< as the first */
  char thirdText[QIV_TRACE_TEXT_SIZE];  /**< may be empty in any record */
  unsigned char firstFlag;              /**< copied as it is */
  unsigned char secondFlag;             /**< copied as it is */
} QIV_TRACEINFO;

QIV_EXTERN_C_END

#ifdef __cplusplus

#include <atomic>
#include <cstddef>
#include <map>
#include <string>
#include <type_traits>

/**
 * Base of objects that live as long as somebody counts on them; reached through smartptr.
 *
 * The count starts at 0 and is guarded by the object's own mutex, so references may be taken and
 * dropped by any threads. The object must come from new: the drop to 0 deletes it, once, even when
 * its destructor takes and drops references to it.
 */
class QIV_API shared_object {
 public:
  /** The type of the mutex that guards the count. */
  typedef qiv::qiv_mutex mutex_type;

  shared_object() noexcept;
  virtual ~shared_object();
  shared_object(const shared_object&) = delete;
  shared_object& operator=(const shared_object&) = delete;

  /** Takes a reference. */
  void addReference() noexcept;
  /** Drops a reference; deletes the object when it was the last one. */
  void releaseReference() noexcept;

 private:
  unsigned int m_count QIV_GUARDED_BY(m_mutex);
  qiv::qiv_mutex m_mutex;
  bool m_destroyed QIV_GUARDED_BY(m_mutex);
};

/**
 * A counted pointer: holds one reference to an object, or none when it is null.
 *
 * Different pointers to one object may be used by different threads at once; one pointer may not.
 *
 * @tparam Object   the type pointed to, derived from `Counted`
 * @tparam Counted  the reference-counted base
 * @tparam Mutex    the type of the mutex that guards the count in `Counted`
 */
template <class Object, class Counted, class Mutex>
class smartptr {
  static_assert(std::is_same<typename Counted::mutex_type, Mutex>::value,
                "the count is guarded by another type of mutex");

 public:
  smartptr() noexcept : m_object(nullptr) {}
  /** Takes a reference. Null makes a null pointer. */
  explicit smartptr(Object* object) noexcept : m_object(object) { add(); }
  /** Takes a reference to the other's object. */
  smartptr(const smartptr& other) noexcept : m_object(other.m_object) { add(); }
  /** Takes over the other's reference and leaves it null. */
  smartptr(smartptr&& other) noexcept : m_object(other.m_object) { other.m_object = nullptr; }
  ~smartptr() { release(); }

  /** Points to the other's object from now on and drops the reference held before. */
  smartptr& operator=(smartptr other) noexcept {
    Object* const mine = m_object;
    m_object = other.m_object;
    other.m_object = mine;
    return *this;
  }

  /** @return the object, without a reference of its own; or null */
  Object* get() const noexcept { return m_object; }
  /** @return the object; the pointer must not be null */
  Object* operator->() const noexcept { return m_object; }
  /** @return the object; the pointer must not be null */
  Object& operator*() const noexcept { return *m_object; }
  /** @return whether the pointer has an object */
  explicit operator bool() const noexcept { return m_object != nullptr; }

 private:
  void add() noexcept {
    if (m_object != nullptr) static_cast<Counted*>(m_object)->addReference();
  }
  void release() noexcept {
    if (m_object != nullptr) static_cast<Counted*>(m_object)->releaseReference();
  }

  Object* m_object;
};

namespace qiv {

/** One thread's copy of a trace record. Used by that thread only, except for its count. */
class QIV_API CTraceInfo_context : public shared_object {
 public:
  /** Empty texts, zero flags. Throws std::bad_alloc. */
  CTraceInfo_context();
  ~CTraceInfo_context() override;

  /** Takes the texts and flags over; all the memory it needs is there since construction. */
  void assign(const QIV_TRACEINFO& record) noexcept;

  /** Fills the whole of `record`; every text is terminated and the unused bytes are zero. */
  void copyTo(QIV_TRACEINFO* record) const noexcept;

 private:
  std::string m_firstText;
  std::string m_secondText;
  std::string m_thirdText;
  unsigned char m_firstFlag;
  unsigned char m_secondFlag;
};

/**
 * Owner of the threads' contexts. Applications use qiv_tlsTraceInfoOper, which has one of these and
 * the same operations.
 */
class QIV_API qiv_tlsTraceInfoOperImpl {
 public:
  qiv_tlsTraceInfoOperImpl();
  virtual ~qiv_tlsTraceInfoOperImpl();
  qiv_tlsTraceInfoOperImpl(const qiv_tlsTraceInfoOperImpl&) = delete;
  qiv_tlsTraceInfoOperImpl& operator=(const qiv_tlsTraceInfoOperImpl&) = delete;

  /** Does what qiv_tlsTraceInfoOper::setTraceInfo() does. */
  int setTraceInfo(const QIV_TRACEINFO* record) noexcept;
  /** Does what qiv_tlsTraceInfoOper::getTraceInfo() does. */
  int getTraceInfo(QIV_TRACEINFO* record) const noexcept;
  /** Does what qiv_tlsTraceInfoOper::eraseTraceInfo() does. */
  int eraseTraceInfo() noexcept;

  /** Contexts held at the moment. */
  std::size_t contextCount() noexcept;

  /** Keeps other threads from changing the set of records; the library does before a fork. */
  QIV_INTERNAL void lockForFork() noexcept;
  /** Ends lockForFork(), in the parent and in the child. */
  QIV_INTERNAL void unlockAfterFork() noexcept;

 private:
  typedef smartptr<CTraceInfo_context, shared_object, qiv_mutex> ContextPointer;

  QIV_INTERNAL bool enter(const ContextPointer& context) noexcept;

  // The mutex goes first at destruction, so it stands last.
  std::map<CTraceInfo_context*, ContextPointer> m_contexts QIV_GUARDED_BY(m_mutex);
  QIV_Mutex m_mutex;
};

/**
 * The calling thread's trace record: qiv_tlsTraceInfoOper::instance()->setTraceInfo(&record).
 *
 * The one instance exists from the load of the library to its unload. All three operations may be
 * called by any threads at once: each thread has a record of its own. A thread
 * should erase the record that it installed before it ends; otherwise the copy stays until the
 * library is unloaded. Threads that the library starts erase what they inherited.
 */
class QIV_API qiv_tlsTraceInfoOper {
 public:
  /** @return the one instance; never null */
  static qiv_tlsTraceInfoOper* instance() noexcept;

  virtual ~qiv_tlsTraceInfoOper();
  qiv_tlsTraceInfoOper(const qiv_tlsTraceInfoOper&) = delete;
  qiv_tlsTraceInfoOper& operator=(const qiv_tlsTraceInfoOper&) = delete;

  /**
   * Installs a record in the calling thread, in place of the one that it has.
   *
   * @param record  the record to copy; null or an empty one is refused and changes nothing
   * @return 0; -1 when the record is refused, when memory is short (nothing is changed), or when
   *         the thread-local store is gone (one line on standard error)
   * @par Errors         no errno
   * @par Thread safety  any threads
   * @par System         pthread_setspecific(3p)
   */
  int setTraceInfo(const QIV_TRACEINFO* record) noexcept;

  /**
   * Reads the calling thread's record.
   *
   * @param record  filled as a whole, 197 bytes; with zero when the thread has no record. Null is
   *                refused with one line on standard error.
   * @return 0; -1 when the thread has no record or `record` is null
   * @par Errors         no errno
   * @par Thread safety  any threads; takes no lock
   * @par System         pthread_getspecific(3p)
   */
  int getTraceInfo(QIV_TRACEINFO* record) noexcept;

  /**
   * Removes the calling thread's record, if it has one.
   *
   * @return 0, also when there was none; -1 outside the library's lifetime
   * @par Errors         no errno
   * @par Thread safety  any threads
   * @par System         pthread_setspecific(3p)
   */
  int eraseTraceInfo() noexcept;

  /** Keeps other threads from changing the set of records; the library does before a fork. */
  QIV_INTERNAL void lockForFork() noexcept;
  /** Ends lockForFork(), in the parent and in the child. */
  QIV_INTERNAL void unlockAfterFork() noexcept;

 private:
  qiv_tlsTraceInfoOper() noexcept;

  static qiv_tlsTraceInfoOper m_tlsTraceInfoOper;

  // Null before construction and after destruction: threads may call in while the process ends.
  std::atomic<qiv_tlsTraceInfoOperImpl*> m_impl;
};

/**
 * Creates the thread-local key of the trace records; the load of the library does. Prints one line
 * on standard error: the key's number, or that there is none.
 *
 * A second call replaces the key, and every thread loses its record.
 *
 * @return 0, or -1 when the platform has no key left (then there are no records)
 * @par Errors         no errno
 * @par Thread safety  one thread, while no other one uses trace records
 * @par System         pthread_key_create(3p)
 */
QIV_API int qiv_tls_alloc() noexcept;

/**
 * Deletes the thread-local key of the trace records; the unload of the library does.
 *
 * @return 0; -1 when there is no key or the platform refuses
 * @par Errors         no errno
 * @par Thread safety  one thread
 * @par System         pthread_key_delete(3p)
 */
QIV_API int qiv_tls_free() noexcept;

/**
 * Runs qiv_tls_alloc(): the last step of the load of the library.
 *
 * @par Errors         no errno
 * @par Thread safety  as qiv_tls_alloc()
 * @par System         pthread_key_create(3p)
 */
QIV_API void qiv_at_initprocess() noexcept;

/**
 * Runs qiv_tls_free(): the first step of the unload of the library.
 *
 * @par Errors         no errno
 * @par Thread safety  as qiv_tls_free()
 * @par System         pthread_key_delete(3p)
 */
QIV_API void qiv_at_finiproccess() noexcept;

}  // namespace qiv

#endif  // __cplusplus

#endif

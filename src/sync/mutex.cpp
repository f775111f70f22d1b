// Mutexes: the platform's mutex behind checked functions and four thin classes.
#include <qiv/mutex.h>

static_assert(sizeof(QIV_Mutex) == sizeof(pthread_mutex_t), "nothing else");
static_assert(sizeof(QIV_UniqueMutex) == sizeof(pthread_mutex_t), "nothing else");
static_assert(sizeof(qiv::qiv_mutex) == sizeof(pthread_mutex_t), "nothing else");
static_assert(sizeof(qiv::qiv_recursive_mutex) == sizeof(void*) + sizeof(pthread_mutex_t),
              "virtual table and mutex");

namespace {

constexpr int kRecursiveFlag = -1;

int ToResult(int platformError) { return platformError == 0 ? QIV_OK : QIV_ERROR; }

}  // namespace

QIV_Mutex::QIV_Mutex() noexcept { QIV_MutexCreate(&m_mutex, kRecursiveFlag); }
QIV_Mutex::QIV_Mutex(unsigned int type) noexcept {
  QIV_MutexCreate(&m_mutex, static_cast<int>(type));
}
QIV_Mutex::~QIV_Mutex() { QIV_MutexDestroy(&m_mutex); }
int QIV_Mutex::Lock() noexcept { return QIV_MutexLock(&m_mutex); }
int QIV_Mutex::Unlock() noexcept { return QIV_MutexUnlock(&m_mutex); }
int QIV_Mutex::TryLock() noexcept { return QIV_MutexTryLock(&m_mutex); }

QIV_UniqueMutex::QIV_UniqueMutex() noexcept { QIV_MutexCreate(&m_mutex, PTHREAD_MUTEX_NORMAL); }
QIV_UniqueMutex::QIV_UniqueMutex(unsigned int type) noexcept {
  QIV_MutexCreate(&m_mutex, static_cast<int>(type));
}
QIV_UniqueMutex::~QIV_UniqueMutex() { QIV_MutexDestroy(&m_mutex); }
int QIV_UniqueMutex::Lock() noexcept { return QIV_MutexLock(&m_mutex); }
int QIV_UniqueMutex::Unlock() noexcept { return QIV_MutexUnlock(&m_mutex); }
int QIV_UniqueMutex::TryLock() noexcept { return QIV_MutexTryLock(&m_mutex); }

namespace qiv {

qiv_mutex::qiv_mutex() noexcept : qiv_mutex(kRecursiveFlag) {}
qiv_mutex::qiv_mutex(int type) noexcept { QIV_MutexCreate(&m_mutex, type); }
qiv_mutex::~qiv_mutex() { QIV_MutexDestroy(&m_mutex); }
int qiv_mutex::lock() noexcept { return QIV_MutexLock(&m_mutex); }
int qiv_mutex::trylock() noexcept { return QIV_MutexTryLock(&m_mutex); }
int qiv_mutex::unlock() noexcept { return QIV_MutexUnlock(&m_mutex); }

qiv_recursive_mutex::qiv_recursive_mutex() noexcept { QIV_MutexCreate(&m_mutex, kRecursiveFlag); }
qiv_recursive_mutex::~qiv_recursive_mutex() { QIV_MutexDestroy(&m_mutex); }
int qiv_recursive_mutex::lock() noexcept { return QIV_MutexLock(&m_mutex); }
int qiv_recursive_mutex::trylock() noexcept { return QIV_MutexTryLock(&m_mutex); }
int qiv_recursive_mutex::unlock() noexcept { return QIV_MutexUnlock(&m_mutex); }

}  // namespace qiv

extern "C" {

int QIV_MutexCreate(pthread_mutex_t* mutex, int type) noexcept {
  if (mutex == nullptr) return QIV_ERROR;
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  // Kept: creation never fails for a valid address. An unknown type leaves the default one.
  pthread_mutexattr_settype(&attributes, type == kRecursiveFlag ? PTHREAD_MUTEX_RECURSIVE : type);
  pthread_mutex_init(mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
  return QIV_OK;
}

int QIV_MutexDestroy(pthread_mutex_t* mutex) noexcept {
  return mutex == nullptr ? QIV_ERROR : ToResult(pthread_mutex_destroy(mutex));
}

int QIV_MutexLock(pthread_mutex_t* mutex) noexcept {
  return mutex == nullptr ? QIV_ERROR : ToResult(pthread_mutex_lock(mutex));
}

int QIV_MutexTryLock(pthread_mutex_t* mutex) noexcept {
  return mutex == nullptr ? QIV_ERROR : ToResult(pthread_mutex_trylock(mutex));
}

int QIV_MutexUnlock(pthread_mutex_t* mutex) noexcept {
  return mutex == nullptr ? QIV_ERROR : ToResult(pthread_mutex_unlock(mutex));
}

}  // extern "C"

// Thread-local keys: the platform's keys as 32-bit numbers.
#include <pthread.h>
#include <qiv/thread.h>

static_assert(sizeof(pthread_key_t) <= sizeof(unsigned int), "a key is a 32-bit value");

extern "C" {

unsigned int QIV_ThreadTls_Create(void) noexcept {
  pthread_key_t key = 0;
  return pthread_key_create(&key, nullptr) == 0 ? static_cast<unsigned int>(key) : QIV_INVALID_ID;
}

int QIV_ThreadTls_SetValue(unsigned int key, void* value) noexcept {
  if (key == QIV_INVALID_ID) return QIV_ERROR;
  return pthread_setspecific(static_cast<pthread_key_t>(key), value) == 0 ? QIV_OK : QIV_ERROR;
}

void* QIV_ThreadTls_GetValue(unsigned int key) noexcept {
  return key == QIV_INVALID_ID ? nullptr : pthread_getspecific(static_cast<pthread_key_t>(key));
}

int QIV_ThreadTls_Destroy(unsigned int key) noexcept {
  if (key == QIV_INVALID_ID) return QIV_ERROR;
  return pthread_key_delete(static_cast<pthread_key_t>(key)) == 0 ? QIV_OK : QIV_ERROR;
}

}  // extern "C"

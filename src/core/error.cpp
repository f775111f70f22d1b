// Last error: one platform key whose slot holds the code itself.
//
// The key and the success byte are written under the library mutex and read without a lock.
#include "core/error.h"

#include <qiv/error.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace qiv {

std::atomic<pthread_key_t> g_cQivTlsKey{0};
std::atomic<unsigned char> g_bQivCreateTlsKeySuccess{0};

namespace {

bool StoreExists() { return g_bQivCreateTlsKeySuccess.load(std::memory_order_acquire) == 1; }
pthread_key_t StoreKey() { return g_cQivTlsKey.load(std::memory_order_acquire); }

}  // namespace

int CreateTlsKey() noexcept {
  pthread_key_t key = 0;
  const int result = pthread_key_create(&key, nullptr);
  if (result != 0) return result;
  g_cQivTlsKey.store(key, std::memory_order_release);
  g_bQivCreateTlsKeySuccess.store(1, std::memory_order_release);
  return 0;
}

int DestroyTlsKey() noexcept {
  // Without a store the number may be that of somebody else's key.
  if (g_bQivCreateTlsKeySuccess.exchange(0, std::memory_order_acq_rel) == 0) return EINVAL;
  return pthread_key_delete(StoreKey());
}

void* GetTlsValue() noexcept { return StoreExists() ? pthread_getspecific(StoreKey()) : nullptr; }

int SetTlsValue(void* value) noexcept {
  return StoreExists() ? pthread_setspecific(StoreKey(), value) : EINVAL;
}

}  // namespace qiv

extern "C" {

int QIV_SetLastError(unsigned int code) noexcept { return QIV_SetLastError_Inter(code); }

unsigned int QIV_GetLastError(void) noexcept { return QIV_GetLastError_Inter(); }

int QIV_GetSystemLastError(void) noexcept { return errno; }

void QIV_SetSystemLastError(int error) noexcept { errno = error; }

const char* QIV_GetSystemErrorString(int error) noexcept { return std::strerror(error); }

int QIV_InitError_Inter(void) noexcept {
  qiv::CreateTlsKey();
  // Kept: the byte decides, not the call, so a store that stands from an earlier start is a
  // success.
  return qiv::StoreExists() ? QIV_OK : QIV_ERROR;
}

int QIV_FiniError_Inter(void) noexcept {
  if (qiv::StoreExists()) qiv::DestroyTlsKey();
  return QIV_OK;
}

int QIV_SetLastError_Inter(unsigned int code) noexcept {
  if (!qiv::StoreExists()) return QIV_ERROR;
  // Kept: the platform's result of storing is ignored.
  qiv::SetTlsValue(reinterpret_cast<void*>(static_cast<std::uintptr_t>(code)));
  return QIV_OK;
}

unsigned int QIV_GetLastError_Inter(void) noexcept {
  if (!qiv::StoreExists()) return 0;
  return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(qiv::GetTlsValue()));
}

}  // extern "C"

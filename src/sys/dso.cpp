// Dynamic libraries: the platform's loader, with null arguments refused.
#include <dlfcn.h>
#include <qiv/dso.h>

#include <cstdint>

namespace {

// All bits set: the loader takes it for a pseudo-handle when it looks symbols up, and crashes when
// it unloads.
bool IsPseudoHandle(QIV_HANDLE library) {
  return reinterpret_cast<std::uintptr_t>(library) == UINTPTR_MAX;
}

}  // namespace

extern "C" {

QIV_HANDLE QIV_LoadDSoEx(const char* path, int flags) {
  return path == nullptr ? nullptr : dlopen(path, flags);
}

QIV_HANDLE QIV_LoadDSo(const char* path) { return QIV_LoadDSoEx(path, RTLD_NOW | RTLD_GLOBAL); }

int QIV_UnloadDSo(QIV_HANDLE library) {
  if (library == nullptr || IsPseudoHandle(library)) return QIV_ERROR;
  return dlclose(library) == 0 ? QIV_OK : QIV_ERROR;
}

void* QIV_GetDsoSym(QIV_HANDLE library, const char* name) noexcept {
  return library == nullptr || name == nullptr ? nullptr : dlsym(library, name);
}

}  // extern "C"

// The preferred address family: written by a start of the library, read without a lock.
#include <qiv/library.h>

int g_Af = 0;

extern "C" int QIV_GetAf_Inner(int family) noexcept {
  // Relaxed: the number stands alone, nothing is published with it.
  return family == QIV_AF_PREFERRED ? __atomic_load_n(&g_Af, __ATOMIC_RELAXED) : family;
}

// Sleep and random numbers.
#include <qiv/system.h>
#include <qiv/time.h>
#include <unistd.h>

#include <cstdlib>

extern "C" {

int QIV_USleep(unsigned int us) { return usleep(us); }

// Kept: the product is one of 32 bits.
int QIV_Sleep(unsigned int ms) { return usleep(1000 * ms); }

int QIV_Rand(void) noexcept {
  // Kept: calls within the same millisecond give the same number.
  srandom(QIV_GetTimeTick());
  return static_cast<int>(random());
}

}  // extern "C"

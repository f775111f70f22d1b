// The local time zone of the test process.
#ifndef QIV_TESTS_SUPPORT_TIME_ZONE_H
#define QIV_TESTS_SUPPORT_TIME_ZONE_H

#include <time.h>

#include <cstdlib>

namespace qiv::test {

/** @param zone  a value of TZ in POSIX form, which every C library reads: "CCC-8" */
inline void SetZone(const char* zone) {
  setenv("TZ", zone, 1);
  tzset();
}

}  // namespace qiv::test

#endif

/*
 * Included first wherever scripts/check-musl.sh compiles C++. The C++ library of this machine was
 * configured for glibc; this takes back what its headers would use of glibc and musl lacks.
 */
#define __GLIBC_PREREQ(major, minor) 0
#include <bits/c++config.h>
#undef __GLIBC_PREREQ

#undef _GLIBCXX_USE_PTHREAD_COND_CLOCKWAIT
#undef _GLIBCXX_USE_PTHREAD_MUTEX_CLOCKLOCK
#undef _GLIBCXX_USE_PTHREAD_RWLOCK_CLOCKLOCK
#define __locale_t locale_t

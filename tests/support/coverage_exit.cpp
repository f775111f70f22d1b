// With counted code only: writes the counters also where a process ends without exit(3), as the
// children of tests do on purpose. The linker sends the calls here (tests/CMakeLists.txt).
#ifdef QIV_TEST_COVERAGE

#include <cstdlib>

extern "C" {

void __gcov_dump(void);

void __real__exit(int status) __attribute__((noreturn));
void __wrap__exit(int status) __attribute__((noreturn));
void __wrap__exit(int status) {
  __gcov_dump();
  __real__exit(status);
}

void __real__Exit(int status) __attribute__((noreturn));
void __wrap__Exit(int status) __attribute__((noreturn));
void __wrap__Exit(int status) {
  __gcov_dump();
  __real__Exit(status);
}

void __real___assert_fail(const char* assertion, const char* file, unsigned int line,
                          const char* function) __attribute__((noreturn));
void __wrap___assert_fail(const char* assertion, const char* file, unsigned int line,
                          const char* function) __attribute__((noreturn));
void __wrap___assert_fail(const char* assertion, const char* file, unsigned int line,
                          const char* function) {
  __gcov_dump();
  __real___assert_fail(assertion, file, line, function);
}

}  // extern "C"

#endif

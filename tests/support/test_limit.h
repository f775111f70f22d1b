// How long a test waits for something that should happen at once.
#ifndef QIV_TESTS_SUPPORT_TEST_LIMIT_H
#define QIV_TESTS_SUPPORT_TEST_LIMIT_H

#include <chrono>

namespace qiv::test {

/** 20 s, times QIV_TEST_TIME_SCALE from the environment for slow machines. */
std::chrono::milliseconds TestLimit();

/** The factor by which stress tests are scaled: QIV_TEST_LOAD from the environment, in percent. */
int ScaledLoad(int fullLoad);

}  // namespace qiv::test

#endif

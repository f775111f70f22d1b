#include <qiv/error.h>

#include <gtest/gtest.h>
#include <qiv/library.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "core/error.h"
#include "support/leak_check.h"
#include "support/run_in_thread.h"

namespace {

class ErrorTest : public qiv::test::LeakCheckedTest {};

TEST_F(ErrorTest, WithoutAStartNothingIsStored) {
  EXPECT_EQ(-1, QIV_SetLastError(5));
  EXPECT_EQ(0u, QIV_GetLastError());
}

TEST_F(ErrorTest, AfterAStartEachThreadHasItsOwnValue) {
  ASSERT_EQ(0, QIV_Init());
  EXPECT_EQ(0, QIV_SetLastError(5));
  EXPECT_EQ(5u, QIV_GetLastError());
  EXPECT_EQ(0u, qiv::test::RunInThread([] { return QIV_GetLastError(); }).Get());
  EXPECT_EQ(0, QIV_Fini());
}

TEST_F(ErrorTest, EveryBitOfTheCodeIsKept) {
  ASSERT_EQ(0, QIV_Init());
  EXPECT_EQ(0, QIV_SetLastError(0xFFFFFFFFu));
  EXPECT_EQ(0xFFFFFFFFu, QIV_GetLastError());
  EXPECT_EQ(0, QIV_SetLastError(0));
  EXPECT_EQ(0u, QIV_GetLastError());
  EXPECT_EQ(0, QIV_Fini());
}

TEST_F(ErrorTest, AfterTheLastStopTheValueIsGone) {
  ASSERT_EQ(0, QIV_Init());
  ASSERT_EQ(0, QIV_SetLastError(7));
  ASSERT_EQ(0, QIV_Fini());
  EXPECT_EQ(0u, QIV_GetLastError());
  EXPECT_EQ(-1, QIV_SetLastError(8));
  ASSERT_EQ(0, QIV_Init());
  EXPECT_EQ(0u, QIV_GetLastError());
  EXPECT_EQ(0, QIV_Fini());
}

TEST_F(ErrorTest, TheInterFormsAreTheSameStore) {
  ASSERT_EQ(0, QIV_InitError_Inter());
  EXPECT_EQ(0, QIV_SetLastError_Inter(9));
  EXPECT_EQ(9u, QIV_GetLastError());
  EXPECT_EQ(0, QIV_SetLastError(10));
  EXPECT_EQ(10u, QIV_GetLastError_Inter());
  EXPECT_EQ(0, QIV_FiniError_Inter());
  EXPECT_EQ(0, QIV_FiniError_Inter());
  EXPECT_EQ(-1, QIV_SetLastError_Inter(9));
}

TEST_F(ErrorTest, SlotHoldsTheCodeItself) {
  ASSERT_EQ(0, qiv::CreateTlsKey());
  EXPECT_EQ(1, qiv::g_bQivCreateTlsKeySuccess.load());
  ASSERT_EQ(0, QIV_SetLastError(77));
  EXPECT_EQ(reinterpret_cast<void*>(77), qiv::GetTlsValue());
  EXPECT_EQ(0, qiv::SetTlsValue(reinterpret_cast<void*>(78)));
  EXPECT_EQ(78u, QIV_GetLastError());
  EXPECT_EQ(0, qiv::DestroyTlsKey());
  EXPECT_EQ(0, qiv::g_bQivCreateTlsKeySuccess.load());
}

TEST_F(ErrorTest, DestroyingWithoutAStoreTouchesNobodysKey) {
  ASSERT_EQ(0, qiv::CreateTlsKey());
  ASSERT_EQ(0, qiv::DestroyTlsKey());
  pthread_key_t bystander;  // likely to get the number that has become free
  ASSERT_EQ(0, pthread_key_create(&bystander, nullptr));
  int value = 0;
  ASSERT_EQ(0, pthread_setspecific(bystander, &value));
  EXPECT_EQ(EINVAL, qiv::DestroyTlsKey());
  EXPECT_EQ(&value, pthread_getspecific(bystander));
  EXPECT_EQ(0, pthread_key_delete(bystander));
}

TEST_F(ErrorTest, EveryStartAsksForANewKey) {
  ASSERT_EQ(0, QIV_InitError_Inter());
  ASSERT_EQ(0, QIV_SetLastError(5));
  const pthread_key_t first = qiv::g_cQivTlsKey.load();
  EXPECT_EQ(0, QIV_InitError_Inter());
  EXPECT_EQ(0u, QIV_GetLastError()) << "kept: the slot of the new key is empty";
  EXPECT_EQ(0, QIV_FiniError_Inter());
  EXPECT_EQ(0, pthread_key_delete(first));
}

TEST_F(ErrorTest, WithoutAStoreTheSlotIsNullAndCannotBeSet) {
  EXPECT_EQ(nullptr, qiv::GetTlsValue());
  EXPECT_EQ(EINVAL, qiv::SetTlsValue(nullptr));
}

// Every key of the process is taken, so that no other can be made.
TEST_F(ErrorTest, StartWithoutAFreeKeyFailsUnlessAStoreStands) {
  std::vector<pthread_key_t> keys;
  ASSERT_EQ(0, QIV_InitError_Inter());
  pthread_key_t key;
  while (pthread_key_create(&key, nullptr) == 0) keys.push_back(key);
  EXPECT_EQ(0, QIV_InitError_Inter()) << "kept: the store of the earlier start counts";
  EXPECT_EQ(0, QIV_FiniError_Inter());
  pthread_key_t freed;
  ASSERT_EQ(0, pthread_key_create(&freed, nullptr));
  EXPECT_EQ(-1, QIV_InitError_Inter());
  EXPECT_EQ(-1, QIV_SetLastError(5));
  pthread_key_delete(freed);
  for (const pthread_key_t taken : keys) pthread_key_delete(taken);
}

TEST_F(ErrorTest, SystemErrorIsErrno) {
  QIV_SetSystemLastError(4);
  EXPECT_EQ(4, QIV_GetSystemLastError());
  EXPECT_EQ(4, errno);
}

TEST_F(ErrorTest, SystemErrorStringIsThePlatformsText) {
  EXPECT_STREQ(std::strerror(ENOENT), QIV_GetSystemErrorString(ENOENT));
  EXPECT_NE(nullptr, QIV_GetSystemErrorString(-1));
}

}  // namespace

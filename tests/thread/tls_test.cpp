#include <qiv/thread.h>

#include <gtest/gtest.h>

#include <vector>

#include "support/leak_check.h"
#include "support/run_in_thread.h"

namespace {

using qiv::test::RunInThread;

class TlsTest : public qiv::test::LeakCheckedTest {
 protected:
  int m_value = 0;
};

TEST_F(TlsTest, InvalidKeyIsRefused) {
  EXPECT_EQ(-1, QIV_ThreadTls_SetValue(QIV_INVALID_ID, &m_value));
  EXPECT_EQ(nullptr, QIV_ThreadTls_GetValue(QIV_INVALID_ID));
  EXPECT_EQ(-1, QIV_ThreadTls_Destroy(QIV_INVALID_ID));
}

TEST_F(TlsTest, NewKeyHoldsNull) {
  const unsigned int key = QIV_ThreadTls_Create();
  ASSERT_NE(QIV_INVALID_ID, key);
  EXPECT_EQ(nullptr, QIV_ThreadTls_GetValue(key));
  EXPECT_EQ(0, QIV_ThreadTls_Destroy(key));
}

TEST_F(TlsTest, EachThreadHasItsOwnValue) {
  const unsigned int key = QIV_ThreadTls_Create();
  ASSERT_EQ(0, QIV_ThreadTls_SetValue(key, &m_value));
  EXPECT_EQ(nullptr, RunInThread([key] { return QIV_ThreadTls_GetValue(key); }).Get());
  int other = 0;
  EXPECT_EQ(&other, RunInThread([&] {
                      QIV_ThreadTls_SetValue(key, &other);
                      return QIV_ThreadTls_GetValue(key);
                    }).Get());
  EXPECT_EQ(&m_value, QIV_ThreadTls_GetValue(key));
  EXPECT_EQ(0, QIV_ThreadTls_Destroy(key));
}

TEST_F(TlsTest, DestroyedKeyIsThePlatformsToRefuse) {
  const unsigned int key = QIV_ThreadTls_Create();
  ASSERT_EQ(0, QIV_ThreadTls_Destroy(key));
  EXPECT_EQ(-1, QIV_ThreadTls_SetValue(key, &m_value));
  EXPECT_EQ(-1, QIV_ThreadTls_Destroy(key));
}

TEST_F(TlsTest, CreateGivesTheInvalidKeyWhenThePlatformHasNoneLeft) {
  std::vector<unsigned int> keys;
  unsigned int key = QIV_ThreadTls_Create();
  while (key != QIV_INVALID_ID && keys.size() < 100000) {
    keys.push_back(key);
    key = QIV_ThreadTls_Create();
  }
  EXPECT_EQ(QIV_INVALID_ID, key);
  for (const unsigned int taken : keys) EXPECT_EQ(0, QIV_ThreadTls_Destroy(taken));
}

}  // namespace

// Every start asks for the host's adapters and sets the preferred family by them.
#include <gtest/gtest.h>
#include <qiv/adapter.h>
#include <qiv/library.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "support/captured_output.h"
#include "support/leak_check.h"
#include "support/network_namespace.h"
#include "support/no_descriptor_limit.h"
#include "support/preferred_family.h"
#include "support/run_in_thread.h"

namespace {

using qiv::test::InNetworkNamespace;
using qiv::test::NetworkNamespace;
using qiv::test::PreferredFamily;

class PreferredFamilyTest : public qiv::test::LeakCheckedTest {};

TEST_F(PreferredFamilyTest, EachStartRefreshesIt) {
  int expected = 77;
  QIV_ADAPTER_INFO* list = nullptr;
  ASSERT_EQ(0, QIV_GetAdapterInfoEx(&list, &expected));
  QIV_FreeAdapterInfo(list);
  const PreferredFamily saved(77);
  ASSERT_EQ(0, QIV_Init());
  EXPECT_EQ(expected, QIV_GetAf_Inner(QIV_AF_PREFERRED));
  g_Af = 77;
  ASSERT_EQ(0, QIV_InitEx());
  EXPECT_EQ(expected, g_Af) << "not the first start only";
  g_Af = 77;
  EXPECT_EQ(0, QIV_Fini());
  EXPECT_EQ(0, QIV_Fini());
  EXPECT_EQ(77, g_Af) << "a stop leaves it alone";
}

TEST_F(PreferredFamilyTest, EachStartWritesTheLineOfTheQuery) {
  const PreferredFamily saved(0);
  qiv::test::CapturedOutput errors(STDERR_FILENO);
  ASSERT_EQ(0, QIV_Init());
  ASSERT_EQ(0, QIV_Init());
  EXPECT_EQ(0, QIV_Fini());
  EXPECT_EQ(0, QIV_Fini());
  const std::string text = errors.Stop();
  const std::size_t first = text.find("loop[2] find ");
  ASSERT_NE(std::string::npos, first) << text;
  EXPECT_NE(std::string::npos, text.find("loop[2] find ", first + 1)) << text;
}

TEST_F(PreferredFamilyTest, FailingQueryLeavesItAndTheStartSucceeds) {
  const PreferredFamily saved(77);
  {
    const qiv::test::NoDescriptorLimit limit;
    EXPECT_EQ(0, QIV_Init());
  }
  EXPECT_EQ(77, g_Af);
  EXPECT_EQ(0, qiv::test::RunInThread([] { return QIV_Fini(); }).Get()) << "the mutex is free";
}

TEST_F(PreferredFamilyTest, HostWithoutAddressesLeavesIt) {
  InNetworkNamespace([](NetworkNamespace&) {
    const PreferredFamily saved(77);
    ASSERT_EQ(0, QIV_Init());
    EXPECT_EQ(77, g_Af);
    EXPECT_EQ(0, QIV_Fini());
  });
}

TEST_F(PreferredFamilyTest, FollowsTheAddressesOfTheHost) {
  InNetworkNamespace([](NetworkNamespace& network) {
    const PreferredFamily saved(77);
    network.AddVethPair("v0", "v1");
    network.AddAddress("v0", "10.0.0.1", 24);
    ASSERT_EQ(0, QIV_Init());
    EXPECT_EQ(AF_INET, g_Af);
    network.AddAddress("v0", "fd00::1", 64);
    ASSERT_EQ(0, QIV_Init());
    EXPECT_EQ(QIV_AF_INET6_DUAL, g_Af);
    EXPECT_EQ(0, QIV_Fini());
    EXPECT_EQ(0, QIV_Fini());
  });
}

TEST_F(PreferredFamilyTest, IsReadWhileStartsRefreshIt) {
  const PreferredFamily saved(0);
  ASSERT_EQ(0, QIV_Init());
  const int expected = g_Af;
  std::thread starter([] {
    for (int round = 0; round < 50; ++round) {
      EXPECT_EQ(0, QIV_Init());
      EXPECT_EQ(0, QIV_Fini());
    }
  });
  for (int round = 0; round < 10000; ++round) {
    EXPECT_EQ(expected, QIV_GetAf_Inner(QIV_AF_PREFERRED));
  }
  starter.join();
  EXPECT_EQ(0, QIV_Fini());
}

}  // namespace

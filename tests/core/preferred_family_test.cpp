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
using qiv::test::QuietNetwork;

class PreferredFamilyTest : public qiv::test::LeakCheckedTest {};

constexpr const char* kLine = "loop[2] find ";

TEST_F(PreferredFamilyTest, EachStartRefreshesIt) {
  const QuietNetwork network;
  int expected = 77;
  QIV_ADAPTER_INFO* list = nullptr;
  ASSERT_EQ(0, QIV_GetAdapterInfoEx(&list, &expected));
  QIV_FreeAdapterInfo(list);
  ASSERT_NE(77, expected) << "the host has addresses";
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

TEST_F(PreferredFamilyTest, EachStartWritesTheLineOfTheQueryAndAStopDoesNot) {
  const QuietNetwork network;
  const PreferredFamily saved(0);
  qiv::test::CapturedOutput errors(STDERR_FILENO);
  ASSERT_EQ(0, QIV_Init());
  ASSERT_EQ(0, QIV_Init());
  EXPECT_EQ(0, QIV_Fini());
  EXPECT_EQ(0, QIV_Fini());
  const std::string text = errors.Stop();
  int lines = 0;
  for (std::size_t at = text.find(kLine); at != std::string::npos; at = text.find(kLine, at + 1)) {
    ++lines;
  }
  EXPECT_EQ(2, lines) << text;
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

// Every start finds the same family here: it is the thread sanitizer that judges the two accesses.
TEST_F(PreferredFamilyTest, IsReadWhileStartsRefreshIt) {
  const QuietNetwork network;
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

// Failing steps of the adapter functions: each has its line, gives everything back and, as far as
// IPv6 addresses are concerned, keeps what is there.
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <qiv/adapter.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

#include "net/adapter_list.h"
#include "support/captured_output.h"
#include "support/failing_allocation.h"
#include "support/failing_system_call.h"
#include "support/interrupting_signals.h"
#include "support/network_namespace.h"
#include "support/no_descriptor_limit.h"
#include "support/run_in_thread.h"
#include "support/stopwatch.h"

namespace {

using qiv::test::FailingSystemCall;
using qiv::test::RunInThread;

class AdapterFailureTest : public qiv::test::QuietNetworkTest {};
class AdapterSystemCallTest : public qiv::test::QuietNetworkTest {};

struct Outcome {
  bool filtered;
  int result;
  bool hasAdapters;
  bool hasIpv6;
  std::string errors;
};

bool HasIpv6(const QIV_ADAPTER_INFO* adapter) {
  while (adapter != nullptr && adapter->pIpv6List == nullptr) adapter = adapter->pNext;
  return adapter != nullptr;
}

QIV_ADAPTER_INFO* Untouched() {
  static QIV_ADAPTER_INFO marker = {};
  return &marker;
}

Outcome GetAdapterOutcome() {
  Outcome outcome = {};
  outcome.filtered = true;
  QIV_ADAPTER_INFO* list = Untouched();
  qiv::test::CapturedOutput errors(STDERR_FILENO);
  outcome.result = QIV_GetAdapterInfo(&list);
  outcome.errors = errors.Stop();
  if (list == Untouched()) return outcome;
  outcome.hasAdapters = list != nullptr;
  outcome.hasIpv6 = HasIpv6(list);
  QIV_FreeAdapterInfo(list);
  return outcome;
}

Outcome GetAdapterOutcomeWith(const FailingSystemCall& call) {
  return RunInThread([&call] { return Install(call) ? GetAdapterOutcome() : Outcome{}; }).Get();
}

constexpr unsigned int kAll = 0xFFFFFFFFu;

struct FailureRow {
  FailingSystemCall call;
  int result;
  const char* errors;
};

TEST_F(AdapterSystemCallTest, EachFailingStepHasItsLine) {
  const FailureRow rows[] = {
      {{__NR_socket, 0, kAll, AF_INET, EACCES},
       -1,
       "zelmar GetAdapterInfo_Inter_Posix QIV_CreateSocket Error 1\n\n"},
      {{__NR_ioctl, 1, kAll, SIOCGIFCONF, EFAULT},
       -1,
       "zelmar GetAdapterList_Inter_Posix ioctl error 1\n\n"
       "zelmar GetAdapterInfo_Inter_Posix GetAdapterList_Inter_Posix Error 2\n\n"},
      {{__NR_ioctl, 1, kAll, SIOCGIFHWADDR, ENODEV},
       -1,
       "zelmar GetAdapterInfo_Inter_Posix ioctl Error 4\n\n"},
      {{__NR_ioctl, 1, kAll, SIOCGIFADDR, ENODEV},
       -1,
       "zelmar GetAdapterInfo_Inter_Posix GetIpList_Inter_Posix Error 5\n\n"},
      {{__NR_ioctl, 1, kAll, SIOCGIFNETMASK, ENODEV},
       -1,
       "zelmar GetAdapterInfo_Inter_Posix GetIpList_Inter_Posix Error 5\n\n"},
      {{__NR_socket, 0, kAll, AF_NETLINK, 97},
       0,
       "zelmar GetIPv6ToAdapterInfo_Inter_Posix error 0 socket,errno=97\n\n"},
      {{__NR_bind, 2, kAll, sizeof(sockaddr_nl), 13},
       0,
       "zelmar GetIPv6ToAdapterInfo_Inter_Posix error 1 bind,errno=13\n\n"},
      {{__NR_bind, 2, kAll, sizeof(sockaddr_nl), EADDRINUSE},
       0,
       "zelmar GetIPv6ToAdapterInfo_Inter_Posix error 1 bind,errno=98\n\n"},
      {{__NR_sendto, 2, kAll, 32, 105},
       0,
       "zelmar GetIPv6ToAdapterInfo_Inter_Posix error 2 sendto,errno=105\n\n"},
      {{__NR_sendto, 2, kAll, 24, 105},
       0,
       "zelmar GetIPv6ToAdapterInfo_Inter_Posix error 2 sendto,errno=105\n\n"},
      // A wait without a limit is none: the answers, which are there, are not waited for.
      {{__NR_setsockopt, 2, kAll, SO_RCVTIMEO, 1}, 0, "loop[2] find 0 mac and 0 ip\n"},
  };
  for (const FailureRow& row : rows) {
    const Outcome outcome = GetAdapterOutcomeWith(row.call);
    ASSERT_TRUE(outcome.filtered);
    EXPECT_EQ(row.result, outcome.result) << row.errors;
    EXPECT_EQ(row.errors, outcome.errors);
    EXPECT_EQ(row.result == 0, outcome.hasAdapters) << row.errors;
    EXPECT_FALSE(outcome.hasIpv6) << row.errors;
  }
}

TEST_F(AdapterSystemCallTest, SocketsAreClosedByExec) {
  // Others cannot be made.
  const FailingSystemCall withoutCloseOnExec = {__NR_socket, 1, SOCK_CLOEXEC, 0, EACCES};
  const Outcome outcome = GetAdapterOutcomeWith(withoutCloseOnExec);
  ASSERT_TRUE(outcome.filtered);
  EXPECT_EQ(0, outcome.result);
  EXPECT_EQ(0u, outcome.errors.find("loop[2] find ")) << outcome.errors;
}

TEST_F(AdapterSystemCallTest, KernelThatDoesNotAnswerIsWaitedForThreeSecondsTwice) {
  const FailingSystemCall sendNothing = {__NR_sendto, 1, 0, 0, 0};
  const qiv::test::Stopwatch stopwatch;
  const Outcome outcome = GetAdapterOutcomeWith(sendNothing);
  ASSERT_TRUE(outcome.filtered);
  EXPECT_EQ(0, outcome.result);
  EXPECT_TRUE(outcome.hasAdapters);
  EXPECT_EQ("loop[2] find 0 mac and 0 ip\n", outcome.errors);
  EXPECT_GE(stopwatch.Milliseconds(), 5700);
}

TEST_F(AdapterSystemCallTest, SignalsDoNotExtendTheWaitForTheKernel) {
  const qiv::test::Stopwatch stopwatch;
  const Outcome outcome =
      RunInThread([] {
        const FailingSystemCall sendNothing = {__NR_sendto, 1, 0, 0, 0};
        const qiv::test::InterruptingSignals signals{std::chrono::milliseconds(100)};
        if (!Install(sendNothing)) return Outcome{};
        return GetAdapterOutcome();
      }).Get();
  ASSERT_TRUE(outcome.filtered);
  EXPECT_EQ(0, outcome.result);
  EXPECT_EQ("loop[2] find 0 mac and 0 ip\n", outcome.errors);
  EXPECT_GE(stopwatch.Milliseconds(), 5700);
  EXPECT_LT(stopwatch.Milliseconds(), 12000);
}

TEST_F(AdapterFailureTest, WithoutDescriptorsTheFirstLineIsWritten) {
  Outcome outcome;
  {
    qiv::test::CapturedOutput errors(STDERR_FILENO);
    const qiv::test::NoDescriptorLimit limit;
    QIV_ADAPTER_INFO* list = Untouched();
    int family = 77;
    EXPECT_EQ(-1, QIV_GetAdapterInfoEx(&list, &family));
    EXPECT_EQ(Untouched(), list);
    EXPECT_EQ(77, family);
    unsigned char mac[6] = {};
    unsigned int length = 8;
    EXPECT_EQ(-1, QIV_GetMacAddr("127.0.0.1", mac, &length));
    EXPECT_EQ(6u, length);
    outcome.errors = errors.Stop();
  }
  EXPECT_EQ("zelmar GetAdapterInfo_Inter_Posix QIV_CreateSocket Error 1\n\n", outcome.errors);
}

TEST_F(AdapterSystemCallTest, MacQueryTellsOfAListThatCannotBeHad) {
  const std::string errors =
      RunInThread([] {
        const FailingSystemCall noList = {__NR_ioctl, 1, kAll, SIOCGIFCONF, EFAULT};
        if (!Install(noList)) return std::string("no filter");
        qiv::test::CapturedOutput captured(STDERR_FILENO);
        unsigned char mac[6] = {};
        unsigned int length = 6;
        EXPECT_EQ(-1, QIV_GetMacAddr("127.0.0.1", mac, &length));
        return captured.Stop();
      }).Get();
  EXPECT_EQ("zelmar GetAdapterList_Inter_Posix ioctl error 1\n\n", errors);
}

TEST_F(AdapterSystemCallTest, InterfaceWhoseMacCannotBeReadIsNotTheOneLookedFor) {
  const int result = RunInThread([] {
                       const FailingSystemCall noMac = {__NR_ioctl, 1, kAll, SIOCGIFHWADDR, ENODEV};
                       if (!Install(noMac)) return 1;
                       unsigned char mac[6] = {};
                       unsigned int length = 6;
                       return QIV_GetMacAddr("127.0.0.1", mac, &length);
                     }).Get();
  EXPECT_EQ(-1, result);
}

// Each adapter takes two allocations; behind them come the memory for the answers and a node for
// each IPv6 address.
TEST_F(AdapterFailureTest, MemoryThatRunsOutFailsWithALineOrLeavesIpv6AddressesOut) {
  const int adapters = static_cast<int>(qiv::test::Lines(qiv::test::GetAdapters()).size());
  for (int nth = 1;; ++nth) {
    QIV_ADAPTER_INFO* list = Untouched();
    int result = 0;
    bool happened = false;
    qiv::test::CapturedOutput errors(STDERR_FILENO);
    {
      const qiv::test::FailingAllocation failing(nth, qiv::test::FailingFor::kEver);
      result = QIV_GetAdapterInfo(&list);
      happened = failing.Happened();
    }
    const std::string text = errors.Stop();
    const bool isAdapterStep = nth <= 2 * adapters;
    EXPECT_EQ(isAdapterStep ? -1 : 0, result) << nth;
    EXPECT_EQ(isAdapterStep, list == Untouched()) << nth;
    if (isAdapterStep) {
      EXPECT_EQ(nth % 2 == 1
                    ? "zelmar GetAdapterInfo_Inter_Posix new Error 3\n\n"
                    : "zelmar GetAdapterInfo_Inter_Posix GetIpList_Inter_Posix Error 5\n\n",
                text)
          << nth;
    } else {
      EXPECT_EQ(adapters, static_cast<int>(qiv::test::Lines(list).size())) << nth;
      QIV_FreeAdapterInfo(list);
    }
    if (!happened) {
      EXPECT_GT(nth, 2 * adapters + 1) << "the answers' memory is one of them";
      return;
    }
  }
}

}  // namespace

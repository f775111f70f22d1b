// A network of the test's own: a namespace of the kernel that holds a loopback interface, which is
// down, and what the test adds. The calling thread is in it, and threads that it starts.
#ifndef QIV_TESTS_SUPPORT_NETWORK_NAMESPACE_H
#define QIV_TESTS_SUPPORT_NETWORK_NAMESPACE_H

#include <array>
#include <string>

#include "support/leak_check.h"

namespace qiv::test {

using Mac = std::array<unsigned char, 6>;

/** Changes throw when the kernel refuses them. */
class NetworkNamespace {
 public:
  NetworkNamespace();
  ~NetworkNamespace();
  NetworkNamespace(const NetworkNamespace&) = delete;
  NetworkNamespace& operator=(const NetworkNamespace&) = delete;

  /** False when this process may not make namespaces. */
  [[nodiscard]] bool IsEntered() const { return m_entered; }

  /** Two interfaces that are connected with each other. */
  void AddVethPair(const std::string& name, const std::string& peer);
  void SetUp(const std::string& name);
  void SetMac(const std::string& name, const Mac& mac);
  Mac MacOf(const std::string& name);

  /** Adds one more address, "10.1.2.3" or "fd00::1". With a label it stands under that name in the
   *  list of IPv4 interfaces. */
  void AddAddress(const std::string& name, const std::string& address, unsigned char prefixLength,
                  const std::string& label = "");
  /** Adds an IPv6 address of a point-to-point link. */
  void AddPeerAddress(const std::string& name, const std::string& address, const std::string& peer);

  /** Takes the IPv6 addresses of all interfaces away, and lets none be added; false, after a notice
   *  of a skipped test, when it may not. */
  [[nodiscard]] bool DisableIpv6();

 private:
  int m_home = -1;
  int m_control = -1;
  bool m_entered = false;
};

/**
 * A network in which nobody changes anything: loopback, which is up, and "v0" and "v1" with
 * addresses. Where namespaces are not permitted it is the host's own.
 */
class QuietNetwork {
 public:
  QuietNetwork();

 private:
  NetworkNamespace m_network;
};

/** Each test runs in a network of its own. */
class QuietNetworkTest : public LeakCheckedTest {
 private:
  QuietNetwork m_network;
};

/** Says on standard output, in the words that ctest knows, that this test has not been run. */
void TellThatNamespacesAreNotPermitted();

/** Runs the body in a namespace of its own; where that is not permitted the test is skipped. */
template <class Body>
void InNetworkNamespace(Body body) {
  NetworkNamespace network;
  if (!network.IsEntered()) return TellThatNamespacesAreNotPermitted();
  body(network);
}

}  // namespace qiv::test

#endif

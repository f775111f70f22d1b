// The classes as a C++11 program finds them in the shared library: each member is exported, and the
// virtual tables begin with the complete and the deleting destructor.
#include <dlfcn.h>
#include <qiv/qiv.h>

#include <cstdio>
#include <string>

namespace {

int g_failures = 0;

void Check(bool holds, const std::string& what) {
  if (holds) return;
  std::fprintf(stderr, "%s\n", what.c_str());
  ++g_failures;
}

/** @param mangledName  as in "N3qiv12qiv_net_addr" */
template <class Object>
void CheckVirtualTable(const Object& object, const std::string& mangledName) {
  void* const* const slots = *reinterpret_cast<void* const* const*>(&object);
  const std::string complete = "_Z" + mangledName + "D1Ev";
  const std::string deleting = "_Z" + mangledName + "D0Ev";
  Check(slots[0] == dlsym(RTLD_DEFAULT, complete.c_str()), complete + " is not slot 0");
  Check(slots[1] == dlsym(RTLD_DEFAULT, deleting.c_str()), deleting + " is not slot 1");
  for (const char* const table : {"_ZTV", "_ZTI", "_ZTS"}) {
    const std::string name = table + mangledName + "E";
    Check(dlsym(RTLD_DEFAULT, name.c_str()) != nullptr, name + " is not exported");
  }
}

/** Every way to write a null text names one function only. */
// NOLINTBEGIN(modernize-use-nullptr): the older ways are what is tried
void UseNullTexts() {
  const qiv::qiv_net_addr zero;
  qiv::qiv_net_addr address(80, 0);
  Check(qiv::qiv_net_addr(0) == zero && qiv::qiv_net_addr(NULL) == zero, "no URL");
  Check(qiv::qiv_net_addr(nullptr) == zero && qiv::qiv_net_addr(80, NULL) == address, "no host");
  Check(address.set_addr(NULL) == 0 && address.set_addr(nullptr) == 0, "set_addr without a URL");
  Check(address.set_addr(0) == 0 && address.get_port() == 80, "set_addr without a URL");
  Check(address.set_addr(0, 0) == 0 && address == zero, "set_addr without a host");
}
// NOLINTEND(modernize-use-nullptr)

void UseNetAddr() {
  sockaddr_in system = sockaddr_in();
  in_addr host = in_addr();
  char text[32];
  int length = sizeof(text);
  qiv::qiv_net_addr address("10.1.2.3:8000");
  qiv::qiv_net_addr copy(address);
  Check(copy == address && !(copy != address), "a copy differs");
  Check(address.get_addr(system) == 0 && address.get_addr(host) == 0, "get_addr");
  Check(qiv::qiv_net_addr(system) == address, "an endpoint of the system");
  Check(address.get_addr(text, length) == text && length == 13, "get_addr with a buffer");
  Check(std::string(address.get_host()) == "10.1.2.3", "get_host");
  Check(address.set_port(80) == 0 && address.get_port() == 80, "set_port");
  Check(address.set_host("1.2.3.4") == 0 && qiv::qiv_net_addr::is_valid_ipv4(text), "set_host");
  Check(address == qiv::qiv_net_addr(80, "1.2.3.4"), "port and host");
  Check(address.set_addr(8000, "10.1.2.3") == 0 && address == copy, "set_addr");
  Check(address.set_addr(system) == 0 && address.set_addr(":1") == 0, "set_addr");
  Check(address.parse_url(":8000") == 0 && address == copy, "parse_url");
  copy = qiv::qiv_net_addr();
  Check(copy != address, "an assignment");
  const qiv::qiv_net_addr fromText = "10.1.2.3:8000";
  Check(fromText == "10.1.2.3:8000" && fromText.get_port() == 8000, "a text as an endpoint");
  UseNullTexts();
  CheckVirtualTable(address, "N3qiv12qiv_net_addr");
}

void UseNetUtils() {
  using Utils = qiv::qiv_net_utils;
  char name[256];
  const Utils utils;
  Check(Utils::qiv_ntohs(Utils::qiv_htons(0x1234)) == 0x1234, "qiv_htons");
  Check(Utils::qiv_ntohl(Utils::qiv_htonl(0x12345678)) == 0x12345678, "qiv_htonl");
  Check(Utils::get_host_name(name, sizeof(name)) == 0, "get_host_name");
  Check(Utils::get_host_by_name("127.0.0.1") != nullptr, "get_host_by_name");
  CheckVirtualTable(utils, "N3qiv13qiv_net_utils");
}

void UseConnection(int near, int far) {
  using Utils = qiv::qiv_sock_utils;
  char buffer[8];
  qiv::qiv_net_addr peer;
  qiv::qiv_net_addr local;
  timeval budget = {10, 0};
  pollfd record = {far, POLLIN, 0};
  fd_set set;
  FD_ZERO(&set);
  FD_SET(far, &set);
  Check(Utils::set_nonblock(near, 0) == 0 && Utils::set_tcp_nodelay(near) == 0, "modes");
  Check(Utils::set_ttl(near, 9) == 0 && Utils::set_buffsize(near, 8192, 8192) == 0, "sizes");
  Check(Utils::is_wr(near, &budget) == Utils::kWritable, "is_wr");
  Check(Utils::is_rdwr(far, &budget, Utils::kWritable) == Utils::kWritable, "is_rdwr");
  Check(Utils::send(near, "a", 1, -1, 0) == 1 && Utils::sendn(near, "bc", 2, -1, 0) == 2, "send");
  Check(Utils::is_rd(far, &budget) == Utils::kReadable, "is_rd");
  Check(Utils::select_ctime(far + 1, &set, nullptr, nullptr, &budget) == 1, "select_ctime");
  Check(Utils::select_vtime(far + 1, &set, nullptr, nullptr, &budget) == 1, "select_vtime");
  Check(Utils::poll_vtime(&record, 1, &budget) == 1, "poll_vtime");
  Check(Utils::recv(far, buffer, 1, -1, 0) == 1 && Utils::recvn(far, buffer, 2, -1, 0) == 2,
        "recv");
  Check(Utils::getaddrbyfd(near, peer, local) == 0 && peer != local, "getaddrbyfd");
  Check(Utils::set_tcp_dontlinger(far) == 0 && Utils::shutdown(far, 2) == 0, "shutdown");
}

void UseSockUtils() {
  using Utils = qiv::qiv_sock_utils;
  char buffer[8];
  int value = 0;
  int length = sizeof(value);
  qiv::qiv_net_addr address(0, "127.0.0.1");
  qiv::qiv_net_addr peer;
  const Utils utils;
  const int listener = Utils::socket(AF_INET, SOCK_STREAM, 0);
  Check(Utils::set_reuseaddr(listener, 1) == 0, "set_reuseaddr");
  Check(Utils::get_sock_opt(listener, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<char*>(&value),
                            &length) == 0 &&
            value == 1,
        "get_sock_opt");
  Check(Utils::set_sock_opt(listener, SOL_SOCKET, SO_REUSEADDR,
                            reinterpret_cast<const char*>(&value), length) == 0,
        "set_sock_opt");
  Check(Utils::bind(listener, address) == 0 && Utils::listen(listener, 1) == 0, "listen");
  Check(Utils::getaddrbyfd(listener, peer, address) == -1, "getaddrbyfd without a peer");
  const int client = Utils::socket(AF_INET, SOCK_STREAM, 0);
  Check(Utils::connect(client, address, -1) == 0, "connect");
  const int connection = Utils::accept(listener, peer, -1);
  UseConnection(client, connection);
  const int datagrams = Utils::socket(AF_INET, SOCK_DGRAM, 0);
  Check(Utils::bind(datagrams, "127.0.0.1:0") == 0, "bind to a text");
  Check(Utils::getaddrbyfd(datagrams, peer, address) == -1, "getaddrbyfd without a peer");
  Check(Utils::sendto(datagrams, "abc", 3, address, -1, 0) == 3, "sendto");
  Check(Utils::recvfrom(datagrams, buffer, 8, peer, -1, 0) == 3 && peer == address, "recvfrom");
  Check(Utils::join_multicast_group(-1, address, peer) == -1, "join_multicast_group");
  Check(Utils::leave_multicast_group(-1, address, peer) == -1, "leave_multicast_group");
  for (const int socket : {listener, client, connection, datagrams}) {
    Check(Utils::closesocket(socket) == 0, "closesocket");
  }
  Check(Utils::closesocket(-1) == -1 && Utils::get_lasterror() != 0, "get_lasterror");
  CheckVirtualTable(utils, "N3qiv14qiv_sock_utils");
}

void Ignore(unsigned long /*error*/, unsigned long /*bytes*/, void* /*user*/) {}

void UseLegacyAsyncIo() {
  char buffer[8];
  QIV_ADDR_T address = QIV_ADDR_T();
  QIV_AsyncIOQueue queue;
  QIV_AsyncIO io = buffer;
  Check(queue.Initialize() == -1 && queue.GetHandle() == -1 && queue.Release() == 0, "queue");
  Check(io.BindCallBackToIOHandle(Ignore) == -1 && io.BindIOHandleToQueue(&queue) == -1, "bind");
  Check(io.IOSend(buffer, 8, nullptr) == -1 && io.IORecv(buffer, 8, nullptr) == -1, "stream");
  Check(io.IOSendTo(buffer, 8, nullptr, &address) == -1, "IOSendTo");
  Check(io.IORecvFrom(buffer, 8, nullptr, &address) == -1, "IORecvFrom");
  Check(io.IOWriteFile(buffer, 8, nullptr) == -1 && io.IOReadFile(buffer, 8, nullptr) == -1,
        "file");
}

}  // namespace

int main() {
  UseNetAddr();
  UseNetUtils();
  UseSockUtils();
  UseLegacyAsyncIo();
  return g_failures == 0 ? 0 : 1;
}

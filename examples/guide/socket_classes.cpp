// Asks a server on the loopback interface for a record, with one time-out for the whole answer.
#include <qiv/socket_classes.h>

#include <stdio.h>

#include <string>
#include <thread>

namespace {

using qiv::qiv_net_addr;
using Sockets = qiv::qiv_sock_utils;

const int kLimitMs = 10000;
const int kRecordLength = 12;

// Answers "name" with a record that comes in two pieces, then waits for the client to go.
void Serve(int listener) {
  char request[4];
  char end;
  qiv_net_addr peer;
  const int connection = Sockets::accept(listener, peer, kLimitMs);
  if (connection == -1) return;
  if (Sockets::recvn(connection, request, 4, kLimitMs, 0) == 4) {
    Sockets::sendn(connection, "first-", 6, kLimitMs, 0);
    Sockets::sendn(connection, "second", 6, kLimitMs, 0);
    Sockets::recv(connection, &end, 1, kLimitMs, 0);
  }
  Sockets::closesocket(connection);
}

// True when the record came, and nothing else after it.
bool Ask(int socket, const qiv_net_addr& server) {
  char record[kRecordLength];
  char text[32];
  int length = sizeof(text);
  Sockets::set_nonblock(socket, 1);  // without this, a connect has no time-out
  if (Sockets::connect(socket, server, kLimitMs) != 0) return false;
  if (Sockets::sendn(socket, "name", 4, kLimitMs, 0) != 4) return false;
  if (Sockets::recvn(socket, record, kRecordLength, kLimitMs, 0) != kRecordLength) return false;
  printf("record: %s\n", std::string(record, kRecordLength).c_str());
  const int more = Sockets::recv(socket, record, 1, 20, 0);
  printf("after 20 ms without more: %d\n", more);
  const bool isKnown = server.get_addr(text, length) != nullptr;
  fprintf(stderr, "asked %s\n", isKnown ? text : "nobody");
  return more == 0;
}

}  // namespace

int main() {
  qiv_net_addr server("127.0.0.1:0");  // port 0: the system chooses one
  qiv_net_addr noPeer;
  const int listener = Sockets::socket(AF_INET, SOCK_STREAM, 0);
  if (Sockets::bind(listener, server) != 0 || Sockets::listen(listener, 1) != 0) return 1;
  Sockets::getaddrbyfd(listener, noPeer,
                       server);  // -1 for want of a peer, but the local end is set
  std::thread service(Serve, listener);
  const int socket = Sockets::socket(AF_INET, SOCK_STREAM, 0);
  const bool isAnswered = Ask(socket, server);
  Sockets::closesocket(socket);
  service.join();
  Sockets::closesocket(listener);
  return isAnswered ? 0 : 1;
}

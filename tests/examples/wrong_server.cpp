// An echo server that errs on purpose, for the tests of the echo client.
//
// usage: wrong_server corrupt|close|surplus|silent POSITION
//
// Serves one connection after the other, the first of them wrongly once POSITION bytes have come:
// it turns the byte there over, closes, or sends a byte of its own; "silent" sends nothing at all.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

struct Fault {
  std::string kind;
  long long position;
};

int ListenOnFreePort() {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(address);
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener, generic, length) != 0 || listen(listener, 16) != 0 ||
      getsockname(listener, generic, &length) != 0) {
    std::perror("wrong_server");
    std::exit(1);
  }
  std::printf("listening on 127.0.0.1 port %d\n", ntohs(address.sin_port));
  std::fflush(stdout);
  return listener;
}

bool SendAll(int peer, const char* data, long long length) {
  while (length > 0) {
    const ssize_t sent = send(peer, data, static_cast<std::size_t>(length), MSG_NOSIGNAL);
    if (sent <= 0) {
      return false;
    }
    data += sent;
    length -= sent;
  }
  return true;
}

// Echoes until the client closes; false ends the connection early.
bool EchoBlock(int peer, char* block, long long length, long long before, const Fault& fault) {
  const long long at = fault.position - before;
  const bool here = at >= 0 && at < length;
  if (fault.kind == "silent") {
    std::puts("received");
    std::fflush(stdout);
    return true;
  }
  if (fault.kind == "corrupt" && here) {
    block[at] = static_cast<char>(~block[at]);
  }
  if (fault.kind == "close" && here) {
    SendAll(peer, block, at);
    return false;
  }
  if (!SendAll(peer, block, length)) {
    return false;
  }
  return fault.kind != "surplus" || before + length < fault.position || SendAll(peer, "!", 1);
}

void Serve(int peer, const Fault& fault) {
  char block[65536];
  long long before = 0;
  for (;;) {
    const ssize_t length = recv(peer, block, sizeof(block), 0);
    if (length <= 0 || !EchoBlock(peer, block, length, before, fault)) {
      break;
    }
    before += length;
  }
  // Reads what is left: closing with bytes unread would reset the connection under the echo.
  shutdown(peer, SHUT_WR);
  while (recv(peer, block, sizeof(block), 0) > 0) {
  }
  close(peer);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: wrong_server corrupt|close|surplus|silent POSITION\n", stderr);
    return 2;
  }
  const int listener = ListenOnFreePort();
  Serve(accept(listener, nullptr, nullptr), {argv[1], std::atoll(argv[2])});
  for (;;) {
    Serve(accept(listener, nullptr, nullptr), {"none", 0});
  }
}

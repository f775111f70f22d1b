// The echo server on a completion queue with one worker.
//
// Callbacks run with the worker's lock held, so an unbind waits for the one that is running: when
// all sockets are unbound, nothing uses the clients any more.
#include <qiv/async_io.h>

#include <cstdint>
#include <list>
#include <stdexcept>
#include <utility>

#include "echo_servers.h"

namespace bench {
namespace {

constexpr int kLockedCallbacks = 1;

struct Client {
  explicit Client(Descriptor descriptor) : socket(std::move(descriptor)) {}

  // A client that has left is not served on; its socket goes with the server.
  static void OnReceived(unsigned int /*error*/, unsigned int bytes, void* user) {
    auto* client = static_cast<Client*>(user);
    if (bytes > 0) {
      QIV_AsyncIO_SendEx(client->socket.Get(), client->message, static_cast<int>(bytes), nullptr,
                         nullptr);
      client->Receive();
    }
  }

  void Receive() { QIV_AsyncIO_RecvEx(socket.Get(), message, sizeof(message), this, OnReceived); }

  Descriptor socket;
  char message[kMessageSize] = {};
};

class QivServer final : public EchoServer {
 public:
  explicit QivServer(std::vector<Descriptor> sockets)
      : m_queue(QIV_AIO_CreateQueueEx(1, kLockedCallbacks)) {
    if (reinterpret_cast<std::intptr_t>(m_queue) == -1) {
      throw std::runtime_error("no completion queue");
    }
    for (Descriptor& socket : sockets) {
      Client& client = m_clients.emplace_back(std::move(socket));
      QIV_AsyncIO_BindIOHandleToQueueEx(client.socket.Get(), m_queue);
      client.Receive();  // unless it was bound, which shows as a stall of the load
    }
  }

  ~QivServer() override {
    for (const Client& client : m_clients) {
      QIV_AsyncIO_UnBindIOHandleEx(client.socket.Get(), m_queue);
    }
    QIV_AsyncIO_DestroyQueueEx(m_queue);
  }

 private:
  QIV_HANDLE m_queue;
  std::list<Client> m_clients;
};

}  // namespace

std::unique_ptr<EchoServer> MakeQivServer(std::vector<Descriptor> sockets) {
  return std::make_unique<QivServer>(std::move(sockets));
}

}  // namespace bench

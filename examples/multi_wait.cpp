// Waits on one thread for three things at once: datagrams on a socket, work that another thread
// hands out, and the wish to stop.
//
// The main thread waits and prints what happens. A second thread plays the rest of the world: it
// sends datagrams, hands out work and asks to stop. The program succeeds when everything that was
// sent and handed out has been seen.
#include <qiv/qiv.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <mutex>
#include <queue>
#include <thread>

namespace {

constexpr int kDatagrams = 5;
constexpr int kWorkItems = 5;
constexpr int kLimitMs = 10000;  // for something that should happen at once

// The lowest index wins a wait: with the stop last, nothing that came before it is missed.
enum Index { kNetwork, kWork, kStop, kCount };

// The event is signalled while there is work.
class WorkQueue {
 public:
  explicit WorkQueue(QIV_HANDLE event) : m_event(event) {}

  void Push(int item) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_items.push(item);
    QIV_SetEvent(m_event);
  }

  int Pop() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const int item = m_items.front();
    m_items.pop();
    if (m_items.empty()) QIV_ResetEvent(m_event);  // no wait takes the signal back
    return item;
  }

 private:
  QIV_HANDLE m_event;
  std::mutex m_mutex;
  std::queue<int> m_items;
};

void PlayTheWorld(const QIV_ADDR_T& address, WorkQueue& work, QIV_HANDLE stop) {
  const int sender = QIV_CreateSocket(AF_INET, SOCK_DGRAM, 0);
  for (int i = 1; i <= kDatagrams; ++i) {
    char text[32];
    const int length = std::snprintf(text, sizeof(text), "datagram %d", i);
    QIV_SendTo(sender, text, static_cast<unsigned int>(length), &address);
  }
  for (int i = 1; i <= kWorkItems; ++i) work.Push(i);
  QIV_CloseSocket(sender, 0);
  QIV_SetEvent(stop);
}

// Binding the socket to its event has made it non-blocking: take what is there.
int ReceiveAll(int socket) {
  int count = 0;
  char text[32];
  int length = QIV_Recv(socket, text, sizeof(text));
  for (; length > 0; length = QIV_Recv(socket, text, sizeof(text))) {
    std::printf("received: %.*s\n", length, text);
    ++count;
  }
  return count;
}

bool ServeUntilStopped(const QIV_HANDLE* events, int socket, WorkQueue& work) {
  int datagrams = 0;
  int items = 0;
  int index = QIV_WaitForMultipleObjects(kCount, events, 0, kLimitMs);
  for (; index != kStop; index = QIV_WaitForMultipleObjects(kCount, events, 0, kLimitMs)) {
    if (index == kNetwork) {
      datagrams += ReceiveAll(socket);
    } else if (index == kWork) {
      std::printf("work: item %d\n", work.Pop());
      ++items;
    } else {
      std::fprintf(stderr, "multi_wait: nothing has happened for %d ms\n", kLimitMs);
      return false;
    }
  }
  std::printf("stopped after %d datagrams and %d items of work\n", datagrams, items);
  return datagrams == kDatagrams && items == kWorkItems;
}

bool Run(int socket, const QIV_HANDLE* events) {
  // The library has told why on standard error.
  if (std::count(events, events + kCount, nullptr) != 0) return false;
  QIV_ADDR_T address;
  if (QIV_MakeAddrByString(AF_INET, "127.0.0.1", 0, &address) != 0 ||
      QIV_Bind(socket, &address) != 0 || QIV_GetAddrBySockFd(socket, &address, nullptr) != 0) {
    std::perror("multi_wait: no port");
    return false;
  }
  if (QIV_EventSelect(socket, events[kNetwork], QIV_EVENT_READ) != 0) return false;
  WorkQueue work(events[kWork]);
  std::thread world(PlayTheWorld, std::cref(address), std::ref(work), events[kStop]);
  const bool succeeded = ServeUntilStopped(events, socket, work);
  world.join();
  return succeeded;
}

}  // namespace

int main() {
  if (QIV_Init() != QIV_OK) return 1;
  const int socket = QIV_CreateSocket(AF_INET, SOCK_DGRAM, 0);
  const QIV_HANDLE events[kCount] = {QIV_CreateEvent(0), QIV_CreateEvent(0), QIV_CreateEvent(0)};
  const bool succeeded = Run(socket, events);
  for (QIV_HANDLE event : events) QIV_CloseEvent(event);
  QIV_CloseSocket(socket, 0);
  QIV_Fini();
  return succeeded ? 0 : 1;
}

// What a message of 64 bytes costs beside a POSIX message queue: sent and received on one thread,
// there and back between two threads, and in a stream from one thread to another.
#include <fcntl.h>
#include <mqueue.h>
#include <qiv/message_queue.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "compare.h"

namespace {

constexpr int kBytes = 64;
constexpr int kPriority = 1;

void Check(bool isRight, const char* what) {
  if (isRight) return;
  std::fprintf(stderr, "message_queue: %s failed\n", what);
  std::exit(1);
}

class QivQueue {
 public:
  QivQueue() { Check(QIV_MsgQCreateEx(&m_queue) == QIV_OK, "QIV_MsgQCreateEx"); }
  ~QivQueue() { QIV_MsgQDestroyEx(m_queue); }
  QivQueue(const QivQueue&) = delete;
  QivQueue& operator=(const QivQueue&) = delete;

  void Send(const char* data) {
    static thread_local QIV_MSG_BLOCK_T block;
    block.iPriority = kPriority;
    block.iMsgLen = kBytes;
    std::memcpy(block.chMsgData, data, kBytes);
    Check(QIV_MsgQSendEx(m_queue, &block) == QIV_OK, "QIV_MsgQSendEx");
  }
  void Receive(char* data) {
    static thread_local QIV_MSG_BLOCK_T block;
    block.iMsgLen = kBytes;
    Check(QIV_MsgQReceiveEx(m_queue, &block, QIV_INFINITE) == QIV_OK, "QIV_MsgQReceiveEx");
    std::memcpy(data, block.chMsgData, kBytes);
  }

 private:
  QIV_MQ_INTER* m_queue = nullptr;
};

class PosixQueue {
 public:
  PosixQueue() {
    static int count = 0;
    const std::string name =
        "/qiv-bench-" + std::to_string(getpid()) + "-" + std::to_string(++count);
    mq_attr attributes = {};
    attributes.mq_maxmsg = 10;  // as many as every system allows
    attributes.mq_msgsize = kBytes;
    m_queue = mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600, &attributes);
    Check(m_queue != static_cast<mqd_t>(-1), "mq_open");
    mq_unlink(name.c_str());
  }
  ~PosixQueue() { mq_close(m_queue); }
  PosixQueue(const PosixQueue&) = delete;
  PosixQueue& operator=(const PosixQueue&) = delete;

  void Send(const char* data) { Check(mq_send(m_queue, data, kBytes, kPriority) == 0, "mq_send"); }
  void Receive(char* data) {
    Check(mq_receive(m_queue, data, kBytes, nullptr) == kBytes, "mq_receive");
  }

 private:
  mqd_t m_queue;
};

template <class Queue>
void RunPairs(int times) {
  Queue queue;
  char data[kBytes] = {};
  for (int i = 0; i < times; ++i) {
    queue.Send(data);
    queue.Receive(data);
  }
}

template <class Queue>
void RunPingPong(int times) {
  Queue ping;
  Queue pong;
  std::thread partner([&ping, &pong, times] {
    char data[kBytes] = {};
    for (int i = 0; i < times; ++i) {
      ping.Receive(data);
      pong.Send(data);
    }
  });
  char data[kBytes] = {};
  for (int i = 0; i < times; ++i) {
    ping.Send(data);
    pong.Receive(data);
  }
  partner.join();
}

template <class Queue>
void RunStream(int times) {
  Queue queue;
  std::thread receiver([&queue, times] {
    char data[kBytes] = {};
    for (int i = 0; i < times; ++i) queue.Receive(data);
  });
  char data[kBytes] = {};
  for (int i = 0; i < times; ++i) queue.Send(data);
  receiver.join();
}

template <int kTimes>
double NanosecondsEach(void (*run)(int)) {
  const qiv::bench::Timer timer;
  run(kTimes);
  return timer.Nanoseconds() / kTimes;
}

}  // namespace

int main() {
  using qiv::bench::Compare;
  // The lines about conditions are written, but not onto the reader's screen.
  Check(std::freopen("/dev/null", "w", stderr) != nullptr, "freopen");
  qiv::bench::PrintHead("message of 64 bytes beside mq_send(), ns");
  Compare(
      "send and receive on one thread", [] { return NanosecondsEach<200000>(RunPairs<QivQueue>); },
      [] { return NanosecondsEach<200000>(RunPairs<PosixQueue>); });
  Compare(
      "there and back between two threads",
      [] { return NanosecondsEach<20000>(RunPingPong<QivQueue>); },
      [] { return NanosecondsEach<20000>(RunPingPong<PosixQueue>); });
  Compare(
      "stream from one thread to another",
      [] { return NanosecondsEach<100000>(RunStream<QivQueue>); },
      [] { return NanosecondsEach<100000>(RunStream<PosixQueue>); });
  return 0;
}

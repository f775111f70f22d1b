// Checks StreamSender against an engine played by this file: pieces, second reports, pieces given
// up half way.
#include "stream_sender.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string>

namespace {

struct Request {
  unsigned int length;
  void* user;
  QIV_ASYNC_CALLBACK callback;
};

int g_result = 0;                // what the engine answers to a request
std::deque<Request> g_requests;  // accepted and not yet popped
std::string g_output;            // the bytes accepted, without those that were given up

struct Owner final : echo::StreamSender::Owner {
  void OnSent() override { ++sent; }
  void OnSendFailed(int error) override { failure = error; }
  int sent = 0;
  int failure = 0;
};

void Report(const Request& request, unsigned int error, unsigned int bytes) {
  request.callback(error, bytes, request.user);
}

void CompleteFront() {
  const Request request = g_requests.front();
  Report(request, 0, request.length);
  g_requests.pop_front();
}

void Check(bool holds, const char* what) {
  if (!holds) {
    std::fprintf(stderr, "FAILED: %s\n", what);
    std::exit(1);
  }
}

void Reset() {
  g_result = 0;
  g_requests.clear();
  g_output.clear();
}

std::string Data(std::size_t length) {
  std::string data(length, ' ');
  for (std::size_t i = 0; i < length; ++i) {
    data[i] = static_cast<char>(i % 251);
  }
  return data;
}

void LongBlockGoesOutInPiecesOneAtATime() {
  Reset();
  Owner owner;
  echo::StreamSender sender(owner);
  const std::string data = Data(40000);
  sender.Send(3, data.data(), data.size());
  for (const unsigned int length : {16384u, 16384u, 7232u}) {
    Check(g_requests.size() == 1 && g_requests.front().length == length, "one piece at a time");
    Check(sender.Busy() && owner.sent == 0, "not told before the last piece");
    CompleteFront();
  }
  Check(!sender.Busy() && owner.sent == 1 && owner.failure == 0, "told once");
  Check(g_output == data, "all bytes in order");
}

// The engine reports a piece that took several send(2) calls twice and pops it after the second.
void SecondReportsAreIgnored(unsigned int secondError) {
  Reset();
  Owner owner;
  echo::StreamSender sender(owner);
  const std::string data = Data(std::size_t{5} * 16384);
  sender.Send(3, data.data(), data.size());
  for (int piece = 0; piece < 5; ++piece) {
    const Request front = g_requests.front();
    Report(front, 0, front.length);
    Report(front, secondError, front.length);
    g_requests.pop_front();
    Check(g_requests.size() == (piece < 4 ? 1u : 0u), "the second report queues nothing");
  }
  Check(owner.sent == 1 && owner.failure == 0, "told once, no failure");
  Check(g_output == data, "all bytes in order");
}

void PieceGivenUpWithEagainIsTakenUpAgain() {
  Reset();
  Owner owner;
  echo::StreamSender sender(owner);
  const std::string data = Data(20000);
  sender.Send(3, data.data(), data.size());
  for (const unsigned int bytes : {1000u, 0u}) {
    const Request front = g_requests.front();
    g_output.resize(g_output.size() - front.length + bytes);
    Report(front, EAGAIN, bytes);
    g_requests.pop_front();
  }
  while (!g_requests.empty()) {
    CompleteFront();
  }
  Check(owner.sent == 1 && owner.failure == 0, "told once, no failure");
  Check(g_output == data, "all bytes in order");
}

void FailedPieceAndRefusedRequestAreTold() {
  Reset();
  Owner owner;
  echo::StreamSender sender(owner);
  const std::string data = Data(20000);
  sender.Send(3, data.data(), data.size());
  Report(g_requests.front(), EPIPE, 5);
  Check(owner.failure == EPIPE && owner.sent == 0 && !sender.Busy(), "a broken connection");

  Reset();
  g_result = -5;
  sender.Send(3, data.data(), data.size());
  Check(owner.failure == ENOBUFS && owner.sent == 0 && !sender.Busy(), "a refused request");
}

}  // namespace

extern "C" int QIV_AsyncIO_SendEx(int /*socket*/, const void* data, int length, void* user,
                                  QIV_ASYNC_CALLBACK callback) noexcept {
  if (g_result == 0) {
    g_requests.push_back({static_cast<unsigned int>(length), user, callback});
    g_output.append(static_cast<const char*>(data), static_cast<std::size_t>(length));
  }
  return g_result;
}

int main() {
  LongBlockGoesOutInPiecesOneAtATime();
  SecondReportsAreIgnored(0);
  SecondReportsAreIgnored(EAGAIN);
  SecondReportsAreIgnored(ECONNRESET);
  PieceGivenUpWithEagainIsTakenUpAgain();
  FailedPieceAndRefusedRequestAreTold();
  std::puts("all checks hold");
  return 0;
}

#include "file_stream.h"

#include <qiv/socket.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>

namespace echo {
namespace {

constexpr std::size_t kLeastWindow = std::size_t{256} * 1024;
constexpr std::size_t kReceiveSize = std::size_t{64} * 1024;

// A whole number of messages, so that none of them wraps round the end of the ring.
std::size_t RingSize(std::uint64_t length, std::size_t messageSize) {
  const std::size_t windowMessages = std::max<std::size_t>(2, kLeastWindow / messageSize);
  const std::uint64_t rangeMessages = (length + messageSize - 1) / messageSize;
  return static_cast<std::size_t>(std::min<std::uint64_t>(windowMessages, rangeMessages)) *
         messageSize;
}

}  // namespace

FileStream::FileStream(const InputFile& file, FileRange range, std::size_t messageSize,
                       const CompletionQueue& queue, Bell& bell)
    : m_file(file),
      m_range(range),
      m_messageSize(messageSize),
      m_bell(bell),
      m_ring(RingSize(range.length, messageSize)),
      m_received(kReceiveSize),
      m_sender(*this),
      m_socket(NewStreamSocket(), queue) {
  QIV_SetNoDelay(m_socket.Descriptor(), 1);
}

void FileStream::Start(const QIV_ADDR_T& server) {
  // Refused at once, the connect has no callback; else only the callbacks go on from here.
  if (QIV_AsyncIO_ConnectEx(m_socket.Descriptor(), &server, nullptr, 0, this, OnConnected) !=
      QIV_OK) {
    Finish(Outcome::kNotConnected, errno);
  }
}

void FileStream::OnConnected(unsigned int error, unsigned int /*bytes*/, void* user) {
  FileStream& stream = *static_cast<FileStream*>(user);
  if (error != 0) {
    stream.Finish(Outcome::kNotConnected, static_cast<int>(error));
    return;
  }
  stream.EndIfComplete();
  stream.Receive();
  stream.SendMore();
}

void FileStream::OnReceived(unsigned int /*error*/, unsigned int bytes, void* user) {
  FileStream& stream = *static_cast<FileStream*>(user);
  if (bytes > 0) {
    stream.TakeEcho(bytes);
    return;
  }
  const bool complete = stream.EqualBytes() == stream.m_range.length;
  stream.Finish(complete ? Outcome::kEqual : Outcome::kClosed, 0);
}

void FileStream::OnSent() { SendMore(); }

void FileStream::OnSendFailed(int error) { Finish(Outcome::kSendFailed, error); }

void FileStream::SendMore() {
  const std::uint64_t underWay = m_sent - EqualBytes();
  const std::size_t length =
      static_cast<std::size_t>(std::min<std::uint64_t>(m_messageSize, m_range.length - m_sent));
  if (Finished() || m_sender.Busy() || length == 0 || underWay + length > m_ring.size()) {
    return;
  }
  char* message = m_ring.data() + m_sent % m_ring.size();
  if (!m_file.Read(m_range.offset + m_sent, message, length)) {
    Finish(Outcome::kFileUnreadable, 0);
    return;
  }
  m_sent += length;
  m_sender.Send(m_socket.Descriptor(), message, length);
}

void FileStream::Receive() {
  if (QIV_AsyncIO_RecvEx(m_socket.Descriptor(), m_received.data(),
                         static_cast<int>(m_received.size()), this, OnReceived) != QIV_OK) {
    Finish(Outcome::kRefused, 0);
  }
}

void FileStream::TakeEcho(std::size_t length) {
  if (Finished() || !Compare(length)) {
    return;
  }
  EndIfComplete();
  Receive();
  SendMore();
}

// Compares with what was sent; false when that ends the connection.
bool FileStream::Compare(std::size_t length) {
  const char* got = m_received.data();
  while (length > 0) {
    const std::uint64_t equal = EqualBytes();
    if (equal == m_sent) {
      Finish(Outcome::kTooMuch, 0);
      return false;
    }
    const std::size_t at = static_cast<std::size_t>(equal % m_ring.size());
    const std::size_t part = static_cast<std::size_t>(
        std::min<std::uint64_t>({length, m_sent - equal, m_ring.size() - at}));
    const char* expected = m_ring.data() + at;
    const auto [other, sent] = std::mismatch(got, got + part, expected);
    m_equal.store(equal + static_cast<std::uint64_t>(other - got), std::memory_order_relaxed);
    if (other != got + part) {
      m_expected = static_cast<unsigned char>(*sent);
      m_got = static_cast<unsigned char>(*other);
      Finish(Outcome::kDifferent, 0);
      return false;
    }
    got += part;
    length -= part;
  }
  return true;
}

// Tells the server that nothing follows; it closes in turn, and a byte too much would show.
void FileStream::EndIfComplete() {
  if (EqualBytes() == m_range.length) {
    QIV_ShutDown(m_socket.Descriptor(), SHUT_WR);
  }
}

// The first outcome counts: a broken connection fails its receive and its send.
void FileStream::Finish(Outcome outcome, int error) {
  if (Finished()) {
    return;
  }
  m_outcome = outcome;
  m_error = error;
  m_finishTime = std::chrono::steady_clock::now();
  m_finished.store(true, std::memory_order_release);
  m_bell.Ring();
}

std::string FileStream::Failure() const {
  const auto equal = static_cast<unsigned long long>(EqualBytes());
  const auto length = static_cast<unsigned long long>(m_range.length);
  const std::string reason = m_error == 0 ? "" : std::generic_category().message(m_error);
  char text[200] = "";
  switch (m_outcome) {
    case Outcome::kEqual:
      break;
    case Outcome::kNotConnected:
      return "cannot connect: " + reason;
    case Outcome::kDifferent:
      std::snprintf(text, sizeof(text),
                    "the byte at file offset %llu differs: expected 0x%02x, got 0x%02x",
                    static_cast<unsigned long long>(m_range.offset) + equal, m_expected, m_got);
      return text;
    case Outcome::kTooMuch:
      return "the server sent more than it was sent";
    case Outcome::kClosed:
      std::snprintf(text, sizeof(text), "closed by the server when %llu of %llu bytes were back",
                    equal, length);
      return text;
    case Outcome::kSendFailed:
      std::snprintf(text, sizeof(text), "cannot send when %llu of %llu bytes were back: ", equal,
                    length);
      return text + reason;
    case Outcome::kFileUnreadable:
      return "the file cannot be read to its end any more";
    case Outcome::kRefused:
      return "a receive was refused";
  }
  return text;
}

}  // namespace echo

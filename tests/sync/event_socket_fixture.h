// Events bound to sockets: the fixture and what is expected of an enumeration.
#ifndef QIV_TESTS_SYNC_EVENT_SOCKET_FIXTURE_H
#define QIV_TESTS_SYNC_EVENT_SOCKET_FIXTURE_H

#include <gtest/gtest.h>
#include <poll.h>
#include <qiv/event.h>
#include <qiv/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "support/leak_check.h"
#include "support/sockets.h"
#include "support/test_limit.h"
#include "sync/event_fixture.h"

namespace qiv::test {

constexpr unsigned char kUntouched = 0xAA;
constexpr std::size_t kResultBytes = 44;
constexpr std::size_t kConnectSlot = 20;

using ResultBytes = std::array<unsigned char, kResultBytes>;

inline int WaitFor(const Event& event, int ms) {
  const QIV_HANDLE events[] = {event.Get()};
  return QIV_WaitForMultipleObjects(1, events, 0, ms);
}

inline int WaitLong(const Event& event) {
  return WaitFor(event, static_cast<int>(TestLimit().count()));
}

/** The record that QIV_EnumNetworkEvents() fills, at an odd address. */
inline ResultBytes Enumerate(const Event& event) {
  std::array<unsigned char, kResultBytes + 1> memory;
  memory.fill(kUntouched);
  MessagesOf([&] { EXPECT_EQ(0, QIV_EnumNetworkEvents(0, event.Get(), &memory[1])); });
  ResultBytes bytes;
  std::memcpy(bytes.data(), &memory[1], bytes.size());
  return bytes;
}

inline ResultBytes ExpectedResult(unsigned int found) {
  ResultBytes bytes;
  bytes.fill(kUntouched);
  std::memcpy(bytes.data(), &found, sizeof(found));
  return bytes;
}

inline ResultBytes ExpectedResult(unsigned int found, int connectError) {
  ResultBytes bytes = ExpectedResult(found);
  std::memcpy(&bytes[kConnectSlot], &connectError, sizeof(connectError));
  return bytes;
}

/** Begins to connect a non-blocking socket. */
inline void BeginConnect(const Socket& socket, const QIV_ADDR_T& address) {
  const int result = connect(socket.Get(), &address.any, sizeof(sockaddr_in));
  EXPECT_TRUE(result == 0 || errno == EINPROGRESS) << errno;
}

inline bool HasArrived(const Socket& socket, short event) {
  pollfd entry = {socket.Get(), event, 0};
  return poll(&entry, 1, static_cast<int>(TestLimit().count())) == 1;
}

class EventSocketTest : public LeakCheckedTest {
 protected:
  void SetUp() override {
    LeakCheckedTest::SetUp();
    m_event.emplace();
  }
  void TearDown() override {
    m_event.reset();
    LeakCheckedTest::TearDown();
  }

  void Select(const Socket& socket, unsigned int mask) {
    ASSERT_EQ(0, QIV_EventSelect(socket.Get(), m_event->Get(), mask));
  }
  void ExpectFound(unsigned int found) {
    EXPECT_EQ(0, WaitLong(*m_event));
    EXPECT_EQ(ExpectedResult(found), Enumerate(*m_event));
  }

  std::optional<Event> m_event;
};

}  // namespace qiv::test

#endif

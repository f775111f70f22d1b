// The echo server: accepts clients on a loopback port and keeps a session for each.
//
// Everything belongs to the main thread, except that the accept callback writes the outcome of the
// one accept that is pending and then publishes it with m_acceptState.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <string>

#include "bell.h"
#include "echo_session.h"
#include "engine.h"

namespace echo {

struct ServerSettings {
  int port = 7777;
  int connections = 64;
  int messageSize = 65536;
  int workers = 2;
  std::string logDirectory;  // none: no log
};

class Server {
 public:
  Server(const ServerSettings& settings, Bell& bell);

  int Port() const;

  // Serves until the bell asks to stop; throws std::runtime_error when no client can be accepted
  // any more.
  void Run();

  std::uint64_t ClientsServed() const { return m_clientsServed; }
  std::uint64_t EchoedBytes() const { return m_echoedBytes; }

 private:
  enum class AcceptState { kNone, kPending, kDone };

  static void OnAccepted(unsigned int error, unsigned int descriptor, void* user);
  void RequestAccept();
  void TakeAccepted();
  void OnAcceptFailed();
  void StartSession(int descriptor);
  void RemoveSessions(bool all);
  void Stop();

  const ServerSettings m_settings;
  Bell& m_bell;
  CompletionQueue m_queue;
  std::list<EchoSession> m_sessions;
  std::uint64_t m_clientsServed = 0;
  std::uint64_t m_echoedBytes = 0;

  std::atomic<AcceptState> m_acceptState{AcceptState::kNone};
  unsigned int m_acceptError = 0;
  int m_accepted = -1;
  bool m_roomMade = false;     // a session was removed since the pending accept was requested
  bool m_waitForRoom = false;  // an accept failed for want of descriptors or memory
  BoundSocket m_listener;      // last: closed first, after which no callback uses the others
};

}  // namespace echo

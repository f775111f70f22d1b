#include "server.h"

#include <qiv/log.h>
#include <qiv/socket.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <system_error>

namespace echo {
namespace {

int Listen(int port) {
  const int descriptor = NewStreamSocket();
  const QIV_ADDR_T address = LoopbackAddress(port);
  // A server that is started again need not wait for its old connections to be forgotten.
  QIV_SetReuseAddr(descriptor, 1);
  if (QIV_Bind(descriptor, &address) != 0 || QIV_Listen(descriptor, SOMAXCONN) != 0) {
    const int error = errno;
    QIV_CloseSocket(descriptor, 0);
    throw std::system_error(error, std::generic_category(),
                            "cannot listen on port " + std::to_string(port));
  }
  return descriptor;
}

bool IsShortage(unsigned int error) {
  return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

}  // namespace

Server::Server(const ServerSettings& settings, Bell& bell)
    : m_settings(settings),
      m_bell(bell),
      m_queue(settings.workers),
      m_listener(Listen(settings.port), m_queue) {}

int Server::Port() const {
  QIV_ADDR_T local;
  if (QIV_GetAddrBySockFd(m_listener.Descriptor(), &local, nullptr) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot read the port");
  }
  return QIV_GetAddrPort(&local);
}

void Server::Run() {
  while (!m_bell.StopAsked()) {
    RequestAccept();
    m_bell.Wait(-1);
    RemoveSessions(false);
    TakeAccepted();
  }
  Stop();
}

void Server::OnAccepted(unsigned int error, unsigned int descriptor, void* user) {
  Server& server = *static_cast<Server*>(user);
  server.m_acceptError = error;
  server.m_accepted = static_cast<int>(descriptor);
  server.m_acceptState.store(AcceptState::kDone, std::memory_order_release);
  server.m_bell.Ring();
}

// Clients beyond the limit wait in the listening socket's backlog.
void Server::RequestAccept() {
  const bool hasRoom =
      !m_waitForRoom && m_sessions.size() < static_cast<std::size_t>(m_settings.connections);
  if (!hasRoom || m_acceptState.load(std::memory_order_acquire) != AcceptState::kNone) {
    return;
  }
  m_acceptState.store(AcceptState::kPending, std::memory_order_release);
  m_roomMade = false;
  if (QIV_AsyncIO_AcceptEx(m_listener.Descriptor(), nullptr, nullptr, 0, this, OnAccepted) !=
      QIV_OK) {
    throw std::runtime_error("cannot request an accept");
  }
}

void Server::TakeAccepted() {
  if (m_acceptState.load(std::memory_order_acquire) != AcceptState::kDone) {
    return;
  }
  m_acceptState.store(AcceptState::kNone, std::memory_order_release);
  if (m_accepted < 0) {  // not by the error: it says nothing when descriptor 0 was accepted
    OnAcceptFailed();
  } else {
    StartSession(m_accepted);
  }
}

// A client that went away before it was accepted is no failure. A shortage ends when a session
// does; trying again before that would only spin.
void Server::OnAcceptFailed() {
  if (!IsShortage(m_acceptError) || m_roomMade) {
    return;
  }
  const char* reason = std::strerror(static_cast<int>(m_acceptError));
  if (m_sessions.empty()) {
    throw std::runtime_error(std::string("cannot accept a client: ") + reason);
  }
  std::fprintf(stderr, "echo_server: cannot accept a client: %s; waiting for a client to leave\n",
               reason);
  m_waitForRoom = true;
}

void Server::StartSession(int descriptor) {
  try {
    m_sessions.emplace_back(descriptor, static_cast<std::size_t>(m_settings.messageSize), m_queue,
                            m_bell);
    m_sessions.back().Start();
    ++m_clientsServed;
    WriteLog(LOG_INF, __FILE__, __LINE__, "descriptor %d: client accepted", descriptor);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "echo_server: a client was turned away: %s\n", failure.what());
  }
}

void Server::RemoveSessions(bool all) {
  for (auto session = m_sessions.begin(); session != m_sessions.end();) {
    if (!all && !session->Ended()) {
      ++session;
      continue;
    }
    m_echoedBytes += session->EchoedBytes();
    WriteLog(LOG_INF, __FILE__, __LINE__, "a client is gone, with %llu bytes echoed",
             static_cast<unsigned long long>(session->EchoedBytes()));
    session = m_sessions.erase(session);
    m_roomMade = true;
    m_waitForRoom = false;
  }
}

void Server::Stop() {
  m_listener.Close();  // no accept callback runs from here on
  if (m_acceptState.load(std::memory_order_acquire) == AcceptState::kDone && m_accepted >= 0) {
    QIV_CloseSocket(m_accepted, 0);
  }
  RemoveSessions(true);
}

}  // namespace echo

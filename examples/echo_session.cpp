#include "echo_session.h"

#include <qiv/log.h>
#include <qiv/socket.h>

namespace echo {

EchoSession::EchoSession(int descriptor, std::size_t messageSize, const CompletionQueue& queue,
                         Bell& bell)
    : m_bell(bell), m_buffer(messageSize), m_sender(*this), m_socket(descriptor, queue) {
  QIV_SetNoDelay(descriptor, 1);
}

void EchoSession::Start() { Receive(); }

void EchoSession::OnReceived(unsigned int /*error*/, unsigned int bytes, void* user) {
  EchoSession& session = *static_cast<EchoSession*>(user);
  if (bytes == 0) {  // the client closed, or the connection broke: either way there is no more
    session.End();
    return;
  }
  WriteLog(LOG_DBG, __FILE__, __LINE__, "descriptor %d: %u bytes", session.m_socket.Descriptor(),
           bytes);
  session.m_received = bytes;
  session.m_sender.Send(session.m_socket.Descriptor(), session.m_buffer.data(), bytes);
}

void EchoSession::OnSent() {
  m_echoedBytes.fetch_add(m_received, std::memory_order_relaxed);
  Receive();
}

void EchoSession::OnSendFailed(int /*error*/) { End(); }

void EchoSession::Receive() {
  if (QIV_AsyncIO_RecvEx(m_socket.Descriptor(), m_buffer.data(), static_cast<int>(m_buffer.size()),
                         this, OnReceived) != QIV_OK) {
    End();
  }
}

void EchoSession::End() {
  m_ended.store(true, std::memory_order_release);
  m_bell.Ring();
}

}  // namespace echo

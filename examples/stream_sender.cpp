#include "stream_sender.h"

#include <algorithm>
#include <cerrno>

namespace echo {
namespace {

// The engine splits longer sends into pieces of this many bytes.
constexpr std::size_t kLongestPiece = 16384;

}  // namespace

StreamSender::StreamSender(Owner& owner) : m_owner(owner), m_pieces{{this, 0}, {this, 0}} {}

void StreamSender::Send(int socket, const char* data, std::size_t length) {
  m_socket = socket;
  m_data = data;
  m_left = length;
  QueuePiece();
}

void StreamSender::QueuePiece() {
  Piece& piece = m_pieces[m_next];
  piece.length = static_cast<unsigned int>(std::min(m_left, kLongestPiece));
  m_next = 1 - m_next;
  m_queued = &piece;
  if (QIV_AsyncIO_SendEx(m_socket, m_data, static_cast<int>(piece.length), &piece, OnPieceReport) !=
      QIV_OK) {
    m_queued = nullptr;
    m_left = 0;
    m_owner.OnSendFailed(ENOBUFS);
  }
}

void StreamSender::OnPieceReport(unsigned int error, unsigned int bytes, void* user) {
  Piece* piece = static_cast<Piece*>(user);
  StreamSender& sender = *piece->sender;
  // A piece that took several send(2) calls is reported a second time, before any report of the
  // piece that follows it; the second report says nothing new.
  if (piece == sender.m_queued) {
    sender.EndPiece(error, bytes);
  }
}

void StreamSender::EndPiece(unsigned int error, unsigned int bytes) {
  const bool givenUp = bytes < m_queued->length;
  m_queued = nullptr;
  m_data += bytes;
  m_left -= bytes;
  // EAGAIN gives a piece up too; the rest of it is then sent as a new piece.
  if (givenUp && error != EAGAIN) {
    m_left = 0;
    m_owner.OnSendFailed(static_cast<int>(error));
  } else if (m_left > 0) {
    QueuePiece();
  } else {
    m_owner.OnSent();
  }
}

}  // namespace echo

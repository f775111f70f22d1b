// Sends a block of any length in order, one piece of the engine at a time.
//
// With a single piece queued, a piece that was given up half way can be taken up again before
// anything else goes out, and the socket stays far below its memory limit. It costs no speed: a
// worker sends one piece per readiness report in any case.
//
// Belongs to the callbacks of one socket, which all run on that socket's worker: Send() must be
// called in one of them.
#pragma once

#include <qiv/async_io.h>

#include <cstddef>

namespace echo {

class StreamSender {
 public:
  // Told the outcome, on the socket's worker.
  class Owner {
   public:
    virtual void OnSent() = 0;
    virtual void OnSendFailed(int error) = 0;

   protected:
    ~Owner() = default;
  };

  explicit StreamSender(Owner& owner);
  StreamSender(const StreamSender&) = delete;
  StreamSender& operator=(const StreamSender&) = delete;

  // Starts to send on a bound socket. The data must stay as it is until the owner is told. Not
  // while Busy().
  void Send(int socket, const char* data, std::size_t length);

  bool Busy() const { return m_left > 0; }

 private:
  struct Piece {
    StreamSender* sender;
    unsigned int length;
  };

  static void OnPieceReport(unsigned int error, unsigned int bytes, void* user);
  void QueuePiece();
  void EndPiece(unsigned int error, unsigned int bytes);

  Owner& m_owner;
  int m_socket = -1;
  const char* m_data = nullptr;
  std::size_t m_left = 0;

  // Used in turn, so that a late second report of one piece is not taken for the next piece's.
  Piece m_pieces[2];
  Piece* m_queued = nullptr;
  int m_next = 0;
};

}  // namespace echo

// Sending and receiving on sockets.
#include <qiv/socket.h>
#include <sys/ioctl.h>

#include "net/address_length.h"
#include "net/readiness.h"
#include "net/socket.h"

namespace {

using qiv::net::Readiness;
using qiv::net::WaitFor;

}  // namespace

extern "C" {

int QIV_Send(int socket, const void* buffer, unsigned int length) {
  return static_cast<int>(send(socket, buffer, length, MSG_NOSIGNAL));
}

int QIV_Recv(int socket, void* buffer, unsigned int length) {
  return static_cast<int>(recv(socket, buffer, length, 0));
}

int QIV_SendTo(int socket, const void* buffer, unsigned int length, const QIV_ADDR_T* destination) {
  const sockaddr* address = destination == nullptr ? nullptr : &destination->any;
  const socklen_t addressLength =
      destination == nullptr ? 0 : qiv::net::AddressLength(*destination);
  return static_cast<int>(sendto(socket, buffer, length, 0, address, addressLength));
}

int QIV_RecvFrom(int socket, void* buffer, unsigned int length, QIV_ADDR_T* source) {
  sockaddr* const address = source == nullptr ? nullptr : &source->any;
  socklen_t addressLength = qiv::net::kRecordLength;
  return static_cast<int>(recvfrom(socket, buffer, length, 0, address, &addressLength));
}

int QIV_Ioctl(int socket, unsigned int request, unsigned long argument) {
  return ioctl(socket, request, argument);
}

int QIV_RecvWithTimeOut(int socket, void* buffer, int length, unsigned int ms) {
  if (length < 0) return QIV_ERROR;
  const Readiness readiness = WaitFor(socket, POLLRDNORM, ms);
  if (readiness.pollResult == 0) return 0;
  if (!readiness.isReady) return QIV_ERROR;
  const int received = QIV_Recv(socket, buffer, static_cast<unsigned int>(length));
  return received < 1 ? QIV_ERROR : received;
}

int QIV_Sendn(int socket, const void* buffer, unsigned int length, unsigned int ms) {
  length = qiv::net::TransferLength(length);
  const char* const bytes = static_cast<const char*>(buffer);
  unsigned int sent = 0;
  Readiness readiness = {};
  do {
    readiness = WaitFor(socket, POLLWRNORM, ms);
    if (readiness.pollResult == 0) continue;
    if (!readiness.isReady) break;
    const int count = QIV_Send(socket, bytes + sent, length - sent);
    if (count < 1) break;
    sent += static_cast<unsigned int>(count);
  } while (sent < length && ms != 0);
  if (sent == 0 && readiness.pollResult == -1) return QIV_ERROR;
  return static_cast<int>(sent);
}

int QIV_Recvn(int socket, void* buffer, unsigned int length, unsigned int ms) {
  length = qiv::net::TransferLength(length);
  char* const bytes = static_cast<char*>(buffer);
  unsigned int received = 0;
  do {
    const Readiness readiness = WaitFor(socket, POLLRDNORM, ms);
    if (readiness.pollResult == 0) continue;
    if (!readiness.isReady) return QIV_ERROR;
    const int count = QIV_Recv(socket, bytes + received, length - received);
    if (count < 1) return QIV_ERROR;
    received += static_cast<unsigned int>(count);
  } while (received < length && ms != 0);
  return static_cast<int>(received);
}

}  // extern "C"

// One asynchronous request as it waits in a socket's queue.
#ifndef QIV_AIO_IO_DATA_H
#define QIV_AIO_IO_DATA_H

#include <qiv/address.h>
#include <qiv/async_io.h>

#include <cstddef>

enum QIV_IO_TYPE : int {
  QIV_IO_TCP_SEND = 0,
  QIV_IO_TCP_RECV = 1,
  QIV_IO_UDP_SEND = 2,
  QIV_IO_UDP_RECV = 3,
  QIV_IO_CONNECT = 4,
  QIV_IO_ACCEPT = 5,
};

struct IO_DATA {
  int socketFd;
  QIV_IO_TYPE ioType;
  void* buffer;      // send: the library's copy; receive: the caller's buffer; else null
  int length;        // bytes in buffer
  int doneBytes;     // sent so far, received, or the accepted descriptor
  int errorCode;     // errno of the outcome, 0 on success
  QIV_ADDR_T* addr;  // addrCopy, or the caller's record that receives an address, or null
  QIV_ADDR_T addrCopy;
  QIV_ASYNC_CALLBACK callback;
  void* userData;
};

static_assert(sizeof(void*) != 4 || sizeof(IO_DATA) == 64, "64 bytes on 32-bit platforms");
static_assert(offsetof(IO_DATA, ioType) == 4, "fields in order");
static_assert(offsetof(IO_DATA, buffer) == 8, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(IO_DATA, length) == 12, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(IO_DATA, doneBytes) == 16, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(IO_DATA, errorCode) == 20, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(IO_DATA, addr) == 24, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(IO_DATA, addrCopy) == 28, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(IO_DATA, callback) == 56, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(IO_DATA, userData) == 60, "fields in order");

#endif

/* An asynchronous echo server for one client: accept, receive, send back, until the client ends. */
#include <qiv/qiv.h>
#include <stdio.h>
#include <string.h>

enum { kBufferBytes = 64 };
typedef struct Server {
  QIV_HANDLE queue;
  int peer;
  char buffer[kBufferBytes];
  unsigned int echoed;
  sem_t ended;
} Server;

/* Callbacks run on the worker; each asks for what comes next, or ends the work. */
static void OnReceived(unsigned int error, unsigned int bytes, void* user) {
  Server* const self = user;
  (void)error;
  self->echoed += bytes;
  /* 0 bytes: the client has closed, or the connection is broken. The send copies its data. */
  if (bytes == 0 || QIV_AsyncIO_SendEx(self->peer, self->buffer, (int)bytes, NULL, NULL) != 0 ||
      QIV_AsyncIO_RecvEx(self->peer, self->buffer, kBufferBytes, self, OnReceived) != 0) {
    QIV_SemPost(&self->ended);
  }
}

static void OnAccepted(unsigned int error, unsigned int descriptor, void* user) {
  Server* const self = user;
  self->peer = error == 0 ? (int)descriptor : -1;
  if (QIV_AsyncIO_BindIOHandleToQueueEx(self->peer, self->queue) != 0 ||
      QIV_AsyncIO_RecvEx(self->peer, self->buffer, kBufferBytes, self, OnReceived) != 0) {
    QIV_SemPost(&self->ended);
  }
}

static int RunClient(const QIV_ADDR_T* address) {
  char answer[6] = "";
  const int client = QIV_CreateSocket(AF_INET, SOCK_STREAM, 0);
  int isRight = QIV_ConnectWithTimeOut(client, address, 10000) == 0;
  isRight = isRight && QIV_Sendn(client, "hello", 5, 10000) == 5;
  isRight = isRight && QIV_Recvn(client, answer, 5, 10000) == 5;
  printf("client got: %s\n", answer);
  QIV_CloseSocket(client, 1);
  return isRight && strcmp(answer, "hello") == 0;
}

int main(void) {
  static Server server;
  QIV_ADDR_T address;
  int listener, isRight;
  if (QIV_Init() != QIV_OK || QIV_SemCreate(&server.ended, 0) != 0) return 1;
  listener = QIV_CreateSocket(AF_INET, SOCK_STREAM, 0);
  QIV_MakeAddrByString(AF_INET, "127.0.0.1", 0, &address);
  if (QIV_Bind(listener, &address) != 0 || QIV_Listen(listener, 5) != 0) return 1;
  if (QIV_GetAddrBySockFd(listener, &address, NULL) != 0) return 1;
  server.peer = -1;
  server.queue = QIV_AsyncIO_CreateQueueEx_New(1); /* one worker */
  if (QIV_AsyncIO_BindIOHandleToQueueEx(listener, server.queue) != QIV_OK) return 1;
  if (QIV_AsyncIO_AcceptEx(listener, NULL, NULL, 0, &server, OnAccepted) != QIV_OK) return 1;
  isRight = RunClient(&address) && QIV_SemTimedWait(&server.ended, 10000) == 0;
  QIV_AsyncIO_UnBindIOHandleEx(listener, server.queue); /* first: no accept is under way now */
  QIV_CloseSocket(listener, 0);
  QIV_AsyncIO_UnBindIOHandleEx(server.peer, server.queue); /* unbind, then close */
  if (server.peer != -1) QIV_CloseSocket(server.peer, 0);
  QIV_AsyncIO_DestroyQueueEx(server.queue);
  printf("server echoed %u bytes\n", server.echoed);
  QIV_SemDestroy(&server.ended);
  QIV_Fini();
  return isRight && server.echoed == 5 ? 0 : 1;
}

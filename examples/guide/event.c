// Serves a socket until told to stop or until the peer closes: one wait for a socket and an event.
#include <errno.h>
#include <qiv/event.h>
#include <qiv/library.h>
#include <qiv/socket.h>
#include <qiv/thread.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

// The lowest index wins a wait: with the stop last, data that came before it is served.
enum { kData, kStop, kEvents };

typedef struct {
  int socket;
  QIV_HANDLE events[kEvents];
  char text[64];  // the first 63 bytes that came
} Server;

static void Keep(Server* server, const char* piece, int length) {
  const size_t stored = strlen(server->text);
  const size_t room = sizeof(server->text) - 1 - stored;
  memcpy(server->text + stored, piece, (size_t)length < room ? (size_t)length : room);
}

// Always takes bytes away: what stays unread, or a closed peer, would hide the stop for ever.
// False when the peer has closed or the connection is broken.
static int Receive(Server* server) {
  char piece[64];
  const int got = QIV_Recv(server->socket, piece, sizeof(piece));  // does not block: it was bound
  if (got > 0) Keep(server, piece, got);
  return got > 0 || (got < 0 && (errno == EAGAIN || errno == EINTR));
}

static void* Serve(void* argument) {
  Server* const server = argument;
  const int noLimit = -1;
  int isOpen = 1;
  while (isOpen && QIV_WaitForMultipleObjects(kEvents, server->events, 0, noLimit) == kData) {
    isOpen = Receive(server);
  }
  return NULL;
}

int main(void) {
  Server server = {-1, {NULL, NULL}, ""};
  int ends[2];
  unsigned int thread;
  int isRight;
  if (QIV_Init() != QIV_OK || socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) return 1;
  server.socket = ends[0];
  server.events[kData] = QIV_CreateEvent(0);
  server.events[kStop] = QIV_CreateEvent(0);
  if (server.events[kData] == NULL || server.events[kStop] == NULL) return 1;
  if (QIV_EventSelect(server.socket, server.events[kData], QIV_EVENT_READ) != 0) return 1;

  thread = QIV_Thread_Create(Serve, &server, 0, 0, 0, 0);
  if (thread == QIV_INVALID_ID) return 1;
  isRight = QIV_Send(ends[1], "two ", 4) == 4 && QIV_Send(ends[1], "texts", 5) == 5;
  QIV_SetEvent(server.events[kStop]);
  QIV_Thread_Wait(thread);
  printf("received until the stop: %s\n", server.text);

  // A wait takes nothing: the event is still set.
  isRight = isRight && QIV_WaitForSingleObject(server.events[kStop], 0) == QIV_WAIT_SIGNALLED;
  QIV_CloseEvent(server.events[kData]);  // the socket stays open
  QIV_CloseEvent(server.events[kStop]);
  QIV_CloseSocket(ends[0], 0);
  QIV_CloseSocket(ends[1], 0);
  QIV_Fini();
  return isRight && strcmp(server.text, "two texts") == 0 ? 0 : 1;
}

// A thread that serves a socket until it is told to stop: one wait for the socket and for an event.
#include <qiv/event.h>
#include <qiv/library.h>
#include <qiv/socket.h>
#include <qiv/thread.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

// The lowest index wins a wait: with the stop last, data that came before it is seen.
enum { kData, kStop, kEvents };

typedef struct {
  int socket;
  QIV_HANDLE events[kEvents];
  char text[64];  // what came
} Server;

// The socket became non-blocking when it was bound to its event: takes what is there.
static void Receive(Server* server) {
  const size_t length = strlen(server->text);
  const unsigned int room = (unsigned int)(sizeof(server->text) - 1 - length);
  const int got = QIV_Recv(server->socket, server->text + length, room);
  if (got > 0) server->text[length + (unsigned int)got] = '\0';
}

static void* Serve(void* argument) {
  Server* const server = argument;
  const int noLimit = -1;
  int index = QIV_WaitForMultipleObjects(kEvents, server->events, 0, noLimit);
  for (; index == kData; index = QIV_WaitForMultipleObjects(kEvents, server->events, 0, noLimit)) {
    Receive(server);
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

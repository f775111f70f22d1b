// Eight threads share three connections: the semaphore counts the free ones.
#include <qiv/mutex.h>
#include <qiv/semaphore.h>
#include <qiv/system.h>
#include <qiv/thread.h>
#include <stdio.h>

enum { kNormal = 0 };  // the type of mutex: not recursive
enum { kConnections = 3, kClients = 8, kRequests = 5 };

static sem_t g_freeConnections;
static pthread_mutex_t g_mutex;  // guards the three below
static int g_inUse;
static int g_mostInUse;
static int g_requests;

static void CountOneMore(void) {
  QIV_MutexLock(&g_mutex);
  ++g_requests;
  ++g_inUse;
  if (g_inUse > g_mostInUse) g_mostInUse = g_inUse;
  QIV_MutexUnlock(&g_mutex);
}

static void CountOneLess(void) {
  QIV_MutexLock(&g_mutex);
  --g_inUse;
  QIV_MutexUnlock(&g_mutex);
}

static void* SendRequests(void* unused) {
  int i;
  for (i = 0; i < kRequests; ++i) {
    QIV_SemWait(&g_freeConnections);
    CountOneMore();
    QIV_Sleep(1);  // the request
    CountOneLess();
    QIV_SemPost(&g_freeConnections);
  }
  return unused;
}

int main(void) {
  unsigned int clients[kClients];
  int isRight = QIV_SemCreate(&g_freeConnections, kConnections) == QIV_OK;
  int i;
  QIV_MutexCreate(&g_mutex, kNormal);
  for (i = 0; i < kClients; ++i) {
    clients[i] = QIV_Thread_Create(SendRequests, NULL, 0, 0, 0, 0);
    if (clients[i] == QIV_INVALID_ID) SendRequests(NULL);  // no thread to be had: do it here
  }
  for (i = 0; i < kClients; ++i) {
    if (clients[i] != QIV_INVALID_ID) isRight = QIV_Thread_Wait(clients[i]) == QIV_OK && isRight;
  }
  printf("%d requests, never more than %d at once: %s\n", g_requests, kConnections,
         g_mostInUse <= kConnections ? "yes" : "no");
  isRight = isRight && g_requests == kClients * kRequests && g_mostInUse <= kConnections;

  // All are free again: take them, and a further one is not to be had.
  for (i = 0; i < kConnections; ++i) {
    isRight = QIV_SemTimedWait(&g_freeConnections, 0) == QIV_OK && isRight;
  }
  if (QIV_SemTimedWait(&g_freeConnections, 25) == QIV_OK) isRight = 0;
  printf("a fourth connection: none within 25 ms\n");
  QIV_MutexDestroy(&g_mutex);
  QIV_SemDestroy(&g_freeConnections);
  return isRight ? 0 : 1;
}

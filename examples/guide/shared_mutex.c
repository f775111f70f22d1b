// A route that four threads look up all the time and one thread replaces now and then.
#include <qiv/shared_mutex.h>
#include <qiv/thread.h>
#include <stdio.h>

enum { kReaders = 4, kLookups = 20000, kUpdates = 200 };

typedef struct {
  int version;
  int hops;  // always ten times the version
} Route;

static QIV_HANDLE g_lock;  // guards the route; the functions take the variable's address
static Route g_route;

static Route LookUp(void) {
  Route route;
  QIV_SharedMutexLockShared(&g_lock);
  route = g_route;
  QIV_SharedMutexUnlockShared(&g_lock);
  return route;
}

static void Replace(int version) {
  QIV_SharedMutexLock(&g_lock);
  g_route.version = version;
  g_route.hops = 10 * version;
  QIV_SharedMutexUnlock(&g_lock);
}

// Counts the routes that are half of one version and half of another, or older than the last one.
static void* LookUpOften(void* wrongRoutes) {
  int lastVersion = 0;
  int i;
  for (i = 0; i < kLookups; ++i) {
    const Route route = LookUp();
    if (route.hops != 10 * route.version || route.version < lastVersion) ++*(int*)wrongRoutes;
    lastVersion = route.version;
  }
  return NULL;
}

int main(void) {
  unsigned int readers[kReaders];
  int wrongRoutes[kReaders] = {0};
  int wrong = 0;
  Route last;
  int i;
  if (QIV_SharedMutexCreate(&g_lock) != QIV_OK) return 1;
  for (i = 0; i < kReaders; ++i) {
    readers[i] = QIV_Thread_Create(LookUpOften, &wrongRoutes[i], 0, 0, 0, 0);
    if (readers[i] == QIV_INVALID_ID) LookUpOften(&wrongRoutes[i]);  // no thread: do it here
  }
  for (i = 1; i <= kUpdates; ++i) Replace(i);
  for (i = 0; i < kReaders; ++i) {
    if (readers[i] != QIV_INVALID_ID && QIV_Thread_Wait(readers[i]) != QIV_OK) ++wrong;
    wrong += wrongRoutes[i];
  }
  printf("%d lookups, %d updates, %d wrong routes\n", kReaders * kLookups, kUpdates, wrong);
  last = LookUp();
  printf("the last route: version %d, %d hops\n", last.version, last.hops);
  QIV_SharedMutexDestroy(&g_lock);
  return wrong == 0 && last.version == kUpdates && g_lock == NULL ? 0 : 1;
}

// Transfers between accounts by several threads: a mutex in each account, taken in one order.
#include <qiv/mutex.h>
#include <qiv/thread.h>
#include <stdio.h>

enum { kNormal = 0 };  // the type of mutex: not recursive
enum { kAccounts = 3, kThreads = 4, kTransfers = 10000, kStartBalance = 1000 };

typedef struct {
  pthread_mutex_t mutex;
  long balance;  // guarded by the mutex
} Account;

static Account g_accounts[kAccounts];

// The account with the lower address first: threads that want the same two cannot block each other.
static void Transfer(Account* from, Account* to, long amount) {
  Account* const first = from < to ? from : to;
  Account* const second = from < to ? to : from;
  QIV_MutexLock(&first->mutex);
  QIV_MutexLock(&second->mutex);
  if (from->balance >= amount) {
    from->balance -= amount;
    to->balance += amount;
  }
  QIV_MutexUnlock(&second->mutex);
  QIV_MutexUnlock(&first->mutex);
}

static void* Trade(void* argument) {
  const int start = *(const int*)argument;
  int i;
  for (i = 0; i < kTransfers; ++i) {
    const int from = (start + i) % kAccounts;
    Transfer(&g_accounts[from], &g_accounts[(from + 1 + i % 2) % kAccounts], 1 + i % 50);
  }
  return NULL;
}

int main(void) {
  unsigned int threads[kThreads];
  int starts[kThreads];
  long total = 0;
  int isRight = 1;
  int i;
  for (i = 0; i < kAccounts; ++i) {
    QIV_MutexCreate(&g_accounts[i].mutex, kNormal);
    g_accounts[i].balance = kStartBalance;
  }
  for (i = 0; i < kThreads; ++i) {
    starts[i] = i;
    threads[i] = QIV_Thread_Create(Trade, &starts[i], 0, 0, 0, 0);
    if (threads[i] == QIV_INVALID_ID) Trade(&starts[i]);  // no thread to be had: do it here
  }
  for (i = 0; i < kThreads; ++i) {
    if (threads[i] != QIV_INVALID_ID) isRight = QIV_Thread_Wait(threads[i]) == QIV_OK && isRight;
  }
  for (i = 0; i < kAccounts; ++i) {
    total += g_accounts[i].balance;  // nobody else is left
    isRight = QIV_MutexDestroy(&g_accounts[i].mutex) == QIV_OK && isRight;
  }
  printf("%d transfers, %ld in the accounts\n", kThreads * kTransfers, total);
  return isRight && total == (long)kAccounts * kStartBalance ? 0 : 1;
}

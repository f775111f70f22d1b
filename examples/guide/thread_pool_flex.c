// A ledger without a lock: any thread submits bookings, one worker books them in their order.
#include <qiv/qiv.h>
#include <stdio.h>
#include <stdlib.h>

enum { kOneWorker = 1, kIdleMs = 1000, kDefaultStack = 0 };
enum { kClerks = 3, kBookings = 1000, kMakeupMs = 10000 };

typedef struct {
  int clerk;
  int number;
  int amount;
} Booking;

static QIV_HANDLE g_ledger;
// Of the worker alone: one handler runs at a time.
static long g_balance;
static int g_booked;
static int g_lastNumbers[kClerks];
static int g_outOfOrder;

static void Book(void* data) {
  Booking* const booking = data;
  if (booking->number != g_lastNumbers[booking->clerk] + 1) ++g_outOfOrder;
  g_lastNumbers[booking->clerk] = booking->number;
  g_balance += booking->amount;
  ++g_booked;
  free(booking);  // the handler's now
}

static void* Submit(void* argument) {
  const int clerk = *(const int*)argument;
  int number;
  for (number = 1; number <= kBookings; ++number) {
    Booking* const booking = malloc(sizeof(Booking));
    if (booking == NULL) break;
    booking->clerk = clerk;
    booking->number = number;
    booking->amount = number % 2 == 0 ? 10 : -4;
    if (QIV_ThreadPoolFlex_Work(g_ledger, booking) != QIV_OK) free(booking);  // still ours
  }
  return NULL;
}

int main(void) {
  unsigned int threads[kClerks];
  int clerks[kClerks];
  int i;
  if (QIV_Init() != QIV_OK) return 1;
  g_ledger = QIV_ThreadPoolFlex_Create(kOneWorker, kIdleMs, Book, kDefaultStack);
  if (g_ledger == NULL) return 1;
  for (i = 0; i < kClerks; ++i) {
    clerks[i] = i;
    threads[i] = QIV_Thread_Create(Submit, &clerks[i], 0, 0, 0, 0);
    if (threads[i] == QIV_INVALID_ID) Submit(&clerks[i]);  // no thread to be had: do it here
  }
  for (i = 0; i < kClerks; ++i) {
    if (threads[i] != QIV_INVALID_ID) QIV_Thread_Wait(threads[i]);
  }
  // Without a time, what no worker has taken would be dropped, and its memory with it.
  QIV_ThreadPoolFlex_DestroyEx(g_ledger, kMakeupMs);
  QIV_Fini();
  printf("%d bookings, %d out of order, balance %ld\n", g_booked, g_outOfOrder, g_balance);
  return g_booked == kClerks * kBookings && g_outOfOrder == 0 && g_balance == 9000 ? 0 : 1;
}

/* Gathers the answers of several peers within one budget of time; one peer never answers. */
#include <qiv/poll.h>
#include <qiv/socket.h>
#include <stdio.h>

enum { kPeers = 3, kBudgetMs = 100 };

/* Prints what is there and ends the watch of each peer that has answered. */
static int TakeAnswers(struct pollfd* records) {
  int i, taken = 0;
  for (i = 0; i < kPeers; ++i) {
    char text[32];
    int length;
    if (records[i].revents == 0) continue;
    length = QIV_Recv(records[i].fd, text, sizeof text);
    if (length > 0) printf("peer %d answers: %.*s\n", i, length, text);
    if (length > 0) ++taken;
    records[i].fd = -1; /* poll() passes over negative descriptors */
  }
  return taken;
}

/* Waits several times, each time with what is left of the budget. */
static int Gather(struct pollfd* records) {
  unsigned int budget = kBudgetMs;
  int answers = 0;
  while (answers < kPeers && QIV_PollEx(records, kPeers, &budget) > 0) {
    answers += TakeAnswers(records);
  }
  printf("%d of %d peers, %s\n", answers, kPeers, budget == 0 ? "budget used up" : "time left");
  return answers;
}

int main(void) {
  int ends[kPeers][2];
  struct pollfd records[kPeers];
  int i, answers;
  for (i = 0; i < kPeers; ++i) {
    if (socketpair(AF_UNIX, SOCK_DGRAM, 0, ends[i]) != 0) return 1;
    records[i].fd = ends[i][0];
    records[i].events = POLLIN;
    records[i].revents = 0;
  }
  if (QIV_Send(ends[2][1], "ready", 5) != 5 || QIV_Send(ends[0][1], "busy", 4) != 4) return 1;
  answers = Gather(records);
  for (i = 0; i < kPeers; ++i) {
    QIV_CloseSocket(ends[i][0], 0);
    QIV_CloseSocket(ends[i][1], 0);
  }
  return answers == 2 ? 0 : 1;
}

// One wait of a socket call for one socket and one event.
#ifndef QIV_NET_READINESS_H
#define QIV_NET_READINESS_H

#include <qiv/poll.h>

namespace qiv::net {

struct Readiness {
  int pollResult;  // of QIV_PollEx()
  bool isReady;    // the event itself was reported, not only an error or a hang-up
};

/** Waits for `event`, POLLRDNORM or POLLWRNORM; lowers `budget` as QIV_PollEx() does. */
inline Readiness WaitFor(int socket, short event, unsigned int& budget) {
  pollfd record = {socket, event, 0};
  const int result = QIV_PollEx(&record, 1, &budget);
  return {result, result > 0 && (record.revents & event) != 0};
}

}  // namespace qiv::net

#endif

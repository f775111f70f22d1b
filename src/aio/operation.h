// Carries out the front request of a socket's queue and reports it to its callback.
#ifndef QIV_AIO_OPERATION_H
#define QIV_AIO_OPERATION_H

#include <qiv/mutex.h>

#include "aio/io_data.h"

/** The mode in which callbacks run with the worker's lock held; any other mode releases it. */
constexpr int kCallbackUnderLock = 1;

/** RecvOperation()'s result for a request that is not due yet. Nothing was reported. */
constexpr int kReceiveNotReady = -11;

/**
 * Carries out a send or the report of a connect. The caller holds the worker's lock. Once a
 * callback has run, the request may be gone: its callback may have unbound the socket.
 *
 * @return the bytes of a partial send in all (nothing was reported), the last call's count for a
 *         finished send, 0 or below for a failure; for a connect 0 or -1
 */
int SendOperation(int mode, QIV_Mutex* workerLock, IO_DATA* request) QIV_REQUIRES(workerLock);

/**
 * Carries out a receive or an accept. The caller holds the worker's lock. Once a callback has run,
 * the request may be gone.
 *
 * @return the bytes received, the new descriptor, -1 for a failure, or kReceiveNotReady
 */
int RecvOperation(int mode, QIV_Mutex* workerLock, IO_DATA* request) QIV_REQUIRES(workerLock);

/** Reports a receive that is not ready and never will be, with EAGAIN. The caller as above. */
void GiveUpReceive(int mode, QIV_Mutex* workerLock, IO_DATA* request) QIV_REQUIRES(workerLock);

/** Whether an error or a hang-up of the socket stands. */
bool HasHangUp(int socketFd);

/** Whether a connect that connect(2) has begun is decided: established or failed. */
bool ConnectIsDecided(int socketFd);

#endif

/**
 * @file
 * Socket calls: thin functions over the system's socket interface that take a descriptor and, where
 * an endpoint is needed, a QIV_ADDR_T.
 *
 * None of these functions sets a last error. They keep no state: any threads may call them at once;
 * two threads on one socket get whatever the system gives. An address is handed to the system with
 * a length of 16 bytes when its family is AF_INET and 28 bytes otherwise.
 */
#ifndef QIV_SOCKET_H
#define QIV_SOCKET_H

#include <qiv/address.h>
#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Makes the whole process ignore SIGPIPE; QIV_Init() calls it.
 *
 * @return 0
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         sigaction(2)
 * @see QIV_FiniNetwork_Inter
 */
QIV_API int QIV_InitNetwork_Inter(void) QIV_NOEXCEPT;

/**
 * Does nothing; QIV_Fini() calls it. SIGPIPE stays ignored.
 *
 * @return 0
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API int QIV_FiniNetwork_Inter(void) QIV_NOEXCEPT;

/**
 * Creates a socket.
 *
 * With QIV_AF_INET6_DUAL it is an IPv6 socket that accepts IPv4 too. Where the system has that off
 * by default it is switched on, and the line "set IPV6_V6ONLY ret[%d]" with the result of the
 * switch goes to standard output; the socket is returned whatever that result is.
 *
 * @param family    AF_INET, AF_INET6, QIV_AF_INET6_DUAL, or QIV_AF_PREFERRED for what g_Af says;
 *                  any other is refused by the system
 * @param type      as for socket(), e.g. SOCK_STREAM
 * @param protocol  as for socket(), e.g. 0
 * @return a descriptor, to be closed by QIV_CloseSocket(); -1 on failure
 * @par Errors         errno as socket() sets it
 * @par Thread safety  any threads
 * @par System         socket(2), ipv6(7)
 * @see QIV_CloseSocket
 */
QIV_API int QIV_CreateSocket(int family, int type, int protocol);

/**
 * Closes a socket.
 *
 * @param socket         a descriptor
 * @param shutdownFirst  non-zero ends both directions first, also for other holders of the socket
 * @return the result of close(): 0 or -1
 * @par Errors         errno as close() sets it
 * @par Thread safety  one thread, once
 * @par System         close(2), shutdown(2)
 */
QIV_API int QIV_CloseSocket(int socket, int shutdownFirst);

/**
 * Ends one or both directions of a connection.
 *
 * @param socket  a descriptor
 * @param how     0 receiving, 1 sending, 2 both
 * @return 0 or -1
 * @par Errors         errno as shutdown() sets it
 * @par Thread safety  any threads
 * @par System         shutdown(2)
 */
QIV_API int QIV_ShutDown(int socket, int how) QIV_NOEXCEPT;

/**
 * Gives a socket its local address.
 *
 * @param socket   a descriptor
 * @param address  the address; null is refused
 * @return 0; -1 when `address` is null or the system refuses
 * @par Errors         errno as bind() sets it
 * @par Thread safety  any threads
 * @par System         bind(2)
 */
QIV_API int QIV_Bind(int socket, const QIV_ADDR_T* address) QIV_NOEXCEPT;

/**
 * Makes a socket wait for connections.
 *
 * @param socket   a bound socket
 * @param backlog  how many connections may wait to be accepted
 * @return 0 or -1
 * @par Errors         errno as listen() sets it
 * @par Thread safety  any threads
 * @par System         listen(2)
 * @see QIV_Accept
 */
QIV_API int QIV_Listen(int socket, int backlog) QIV_NOEXCEPT;

/**
 * Takes a connection, waiting at most `ms` milliseconds for one.
 *
 * A signal ends the wait only when it has no limit. On a blocking socket it may take longer when
 * another thread takes the connection, or the peer gives it up, at the same time.
 *
 * @param socket  a listening socket
 * @param peer    gets the peer's address; may be null
 * @param ms      longest wait, milliseconds; 0 looks once; QIV_INFINITE is no limit
 * @return the connection's descriptor, to be closed by QIV_CloseSocket(); -1 when the time ran out
 *         or on an error (not told apart)
 * @par Errors         errno as poll() or accept() sets it; unspecified when the time ran out
 * @par Thread safety  any threads
 * @par System         accept(2), poll(2)
 */
QIV_API int QIV_Accept(int socket, QIV_ADDR_T* peer, unsigned int ms);

/**
 * Connects a socket, waiting at most `ms` milliseconds.
 *
 * A wait with a limit makes the socket non-blocking for its time. It is made blocking again after
 * every wait, and stays non-blocking when there was none: when the system connected or refused at
 * once. Without a limit the blocking mode is not touched, and the address counts 16 bytes whatever
 * its family, so the system refuses an IPv6 address.
 *
 * @param socket   a descriptor
 * @param address  where to; null is refused
 * @param ms       longest wait, milliseconds; QIV_INFINITE is no limit
 * @return 0 when connected; -1 otherwise
 * @par Errors         ETIMEDOUT when the time ran out, otherwise why the connection failed;
 * unchanged when `address` is null
 * @par Thread safety  any threads
 * @par System         connect(2), poll(2), fcntl(2)
 */
QIV_API int QIV_ConnectWithTimeOut(int socket, const QIV_ADDR_T* address, unsigned int ms);

/**
 * Chooses whether calls on a socket wait.
 *
 * @param socket       a descriptor
 * @param nonBlocking  non-zero: calls fail with EAGAIN instead of waiting; 0: they wait
 * @return 0 or -1
 * @par Errors         errno as fcntl() sets it
 * @par Thread safety  not at once on the same socket
 * @par System         fcntl(2), O_NONBLOCK
 */
QIV_API int QIV_SetNonBlock(int socket, int nonBlocking) QIV_NOEXCEPT;

/**
 * Joins a multicast group.
 *
 * @param socket  a datagram socket of the group's family
 * @param local   for an IPv4 group its address tells the interface; an IPv6 group does not read it;
 *                null is refused all the same
 * @param group   the group. For IPv6 the flow-information word (the 32 bits at offset 4) holds the
 *                interface index in host order, 0 for any. Null is refused.
 * @return 0; -1 when a pointer is null, the group's family is neither AF_INET nor AF_INET6, or the
 *         system refuses
 * @par Errors         errno as setsockopt() sets it
 * @par Thread safety  any threads
 * @par System         ip(7) IP_ADD_MEMBERSHIP, ipv6(7) IPV6_ADD_MEMBERSHIP
 * @see QIV_LeaveMultiCastGroup
 */
QIV_API int QIV_JoinMultiCastGroup(int socket, const QIV_ADDR_T* local,
                                   const QIV_ADDR_T* group) QIV_NOEXCEPT;

/**
 * Leaves a multicast group. The end of the socket does so too.
 *
 * @param socket  a socket that joined it
 * @param local   as when joining
 * @param group   as when joining
 * @return 0; -1 when a pointer is null, the group's family is neither AF_INET nor AF_INET6, or the
 *         system refuses
 * @par Errors         errno as setsockopt() sets it
 * @par Thread safety  any threads
 * @par System         ip(7) IP_DROP_MEMBERSHIP, ipv6(7) IPV6_DROP_MEMBERSHIP
 */
QIV_API int QIV_LeaveMultiCastGroup(int socket, const QIV_ADDR_T* local,
                                    const QIV_ADDR_T* group) QIV_NOEXCEPT;

/**
 * Sets how many hops an IPv4 packet may take.
 *
 * @param socket  a descriptor
 * @param ttl     1 to 255; -1 for the system's default
 * @return 0 or -1
 * @par Errors         errno as setsockopt() sets it
 * @par Thread safety  any threads
 * @par System         ip(7) IP_TTL
 */
QIV_API int QIV_SetTTL(int socket, int ttl) QIV_NOEXCEPT;

/**
 * Reads how many hops an IPv4 packet may take.
 *
 * @param socket  a descriptor
 * @param ttl     gets the number; null is refused by the system
 * @return 0 or -1
 * @par Errors         errno as getsockopt() sets it
 * @par Thread safety  any threads
 * @par System         ip(7) IP_TTL
 */
QIV_API int QIV_GetTTL(int socket, int* ttl) QIV_NOEXCEPT;

/**
 * Sets how many hops an IPv6 unicast packet may take.
 *
 * @param socket  a descriptor
 * @param hops    0 to 255; -1 for the system's default
 * @return 0 or -1
 * @par Errors         errno as setsockopt() sets it
 * @par Thread safety  any threads
 * @par System         ipv6(7) IPV6_UNICAST_HOPS
 */
QIV_API int QIV_SetTTL_V6(int socket, int hops) QIV_NOEXCEPT;

/**
 * Reads how many hops an IPv6 unicast packet may take.
 *
 * @param socket  a descriptor
 * @param hops    gets the number; null is refused by the system
 * @return 0 or -1
 * @par Errors         errno as getsockopt() sets it
 * @par Thread safety  any threads
 * @par System         ipv6(7) IPV6_UNICAST_HOPS
 */
QIV_API int QIV_GetTTL_V6(int socket, int* hops) QIV_NOEXCEPT;

/**
 * Sets how many hops an IPv4 multicast packet may take.
 *
 * @param socket  a descriptor
 * @param ttl     0 to 255; -1 for the system's default
 * @return 0 or -1
 * @par Errors         errno as setsockopt() sets it
 * @par Thread safety  any threads
 * @par System         ip(7) IP_MULTICAST_TTL
 */
QIV_API int QIV_SetMultiCastTTL(int socket, int ttl) QIV_NOEXCEPT;

/**
 * Sets how many hops an IPv6 multicast packet may take.
 *
 * @param socket  a descriptor
 * @param hops    0 to 255; -1 for the system's default
 * @return 0 or -1
 * @par Errors         errno as setsockopt() sets it
 * @par Thread safety  any threads
 * @par System         ipv6(7) IPV6_MULTICAST_HOPS
 */
QIV_API int QIV_SetMultiCastTTL_V6(int socket, int hops) QIV_NOEXCEPT;

/**
 * Does what QIV_SetMultiCastTTL_V6() does.
 *
 * @param socket  a descriptor
 * @param hops    0 to 255; -1 for the system's default
 * @return 0 or -1
 * @par Errors         errno as setsockopt() sets it
 * @par Thread safety  any threads
 * @par System         ipv6(7) IPV6_MULTICAST_HOPS
 */
QIV_API int QIV_SetMultiCastHopsV6(int socket, int hops) QIV_NOEXCEPT;

/**
 * Chooses whether the host gets its own IPv6 multicast packets.
 *
 * @param socket  a descriptor
 * @param on      1 or 0
 * @return 0 or -1
 * @par Errors         errno as setsockopt() sets it
 * @par Thread safety  any threads
 * @par System         ipv6(7) IPV6_MULTICAST_LOOP
 */
QIV_API int QIV_SetMultiCastLoopV6(int socket, int on) QIV_NOEXCEPT;

/**
 * Sets the type of service of IPv4 packets.
 *
 * @param socket  a descriptor
 * @param tos     0 to 255; the system may keep some bits for itself
 * @return 0 or -1
 * @par Errors         errno as setsockopt() sets it
 * @par Thread safety  any threads
 * @par System         ip(7) IP_TOS
 */
QIV_API int QIV_SetTOS(int socket, int tos) QIV_NOEXCEPT;

/**
 * Reads the type of service of IPv4 packets.
 *
 * @param socket  a descriptor
 * @param tos     gets the number; null is refused by the system
 * @return 0 or -1
 * @par Errors         errno as getsockopt() sets it
 * @par Thread safety  any threads
 * @par System         ip(7) IP_TOS
 */
QIV_API int QIV_GetTOS(int socket, int* tos) QIV_NOEXCEPT;

/**
 * Chooses whether a local address may be bound again while old connections of it linger.
 *
 * @param socket  a descriptor
 * @param on      non-zero or 0
 * @return 0 or -1
 * @par Errors         errno as setsockopt() sets it
 * @par Thread safety  any threads
 * @par System         socket(7) SO_REUSEADDR
 */
QIV_API int QIV_SetReuseAddr(int socket, int on) QIV_NOEXCEPT;

/**
 * Chooses whether small TCP segments are sent at once.
 *
 * @param socket  a descriptor
 * @param on      non-zero or 0
 * @return 0 or -1
 * @par Errors         errno as setsockopt() sets it
 * @par Thread safety  any threads
 * @par System         tcp(7) TCP_NODELAY
 */
QIV_API int QIV_SetNoDelay(int socket, int on) QIV_NOEXCEPT;

/**
 * Allows a datagram socket to broadcast. There is no way back.
 *
 * @param socket  a descriptor
 * @return 0 or -1
 * @par Errors         errno as setsockopt() sets it
 * @par Thread safety  any threads
 * @par System         socket(7) SO_BROADCAST
 */
QIV_API int QIV_BroadCast(int socket) QIV_NOEXCEPT;

/**
 * Makes close() return at once while the system goes on sending.
 *
 * @param socket  a descriptor
 * @return 0 or -1
 * @par Errors         errno as setsockopt() sets it
 * @par Thread safety  any threads
 * @par System         socket(7) SO_LINGER
 */
QIV_API int QIV_LingerOff(int socket) QIV_NOEXCEPT;

/**
 * Makes close() wait until everything is sent.
 *
 * @param socket   a descriptor
 * @param seconds  longest wait; 0 makes close() drop the connection and what is not sent
 * @return 0 or -1
 * @par Errors         errno as setsockopt() sets it
 * @par Thread safety  any threads
 * @par System         socket(7) SO_LINGER
 */
QIV_API int QIV_LingerOn(int socket, int seconds) QIV_NOEXCEPT;

/**
 * Binds a socket to a network interface.
 *
 * @param socket  a descriptor
 * @param name    the interface; only its first 15 characters count. An empty text takes the
 *                binding away; null is refused.
 * @return 0; -1 when `name` is null or the system refuses
 * @par Errors         errno as setsockopt() sets it
 * @par Thread safety  any threads
 * @par System         socket(7) SO_BINDTODEVICE
 */
QIV_API int QIV_Bind_ToDevice(int socket, const char* name) QIV_NOEXCEPT;

/**
 * Sets how long sending and receiving may wait.
 *
 * Only whole seconds count in full: the milliseconds that are left over are taken as microseconds,
 * so 1500 is 1 s and 500 us.
 *
 * @param socket     a descriptor
 * @param sendMs     for sending; 0 leaves it as it is
 * @param receiveMs  for receiving; 0 leaves it as it is
 * @return 0, at once when both are 0; -1 when the system refused one of them (the other is set)
 * @par Errors         errno as setsockopt() sets it
 * @par Thread safety  any threads
 * @par System         socket(7) SO_SNDTIMEO, SO_RCVTIMEO
 */
QIV_API int QIV_SetTimeOut(int socket, int sendMs, int receiveMs) QIV_NOEXCEPT;

/**
 * Sets the sizes of the system's buffers of a socket.
 *
 * @param socket       a descriptor
 * @param sendSize     bytes; 0 leaves it as it is
 * @param receiveSize  bytes; 0 leaves it as it is
 * @return 0; -1 when the system refused one of them (the other is set)
 * @par Errors         errno as setsockopt() sets it
 * @par Thread safety  any threads
 * @par System         socket(7) SO_SNDBUF, SO_RCVBUF
 */
QIV_API int QIV_SetBuffSize(int socket, unsigned int sendSize,
                            unsigned int receiveSize) QIV_NOEXCEPT;

/**
 * Reads the sizes of the system's buffers of a socket. Linux gives twice what was set.
 *
 * @param socket       a descriptor
 * @param sendSize     gets bytes; null is not asked
 * @param receiveSize  gets bytes; null is not asked
 * @return 0; -1 when the system refused one of them (the other is read)
 * @par Errors         errno as getsockopt() sets it
 * @par Thread safety  any threads
 * @par System         socket(7) SO_SNDBUF, SO_RCVBUF
 */
QIV_API int QIV_GetBuffSize(int socket, int* sendSize, int* receiveSize) QIV_NOEXCEPT;

/**
 * Chooses whether an idle TCP connection is probed: every 10 s after the idle time, given up after
 * 2 probes. The times are set also when probing is switched off.
 *
 * @param socket       a descriptor
 * @param enable       non-zero or 0
 * @param idleSeconds  idle time before the first probe, 1 to 32767 seconds
 * @return 0; -1 when the system refused a setting (those before it are made)
 * @par Errors         errno as setsockopt() sets it
 * @par Thread safety  any threads
 * @par System         socket(7) SO_KEEPALIVE, tcp(7)
 */
QIV_API int QIV_SetTCP_KeepAlive(int socket, int enable, int idleSeconds) QIV_NOEXCEPT;

/**
 * Sends bytes on a connected socket. A closed connection raises no SIGPIPE.
 *
 * @param socket  a descriptor
 * @param buffer  `length` bytes
 * @param length  bytes to send
 * @return the number of bytes taken, which may be less than `length`; -1 on an error
 * @par Errors         errno as send() sets it
 * @par Thread safety  any threads
 * @par System         send(2), MSG_NOSIGNAL
 * @see QIV_Sendn
 */
QIV_API int QIV_Send(int socket, const void* buffer, unsigned int length);

/**
 * Receives bytes from a connected socket.
 *
 * @param socket  a descriptor
 * @param buffer  gets at most `length` bytes
 * @param length  bytes at `buffer`
 * @return the number of bytes; 0 when the peer has closed; -1 on an error
 * @par Errors         errno as recv() sets it
 * @par Thread safety  any threads
 * @par System         recv(2)
 * @see QIV_Recvn, QIV_RecvWithTimeOut
 */
QIV_API int QIV_Recv(int socket, void* buffer, unsigned int length);

/**
 * Sends a datagram.
 *
 * @param socket       a descriptor
 * @param buffer       `length` bytes
 * @param length       bytes to send
 * @param destination  where to; null sends to the peer of a connected socket
 * @return the number of bytes; -1 on an error
 * @par Errors         errno as sendto() sets it
 * @par Thread safety  any threads
 * @par System         sendto(2)
 */
QIV_API int QIV_SendTo(int socket, const void* buffer, unsigned int length,
                       const QIV_ADDR_T* destination);

/**
 * Receives a datagram.
 *
 * @param socket  a descriptor
 * @param buffer  gets at most `length` bytes; the rest of a longer datagram is lost
 * @param length  bytes at `buffer`
 * @param source  gets the sender's address; null is not asked
 * @return the number of bytes; -1 on an error
 * @par Errors         errno as recvfrom() sets it
 * @par Thread safety  any threads
 * @par System         recvfrom(2)
 */
QIV_API int QIV_RecvFrom(int socket, void* buffer, unsigned int length, QIV_ADDR_T* source);

/**
 * Runs an I/O control of the system.
 *
 * @param socket    a descriptor
 * @param request   the control, e.g. FIONREAD
 * @param argument  a number or a pointer, as the control wants
 * @return the result of ioctl(): -1 on an error
 * @par Errors         errno as ioctl() sets it
 * @par Thread safety  any threads
 * @par System         ioctl(2)
 */
QIV_API int QIV_Ioctl(int socket, unsigned int request, unsigned long argument);

/**
 * Receives bytes, waiting at most `ms` milliseconds for the first.
 *
 * @param socket  a descriptor
 * @param buffer  gets at most `length` bytes
 * @param length  bytes at `buffer`; negative is refused
 * @param ms      longest wait, milliseconds; 0 looks once; QIV_INFINITE is no limit
 * @return the number of bytes; 0 when the time ran out; -1 when the peer has closed, on an error
 *         or for a negative `length`
 * @par Errors         errno as poll() or recv() sets it
 * @par Thread safety  any threads
 * @par System         poll(2), recv(2)
 */
QIV_API int QIV_RecvWithTimeOut(int socket, void* buffer, int length, unsigned int ms);

/**
 * Sends until everything is sent, the time has run out or an error occurs.
 *
 * The time bounds the waits for room only: on a blocking socket each send may itself wait until the
 * system has taken everything.
 *
 * @param socket  a descriptor
 * @param buffer  `length` bytes
 * @param length  bytes to send; of more than 2147483647 only so many are sent
 * @param ms      longest wait in all, milliseconds; 0 tries once; QIV_INFINITE is no limit
 * @return the number of bytes sent, less than `length` (also 0) when the time ran out or a send
 *         failed; -1 when nothing was sent and the last wait failed
 * @par Errors         errno as poll() or send() sets it
 * @par Thread safety  any threads; the bytes of two threads may mix
 * @par System         poll(2), send(2)
 */
QIV_API int QIV_Sendn(int socket, const void* buffer, unsigned int length, unsigned int ms);

/**
 * Receives until `length` bytes are there or the time has run out.
 *
 * Stricter than QIV_Sendn(): an error or the peer's close gives -1 even when bytes were received
 * before; how many is not told.
 *
 * @param socket  a descriptor
 * @param buffer  gets at most `length` bytes
 * @param length  bytes to receive; of more than 2147483647 only so many are received. For 0 it
 *                still waits for data, and gives -1 when there is some
 * @param ms      longest wait in all, milliseconds; 0 tries once; QIV_INFINITE is no limit
 * @return the number of bytes, less than `length` (also 0) when the time ran out; -1 on an error or
 *         when the peer has closed
 * @par Errors         errno as poll() or recv() sets it
 * @par Thread safety  any threads; each gets some of the bytes
 * @par System         poll(2), recv(2)
 */
QIV_API int QIV_Recvn(int socket, void* buffer, unsigned int length, unsigned int ms);

QIV_EXTERN_C_END

#endif

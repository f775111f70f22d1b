/**
 * @file
 * Addresses: the record that every socket call takes, made from text or numbers and read back, and
 * the library's own conversion between addresses and text.
 *
 * None of these functions sets a last error or prints. All of them may run in any number of threads
 * at once, on different records, except QIV_GetAddrString().
 */
#ifndef QIV_ADDRESS_H
#define QIV_ADDRESS_H

#include <netinet/in.h>
#include <qiv/library.h>
#include <qiv/types.h>
#include <sys/socket.h>

QIV_EXTERN_C_BEGIN

/**
 * An IPv4 or IPv6 endpoint, 28 bytes laid out as the system's socket addresses: a pointer to it can
 * be passed to bind(2), connect(2) and the like. The port and the addresses are in network order.
 *
 * `{0}` (in C++ also `{}`) makes a zeroed record. A socket call takes 16 bytes of the record when
 * the family is AF_INET and all 28 bytes otherwise.
 */
typedef union QIV_ADDR_T {
  struct sockaddr_in6 ipv6; /**< meaningful when the family is AF_INET6 (10) */
  struct sockaddr_in ipv4;  /**< meaningful when the family is AF_INET (2) */
  struct sockaddr any;      /**< for calls that take a `struct sockaddr*` */
  __extension__ struct {
    unsigned short family; /**< AF_INET, AF_INET6, or 0 in a zeroed record */
    unsigned short port;   /**< network order, for both families */
  };
} QIV_ADDR_T;

/** An endpoint taken apart by QIV_GetAddrInfo(). */
typedef struct QIV_ADDR_INFO_T {
  int family; /**< AF_INET or AF_INET6, as in the record */
  union {
    unsigned int ipv4;      /**< network order */
    unsigned char ipv6[16]; /**< network order */
  } address;                /**< the member that the family names */
  unsigned short port;      /**< host order */
} QIV_ADDR_INFO_T;

/**
 * Makes a record from an address text.
 *
 * The text decides more than the family: a text without ":" is read as IPv4 and makes an IPv4
 * record whatever the family, except that "0.0.0.0" is an IPv6 text when an IPv6 family is asked.
 *
 * | Text | Family | Record |
 * |---|---|---|
 * | null or empty | AF_INET | 0.0.0.0 |
 * | null or empty | AF_INET6, QIV_AF_INET6_DUAL | :: |
 * | "0.0.0.0" | QIV_AF_INET6_DUAL | :: |
 * | "0.0.0.0" | AF_INET6 | refused |
 * | has ":" | AF_INET6, QIV_AF_INET6_DUAL | as QIV_InetPton() reads it |
 * | has ":" | AF_INET | refused |
 * | null, empty, "0.0.0.0" or has ":" | any other | refused |
 * | other | any | as inet_addr(3) reads it; 255.255.255.255 is refused |
 *
 * @param family  AF_INET, AF_INET6, QIV_AF_INET6_DUAL, or QIV_AF_PREFERRED for what g_Af says
 * @param text    the address, ended by a NUL; null counts as empty
 * @param port    host order; the low 16 bits count
 * @param out     the record; zeroed first. After a failure the family is 0, or AF_INET6 with a zero
 *                address when the text was read as IPv6. Null is refused.
 * @return 0; -1 when `out` is null or the text is refused
 * @par Errors         no errno
 * @par Thread safety  any threads, on different records
 * @par System         inet_addr(3)
 */
QIV_API int QIV_MakeAddrByString(int family, const char* text, unsigned int port,
                                 QIV_ADDR_T* out) QIV_NOEXCEPT;

/**
 * Makes an IPv4 record from a number.
 *
 * @param address  network order
 * @param port     host order; the low 16 bits count
 * @param out      the record; null is refused
 * @return 0; -1 when `out` is null
 * @par Errors         no errno
 * @par Thread safety  any threads, on different records
 * @par System         ip(7)
 */
QIV_API int QIV_MakeAddr4ByInt(unsigned int address, unsigned int port,
                               QIV_ADDR_T* out) QIV_NOEXCEPT;

/**
 * Makes an IPv6 record from 16 bytes. The flow information and the scope id are 0.
 *
 * @param address  16 bytes, network order; null is refused
 * @param port     host order; the low 16 bits count
 * @param out      the record; null is refused
 * @return 0; -1 when a pointer is null
 * @par Errors         no errno
 * @par Thread safety  any threads, on different records
 * @par System         ipv6(7)
 */
QIV_API int QIV_MakeAddr6ByInt(const void* address, unsigned int port,
                               QIV_ADDR_T* out) QIV_NOEXCEPT;

/**
 * Makes a record from a system socket address of any family.
 *
 * @param address  `length` bytes, taken as they are; null is refused
 * @param length   1 to 28 bytes; the rest of the record is zeroed
 * @param out      the record; left alone on failure; null is refused
 * @return 0; -1 when a pointer is null or `length` is 0 or above 28
 * @par Errors         no errno
 * @par Thread safety  any threads, on different records
 * @par System         sockaddr(3type)
 */
QIV_API int QIV_MakeAddr(const struct sockaddr* address, unsigned int length,
                         QIV_ADDR_T* out) QIV_NOEXCEPT;

/**
 * Changes the port of a record.
 *
 * @param address  the record; null is refused
 * @param port     host order; the low 16 bits count
 * @return 0; -1 when `address` is null
 * @par Errors         no errno
 * @par Thread safety  any threads, on different records
 * @par System         htons(3)
 */
QIV_API int QIV_SetAddrPort(QIV_ADDR_T* address, unsigned int port) QIV_NOEXCEPT;

/**
 * Reads the family of a record.
 *
 * @param address  the record
 * @return the family field; -1 when `address` is null
 * @par Errors         no errno
 * @par Thread safety  any threads, while none changes the record
 * @par System         sockaddr(3type)
 */
QIV_API int QIV_GetAddrType(const QIV_ADDR_T* address) QIV_NOEXCEPT;

/**
 * Reads the port of a record.
 *
 * @param address  the record
 * @return the port in host order; 0 when `address` is null
 * @par Errors         no errno
 * @par Thread safety  any threads, while none changes the record
 * @par System         ntohs(3)
 */
QIV_API unsigned short QIV_GetAddrPort(const QIV_ADDR_T* address) QIV_NOEXCEPT;

/**
 * Reads the address of an IPv4 record.
 *
 * @param address  the record
 * @param out      gets the address in network order; left alone on failure; null is refused
 * @return 0; -1 when a pointer is null or the family is not AF_INET
 * @par Errors         no errno
 * @par Thread safety  any threads, while none changes the record
 * @par System         ip(7)
 */
QIV_API int QIV_GetAddr4Int(const QIV_ADDR_T* address, unsigned int* out) QIV_NOEXCEPT;

/**
 * Reads the address of an IPv6 record. Every family but AF_INET counts as IPv6, so a zeroed record
 * gives 16 zero bytes.
 *
 * @param address  the record
 * @param out      gets 16 bytes in network order; left alone on failure; null is refused
 * @return 0; -1 when a pointer is null or the family is AF_INET
 * @par Errors         no errno
 * @par Thread safety  any threads, while none changes the record
 * @par System         ipv6(7)
 */
QIV_API int QIV_GetAddr6Int(const QIV_ADDR_T* address, void* out) QIV_NOEXCEPT;

/**
 * Takes a record apart.
 *
 * @param address  the record
 * @param out      gets the family, the port and the address. An AF_INET record writes the first 4
 *                 bytes of the address and leaves the other 12 alone; any other family writes all
 *                 16. Null is refused.
 * @return 0; -1 when a pointer is null
 * @par Errors         no errno
 * @par Thread safety  any threads, while none changes the record
 * @par System         sockaddr(3type)
 */
QIV_API int QIV_GetAddrInfo(const QIV_ADDR_T* address, QIV_ADDR_INFO_T* out) QIV_NOEXCEPT;

/**
 * Writes the address of a record as text, without the port.
 *
 * @param address  the record
 * @param buffer   gets the text as QIV_InetNtop() writes it; the rest of the `size` bytes is filled
 *                 with NULs, also after an embedded IPv4 address. Left alone on failure.
 * @param size     bytes at `buffer`. One byte more than the text ends it with a NUL; an IPv4
 *                 address, or one that is embedded in an IPv6 address, also fits without the NUL.
 * @return `buffer`; null when an argument is null or 0, the family is neither AF_INET nor AF_INET6,
 *         or the text does not fit
 * @par Errors         no errno
 * @par Thread safety  any threads, on different buffers
 * @par System         none
 * @see QIV_InetNtop
 */
QIV_API char* QIV_GetAddrStringEx(const QIV_ADDR_T* address, char* buffer,
                                  unsigned int size) QIV_NOEXCEPT;

/**
 * Gives the address of a record as text, without the port.
 *
 * @param address  the record
 * @return a text that the next call in any thread overwrites; null when `address` is null or its
 *         family is neither AF_INET nor AF_INET6
 * @par Errors         no errno
 * @par Thread safety  one thread at a time in the whole process
 * @par System         none
 * @see QIV_GetAddrStringEx
 */
QIV_API char* QIV_GetAddrString(const QIV_ADDR_T* address) QIV_NOEXCEPT;

/**
 * Reads the addresses of a socket's two ends.
 *
 * When both are asked, the local address gets at most as many bytes as the peer's has. That makes
 * no difference for an IPv4 or IPv6 socket, whose two ends share a family.
 *
 * @param socket  a socket
 * @param local   gets the socket's own address; may be null
 * @param peer    gets the peer's address, which is read first; may be null
 * @return 0; -1 when both are null or the system refuses
 * @par Errors         errno as the system calls set it
 * @par Thread safety  any threads
 * @par System         getpeername(2), getsockname(2)
 */
QIV_API int QIV_GetAddrBySockFd(int socket, QIV_ADDR_T* local, QIV_ADDR_T* peer) QIV_NOEXCEPT;

/**
 * Reads an address text, by rules of its own.
 *
 * A text without ":" is an IPv4 text: four decimal numbers from 0 to 255 with a "." between them
 * and nothing else. Leading zeros do not make a number octal.
 *
 * A text with ":" is an IPv6 text. More lenient than most: white space anywhere is left out, one
 * colon too many at either end is left out, "::" may stand for no word at all, a dotted IPv4
 * address may stand anywhere and what follows its fourth number is ignored, and so is everything
 * after the first 255 characters. At most 9 colons.
 *
 * @param text  the address, ended by a NUL; null is refused
 * @param out   gets 4 bytes for an IPv4 text and 16 for an IPv6 text, in network order; left alone
 *              on failure; null is refused
 * @return 0; -1 when a pointer is null or the text is no address
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         isspace(3)
 * @see QIV_InetNtop
 */
QIV_API int QIV_InetPton(const char* text, void* out) QIV_NOEXCEPT;

/**
 * Writes an address as text.
 *
 * IPv4 is written as four decimal numbers. IPv6 is written in lower-case hexadecimal words without
 * leading zeros, the longest run of at least two zero words (the first of equals) as "::". An IPv6
 * address that is compatible with IPv4 ("::1.2.3.4") or maps it ("::ffff:1.2.3.4") is written as
 * the IPv4 address alone, and without a NUL: the caller zeroes the buffer before.
 *
 * @param family   AF_INET or AF_INET6
 * @param address  4 or 16 bytes, network order; null is refused
 * @param buffer   gets the text. For the plain IPv4 and IPv6 forms the rest of the `size` bytes is
 *                 filled with NULs; an embedded IPv4 address writes its characters only. Left alone
 *                 on failure; null is refused.
 * @param size     bytes at `buffer`: for the plain IPv6 form at least one more than the text has;
 *                 for the IPv4 forms as many as the text has, which leaves it without a NUL
 * @return `buffer`; null when a pointer is null, the family is another one or the text does not fit
 * @par Errors         no errno
 * @par Thread safety  any threads, on different buffers
 * @par System         none
 * @see QIV_InetPton
 */
QIV_API char* QIV_InetNtop(int family, const void* address, char* buffer,
                           unsigned int size) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#endif

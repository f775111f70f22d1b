/**
 * @file
 * Network adapters with their addresses, the host's preferred address family, name resolution, and
 * the byte order of the network.
 *
 * None of these functions sets a last error. Failures of the adapter functions are told by lines of
 * debug output (debug.h).
 */
#ifndef QIV_ADAPTER_H
#define QIV_ADAPTER_H

#include <netdb.h>
#include <qiv/address.h>
#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/** Bytes of an adapter's name field. */
#define QIV_ADAPTER_NAME_BYTES 260

/** Bytes of a hardware address. */
#define QIV_MAC_BYTES 6
/** Bytes of the field that holds a hardware address. */
#define QIV_MAC_FIELD_BYTES 8

/** An IPv4 address of an adapter. */
typedef struct QIV_IP4_NODE {
  struct QIV_IP4_NODE* pNext; /**< the next address, or null */
  char szAddr[16];            /**< dotted text of the address */
  char szMask[16];            /**< dotted text of the netmask */
} QIV_IP4_NODE;

/** An IPv6 address of an adapter. */
typedef struct QIV_IP6_NODE {
  struct QIV_IP6_NODE* pNext;   /**< the next address, or null */
  unsigned char byAddr[16];     /**< network order */
  unsigned char byReserved[16]; /**< zero */
} QIV_IP6_NODE;

/** A network adapter that has an IPv4 address. */
typedef struct QIV_ADAPTER_INFO {
  struct QIV_ADAPTER_INFO* pNext;           /**< the next adapter, or null */
  QIV_UINT32 dwIndex;                       /**< position in the system's list, from 0 */
  char szName[QIV_ADAPTER_NAME_BYTES];      /**< the interface's name, for instance "eth0" */
  unsigned char byReserved[136];            /**< zero */
  QIV_UINT32 dwMacLen;                      /**< QIV_MAC_BYTES, whatever the kind of the link */
  unsigned char byMac[QIV_MAC_FIELD_BYTES]; /**< the first 6 bytes of the hardware address, zeros */
  QIV_UINT32 dwReserved;                    /**< 0 */
  QIV_IP4_NODE* pIpv4List;                  /**< its IPv4 addresses */
  QIV_IP4_NODE* pReservedList1;             /**< null */
  QIV_IP4_NODE* pReservedList2;             /**< null */
  QIV_IP6_NODE* pIpv6List;                  /**< its IPv6 addresses; null when it has none */
} QIV_ADAPTER_INFO;

/** An answer of the resolver, and the hints for a question. */
typedef struct QIV_ADDRINFO_T {
  int iFlags;                   /**< AI_... */
  int iFamily;                  /**< AF_INET, AF_INET6; in hints also AF_UNSPEC */
  int iSockType;                /**< SOCK_...; in hints 0 is any */
  int iProtocol;                /**< IPPROTO_...; in hints 0 is any */
  QIV_ADDR_T addr;              /**< zero for other families than AF_INET and AF_INET6 */
  char* szCanonName;            /**< the canonical name, or null */
  struct QIV_ADDRINFO_T* pNext; /**< the next answer, or null */
} QIV_ADDRINFO_T;

/**
 * Gets the name of this host.
 *
 * @param buf  gets the name and its NUL; null is refused
 * @param len  bytes at `buf`. A name that does not fit fails, and may leave its beginning in `buf`
 *             without a NUL
 * @return 0; -1 when `buf` is null or the system refuses
 * @par Errors         errno as gethostname() sets it
 * @par Thread safety  any threads
 * @par System         gethostname(2)
 */
QIV_API int QIV_GetHostName(char* buf, unsigned int len) QIV_NOEXCEPT;

/**
 * Gets the hardware address of the interface that owns an IPv4 address.
 *
 * Looks at the first 16 interfaces that the system lists, from the last to the first.
 *
 * @param ip   dotted text of the address; null is refused
 * @param mac  gets 6 bytes, or the first `*len` of them when there is room for fewer; left alone on
 *             failure; null is refused
 * @param len  in: bytes at `mac`, 0 is refused; out: 6, also when no interface has the address, and
 *             also when there was room for fewer: a length below 6 gives a cut address, which the
 *             result and the 6 do not tell. Null is refused
 * @return 0; -1 when an argument is refused, no interface has the address or the system refuses
 * @par Errors         a line of debug output for a refused argument or a list that cannot be had;
 *                     errno of the last system call
 * @par Thread safety  any threads
 * @par System         netdevice(7): SIOCGIFCONF, SIOCGIFADDR, SIOCGIFHWADDR
 */
QIV_API int QIV_GetMacAddr(const char* ip, unsigned char* mac, unsigned int* len) QIV_NOEXCEPT;

/**
 * Lists the host's network adapters that have an IPv4 address.
 *
 * The first 16 that the system lists, in reverse of its order: the first of the list has the
 * highest `dwIndex`. An interface stands there once for each of its IPv4 addresses.
 *
 * IPv6 addresses are found by the hardware address. Interfaces that share one, as a VLAN and the
 * interface below it do, share the first adapter with that hardware address. At most 16 links and
 * 16 IPv6 addresses are looked at. When they cannot be had, the adapters come without them. Of a
 * point-to-point link the peer's IPv6 address is listed.
 *
 * Writes the line "loop[2] find N mac and M ip" to standard error once the kernel could be asked
 * for IPv6 addresses. That takes two questions; for the answer to each it waits at most 3 seconds,
 * whatever signals arrive. The answers are there at once as a rule.
 *
 * @param list  gets the first adapter, null when there is none; to be released with
 *              QIV_FreeAdapterInfo(). Left alone on failure; null is refused
 * @return 0; -1 when `list` is null, memory is short or the system refuses
 * @par Errors         a line of debug output per failure; errno of the last system call
 * @par Thread safety  any threads; in a thread that is cancelled it goes on to its end
 * @par System         netdevice(7), SIOCGIFCONF; rtnetlink(7), RTM_GETLINK and RTM_GETADDR
 * @see QIV_GetAdapterInfoEx, QIV_FreeAdapterInfo
 */
QIV_API int QIV_GetAdapterInfo(QIV_ADAPTER_INFO** list) QIV_NOEXCEPT;

/**
 * Does what QIV_GetAdapterInfo() does and tells which address families the adapters have.
 *
 * @param list  as for QIV_GetAdapterInfo()
 * @param af    gets AF_INET (2) when there are IPv4 addresses only, AF_INET6 (10) when there are
 *              IPv6 addresses only and QIV_AF_INET6_DUAL (101) when there are both. Left alone when
 *              there are none and on failure; null is refused
 * @return 0; -1 when an argument is null, memory is short or the system refuses
 * @par Errors         as for QIV_GetAdapterInfo()
 * @par Thread safety  any threads
 * @par System         netdevice(7), SIOCGIFCONF; rtnetlink(7), RTM_GETLINK and RTM_GETADDR
 * @see QIV_FreeAdapterInfo
 */
QIV_API int QIV_GetAdapterInfoEx(QIV_ADAPTER_INFO** list, int* af) QIV_NOEXCEPT;

/**
 * Releases a list of adapters.
 *
 * @param list  the first adapter; null does nothing
 * @return 0
 * @par Errors         none
 * @par Thread safety  any threads, on different lists
 * @par System         none
 */
QIV_API int QIV_FreeAdapterInfo(QIV_ADAPTER_INFO* list) QIV_NOEXCEPT;

/**
 * Translates a host and a service into addresses. May wait for a name server.
 *
 * @param node     the host's name or address text; null for none, as of getaddrinfo()
 * @param service  the service's name or port number; null for none
 * @param hints    what is asked for, in the four numbers; all zero asks for anything, and so does
 *                 null. The family QIV_AF_PREFERRED stands for g_Af
 * @param res      gets the answers in the resolver's order, null when there is none; to be released
 *                 with QIV_FreeAddressInfo(). Left alone on failure; null is refused
 * @return 0; -1 when `res` is null, the resolver refuses or memory is short
 * @par Errors         errno as getaddrinfo() leaves it
 * @par Thread safety  any threads
 * @par System         getaddrinfo(3)
 * @see QIV_FreeAddressInfo
 */
QIV_API int QIV_GetAddressInfo(const char* node, const char* service, const QIV_ADDRINFO_T* hints,
                               QIV_ADDRINFO_T** res);

/**
 * Releases the answers of QIV_GetAddressInfo().
 *
 * @param res  the first answer; null does nothing
 * @return 0
 * @par Errors         none
 * @par Thread safety  any threads, on different answers
 * @par System         none
 */
QIV_API int QIV_FreeAddressInfo(QIV_ADDRINFO_T* res) QIV_NOEXCEPT;

/**
 * Looks up the IPv4 addresses of a host. May wait for a name server.
 *
 * @param name  the host's name or dotted address; null is refused
 * @return the system's record, which belongs to the system and lives until the next call of any
 *         thread; null when `name` is null or there is no such host
 * @par Errors         h_errno as gethostbyname() sets it
 * @par Thread safety  one thread at a time: the record is shared by the process
 * @par System         gethostbyname(3)
 * @see QIV_GetAddressInfo
 */
QIV_API struct hostent* QIV_GetAddressByName(const char* name);

/**
 * Converts 16 bits from the host's byte order to the network's.
 *
 * @param value  host order
 * @return network order
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         htons(3)
 */
QIV_API unsigned short QIV_Htons(unsigned short value) QIV_NOEXCEPT;

/**
 * Converts 16 bits from the network's byte order to the host's.
 *
 * @param value  network order
 * @return host order
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         ntohs(3)
 */
QIV_API unsigned short QIV_Ntohs(unsigned short value) QIV_NOEXCEPT;

/**
 * Converts 32 bits from the host's byte order to the network's.
 *
 * @param value  host order
 * @return network order
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         htonl(3)
 */
QIV_API unsigned int QIV_Htonl(unsigned int value) QIV_NOEXCEPT;

/**
 * Converts 32 bits from the network's byte order to the host's.
 *
 * @param value  network order
 * @return host order
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         ntohl(3)
 */
QIV_API unsigned int QIV_Ntohl(unsigned int value) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#endif

// The class layer's IPv4 endpoint, byte order and host names.
#include <qiv/socket_classes.h>

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>

namespace qiv {
namespace {

constexpr std::size_t kComparedBytes = 8;    // family, port and address
constexpr std::ptrdiff_t kShortestHost = 7;  // "0.0.0.0"
constexpr std::ptrdiff_t kHostBufferSize = 256;
constexpr std::size_t kTextBufferSize = sizeof("255.255.255.255:65535");
constexpr unsigned int kMaxPort = std::numeric_limits<std::uint16_t>::max();
constexpr unsigned int kDecimal = 10;

static_assert(sizeof(sockaddr_in) == 16);
static_assert(offsetof(sockaddr_in, sin_family) == 0 && offsetof(sockaddr_in, sin_port) == 2);
static_assert(offsetof(sockaddr_in, sin_addr) == 4);
static_assert(sizeof(qiv_net_addr) == sizeof(void*) + sizeof(sockaddr_in));
static_assert(sizeof(qiv_net_utils) == sizeof(void*));

bool IsPort(int port) { return port >= 0 && port <= static_cast<int>(kMaxPort); }

in_port_t NetworkPort(int port) { return htons(static_cast<std::uint16_t>(port)); }

bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

in_addr_t HostAddress(const char* begin, const char* end) {
  // inet_addr() reads no further either, and so white space takes no room.
  end = std::find_if(begin, end, IsSpace);
  if (end - begin >= kHostBufferSize) return INADDR_NONE;
  char host[kHostBufferSize] = {};
  std::memcpy(host, begin, static_cast<std::size_t>(end - begin));
  return inet_addr(host);
}

// What a stream in the "C" locale reads as an unsigned short, 0 where it fails. A stream itself
// would take memory and the process's locale.
std::uint16_t ReadPort(const char* text) {
  while (IsSpace(*text)) ++text;
  const bool isNegative = *text == '-';
  if (isNegative || *text == '+') ++text;
  unsigned int value = 0;
  for (; IsDigit(*text); ++text) {
    value = value * kDecimal + static_cast<unsigned int>(*text - '0');
    if (value > kMaxPort) return 0;
  }
  return static_cast<std::uint16_t>(isNegative ? 0 - value : value);
}

}  // namespace

qiv_net_addr::qiv_net_addr() noexcept : m_address() { m_address.sin_family = AF_INET; }

qiv_net_addr::qiv_net_addr(const qiv_net_addr& other) noexcept : qiv_net_addr(other.m_address) {}

qiv_net_addr::qiv_net_addr(int port, const char* host) noexcept : qiv_net_addr() {
  m_address.sin_port = NetworkPort(port);
  set_host(host);
}

qiv_net_addr::qiv_net_addr(const sockaddr_in& address) noexcept : m_address(address) {
  m_address.sin_family = AF_INET;
}

qiv_net_addr::qiv_net_addr(const char* url) noexcept : qiv_net_addr() { parse_url(url); }

qiv_net_addr::~qiv_net_addr() {
  std::memset(&m_address, 0, sizeof(m_address));
  // Nobody may read a destroyed object, so only this keeps the zeros from being optimised away.
  __asm__ volatile("" : : "r"(&m_address) : "memory");
}

qiv_net_addr& qiv_net_addr::operator=(const qiv_net_addr& other) noexcept = default;

bool qiv_net_addr::operator==(const qiv_net_addr& other) const noexcept {
  return std::memcmp(&m_address, &other.m_address, kComparedBytes) == 0;
}

bool qiv_net_addr::operator!=(const qiv_net_addr& other) const noexcept {
  return !(*this == other);
}

int qiv_net_addr::get_port() const noexcept { return ntohs(m_address.sin_port); }

char* qiv_net_addr::get_host() const noexcept { return inet_ntoa(m_address.sin_addr); }

int qiv_net_addr::get_addr(sockaddr_in& out) const noexcept {
  out = m_address;
  return QIV_OK;
}

int qiv_net_addr::get_addr(in_addr& out) const noexcept {
  out = m_address.sin_addr;
  return QIV_OK;
}

char* qiv_net_addr::get_addr(char* buffer, int& length) const noexcept {
  if (buffer == nullptr) return nullptr;
  // Not get_host(), whose buffer the threads may share.
  char host[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &m_address.sin_addr, host, sizeof(host));
  char text[kTextBufferSize] = {};
  const int textLength = std::snprintf(text, sizeof(text), "%s:%d", host, get_port());
  if (length <= textLength) return nullptr;
  std::memcpy(buffer, text, static_cast<std::size_t>(textLength) + 1);
  length = textLength;
  return buffer;
}

int qiv_net_addr::set_port(int port) noexcept {
  if (!IsPort(port)) return QIV_ERROR;
  m_address.sin_port = NetworkPort(port);
  return QIV_OK;
}

int qiv_net_addr::set_addr(sockaddr_in address) noexcept {
  m_address = address;
  return QIV_OK;
}

int qiv_net_addr::set_addr(int port, const char* host) noexcept {
  if (set_port(port) != QIV_OK) return QIV_ERROR;
  set_host(host);
  return QIV_OK;
}

int qiv_net_addr::set_addr(const char* url) noexcept { return parse_url(url); }

int qiv_net_addr::set_host(const char* host) noexcept {
  if (!is_valid_ipv4(host)) return QIV_ERROR;
  // Kept: a text that is no address is taken, as 255.255.255.255.
  m_address.sin_addr.s_addr = inet_addr(host);
  return QIV_OK;
}

bool qiv_net_addr::is_valid_ipv4(const char* text) noexcept {
  // Kept: the text may say anything.
  return text != nullptr;
}

int qiv_net_addr::parse_url(const char* url) noexcept {
  if (url == nullptr) return QIV_OK;
  m_address.sin_family = AF_INET;
  const char* const colon = std::strrchr(url, ':');
  if (colon == nullptr) return QIV_OK;
  // Kept: a shorter text is no address to callers, even where the system would read it.
  if (colon - url >= kShortestHost) m_address.sin_addr.s_addr = HostAddress(url, colon);
  const char* const port = colon + 1;
  if (*port != '\0') m_address.sin_port = htons(ReadPort(port));
  return QIV_OK;
}

qiv_net_utils::qiv_net_utils() noexcept = default;
qiv_net_utils::~qiv_net_utils() = default;

unsigned short qiv_net_utils::qiv_htons(unsigned short value) noexcept { return htons(value); }
unsigned short qiv_net_utils::qiv_ntohs(unsigned short value) noexcept { return ntohs(value); }
unsigned int qiv_net_utils::qiv_htonl(unsigned int value) noexcept { return htonl(value); }
unsigned int qiv_net_utils::qiv_ntohl(unsigned int value) noexcept { return ntohl(value); }

int qiv_net_utils::get_host_name(char* buffer, int length) noexcept {
  if (buffer == nullptr || length < 0) {
    errno = buffer == nullptr ? EFAULT : EINVAL;
    return QIV_ERROR;
  }
  return gethostname(buffer, static_cast<std::size_t>(length));
}

hostent* qiv_net_utils::get_host_by_name(const char* name) {
  if (name == nullptr) {
    h_errno = NO_RECOVERY;
    return nullptr;
  }
  return gethostbyname(name);
}

}  // namespace qiv

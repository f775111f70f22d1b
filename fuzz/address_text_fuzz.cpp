// Address texts: whatever is read is written and read again, and comes out the same.
#include <qiv/address.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

// An IPv4-mapped or -compatible address is written as its IPv4 part alone and does not come back.
void RequireRoundTrip(int family, const unsigned char* bytes, std::size_t length) {
  char text[64] = {};
  Require(QIV_InetNtop(family, bytes, text, sizeof(text)) == text);
  const bool isWritten = std::strchr(text, ':') != nullptr || family == AF_INET;
  if (!isWritten) return;
  unsigned char again[16] = {};
  Require(QIV_InetPton(text, again) == 0);
  Require(std::memcmp(bytes, again, length) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  unsigned char bytes[16] = {};
  if (QIV_InetPton(text.c_str(), bytes) == 0) {
    const bool isIpv6 = std::strchr(text.c_str(), ':') != nullptr;
    RequireRoundTrip(isIpv6 ? AF_INET6 : AF_INET, bytes, isIpv6 ? 16 : 4);
  }
  for (const int family : {AF_INET, AF_INET6, QIV_AF_INET6_DUAL, 5}) {
    QIV_ADDR_T address;
    if (QIV_MakeAddrByString(family, text.c_str(), 80, &address) != 0) continue;
    Require(QIV_GetAddrPort(&address) == 80);
    char buffer[64];
    Require(QIV_GetAddrStringEx(&address, buffer, sizeof(buffer)) == buffer);
  }
  return 0;
}

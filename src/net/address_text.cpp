// Address texts: the library's own parsers and formatters, with rules of their own.
#include "net/address_text.h"

#include <qiv/address.h>

#include <cctype>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <system_error>

namespace qiv::net {
namespace {

constexpr std::size_t kLongestIpv6Text = 255;
constexpr std::size_t kMostColons = 9;
constexpr std::size_t kWords = 8;
constexpr std::size_t kLongestHexField = 4;
constexpr std::size_t kShortestIpv4Field = 7;
constexpr std::size_t kLongestIpv4Field = 15;
constexpr int kLargestByte = 255;
constexpr std::uint16_t kMappedIpv4Word = 0xFFFF;
constexpr std::size_t kMappedIpv4Run = 5;
constexpr std::size_t kCompatibleIpv4Run = 6;

using Words = std::array<std::uint16_t, kWords>;

bool ParseIpv4(const char* text, Ipv4Bytes& bytes) {
  Ipv4Bytes parts = {};
  std::size_t count = 0;
  bool afterDigit = false;
  for (const char* at = text; *at != '\0'; ++at) {
    if (*at == '.') {
      if (!afterDigit || count == parts.size()) return false;
      afterDigit = false;
      continue;
    }
    if (*at < '0' || *at > '9') return false;
    if (!afterDigit && count++ == parts.size()) return false;
    const int value = parts[count - 1] * 10 + (*at - '0');
    if (value > kLargestByte) return false;
    parts[count - 1] = static_cast<unsigned char>(value);
    afterDigit = true;
  }
  if (count < parts.size()) return false;
  bytes = parts;
  return true;
}

/** The first 255 characters of a text, without the white space among them. */
class CompactText {
 public:
  explicit CompactText(const char* text) {
    for (std::size_t i = 0; i < kLongestIpv6Text && text[i] != '\0'; ++i) {
      if (std::isspace(static_cast<unsigned char>(text[i])) == 0) m_characters[m_size++] = text[i];
    }
  }
  std::string_view View() const { return {m_characters, m_size}; }

 private:
  char m_characters[kLongestIpv6Text];
  std::size_t m_size = 0;
};

bool ReadHexField(std::string_view field, std::uint16_t& word) {
  if (field.empty() || field.size() > kLongestHexField) return false;
  const char* end = field.data() + field.size();
  const auto [stop, error] = std::from_chars(field.data(), end, word, 16);
  return error == std::errc() && stop == end;
}

/** Takes a number from 0 to 255 off the front of a text: an optional sign, then digits. */
bool TakeByte(std::string_view& text, unsigned char& byte) {
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
    if (!text.empty() && text.front() == '-') return false;
  }
  int value = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || value < 0 || value > kLargestByte) return false;
  text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
  byte = static_cast<unsigned char>(value);
  return true;
}

bool ReadIpv4Field(std::string_view field, Ipv4Bytes& bytes) {
  if (field.size() < kShortestIpv4Field || field.size() > kLongestIpv4Field) return false;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i > 0) {
      if (field.empty() || field.front() != '.') return false;
      field.remove_prefix(1);
    }
    if (!TakeByte(field, bytes[i])) return false;
  }
  return true;  // Kept: what follows the fourth number is ignored.
}

/** The words read so far, and where "::" stood among them. */
class WordList {
 public:
  bool AddField(std::string_view field) {
    std::uint16_t word = 0;
    if (ReadHexField(field, word)) return AddWord(word);
    Ipv4Bytes bytes;
    if (!ReadIpv4Field(field, bytes)) return false;
    // Kept: a dotted address may stand anywhere, not only at the end.
    return AddWord(static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1])) &&
           AddWord(static_cast<std::uint16_t>(bytes[2] << 8 | bytes[3]));
  }

  bool MarkGap() {
    if (m_hasGap) return false;
    m_hasGap = true;
    m_gap = m_count;
    return true;
  }

  /** Fills the gap with zero words; false when the words do not make an address. */
  bool Finish(Words& words) const {
    // Kept: a gap that stands for no word at all is accepted.
    if (m_count < kWords && !m_hasGap) return false;
    words = {};
    const std::size_t gap = m_hasGap ? m_gap : m_count;
    const std::size_t skipped = kWords - m_count;
    for (std::size_t i = 0; i < m_count; ++i) words[i < gap ? i : i + skipped] = m_words[i];
    return true;
  }

 private:
  bool AddWord(std::uint16_t word) {
    if (m_count == kWords) return false;
    m_words[m_count++] = word;
    return true;
  }

  Words m_words = {};
  std::size_t m_count = 0;
  std::size_t m_gap = 0;
  bool m_hasGap = false;
};

bool ReadFields(std::string_view text, WordList& list) {
  std::size_t colons = 0;
  for (bool first = true;; first = false) {
    const std::size_t colon = text.find(':');
    const bool last = colon == std::string_view::npos;
    const std::string_view field = text.substr(0, colon);
    if (!last && ++colons > kMostColons) return false;
    if (!field.empty()) {
      if (!list.AddField(field)) return false;
    } else if (!first && !last) {  // Kept: an empty first or last field says nothing.
      if (!list.MarkGap()) return false;
    }
    if (last) return true;
    text.remove_prefix(colon + 1);
  }
}

char* AppendNumber(char* at, char* end, unsigned int number, int base) {
  return std::to_chars(at, end, number, base).ptr;
}

/** Writes a dotted IPv4 text of at most 15 characters, without a NUL. */
std::size_t FormatIpv4(const unsigned char* bytes, char (&text)[kLongestIpv4Field]) {
  char* at = text;
  char* const end = text + sizeof(text);
  for (std::size_t i = 0; i < sizeof(in_addr); ++i) {
    if (i > 0) *at++ = '.';
    at = AppendNumber(at, end, bytes[i], 10);
  }
  return static_cast<std::size_t>(at - text);
}

struct Run {
  std::size_t start = 0;
  std::size_t length = 0;
};

/** The longest run of at least two zero words, the first of equals; empty when there is none. */
Run LongestZeroRun(const Words& words) {
  Run longest;
  Run current;
  for (std::size_t i = 0; i < kWords; ++i) {
    if (words[i] != 0) {
      current = {i + 1, 0};
    } else if (++current.length > longest.length) {
      longest = current;
    }
  }
  return longest.length < 2 ? Run{} : longest;
}

bool EmbedsIpv4(const Words& words, const Run& run) {
  if (run.start != 0) return false;
  return run.length == kCompatibleIpv4Run ||
         (run.length == kMappedIpv4Run && words[kMappedIpv4Run] == kMappedIpv4Word);
}

Words ReadWords(const unsigned char* bytes) {
  Words words;
  for (std::size_t i = 0; i < kWords; ++i) {
    words[i] = static_cast<std::uint16_t>(bytes[2 * i] << 8 | bytes[2 * i + 1]);
  }
  return words;
}

/** Writes the hexadecimal form, without a NUL. */
std::size_t FormatIpv6(const Words& words, const Run& run, char (&text)[INET6_ADDRSTRLEN]) {
  char* at = text;
  char* const end = text + sizeof(text);
  for (std::size_t i = 0; i < kWords; ++i) {
    if (i >= run.start && i < run.start + run.length) {
      if (i == run.start) *at++ = ':';
      continue;
    }
    if (i > 0) *at++ = ':';
    at = AppendNumber(at, end, words[i], 16);
  }
  if (run.length > 0 && run.start + run.length == kWords) *at++ = ':';
  return static_cast<std::size_t>(at - text);
}

void CopyPadded(const char* text, std::size_t length, char* buffer, std::size_t size) {
  std::memcpy(buffer, text, length);
  std::memset(buffer + length, 0, size - length);
}

char* WriteIpv4(const unsigned char* bytes, char* buffer, std::size_t size) {
  char text[kLongestIpv4Field];
  const std::size_t length = FormatIpv4(bytes, text);
  // Kept: a buffer of exactly the text's length is enough and leaves no room for a NUL.
  if (size < length) return nullptr;
  CopyPadded(text, length, buffer, size);
  return buffer;
}

char* WriteIpv6(const unsigned char* bytes, char* buffer, std::size_t size) {
  const Words words = ReadWords(bytes);
  const Run run = LongestZeroRun(words);
  // Kept: an embedded IPv4 address is written alone and without a NUL.
  if (EmbedsIpv4(words, run)) {
    char text[kLongestIpv4Field];
    const std::size_t length = FormatIpv4(bytes + sizeof(in6_addr) - sizeof(in_addr), text);
    if (size < length) return nullptr;
    std::memcpy(buffer, text, length);
    return buffer;
  }
  char text[INET6_ADDRSTRLEN];
  const std::size_t length = FormatIpv6(words, run, text);
  if (size < length + 1) return nullptr;
  CopyPadded(text, length, buffer, size);
  return buffer;
}

}  // namespace

bool ParseIpv6(const char* text, Ipv6Bytes& bytes) noexcept {
  const CompactText compact(text);
  WordList list;
  Words words;
  if (!ReadFields(compact.View(), list) || !list.Finish(words)) return false;
  for (std::size_t i = 0; i < kWords; ++i) {
    bytes[2 * i] = static_cast<unsigned char>(words[i] >> 8);
    bytes[2 * i + 1] = static_cast<unsigned char>(words[i] & 0xFF);
  }
  return true;
}

}  // namespace qiv::net

extern "C" {

int QIV_InetPton(const char* text, void* out) noexcept {
  if (text == nullptr || out == nullptr) return QIV_ERROR;
  if (std::strchr(text, ':') == nullptr) {
    qiv::net::Ipv4Bytes bytes;
    if (!qiv::net::ParseIpv4(text, bytes)) return QIV_ERROR;
    std::memcpy(out, bytes.data(), bytes.size());
    return QIV_OK;
  }
  qiv::net::Ipv6Bytes bytes;
  if (!qiv::net::ParseIpv6(text, bytes)) return QIV_ERROR;
  std::memcpy(out, bytes.data(), bytes.size());
  return QIV_OK;
}

char* QIV_InetNtop(int family, const void* address, char* buffer, unsigned int size) noexcept {
  if (address == nullptr || buffer == nullptr || size == 0) return nullptr;
  const auto* bytes = static_cast<const unsigned char*>(address);
  if (family == AF_INET) return qiv::net::WriteIpv4(bytes, buffer, size);
  if (family == AF_INET6) return qiv::net::WriteIpv6(bytes, buffer, size);
  return nullptr;
}

}  // extern "C"

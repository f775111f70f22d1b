// Text functions. Most are the platform's, with null arguments and impossible counts refused.
// QIV_Strcmp() and its kin are a loop of our own, because their result is a difference of bytes.
#include <qiv/string.h>
#include <strings.h>

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t kWholeText = SIZE_MAX;

int SameByte(unsigned char c) { return c; }
int UpperCase(unsigned char c) { return std::toupper(c); }

/** The order of two pointers of which at least one is null: null comes first. */
int CompareNull(const char* a, const char* b) {
  return static_cast<int>(a != nullptr) - static_cast<int>(b != nullptr);
}

/** Compares at most `limit` characters, mapped by `fold`, and returns the first difference. */
template <typename Fold>
int Compare(const char* a, const char* b, std::size_t limit, Fold fold) {
  if (limit == 0) return 0;
  if (a == nullptr || b == nullptr) return CompareNull(a, b);
  for (std::size_t i = 0; i < limit; ++i) {
    const int left = fold(static_cast<unsigned char>(a[i]));
    const int right = fold(static_cast<unsigned char>(b[i]));
    if (left != right) return left - right;
    if (a[i] == '\0') return 0;
  }
  return 0;
}

char* CopyWithNul(char* dst, const char* src) {
  if (dst == nullptr || src == nullptr) return nullptr;
  std::memcpy(dst, src, std::strlen(src) + 1);
  return dst;
}

char* Duplicate(const char* s, std::size_t length) {
  auto* const copy = static_cast<char*>(std::malloc(length + 1));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, s, length);
  copy[length] = '\0';
  return copy;
}

/** A position in the caller's text, given back as the caller may have it: not const. */
char* Found(const void* position) { return const_cast<char*>(static_cast<const char*>(position)); }

}  // namespace

extern "C" {

void QIV_Strcpy(char* dst, const char* src) noexcept { CopyWithNul(dst, src); }

void QIV_Strncpy(char* dst, const char* src, int n) noexcept {
  if (dst == nullptr || src == nullptr || n <= 0) return;
  std::strncpy(dst, src, static_cast<std::size_t>(n));
}

char* QIV_Strdup(const char* s) noexcept {
  return s == nullptr ? nullptr : Duplicate(s, std::strlen(s));
}

char* QIV_Strndup(const char* s, int n) noexcept {
  if (s == nullptr || n < 0) return nullptr;
  return Duplicate(s, strnlen(s, static_cast<std::size_t>(n)));
}

int QIV_Strcmp(const char* a, const char* b) noexcept {
  return Compare(a, b, kWholeText, SameByte);
}

int QIV_Strncmp(const char* a, const char* b, int n) noexcept {
  return Compare(a, b, n < 0 ? kWholeText : static_cast<std::size_t>(n), SameByte);
}

int QIV_Strcasecmp(const char* a, const char* b) noexcept {
  return Compare(a, b, kWholeText, UpperCase);
}

int QIV_Strncasecmp(const char* a, const char* b, int n) noexcept {
  // Kept: a negative count compares the first characters.
  return Compare(a, b, n < 0 ? 1 : static_cast<std::size_t>(n), UpperCase);
}

char* QIV_Strchr(const char* s, int c) noexcept {
  return s == nullptr ? nullptr : Found(std::strchr(s, c));
}

char* QIV_Strnchr(const char* s, int c, int n) noexcept {
  if (s == nullptr || n < 1) return nullptr;
  return Found(std::memchr(s, c, static_cast<std::size_t>(n)));
}

char* QIV_Strstr(const char* s, const char* p) noexcept {
  return s == nullptr || p == nullptr ? nullptr : Found(std::strstr(s, p));
}

char* QIV_Strnstr(const char* s, const char* p, int len) noexcept {
  if (s == nullptr || p == nullptr || len < 0) return nullptr;
  const auto count = static_cast<std::size_t>(len);
  // A NUL among the bytes matches nothing in a text, and what follows it may not be readable.
  if (strnlen(p, count) < count) return nullptr;
  return Found(memmem(s, std::strlen(s), p, count));
}

char* QIV_Strcasestr(const char* s, const char* p) noexcept {
  if (s == nullptr || p == nullptr) return nullptr;
  if (*p == '\0') return Found(s);
  const int first = std::tolower(static_cast<unsigned char>(*p));
  const std::size_t others = std::strlen(p) - 1;
  for (; *s != '\0'; ++s) {
    if (std::tolower(static_cast<unsigned char>(*s)) != first) continue;
    if (Compare(s + 1, p + 1, others, UpperCase) == 0) return Found(s);
  }
  return nullptr;
}

}  // extern "C"

namespace qiv {

// atoi() is defined by strtol(), but leaves a value beyond int undefined.
int qiv_string::atoi(const char* text) noexcept {
  return text == nullptr ? 0 : static_cast<int>(std::strtol(text, nullptr, 10));
}

char* qiv_string::itoa(char* buf, int value, int radix) noexcept {
  return QIV_Itoa(buf, value, radix);
}

char* qiv_string::strcpy(char* dst, const char* src) noexcept { return CopyWithNul(dst, src); }

char* qiv_string::strncpy(char* dst, const char* src, size_t n) noexcept {
  if (dst == nullptr || src == nullptr || n > PTRDIFF_MAX) return nullptr;
  return std::strncpy(dst, src, n);
}

char* qiv_string::strcat(char* dst, const char* src) noexcept {
  if (dst == nullptr || src == nullptr) return nullptr;
  CopyWithNul(dst + std::strlen(dst), src);
  return dst;
}

size_t qiv_string::strlen(const char* text) noexcept {
  return text == nullptr ? 0 : std::strlen(text);
}

int qiv_string::strcmp(const char* a, const char* b) noexcept {
  return a == nullptr || b == nullptr ? CompareNull(a, b) : std::strcmp(a, b);
}

int qiv_string::strcasecmp(const char* a, const char* b) noexcept {
  return a == nullptr || b == nullptr ? CompareNull(a, b) : ::strcasecmp(a, b);
}

int qiv_string::strncasecmp(const char* a, const char* b, size_t n) noexcept {
  if (n == 0) return 0;
  return a == nullptr || b == nullptr ? CompareNull(a, b) : ::strncasecmp(a, b, n);
}

char* qiv_string::strchr(const char* text, int c) noexcept { return QIV_Strchr(text, c); }

char* qiv_string::strrchr(const char* text, int c) noexcept {
  return text == nullptr ? nullptr : Found(std::strrchr(text, c));
}

char* qiv_string::strstr(const char* text, const char* part) noexcept {
  return QIV_Strstr(text, part);
}

}  // namespace qiv

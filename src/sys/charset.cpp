// Conversion of texts between UTF-8 and EUC-CN.
#include <iconv.h>
#include <qiv/system.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <string>

#include "base/no_cancellation.h"

namespace {

constexpr const char* kUtf8 = "UTF-8";
constexpr const char* kEucCn = "EUC-CN";
// The most bytes that one byte becomes in either direction, rounded up.
constexpr std::size_t kGrowth = 3;

class Converter {
 public:
  Converter(const char* to, const char* from) : m_handle(iconv_open(to, from)) {}
  ~Converter() {
    if (IsOpen()) iconv_close(m_handle);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  bool IsOpen() const { return m_handle != iconv_t(-1); }

  /** True when the whole input was converted. */
  bool Convert(const char* in, std::size_t inBytes, char* out, std::size_t outBytes) {
    // iconv() does not write to its input.
    char* input = const_cast<char*>(in);
    return iconv(m_handle, &input, &inBytes, &out, &outBytes) != static_cast<std::size_t>(-1);
  }

 private:
  iconv_t m_handle;
};

std::string Converted(const char* to, const char* from, const char* text) {
  const std::size_t length = std::strlen(text);
  if (length > (SIZE_MAX - 1) / kGrowth) return {};
  Converter converter(to, from);
  if (!converter.IsOpen()) return {};
  std::string result(kGrowth * length, '\0');
  if (!converter.Convert(text, length, &result[0], result.size())) return {};
  result.resize(std::strlen(result.c_str()));
  return result;
}

std::string ConvertedOrEmpty(const char* to, const char* from, const char* text) noexcept {
  if (text == nullptr) return {};
  const qiv::base::NoCancellation noCancellation;
  try {
    return Converted(to, from, text);
  } catch (const std::exception&) {
    return {};
  }
}

}  // namespace

extern "C" {

std::string QIV_UTF82A(const char* s) noexcept { return ConvertedOrEmpty(kEucCn, kUtf8, s); }

std::string QIV_A2UTF8(const char* s) noexcept { return ConvertedOrEmpty(kUtf8, kEucCn, s); }

}  // extern "C"

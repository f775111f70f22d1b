// Random texts and addresses against a second, plainer implementation of the same rules.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <qiv/address.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "support/test_limit.h"

namespace {

constexpr unsigned int kSeed = 20240611;
constexpr int kRounds = 50000;

constexpr std::size_t kTextSize = 64;

using Units = std::vector<int>;
using Address = std::array<unsigned char, 16>;

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> fields(1);
  for (const char c : text) {
    if (c == separator) {
      fields.emplace_back();
    } else {
      fields.back() += c;
    }
  }
  return fields;
}

std::optional<Units> ModelReadIpv4(const std::string& text) {
  if (text.find_first_not_of("0123456789.") != std::string::npos) return std::nullopt;
  Units bytes;
  for (const std::string& part : Split(text, '.')) {
    if (part.empty()) return std::nullopt;
    const auto digits = part.find_first_not_of('0');
    const std::string number = digits == std::string::npos ? "0" : part.substr(digits);
    if (number.size() > 3 || std::stoi(number) > 255) return std::nullopt;
    bytes.push_back(std::stoi(number));
  }
  if (bytes.size() != 4) return std::nullopt;
  return bytes;
}

int LongestDigitRun(const std::string& text) {
  int longest = 0;
  int run = 0;
  for (const char c : text) {
    run = c >= '0' && c <= '9' ? run + 1 : 0;
    longest = std::max(longest, run);
  }
  return longest;
}

std::optional<Units> ModelReadField(const std::string& field) {
  if (field.size() <= 4 && field.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos) {
    const int word = std::stoi(field, nullptr, 16);
    return Units{word / 256, word % 256};
  }
  int n[4];
  if (field.size() < 7 || field.size() > 15) return std::nullopt;
  // Ten digits leave no room for the dots, and sscanf() must not be given numbers that large.
  if (LongestDigitRun(field) >= 10) return std::nullopt;
  if (std::sscanf(field.c_str(), "%d.%d.%d.%d", &n[0], &n[1], &n[2], &n[3]) != 4) {
    return std::nullopt;
  }
  for (const int number : n) {
    if (number < 0 || number > 255) return std::nullopt;
  }
  return Units{n[0], n[1], n[2], n[3]};
}

std::optional<Units> ModelReadIpv6(const std::string& text) {
  std::string work;
  for (const char c : text.substr(0, 255)) {
    if (std::strchr(" \t\n\v\f\r", c) == nullptr) work += c;
  }
  const std::vector<std::string> fields = Split(work, ':');
  if (fields.size() > 10) return std::nullopt;
  Units before;
  Units after;
  bool gap = false;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (fields[i].empty()) {
      if (i == 0 || i + 1 == fields.size()) continue;
      if (gap) return std::nullopt;
      gap = true;
      continue;
    }
    const auto bytes = ModelReadField(fields[i]);
    if (!bytes) return std::nullopt;
    Units& target = gap ? after : before;
    target.insert(target.end(), bytes->begin(), bytes->end());
  }
  const std::size_t size = before.size() + after.size();
  if (size > 16 || (size < 16 && !gap)) return std::nullopt;
  before.resize(16 - after.size(), 0);
  before.insert(before.end(), after.begin(), after.end());
  return before;
}

std::optional<Units> ModelRead(const std::string& text) {
  return text.find(':') == std::string::npos ? ModelReadIpv4(text) : ModelReadIpv6(text);
}

std::string ModelWriteIpv4(const unsigned char* bytes) {
  std::ostringstream text;
  text << +bytes[0] << '.' << +bytes[1] << '.' << +bytes[2] << '.' << +bytes[3];
  return text.str();
}

/** Writes every word with a ':' in front, then replaces the longest ":0:0..." by "::". */
std::string ModelWriteIpv6(const unsigned char* bytes) {
  static const unsigned char mapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
  const bool compatible =
      std::memcmp(bytes, "\0\0\0\0\0\0\0\0\0\0\0", 12) == 0 && (bytes[12] != 0 || bytes[13] != 0);
  if (compatible || std::memcmp(bytes, mapped, 12) == 0) return ModelWriteIpv4(bytes + 12);
  std::ostringstream all;
  for (int i = 0; i < 16; i += 2) all << ':' << std::hex << (bytes[i] << 8 | bytes[i + 1]);
  std::string text = all.str() + ':';
  for (int zeros = 8; zeros >= 2; --zeros) {
    std::string run = ":";
    for (int i = 0; i < zeros; ++i) run += "0:";
    const auto at = text.find(run);
    if (at == std::string::npos) continue;
    text.replace(at, run.size(), "::");
    break;
  }
  if (text.compare(0, 2, "::") != 0) text.erase(0, 1);
  if (text.size() < 2 || text.compare(text.size() - 2, 2, "::") != 0) text.pop_back();
  return text;
}

/** What a buffer of '#' holds after a text was written with a bound of `size` bytes. */
std::string ModelBuffer(int family, const std::string& text, unsigned int size) {
  const bool isPlainIpv6 = text.find(':') != std::string::npos;
  const bool fits = isPlainIpv6 ? size > text.size() : size >= text.size();
  const bool isPadded = family == AF_INET || isPlainIpv6;
  std::string buffer = fits ? text : "";
  if (fits && isPadded) buffer.resize(size, '\0');
  buffer.resize(kTextSize, '#');
  return buffer;
}

class RandomAddressTextTest : public ::testing::Test {
 protected:
  void SetUp() override { std::cout << "seed " << kSeed << '\n'; }

  int Below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(m_random); }
  char OneOf(const char* characters) {
    return characters[Below(static_cast<int>(std::strlen(characters)))];
  }

  std::string Number() {
    const std::string sign = Below(12) == 0 ? (Below(2) == 0 ? "+" : "-") : "";
    const std::string zeros(static_cast<std::size_t>(Below(10) == 0 ? Below(4) : 0), '0');
    return sign + zeros + std::to_string(Below(Below(6) == 0 ? 400 : 256));
  }

  std::string Dotted() {
    std::string text = Number();
    const int dots = Below(8) == 0 ? Below(6) : 3;
    for (int i = 0; i < dots; ++i) text += '.' + Number();
    return text;
  }

  std::string Field() {
    if (Below(8) == 0) return Dotted();
    std::string text;
    const int digits = Below(20) == 0 ? 5 : 1 + Below(4);
    for (int i = 0; i < digits; ++i) text += OneOf("0123456789abcdefABCDEF");
    return text;
  }

  std::string Text() {
    if (Below(4) == 0) return Dotted();
    std::string text = Below(5) == 0 ? ":" : "";
    const int fields = 1 + Below(10);
    for (int i = 0; i < fields; ++i) {
      text += Field();
      if (i + 1 < fields) text += Below(6) == 0 ? "::" : ":";
    }
    if (Below(5) == 0) text += Below(2) == 0 ? "::" : ":";
    return text;
  }

  std::string Mutated(std::string text) {
    for (int i = Below(3); i > 0; --i) {
      const auto at = static_cast<std::size_t>(Below(static_cast<int>(text.size()) + 1));
      switch (Below(4)) {
        case 0:
          text.insert(at, 1, OneOf("0123456789abcdefxXgG.::: \t\n+-%\x80\xff"));
          break;
        case 1:
          if (at < text.size()) text.erase(at, 1);
          break;
        case 2:
          text.insert(at, static_cast<std::size_t>(Below(260)), ' ');
          break;
        default:
          text.insert(at, text.substr(0, static_cast<std::size_t>(Below(12))));
      }
    }
    return text;
  }

  /** Many zero bytes, and often one of the forms that embed an IPv4 address. */
  Address RandomAddress() {
    Address bytes = {};
    for (unsigned char& byte : bytes) {
      if (Below(3) == 0) byte = static_cast<unsigned char>(Below(256));
    }
    if (Below(4) == 0) std::fill_n(bytes.begin(), 8 + Below(9), static_cast<unsigned char>(0));
    if (Below(8) == 0) {
      std::fill_n(bytes.begin(), 10, static_cast<unsigned char>(0));
      bytes[10] = bytes[11] = 0xFF;
    }
    return bytes;
  }

  std::mt19937 m_random{kSeed};
};

TEST_F(RandomAddressTextTest, ReadingAgreesWithTheModelAndWritesNothingElse) {
  int accepted = 0;
  const int rounds = qiv::test::ScaledLoad(kRounds);
  for (int round = 0; round < rounds; ++round) {
    const std::string text = Below(3) == 0 ? Text() : Mutated(Text());
    const auto wanted = ModelRead(text);
    unsigned char out[18];
    std::memset(out, 0xAA, sizeof(out));
    ASSERT_EQ(wanted ? 0 : -1, QIV_InetPton(text.c_str(), out)) << '"' << text << '"';
    Units expected = wanted.value_or(Units{});
    accepted += wanted ? 1 : 0;
    expected.resize(sizeof(out), 0xAA);
    ASSERT_EQ(expected, Units(out, out + sizeof(out))) << '"' << text << '"';
  }
  EXPECT_GT(accepted, rounds / 10) << "the texts no longer try the accepting paths";
  EXPECT_LT(accepted, rounds * 9 / 10) << "the texts no longer try the refusing paths";
}

/** A field of an IPv6 address with so many leading zeros that not every system takes it. */
bool HasLongField(const std::string& text) {
  for (const std::string& field : Split(text, ':')) {
    const bool isIpv4 = field.find('.') != std::string::npos;
    if (field.size() > (isIpv4 ? INET_ADDRSTRLEN - 1 : 4)) return true;
  }
  return false;
}

TEST_F(RandomAddressTextTest, WhatTheSystemReadsIsReadAlike) {
  const int rounds = qiv::test::ScaledLoad(kRounds);
  int compared = 0;
  for (int round = 0; round < rounds; ++round) {
    const std::string text = Text();
    const int family = text.find(':') == std::string::npos ? AF_INET : AF_INET6;
    unsigned char system[16] = {};
    unsigned char out[16] = {};
    if (inet_pton(family, text.c_str(), system) != 1) continue;
    ++compared;
    const bool isRefused = family == AF_INET6 && HasLongField(text);
    ASSERT_EQ(isRefused ? -1 : 0, QIV_InetPton(text.c_str(), out)) << text;
    if (isRefused) continue;
    ASSERT_EQ(0, std::memcmp(system, out, sizeof(out))) << text;
  }
  EXPECT_GT(compared, rounds / 20);
}

TEST_F(RandomAddressTextTest, WritingAgreesWithTheModelAtEverySize) {
  for (int round = qiv::test::ScaledLoad(kRounds); round > 0; --round) {
    const Address bytes = RandomAddress();
    const int family = Below(4) == 0 ? AF_INET : AF_INET6;
    const auto size = static_cast<unsigned int>(1 + Below(50));
    const std::string text =
        family == AF_INET ? ModelWriteIpv4(bytes.data()) : ModelWriteIpv6(bytes.data());
    const std::string wanted = ModelBuffer(family, text, size);
    std::string buffer(kTextSize, '#');
    char* const result = QIV_InetNtop(family, bytes.data(), &buffer[0], size);
    ASSERT_EQ(wanted, buffer) << text << ", size " << size;
    ASSERT_EQ(wanted[0] == '#' ? nullptr : &buffer[0], result) << text << ", size " << size;
  }
}

TEST_F(RandomAddressTextTest, WhatIsWrittenReadsBackToTheSameAddress) {
  for (int round = qiv::test::ScaledLoad(kRounds); round > 0; --round) {
    const Address bytes = RandomAddress();
    char text[kTextSize] = {};
    ASSERT_EQ(text, QIV_InetNtop(AF_INET6, bytes.data(), text, sizeof(text)));
    if (std::strchr(text, ':') == nullptr) continue;  // the embedded form is IPv4 from then on
    Address back = {};
    ASSERT_EQ(0, QIV_InetPton(text, back.data())) << text;
    ASSERT_EQ(bytes, back) << text;
  }
}

}  // namespace

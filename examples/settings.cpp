// Settings as texts, "name=number": names in any case, numbers decimal or hexadecimal.
//
// Shows how to read foreign numbers strictly: the end pointer tells whether there was a number and
// what follows it; -1, which an overflow reads as, is out of range; and a digit that equals the
// base, which is read as well, is looked for.
#include <qiv/string.h>

#include <cstdio>
#include <cstring>

namespace {

struct Setting {
  const char* name;
  qiv_int64 highest;
  qiv_int64 value;
};

/** Reads a whole number from 0 to `highest` and nothing else; false when the text is another. */
bool ReadNumber(const char* text, qiv_int64 highest, qiv_int64* value) {
  const bool isHexadecimal = QIV_Strncasecmp(text, "0x", 2) == 0;
  char* end = nullptr;
  const qiv_int64 number = QIV_StrToi64(text, &end, isHexadecimal ? 16 : 10);
  if (end == text || *end != '\0') return false;
  if (number < 0 || number > highest) return false;
  if (std::strpbrk(text, isHexadecimal ? "gG" : "aA") != nullptr) return false;
  *value = number;
  return true;
}

/** Takes a line into the setting that it names; false when it does not fit this one. */
bool Apply(const char* line, Setting* setting) {
  const auto length = static_cast<int>(std::strlen(setting->name));
  if (QIV_Strncasecmp(line, setting->name, length) != 0 || line[length] != '=') return false;
  return ReadNumber(line + length + 1, setting->highest, &setting->value);
}

}  // namespace

int main() {
  Setting retries = {"retries", 100, 0};
  Setting mask = {"mask", 0xFFFFFFFF, 0};
  const char* const lines[] = {
      "Retries=3", "MASK=0xfFfF0000",           "retries=", "retries=12a", "retries=101",
      "mask=0xFg", "mask=99999999999999999999", "speed=5"};
  int taken = 0;
  for (const char* const line : lines) {
    const bool fits = Apply(line, &retries) || Apply(line, &mask);
    std::printf("%-26s %s\n", line, fits ? "taken" : "refused");
    taken += fits ? 1 : 0;
  }
  char text[33];
  if (QIV_Itoa(text, static_cast<int>(retries.value), 10) == nullptr) return 1;
  std::printf("%s is %s\n", retries.name, text);
  return taken == 2 && retries.value == 3 && mask.value == 0xFFFF0000 ? 0 : 1;
}

// Whether a text is of a certain form.
#ifndef QIV_TESTS_SUPPORT_MATCHES_H
#define QIV_TESTS_SUPPORT_MATCHES_H

#include <regex.h>

#include <stdexcept>
#include <string>

namespace qiv::test {

/** @param form  an extended regular expression of POSIX, for the whole text */
inline bool Matches(const std::string& text, const std::string& form) {
  regex_t expression;
  if (regcomp(&expression, ("^(" + form + ")$").c_str(), REG_EXTENDED | REG_NOSUB) != 0) {
    throw std::invalid_argument("not a regular expression: " + form);
  }
  const int result = regexec(&expression, text.c_str(), 0, nullptr, 0);
  regfree(&expression);
  return result == 0;
}

}  // namespace qiv::test

#endif

// Assertions that are part of a class's contract: they hold in every build and end the process as
// the platform's assert() does, with a text, a file, a line and a signature of their own.
#ifndef QIV_BASE_CONTRACT_H
#define QIV_BASE_CONTRACT_H

namespace qiv::base {

/** Where the message says that an assertion stands. */
struct ContractPlace {
  const char* file;
  int line;
  const char* function;
};

/** Prints the platform's message of a failed assertion on standard error and aborts. */
[[noreturn]] void ContractFailed(const char* assertion, const ContractPlace& place) noexcept;

/** @param assertion  the text of the condition, as the message shows it */
inline void Require(bool holds, const char* assertion, const ContractPlace& place) noexcept {
  if (!holds) ContractFailed(assertion, place);
}

}  // namespace qiv::base

#endif

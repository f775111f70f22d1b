// What the process writes to standard output or standard error while an object of this lives.
#ifndef QIV_TESTS_SUPPORT_CAPTURED_OUTPUT_H
#define QIV_TESTS_SUPPORT_CAPTURED_OUTPUT_H

#include <string>

namespace qiv::test {

class CapturedOutput {
 public:
  /** @param descriptor  STDOUT_FILENO or STDERR_FILENO */
  explicit CapturedOutput(int descriptor);
  ~CapturedOutput();
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  /** Ends the capture and gives every byte that was written. */
  std::string Stop();

 private:
  void Restore();

  int m_descriptor;
  int m_saved;
  int m_file;
};

}  // namespace qiv::test

#endif

// Command line options of the example programs: whole numbers, and one operand.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace echo {

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kExitInterrupted = 130;

class Options {
 public:
  Options(std::string program, std::string purpose);

  // Adds "--name N" with least <= N <= most. *value holds the default until Parse().
  void AddNumber(const std::string& name, const std::string& meaning, int least, int most,
                 int* value);

  // Adds an operand that must be given.
  void SetOperand(const std::string& name, const std::string& meaning, std::string* value);

  // Reads the command line. Nothing: go on. A status: end the program with it, the help or the
  // reason has been printed.
  std::optional<int> Parse(int argc, char** argv) const;

 private:
  struct Number {
    std::string name;
    std::string meaning;
    int least;
    int most;
    int fallback;
    int* value;
  };
  struct Operand {
    std::string name;
    std::string meaning;
    std::string* value = nullptr;
  };

  void PrintHelp() const;
  bool TakeOption(const std::vector<std::string>& words, std::size_t* index) const;
  bool TakeOperand(const std::string& word, bool* taken) const;
  bool Refuse(const std::string& reason) const;
  const Number* Find(const std::string& name) const;

  std::string m_program;
  std::string m_purpose;
  std::vector<Number> m_numbers;
  Operand m_operand;
};

}  // namespace echo

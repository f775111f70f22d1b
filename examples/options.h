// Command line options of the example programs: whole numbers, directories, flags, and one operand.
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

  // Adds "--name DIR".
  void AddDirectory(const std::string& name, const std::string& meaning, std::string* value);

  // Adds "--name", which sets *value.
  void AddFlag(const std::string& name, const std::string& meaning, bool* value);

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
  struct Directory {
    std::string name;
    std::string meaning;
    std::string* value;
  };
  struct Flag {
    std::string name;
    std::string meaning;
    bool* value;
  };
  struct Operand {
    std::string name;
    std::string meaning;
    std::string* value = nullptr;
  };

  void PrintHelp() const;
  bool TakeOption(const std::vector<std::string>& words, std::size_t* index) const;
  bool SetNumber(const Number& number, const std::string& text) const;
  bool SetDirectory(const Directory& directory, const std::string& text) const;
  bool TakeOperand(const std::string& word, bool* taken) const;
  bool Refuse(const std::string& reason) const;
  const Number* FindNumber(const std::string& name) const;
  const Directory* FindDirectory(const std::string& name) const;
  const Flag* FindFlag(const std::string& name) const;

  std::string m_program;
  std::string m_purpose;
  std::vector<Number> m_numbers;
  std::vector<Directory> m_directories;
  std::vector<Flag> m_flags;
  Operand m_operand;
};

}  // namespace echo

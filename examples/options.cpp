#include "options.h"

#include <charconv>
#include <cstdio>
#include <utility>

namespace echo {
namespace {

// Takes decimal digits only: no sign, no blanks, nothing after the number.
std::optional<int> ParseNumber(const std::string& text, int least, int most) {
  int value = 0;
  const char* end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, value);
  if (result.ec != std::errc() || result.ptr != end || value < least || value > most) {
    return std::nullopt;
  }
  return value;
}

}  // namespace

Options::Options(std::string program, std::string purpose)
    : m_program(std::move(program)), m_purpose(std::move(purpose)) {}

void Options::AddNumber(const std::string& name, const std::string& meaning, int least, int most,
                        int* value) {
  m_numbers.push_back({"--" + name, meaning, least, most, *value, value});
}

void Options::AddDirectory(const std::string& name, const std::string& meaning,
                           std::string* value) {
  m_directories.push_back({"--" + name, meaning, value});
}

void Options::AddFlag(const std::string& name, const std::string& meaning, bool* value) {
  m_flags.push_back({"--" + name, meaning, value});
}

void Options::SetOperand(const std::string& name, const std::string& meaning, std::string* value) {
  m_operand = {name, meaning, value};
}

std::optional<int> Options::Parse(int argc, char** argv) const {
  const std::vector<std::string> words(argv + (argc > 0 ? 1 : 0), argv + argc);
  bool optionsEnded = false;
  bool operandTaken = false;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const bool isOption = !optionsEnded && words[i].size() > 1 && words[i][0] == '-';
    if (isOption && words[i] == "--help") {
      PrintHelp();
      return 0;
    }
    if (isOption && words[i] == "--") {
      optionsEnded = true;
      continue;
    }
    if (!(isOption ? TakeOption(words, &i) : TakeOperand(words[i], &operandTaken))) {
      return kExitUsage;
    }
  }
  if (m_operand.value != nullptr && !operandTaken) {
    Refuse("the operand " + m_operand.name + " is missing");
    return kExitUsage;
  }
  return std::nullopt;
}

void Options::PrintHelp() const {
  const bool hasOperand = m_operand.value != nullptr;
  std::printf("Usage: %s [OPTION]...%s%s\n%s\n\n", m_program.c_str(), hasOperand ? " " : "",
              m_operand.name.c_str(), m_purpose.c_str());
  if (hasOperand) {
    std::printf("  %-19s  %s\n", m_operand.name.c_str(), m_operand.meaning.c_str());
  }
  for (const Number& number : m_numbers) {
    std::printf("  %-16s N   %s\n%23s(%d to %d, default %d)\n", number.name.c_str(),
                number.meaning.c_str(), "", number.least, number.most, number.fallback);
  }
  for (const Directory& directory : m_directories) {
    std::printf("  %-16s DIR %s\n", directory.name.c_str(), directory.meaning.c_str());
  }
  for (const Flag& flag : m_flags) {
    std::printf("  %-19s  %s\n", flag.name.c_str(), flag.meaning.c_str());
  }
  std::printf("  %-19s  print this text and end\n", "--help");
}

// Takes "--name", "--name VALUE" or "--name=VALUE"; moves *index to the last word taken.
bool Options::TakeOption(const std::vector<std::string>& words, std::size_t* index) const {
  const std::string& word = words[*index];
  const std::size_t equals = word.find('=');
  const std::string name = word.substr(0, equals);
  if (const Flag* flag = FindFlag(name)) {
    if (equals != std::string::npos) return Refuse("option '" + name + "' takes no value");
    *flag->value = true;
    return true;
  }
  const Number* number = FindNumber(name);
  const Directory* directory = FindDirectory(name);
  if (number == nullptr && directory == nullptr) {
    return Refuse("unknown option '" + name + "'");
  }
  std::string text;
  if (equals != std::string::npos) {
    text = word.substr(equals + 1);
  } else if (*index + 1 < words.size()) {
    text = words[++*index];
  } else {
    return Refuse("option '" + name + "' needs a value");
  }
  return number != nullptr ? SetNumber(*number, text) : SetDirectory(*directory, text);
}

bool Options::SetNumber(const Number& number, const std::string& text) const {
  const std::optional<int> value = ParseNumber(text, number.least, number.most);
  if (!value) {
    return Refuse("option '" + number.name + "' takes a whole number from " +
                  std::to_string(number.least) + " to " + std::to_string(number.most) + ", not '" +
                  text + "'");
  }
  *number.value = *value;
  return true;
}

bool Options::SetDirectory(const Directory& directory, const std::string& text) const {
  if (text.empty()) {
    return Refuse("option '" + directory.name + "' needs a value");
  }
  *directory.value = text;
  return true;
}

bool Options::TakeOperand(const std::string& word, bool* taken) const {
  if (m_operand.value == nullptr || *taken) {
    return Refuse("unexpected operand '" + word + "'");
  }
  *m_operand.value = word;
  *taken = true;
  return true;
}

// Prints the one line of a refusal; false, for the callers to return.
bool Options::Refuse(const std::string& reason) const {
  std::fprintf(stderr, "%s: %s (try --help)\n", m_program.c_str(), reason.c_str());
  return false;
}

const Options::Number* Options::FindNumber(const std::string& name) const {
  for (const Number& number : m_numbers) {
    if (number.name == name) {
      return &number;
    }
  }
  return nullptr;
}

const Options::Directory* Options::FindDirectory(const std::string& name) const {
  for (const Directory& directory : m_directories) {
    if (directory.name == name) {
      return &directory;
    }
  }
  return nullptr;
}

const Options::Flag* Options::FindFlag(const std::string& name) const {
  for (const Flag& flag : m_flags) {
    if (flag.name == name) {
      return &flag;
    }
  }
  return nullptr;
}

}  // namespace echo

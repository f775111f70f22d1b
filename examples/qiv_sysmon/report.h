// A reading as text for scripts. Nothing here reads or prints.
#pragma once

#include <string>

#include "reading.h"

namespace sysmon {

// One figure a line, "subject [name] figure value"; percentages of 100, sizes in bytes.
std::string PlainReport(const Reading& reading);

// One JSON object on one line, with its line feed.
std::string JsonReport(const Reading& reading);

// A text in quotes. Bytes beyond ASCII count as the characters of the same number.
std::string JsonText(const std::string& text);

}  // namespace sysmon

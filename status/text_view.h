#pragma once

#include <string>

#include "status/report.h"

namespace pelmar::status {

enum class Colour { yes, no };

// The report for a person in a terminal: the verdict first, then why, then the details. What was
// read from files cannot reach the terminal as control characters. Keys and passwords are masked.
std::string textView(const Report& report, Colour colour);

// Of a report on a configuration file, whose other parts were not looked at.
std::string textViewOfConfig(const Report& report, Colour colour);

}  // namespace pelmar::status

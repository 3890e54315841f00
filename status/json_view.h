#pragma once

#include <nlohmann/json.hpp>

#include "status/report.h"

namespace pelmar::status {

// The report for scripts: docs/status.md names its keys. Keys and passwords are masked.
nlohmann::json jsonView(const Report& report);

// Of a report on a configuration file, whose other parts were not looked at.
nlohmann::json jsonViewOfConfig(const Report& report);

}  // namespace pelmar::status

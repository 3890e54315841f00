#pragma once

// The places outside of the program that it is bound to. No switch or variable changes
// them in the installed agent (locations_system.cpp). Tests and `./run` link
// locations_rooted.cpp instead, under which all of them lie below the folder that the
// variable PELMAR_ROOT names; that program is never installed.

#include <string>

namespace pelmar::locations {

// The current user's home directory, from the password database and never from HOME.
// Empty when the user has no entry there. No trailing slash.
std::string homeFolder();

// Where a setup tool leaves the enrollment of this machine.
std::string setupFolder();

// The system registry tool.
std::string ioregTool();

// The tool that lists processes.
std::string psTool();

}  // namespace pelmar::locations

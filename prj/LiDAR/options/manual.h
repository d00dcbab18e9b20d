// prj/LiDAR/options/manual.h
// Texts that the build makes of the option table for the installed program.
#pragma once
#include <string>

namespace veld {
std::string man_page_text();         // roff with the man macros, section 1
std::string bash_completion_text();  // a script for bash that completes the command line
}  // namespace veld

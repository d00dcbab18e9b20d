// prj/LiDAR/options/help.h
// The help text: examples, and the option table by theme.
#pragma once
#include <string>

namespace veld {
// All of it, or only the options whose name or meaning holds the word (any case).
std::string help_text(const std::string& word);
}  // namespace veld

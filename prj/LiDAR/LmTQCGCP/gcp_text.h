// prj/LiDAR/LmTQCGCP/gcp_text.h
// Private to LmTQCGCP: words and texts that its reports share.
#pragma once
#include <string>

#include "prj/LiDAR/project.h"

namespace veld {
std::string unit_name(double unit);              // metres per unit
std::string one_word(const std::string& name);   // blanks become "_": columns are separated by blanks
std::string json_text(const std::string& text);  // with its quotes; bytes that are no UTF-8 are replaced
std::string utc_now();                           // YYYY-MM-DD hh:mm:ss UTC
bool mobile_only(const Project& prj);            // there are mobile swaths, so references take no part
}  // namespace veld

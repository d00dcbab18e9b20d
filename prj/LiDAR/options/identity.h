// prj/LiDAR/options/identity.h
// Who the program is, and where its own files lie: logs, lock, persistent options, progress file.
#pragma once
#include <string>

namespace veld {
inline constexpr char PROGRAM_NAME[] = "veldrunner";
inline constexpr char PROGRAM_VERSION[] = "2.26";

std::string short_identity();  // display name, version, platform
std::string soft_info();       // for headers and saved options: name, version, build day, platform
std::string banner();          // identity, build time, versions of the point libraries

struct ProgramPaths {
  std::string execpath;  // the executable
  std::string base;      // beside it, without extension: stem of logs, lock and progress file
  // Stem of the persistent option file: beside the executable, or base when the user has one of his own
  // there.
  std::string options_base;
  bool per_user = false;  // base lies in the user's state directory, as the executable's cannot be written
};
// The places for an executable and a user's home directory (with its "/", or empty). Makes the state
// directory when it is needed.
ProgramPaths place_program_files(const std::string& execpath, const std::string& home);
ProgramPaths find_program_paths();  // of this process
}  // namespace veld

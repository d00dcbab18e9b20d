#include "prj/LiDAR/options/identity.h"

#include <pwd.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "lib/general/filelist.h"
#include "lib/general/path.h"

namespace veld {
namespace {
constexpr char DISPLAY_NAME[] = "Tarnwick-Veldrunner";
constexpr char PLATFORM[] = "Ubu64";
constexpr int LASLIB_VERSION = 210720;
constexpr int PULSEWAVES_VERSION = 190805;
constexpr size_t IDENTITY_BYTES = 64;

// The home directory as the user database has it, with its "/"; empty when it has none.
std::string home_directory() {
  struct passwd entry, *found = nullptr;
  std::vector<char> buffer(16384);
  if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found || !found->pw_dir)
    return "";
  return with_slash(found->pw_dir);
}

bool use_state_directory(const std::string& home, ProgramPaths& paths) {
  if (home.empty()) return false;
  const std::string dir = home + ".local/state/" + PROGRAM_NAME + "/";
  std::error_code failed;
  std::filesystem::create_directories(dir, failed);
  if (failed || !dir_writable(dir)) return false;
  paths.base = dir + base_name(paths.base);
  paths.per_user = true;
  if (is_regular_file(paths.base + ".opt.txt")) paths.options_base = paths.base;
  return true;
}
}  // namespace

std::string short_identity() {
  char text[IDENTITY_BYTES];
  std::snprintf(text, sizeof text, "%s %s [%s]", DISPLAY_NAME, PROGRAM_VERSION, PLATFORM);
  return text;
}

std::string soft_info() {
  static const char months[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
  char name[4] = "";
  int day = 0, year = 0;
  if (std::sscanf(__DATE__, "%3s %d %d", name, &day, &year) != 3) return "";
  const size_t month = std::string(months).find(name) / 3 + 1;
  std::string upper = PROGRAM_NAME;
  for (char& c : upper) c = static_cast<char>(c - 'a' + 'A');
  char text[IDENTITY_BYTES];
  std::snprintf(text, sizeof text, "%s %s %02d%02d%02d [%s]", upper.c_str(), PROGRAM_VERSION, year % 100,
                static_cast<int>(month % 100), day % 100, PLATFORM);
  return text;
}

std::string banner() {
  return short_identity() + " " + __DATE__ + " " + __TIME__ + " + LASlib " + std::to_string(LASLIB_VERSION) +
         " + PulseWaves " + std::to_string(PULSEWAVES_VERSION);
}

ProgramPaths place_program_files(const std::string& execpath, const std::string& home) {
  ProgramPaths paths;
  paths.execpath = execpath;
  paths.base = paths.options_base = change_extension(execpath, "");
  std::string dir, name;
  split_path(paths.base, dir, name);
  // Without a place in the home directory the one beside the executable stays, and the lock reports the
  // failure.
  if (!dir_writable(dir.empty() ? "." : dir)) use_state_directory(home, paths);
  return paths;
}

ProgramPaths find_program_paths() {
  char text[PATH_MAX];
  const ssize_t n = readlink("/proc/self/exe", text, sizeof text - 1);
  return place_program_files(n > 0 ? std::string(text, static_cast<size_t>(n)) : PROGRAM_NAME,
                             home_directory());
}
}  // namespace veld

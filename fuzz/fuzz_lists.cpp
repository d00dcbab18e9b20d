// fuzz/fuzz_lists.cpp
// Small text inputs of a project: lists of files, lists of boresights and channels, mount, calibration and
// shift files, patterns. The first byte says which.
#include <unistd.h>

#include <cstdlib>

#include "fuzz/fuzz_file.h"
#include "lib/general/filelist.h"
#include "lib/general/logfiles.h"
#include "lib/general/path.h"
#include "prj/LiDAR/VR2geom/calib.h"
#include "prj/LiDAR/options/split_opt.h"

namespace veld {
namespace {
// The same by recursion, for short texts.
bool matches(const char* pattern, const char* text) {
  if (*pattern == '\0') return *text == '\0';
  if (*pattern == '*') return matches(pattern + 1, text) || (*text && matches(pattern, text + 1));
  return *text && (*pattern == '?' || *pattern == *text) && matches(pattern + 1, text + 1);
}

void try_pattern(const std::string& text) {
  const size_t cut = text.find('\n');
  if (cut == std::string::npos) return;
  const std::string pattern = text.substr(0, cut), name = text.substr(cut + 1);
  const bool match = wildcard_match(pattern, name);
  const bool small = pattern.size() < 12 && name.size() < 12 && text.find('\0') == std::string::npos;
  if (small && match != matches(pattern.c_str(), name.c_str())) std::abort();
}

void try_file(int kind, const std::string& name) {
  FileList list;
  std::vector<std::string> lines;
  std::vector<xyz> bore;
  std::vector<int> map;
  Calib calib;
  Mount mount;
  chShift shift;
  switch (kind) {
    case 0:
      (void)update_file_list_lof(list, {}, name, 1, true, {"/nowhere", "/nowhere/"});
      break;
    case 1:
      if (read_list_file(name, lines) && read_bore_file(lines, name, 3, "file", "", bore) && bore.size() != 3)
        std::abort();
      break;
    case 2:
      if (read_list_file(name, lines) && read_map_file(lines, name, 4, "file", "", map))
        for (const int channel : map)
          if (channel < 0 || channel > 4) std::abort();
      break;
    case 3:
      (void)calib.read_file(name);
      break;
    case 4:
      (void)mount.read_file(name);
      break;
    default:
      (void)shift.read_file(name);
  }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t nbytes) {
  if (nbytes < 1) return 0;
  set_console(false);
  const int kind = bytes[0] % 7;
  if (kind == 6) {
    try_pattern(std::string(bytes + 1, bytes + nbytes));
    return 0;
  }
  const std::string name = fuzz_file(bytes + 1, nbytes - 1, ".lst");
  try_file(kind, name);
  unlink(name.c_str());
  return 0;
}
}  // namespace veld

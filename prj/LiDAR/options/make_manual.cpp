// make_manual: writes the man page and the completion of the option table; run by the build.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "prj/LiDAR/options/manual.h"

namespace veld {
namespace {
bool write_text(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  file.close();
  if (file) return true;
  std::fprintf(stderr, "ERROR: could not write file %s\n", path.c_str());
  return false;
}
}  // namespace
}  // namespace veld

using namespace veld;

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: make_manual MAN_PAGE BASH_COMPLETION\n");
    return EXIT_FAILURE;
  }
  return write_text(argv[1], man_page_text()) && write_text(argv[2], bash_completion_text()) ? EXIT_SUCCESS
                                                                                             : EXIT_FAILURE;
}

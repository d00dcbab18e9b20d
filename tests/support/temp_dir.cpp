#include "tests/support/temp_dir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace veld {
TempDir::TempDir() {
  std::string name = (std::filesystem::temp_directory_path() / "veld_test_XXXXXX").string();
  if (!mkdtemp(name.data())) std::abort();
  path = name;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

std::string read_text(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void write_text(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

bool exists(const std::string& path) { return std::filesystem::exists(path); }
}  // namespace veld

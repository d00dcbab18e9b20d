// tests/support/temp_dir.h
// A temporary directory that is removed with everything in it, and whole-file helpers.
#pragma once
#include <string>

namespace veld {
struct TempDir {
  std::string path;  // without a trailing "/"
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
};

std::string read_text(const std::string& path);  // empty when the file is absent
void write_text(const std::string& path, const std::string& text);
bool exists(const std::string& path);
inline bool holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}
}  // namespace veld

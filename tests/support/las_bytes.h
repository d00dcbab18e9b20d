// tests/support/las_bytes.h
// Fields of files as bytes, changed behind the back of all readers and writers.
#pragma once
#include <cstdint>
#include <functional>

#include "tests/support/temp_dir.h"

namespace veld {
template <typename T>
T peek(const std::string& bytes, size_t at) {
  T value{};
  bytes.copy(reinterpret_cast<char*>(&value), sizeof value, at);
  return value;
}
template <typename T>
void poke(std::string& bytes, size_t at, T value) {
  bytes.replace(at, sizeof value, reinterpret_cast<const char*>(&value), sizeof value);
}
inline void change_file(const std::string& path, const std::function<void(std::string& bytes)>& change) {
  std::string bytes = read_text(path);
  change(bytes);
  write_text(path, bytes);
}

// Changes each raw point record of a LAS file, which begins at `at`.
inline void change_points(std::string& las, const std::function<void(std::string& las, size_t at)>& change) {
  const size_t length = peek<uint16_t>(las, 105);
  for (size_t at = peek<uint32_t>(las, 96); at + length <= las.size(); at += length) change(las, at);
}
// Moves all points along an axis (0 x, 1 y, 2 z) by the header of the file: offset and box.
inline void move_las(std::string& las, size_t axis, double by) {
  for (const size_t at : {155 + 8 * axis, 179 + 16 * axis, 187 + 16 * axis})
    poke(las, at, peek<double>(las, at) + by);
}
}  // namespace veld

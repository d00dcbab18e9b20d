// lib/general/posfile.h
// A file that is read at given places, by any number of threads at once: one descriptor from open to close.
#pragma once
#include <cstdint>
#include <string>

namespace veld {
class PosFileIn {
 public:
  PosFileIn() = default;
  ~PosFileIn() { close(); }
  PosFileIn(PosFileIn&& other) noexcept;
  PosFileIn& operator=(PosFileIn&& other) noexcept;
  PosFileIn(const PosFileIn&) = delete;
  PosFileIn& operator=(const PosFileIn&) = delete;
  // False, after an ERROR line, when the file cannot be opened.
  [[nodiscard]] bool open(const std::string& name);
  void close();
  bool is_open() const { return fd_ >= 0; }
  const std::string& name() const { return name_; }
  uint64_t size() const { return size_; }  // bytes, when it was opened
  // n bytes at an offset. False after an ERROR line; the end of the file within them is one, too.
  [[nodiscard]] bool read(uint64_t offset, void* dest, uint64_t n) const;

 private:
  int fd_ = -1;
  uint64_t size_ = 0;
  std::string name_;
};
}  // namespace veld

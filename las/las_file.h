// las/las_file.h
// A point file open for reading, shared by the parts of a reader; and the list of files that are open, so
// that no writer overwrites a source.
#pragma once
#include <cstdint>
#include <string>

namespace veld {
class LasInFile {
 public:
  LasInFile() = default;
  ~LasInFile();
  LasInFile(const LasInFile&) = delete;
  LasInFile& operator=(const LasInFile&) = delete;

  // Opens a regular file. False with the cause in `error`.
  [[nodiscard]] bool open(const std::string& name, std::string& error);
  // Reads n bytes at an absolute position; false when they can't be had. Any thread may call it.
  [[nodiscard]] bool read_at(uint64_t offset, void* to, uint64_t n) const;
  // Reads up to n bytes; fewer at the end of the file. -1 on failure.
  int64_t read_some(uint64_t offset, void* to, uint64_t n) const;
  uint64_t size() const { return size_; }
  const std::string& name() const { return name_; }

 private:
  int fd_ = -1;
  uint64_t size_ = 0;
  uint64_t device_ = 0, inode_ = 0;
  std::string name_;
};

// Is this path, links resolved, a file that some reader has open?
bool las_is_open_for_reading(const std::string& path);
}  // namespace veld

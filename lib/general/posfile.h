// lib/general/posfile.h
// A file that is read at given places, by any number of threads at once: one descriptor from open to close.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lib/general/checksum.h"

namespace veld {
class PosFileIn {
 public:
  explicit PosFileIn(bool report = true) : report_(report) {}  // report: failures are ERROR lines
  ~PosFileIn() { close(); }
  PosFileIn(PosFileIn&& other) noexcept;
  PosFileIn& operator=(PosFileIn&& other) noexcept;
  PosFileIn(const PosFileIn&) = delete;
  PosFileIn& operator=(const PosFileIn&) = delete;
  // False when the file cannot be opened.
  [[nodiscard]] bool open(const std::string& name);
  // The same for a file with checksums: what is read is compared with them. False also when it has another size.
  [[nodiscard]] bool open(const std::string& name, BlockSums&& blocks);
  void report() { report_ = true; }  // from now on
  // Reports a file that is not to be opened as one that could not. Always false.
  bool refuse(const std::string& name, const std::string& cause);
  void close();
  bool is_open() const { return fd_ >= 0; }
  const std::string& name() const { return name_; }
  uint64_t size() const { return size_; }  // bytes, when it was opened
  // n bytes at an offset. False when they cannot be read, the file ends within them, or a block that they touch
  // does not match its checksum.
  [[nodiscard]] bool read(uint64_t offset, void* dest, uint64_t n) const;
  // What was wrong at the last failed read of this thread, with the name of the file.
  static const std::string& fault();

 private:
  bool report_;
  int fd_ = -1;
  uint64_t size_ = 0;
  std::string name_;
  bool summed_ = false;
  BlockSums blocks_;
  bool fail(const char* what, const std::string& cause) const;
  bool read_plain(uint64_t offset, char* to, uint64_t n) const;
  bool read_summed(uint64_t offset, char* to, uint64_t n) const;
};

// Reads such a file from its start onwards through a buffer.
class PosReader {
 public:
  explicit PosReader(const PosFileIn& file, uint64_t bsize = 0x40000) : file_(file), buffer_(bsize) {}
  [[nodiscard]] bool read(void* dest, uint64_t n);
  uint64_t left() const { return file_.size() - at_ + (valid_ - pos_); }  // bytes up to the end

 private:
  const PosFileIn& file_;
  std::vector<char> buffer_;
  uint64_t at_ = 0;  // where the next read from the file begins
  uint64_t pos_ = 0, valid_ = 0;
};
}  // namespace veld

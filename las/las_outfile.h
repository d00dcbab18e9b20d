// las/las_outfile.h
// A file under construction: name + ".part" until it is whole, then renamed; removed when it is given up.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lib/general/result_file.h"

namespace veld {
class LasOutFile {
 public:
  LasOutFile() = default;
  ~LasOutFile() { discard(); }
  LasOutFile(const LasOutFile&) = delete;
  LasOutFile& operator=(const LasOutFile&) = delete;

  // Refuses a name that is a file open for reading or one of the sources. False with the cause in `error`.
  [[nodiscard]] bool open(const std::string& name, const std::vector<std::string>& sources,
                          std::string& error);
  // Appends. Each failure leaves its cause in error(); the first one stays.
  [[nodiscard]] bool append(const void* from, uint64_t n);
  // Overwrites n bytes that were appended before.
  [[nodiscard]] bool patch(uint64_t offset, const void* from, uint64_t n);
  uint64_t position() const { return written_ + buffer_.size(); }
  // Writes what is pending, closes, renames.
  [[nodiscard]] bool finish();
  void discard();
  const std::string& name() const { return name_; }
  const std::string& error() const { return error_; }

 private:
  bool flush();
  bool write_at(uint64_t offset, const uint8_t* from, uint64_t n);
  bool fail(const std::string& what);
  int fd_ = -1;
  uint64_t written_ = 0;
  std::vector<uint8_t> buffer_;
  std::string name_, error_;
  ResultFile result_{false};  // its failures are reported by error()
};
}  // namespace veld

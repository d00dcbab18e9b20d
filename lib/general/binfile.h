// lib/general/binfile.h
// Buffered binary files. The output class holds no descriptor between flushes, so that thousands of tile
// files may be open at once; the input class holds its descriptor from open to close.
// Every routine returns false on failure; an ERROR line is written only when the reporting flag is on.
#pragma once
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace veld {
constexpr uint64_t BULK_BUFFER = 262144;  // bytes, for bulk work

class BufBinFileOut {
 public:
  // bsize: buffer bytes, 0 for none. buffer: the caller's own of that size, or none for one of ours.
  explicit BufBinFileOut(uint64_t bsize, bool report = true, char* buffer = nullptr);
  ~BufBinFileOut();
  BufBinFileOut(const BufBinFileOut&) = delete;
  BufBinFileOut& operator=(const BufBinFileOut&) = delete;
  [[nodiscard]] bool open(const std::string& name, int mode);  // 0 create (empties the file), 1 append
  [[nodiscard]] bool write(const void* src, uint64_t n);
  [[nodiscard]] bool close();  // flushes; a file that is not open closes with success
  bool is_open() const { return open_; }
  const std::string& name() const { return name_; }

 private:
  char* buf_ = nullptr;
  uint64_t n_ = 0;
  uint64_t bsize_ = 0;
  bool own_ = false;
  bool report_ = true;
  bool open_ = false;
  std::string name_;
  std::ofstream fs_;
  bool flush();
  bool append(const char* src, uint64_t n);
};

class BufBinFileIn {
 public:
  explicit BufBinFileIn(uint64_t bsize, bool report = true, char* buffer = nullptr);
  ~BufBinFileIn();
  BufBinFileIn(const BufBinFileIn&) = delete;
  BufBinFileIn& operator=(const BufBinFileIn&) = delete;
  [[nodiscard]] bool open(const std::string& name);
  bool close();
  [[nodiscard]] bool read(void* dest, uint64_t n);  // false on end of data (silent) and on failure (reported)
  [[nodiscard]] bool seek(uint64_t pos);            // absolute; drops the buffer
  int64_t get_size();                               // of the opened name, by stat; -1 when absent

 private:
  char* buf_ = nullptr;
  uint64_t pos_ = 0;
  uint64_t valid_ = 0;
  uint64_t bsize_ = 0;
  bool own_ = false;
  bool report_ = true;
  std::string name_;
  std::ifstream fs_;
};
}  // namespace veld

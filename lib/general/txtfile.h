// lib/general/txtfile.h
// Text files with uniform error messages. The stream of an output file is fixed with 3 decimals.
#pragma once
#include <fstream>
#include <string>

namespace veld {
class TxtFileIn {
 public:
  TxtFileIn(const std::string& name, bool report);  // opens at construction
  explicit TxtFileIn(bool report) : report_(report) {}
  [[nodiscard]] bool open(const std::string& name);
  bool is_open() const { return fs.is_open(); }
  // False at the end of the file (silent) and on failure (reported). Strips a trailing carriage return.
  bool getline(std::string& line);
  bool close();
  std::ifstream fs;

 private:
  bool report_ = true;
  std::string name_;
};

class TxtFileOut {
 public:
  explicit TxtFileOut(bool report) : report_(report) {}
  [[nodiscard]] bool open(const std::string& name, int mode);  // 0 create, 1 append
  [[nodiscard]] bool close();                                  // false if any write failed
  std::ofstream fs;

 private:
  bool report_ = true;
  std::string name_;
};
}  // namespace veld

// lib/general/timing.h
// Elapsed time of a stage in the form of the log: hh:mm:ss (n s).
#pragma once
#include <chrono>
#include <string>

namespace veld {
class Stopwatch {
 public:
  Stopwatch() : start_(std::chrono::steady_clock::now()) {}
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }
  // "hh:mm:ss (n s)", hours of at least two digits and not wrapped.
  std::string text() const;

 private:
  std::chrono::steady_clock::time_point start_;
};

std::string hms_text(double seconds);  // "hh:mm:ss", rounded to whole seconds
}  // namespace veld

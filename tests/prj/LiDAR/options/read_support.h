// tests/prj/LiDAR/options/read_support.h
// Options of a command line, and what its reading said.
#pragma once
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lib/general/logfiles.h"
#include "prj/LiDAR/inputs/read_options.h"
#include "tests/support/args.h"

namespace veld {
struct ReadResult {
  CommandLine cl;
  bool ok = false;
  std::string errors;
};

inline void read_into(ReadResult& r, const Args& args) {
  for (const std::string& arg : args) r.cl.parser.args.push_back({arg, false});
  testing::internal::CaptureStderr();
  r.ok = read_options(r.cl);
  set_console(true);
  r.errors = testing::internal::GetCapturedStderr();
}

// The text that a call writes to standard error.
template <typename F>
std::string errors_of(F&& call) {
  testing::internal::CaptureStderr();
  call();
  return testing::internal::GetCapturedStderr();
}
}  // namespace veld

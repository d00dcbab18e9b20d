// tests/lib/optparser/opt_support.h
// A parser with the arguments of a command line, and what went to standard error.
#pragma once
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lib/optparser/optparser.h"

namespace veld {
inline OptParser make_parser(const std::vector<std::string>& args) {
  OptParser p;
  for (const std::string& arg : args) p.args.push_back({arg, false});
  return p;
}

struct StdErr {
  StdErr() { testing::internal::CaptureStderr(); }
  std::string text() { return testing::internal::GetCapturedStderr(); }
};
}  // namespace veld

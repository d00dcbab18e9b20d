// tests/lib/general/log_capture.h
// Logs in a temporary directory for the length of a test.
#pragma once
#include <string>

#include "lib/general/logfiles.h"
#include "tests/support/temp_dir.h"

namespace veld {
struct LogCapture {
  TempDir dir;
  std::string base = dir.path + "/prog";
  LogCapture() { open_logs(base, "prog", base, "none"); }
  ~LogCapture() { close(); }
  void close(int code = 0) {
    if (open) end_logs("", false, false, code);
    open = false;
  }
  // The main log's text; the logs are closed by it.
  std::string main_text() {
    close();
    return read_text(base + ".log");
  }
  std::string back_text() {
    close();
    return read_text(base + "_b.log");
  }
  bool open = true;
};

}  // namespace veld

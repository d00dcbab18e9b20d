#include "lib/general/progress.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <optional>

#include "lib/general/assert_fail.h"
#include "lib/general/log_internal.h"
#include "lib/general/path.h"
#include "lib/general/timing.h"

namespace veld {
namespace {
constexpr int BAR_WIDTH = 25;
constexpr int PROG_FILE_READ = 256;  // bytes of the progress file that its end keeps

// Guarded by the log mutex, since bars and messages share the console.
ProgressMode mode = ProgressMode::console;
int total = 0;
bool started = false;
std::optional<Stopwatch> watch;  // since the start of the stage
size_t last_length = 0;          // of the pending line's text: a shorter one must cover it

void write_file(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (file) file.write(text.data(), static_cast<std::streamsize>(text.size()));
}

// Units done, time passed and an estimate of what remains, by the mean time of a unit; nothing in a stage
// that has just begun.
std::string state_text(int i) {
  if (!watch) return "";
  const double elapsed = watch->seconds();
  if (elapsed < 1.0) return "";
  std::string text = " | " + std::to_string(i) + "/" + std::to_string(total) + " | " + hms_text(elapsed);
  if (i > 0) text += ", left " + hms_text(elapsed / i * (total - i));
  return text;
}

// A front end takes the "d" as 100 and as the end.
void end_file(const std::string& path) {
  const int64_t size = file_size(path);
  if (size < 1) return;
  std::string text(static_cast<size_t>(std::min<int64_t>(size, PROG_FILE_READ)), '\0');
  {
    std::ifstream file(path, std::ios::binary);
    if (!file.read(text.data(), static_cast<std::streamsize>(text.size()))) return;
  }
  text[0] = 'd';
  write_file(path, text);
}
}  // namespace

void set_progress_mode(ProgressMode new_mode) {
  const LogLock lock;
  mode = new_mode;
}

void progress_start(int ntotal) {
  ASSERT(ntotal > 0);
  const LogLock lock;
  total = ntotal;
  started = true;
  watch.emplace();
  last_length = 0;
}

void progress_step(int i, const std::string& text) {
  const LogLock lock;
  LogState& log = log_state();
  i = std::clamp(i, 0, total);
  const int width = started ? BAR_WIDTH : 0;
  const int64_t n = std::max(total, 1);
  const int stars = static_cast<int>(width * static_cast<int64_t>(i) / n);
  const int percent = static_cast<int>(100 * static_cast<int64_t>(i) / n);
  std::string line = text + state_text(i);
  if (mode == ProgressMode::console && log.console) {
    const size_t length = line.size();
    if (log.progress_pending && length < last_length) line.append(last_length - length, ' ');
    last_length = length;
    std::printf("[%s%s] %3d%% ", std::string(stars, '*').c_str(), std::string(width - stars, '-').c_str(),
                percent);
    log.progress_pending = true;
    std::printf("%s\r", line.c_str());
    std::fflush(stdout);
  } else if (mode == ProgressMode::file && !log.prog_path.empty()) {
    write_file(log.prog_path, static_cast<char>(percent) + line);
  }
}

void progress_end(const std::string& text) {
  const LogLock lock;
  LogState& log = log_state();
  if (mode == ProgressMode::console && log.console) {
    std::string line = (text.empty() || text[0] == ' ' ? "" : " ") + text;
    if (log.progress_pending && line.size() < last_length + 1) line.resize(last_length + 1, ' ');
    std::printf("[%s] 100%%%s\n", std::string(BAR_WIDTH, '*').c_str(), line.c_str());
    std::fflush(stdout);
  } else if (mode == ProgressMode::file && !log.prog_path.empty()) {
    end_file(log.prog_path);
  }
  log.progress_pending = false;
  started = false;
  watch.reset();
  total = 0;
}
}  // namespace veld

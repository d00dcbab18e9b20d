#include "lib/general/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

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
constexpr int USUAL_COLUMNS = 80;    // of a terminal that does not say
constexpr int TENTHS = 10;

// Guarded by the log mutex, since bars and messages share the console.
ProgressMode mode = ProgressMode::console;
int total = 0;
bool started = false;
std::optional<Stopwatch> watch;  // since the start of the stage
size_t last_length = 0;          // of the pending line's text: a shorter one must cover it
int given_columns = ASK_TERMINAL;
int columns = 0;      // of the terminal, 0: none
int last_tenth = -1;  // shown without a terminal

int ask_columns() {
  if (given_columns != ASK_TERMINAL) return given_columns;
  if (!isatty(STDOUT_FILENO)) return 0;
  struct winsize size = {};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : USUAL_COLUMNS;
}

// One column stays free: a full line makes some terminals begin the next.
void fit_line(std::string& line, size_t taken) {
  const size_t width = static_cast<size_t>(std::max(columns - 1, 0));
  line.resize(std::min(line.size(), width > taken ? width - taken : 0));
}

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

void set_progress_columns(int new_columns) {
  const LogLock lock;
  given_columns = new_columns;
}

void progress_start(int ntotal) {
  ASSERT(ntotal > 0);
  const LogLock lock;
  total = ntotal;
  started = true;
  watch.emplace();
  last_length = 0;
  last_tenth = -1;
  columns = ask_columns();
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
  if (mode == ProgressMode::console && log.console && log.nquiet == 0) {
    const int tenth = static_cast<int>(TENTHS * static_cast<int64_t>(i) / n);
    if (columns == 0 && (tenth <= last_tenth || tenth == TENTHS)) return;  // the end writes the last
    last_tenth = tenth;
    char bar[BAR_WIDTH + 16];
    const int taken = std::snprintf(bar, sizeof bar, "[%s%s] %3d%% ", std::string(stars, '*').c_str(),
                                    std::string(width - stars, '-').c_str(), percent);
    if (columns == 0) {
      std::printf("%s%s\n", bar, line.c_str());
    } else {
      fit_line(line, static_cast<size_t>(taken));
      const size_t length = line.size();
      if (log.progress_pending && length < last_length) line.append(last_length - length, ' ');
      last_length = length;
      log.progress_pending = true;
      std::printf("%s%s\r", bar, line.c_str());
    }
    std::fflush(stdout);
  } else if (mode == ProgressMode::file && !log.prog_path.empty()) {
    write_file(log.prog_path, static_cast<char>(percent) + line);
  }
}

void progress_end(const std::string& text) {
  const LogLock lock;
  LogState& log = log_state();
  if (mode == ProgressMode::console && log.console && log.nquiet == 0) {
    std::string line = (text.empty() || text[0] == ' ' ? "" : " ") + text;
    const std::string whole = line;
    if (columns > 0) fit_line(line, BAR_WIDTH + 7);
    const bool fits = line.size() == whole.size();
    if (!fits) line.clear();  // the result gets a line of its own
    if (log.progress_pending && line.size() < last_length + 1) line.resize(last_length + 1, ' ');
    std::printf("[%s] 100%%%s\n", std::string(BAR_WIDTH, '*').c_str(), line.c_str());
    if (!fits) std::printf("%s\n", whole.c_str() + 1);
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

#include "lib/general/logfiles.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "lib/general/filelist.h"
#include "lib/general/log.h"
#include "lib/general/log_internal.h"
#include "lib/general/path.h"

namespace veld {
namespace {
constexpr size_t MAX_PATH_BYTES = 4096;
constexpr int MAX_SAME_SECOND = 10000;  // logs of one second that get names of their own

void log_deleted(const std::string& pattern, uint64_t nfiles, uint64_t nbytes) {
  LOG_LINE("Deleted " << pattern << " " << nfiles << " files, " << static_cast<float>(nbytes) * 9.536743e-7f
                      << " Mb");
}

std::string date_text() {
  const time_t now = std::time(nullptr);
  struct tm parts;
  char text[64];
  return localtime_r(&now, &parts) && asctime_r(&parts, text) ? text : "\n";  // ends with a line end
}

std::string real_time_text(const LogState& log) {
  const long long s = static_cast<long long>(std::difftime(std::time(nullptr), log.time_start));
  char text[96];
  std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld (%lld s) ", s / 3600, s / 60 % 60, s % 60, s);
  return text;
}

std::string total_time_text(const LogState& log) {
  const float clock_s = static_cast<float>(static_cast<double>(std::clock() - log.clock_start) * 1e-6);
  const long long hundredths = static_cast<long long>(clock_s * 100.0f);
  const long long s = hundredths / 100;
  char text[160];
  std::snprintf(text, sizeof text, "TOTAL TIME: Clock=%02lld:%02lld:%02lld.%lld (%.3f s) - Real=", s / 3600,
                s / 60 % 60, s % 60, hundredths % 100, static_cast<double>(clock_s));
  return text + real_time_text(log);
}

void open_log(std::ofstream& file, const std::string& path) {
  file.open(path, std::ios::out | std::ios::trunc);
  if (!file) std::fprintf(stderr, "ERROR: failed to open log file '%s' \n", path.c_str());
}

// After a crash the memory of a stream may not be given back: another thread may hold the lock of it for ever.
void close_log(const LogState& log, std::ofstream& file) {
  if (log.crashed)
    file.flush();
  else
    file.close();
}

// Copies a log of this run. One of an earlier run stays beside it under its time.
void copy_log(const std::string& path, const std::string& outdir, const std::string& base) {
  const std::string copy = change_directory(path, outdir);
  if (same_file(path, copy)) return;
  std::string renamed;
  rename_by_time(copy, renamed);
  if (!copy_file(path, copy, false))  // the log is closed: one line on the console reports it
    std::fprintf(stderr, "WARNING: failed to copy logs to output directory, see %s*.log\n", base.c_str());
}

// What stands between the stem of the logs and the process number in the logs of a run that has its own.
std::string own_ending() { return "_mul_" + host_name() + "_"; }

// Deletes the logs of runs of this machine that had their own and have ended.
void delete_own_logs(const std::string& stem) {
  const std::string start = stem + own_ending();
  std::vector<std::string> files;
  if (!match_files(start + "*.log", files)) return;
  uint64_t nfiles = 0, nbytes = 0;
  for (const std::string& file : files) {
    const long process = std::strtol(file.c_str() + start.size(), nullptr, 10);
    if (process > 0 && kill(static_cast<pid_t>(process), 0) != 0 && errno == ESRCH)
      delete_files(file, nfiles, nbytes);
  }
  if (nfiles > 0) log_deleted(start + "*.log", nfiles, nbytes);
}

// Gives a file a name that no other has. False also when the name is taken.
bool rename_to_free(const std::string& from, const std::string& to) {
  if (link(from.c_str(), to.c_str()) == 0) return unlink(from.c_str()) == 0;
  // A file system without hard links.
  return errno != EEXIST && file_mode(to) < 0 && std::rename(from.c_str(), to.c_str()) == 0;
}
}  // namespace

void open_logs(const std::string& stem, const std::string& program, const std::string& execpath,
               const std::string& defaults, bool own_logs) {
  const std::string base = own_logs ? stem + own_ending() + std::to_string(getpid()) : stem;
  std::string renamed, dir;
  const bool was_renamed = rename_by_time(base + ".log", renamed);
  std::string renamed_back;
  rename_by_time(base + "_b.log", renamed_back);
  if (!current_directory(dir)) dir = std::string(1, '.');

  const LogLock lock;
  LogState& log = log_state();
  log.base = base;
  log.stem = stem;
  open_log(log.main_log, base + ".log");
  log.clock_start = std::clock();
  log.time_start = std::time(nullptr);
  log.main_log << std::fixed << "Log started: " << date_text() << "Running " << program << ":\n"
               << "execpath \"" << execpath << "\"\n"
               << "dir \"" << dir << "\"\n"
               << "Default " << defaults << '\n';
  if (!log.lock_note.empty()) log.main_log << log.lock_note << '\n';
  if (was_renamed) log.main_log << "Renamed existing " << base_name(base) << ".log using timestamp\n";
  open_log(log.back_log, base + "_b.log");
  log.back_log << "[background thread log]\n";
  log_files_open = log.main_log.is_open() || log.back_log.is_open();
}

void end_logs(const std::string& outdir, bool copy, bool clear_old, int code) {
  LogState& log = log_state();
  if (clear_old && !log.stem.empty()) {
    for (const char* const pattern : {".*.log", "_b.*.log"}) delete_and_log(log.stem + pattern);
    delete_own_logs(log.stem);
  }

  std::string time_text;
  const bool were_open = log_files_open.exchange(false);
  {
    const LogLock lock;
    time_text = total_time_text(log);
    log.main_log << "EXIT=" << (code == 0 ? "OK" : "FAIL") << '\n'
                 << time_text << '\n'
                 << "Log ended: " << date_text();
    close_log(log, log.main_log);
  }
  const bool do_copy = were_open && copy && !outdir.empty();
  if (do_copy) copy_log(log.base + ".log", outdir, log.base);
  {
    const LogLock lock;
    if (log.crashed) log.back_log << '\n';  // its last line may have been cut off
    log.back_log << "EXIT_CODE=" << code << '\n' << time_text << '\n';
    close_log(log, log.back_log);
  }
  if (do_copy) copy_log(log.base + "_b.log", outdir, log.base);

  const LogLock lock;
  if (were_open) console_text("TOTAL PROCESSING TIME: " + real_time_text(log) + "\n", false);
  if (!log.lock_path.empty()) unlink(log.lock_path.c_str());
  log.lock_path.clear();
}

void flush_logs_at_once() {
  const LogLock lock;
  LogState& log = log_state();
  for (std::ofstream* const file : {&log.main_log, &log.back_log}) *file << std::flush << std::unitbuf;
}

void set_console(bool on) {
  const LogLock lock;
  log_state().console = on;
}

bool console_on() {
  const LogLock lock;
  return log_state().console;
}

void set_progress_file(const std::string& path) {
  const LogLock lock;
  log_state().prog_path = path;
}

bool rename_by_time(const std::string& path, std::string& renamed) {
  struct stat info;
  struct tm parts;
  if (stat(path.c_str(), &info) != 0 || !localtime_r(&info.st_mtime, &parts)) return false;
  char text[32];
  std::snprintf(text, sizeof text, ".%02d%02d%02d-%02d%02d%02d", parts.tm_year % 100, parts.tm_mon + 1,
                parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
  const std::string stem = change_extension(path, "") + text, ext = get_extension(path);
  for (int n = 1; n <= MAX_SAME_SECOND; n++) {
    renamed = stem + (n > 1 ? "-" + std::to_string(n) : "") + ext;
    if (renamed.size() >= MAX_PATH_BYTES) return false;
    if (rename_to_free(path, renamed)) return true;
    if (file_mode(renamed) < 0) return false;  // it is not the name that failed
  }
  return false;
}

void delete_and_log(const std::string& pattern) {
  uint64_t nfiles = 0, nbytes = 0;
  if (delete_files(pattern, nfiles, nbytes)) log_deleted(pattern, nfiles, nbytes);
}
}  // namespace veld

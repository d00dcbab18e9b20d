// lib/general/logfiles.h
// The two log files and the instance lock from start to exit.
// Here:     taking the lock, opening and renaming the logs, the exit procedure, the console switch.
// Not here: writing lines (log.h), signals (crash.h).
#pragma once
#include <string>

namespace veld {
// Takes the instance lock, base + ".lock", which holds process, its start and host. A lock whose process has
// ended on this host is taken over, with a WARNING that open_logs() repeats in the log. False when the file is
// there already or cannot be created, with report after a text on standard error; no log is open at that time.
[[nodiscard]] bool take_lock(const std::string& base, const std::string& program, bool report = true);

// Opens base + ".log" and base + "_b.log", or with own_logs base + "_mul_<host>_<process>.log" and
// "_mul_<host>_<process>_b.log", so that runs side by side do not share them. Logs of these names are first renamed by their time. Writes the
// first lines of the main log: start, program, paths, then `defaults`, one line of default values. A log that
// cannot be opened is reported on standard error, and the run goes on without it.
void open_logs(const std::string& base, const std::string& program, const std::string& execpath,
               const std::string& defaults, bool own_logs = false);

// The exit procedure: deletes old logs and those of ended processes (clear_old), writes the closing lines, copies the two logs to outdir
// (copy; an empty outdir copies nothing; logs of these names there are first renamed by their time), closes
// them, and removes the lock. Code 0 is success.
void end_logs(const std::string& outdir, bool copy, bool clear_old, int code);

std::string host_name();    // of this machine
std::string own_host();     // the same, distinct from other containers of that name
std::string own_tag();      // own_host()-process, for the names of files that only this run uses
void flush_logs_at_once();  // both logs: flush now and after each line
void set_console(bool on);  // off: nothing but ERROR lines goes to the console
bool console_on();
void set_progress_file(const std::string& path);  // the file of ProgressMode::file

// Renames a file to "stem.yymmdd-hhmmss.ext" after its modification time, or to "stem.yymmdd-hhmmss-n.ext" with
// the first n from 2 that is free: no file is overwritten. True when a rename happened; renamed is then the new
// path.
bool rename_by_time(const std::string& path, std::string& renamed);

// Deletes by a guarded pattern and logs "Deleted <pattern> <n> files, <size> Mb".
void delete_and_log(const std::string& pattern);
}  // namespace veld

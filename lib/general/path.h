// lib/general/path.h
// Paths as strings, with "/" as the only separator, and the few facts of the file system that are needed.
#pragma once
#include <cstdint>
#include <string>

namespace veld {
std::string change_extension(const std::string& path, const std::string& ext);  // ext with its dot, or empty
std::string get_extension(const std::string& path);  // with its dot; empty when none
std::string change_directory(const std::string& path, const std::string& dir);
void split_path(const std::string& path, std::string& dir, std::string& name);  // dir keeps its "/"
std::string base_name(const std::string& path);
std::string with_slash(const std::string& dir);  // adds a trailing "/" unless empty or there
[[nodiscard]] bool current_directory(std::string& dir);
std::string add_input_directory(const std::string& path, const std::string& idir);

int64_t file_mode(const std::string& path);     // st_mode; -1 when absent
bool is_regular_file(const std::string& path);  // a regular file, or a link to one
bool is_directory(const std::string& path);
int64_t file_size(const std::string& path);  // bytes; -1 when absent
// Tells a file from another that takes its name: place and time of change. All 0 when absent.
struct FileStamp {
  uint64_t device = 0, inode = 0;
  int64_t ns = 0;
  bool operator==(const FileStamp&) const = default;
};
FileStamp file_stamp(const std::string& path);
int64_t file_mtime(const std::string& path);                 // modification time in seconds; -1 when absent
bool same_file(const std::string& a, const std::string& b);  // same device and inode, both existing
// Whether the file system takes a file name and a path of this length; the directory must exist.
bool name_fits(const std::string& path);
std::string real_path(const std::string& path);  // unchanged when it cannot be resolved
bool remove_file(const std::string& path);
// Waits until the content of a file is on the disk, so that a name given behind it never stands for less. False with
// errno when it cannot get there; a file system that knows no such order is no failure.
[[nodiscard]] bool sync_file(int fd);
[[nodiscard]] bool sync_file(const std::string& path);
bool rename_file(const std::string& from, const std::string& to);
// The same for a result that was written beside its final name; an ERROR line says why it failed.
[[nodiscard]] bool publish_file(const std::string& part, const std::string& name);
// Deletes by pattern or name. Refuses an empty pattern and one that ends in "*" (WARNING). Adds to the counts.
bool delete_files(const std::string& pattern, uint64_t& nfiles, uint64_t& nbytes);
// "?" is one character, "*" any number of them; case counts. More than 256 characters: ERROR and false.
bool wildcard_match(const std::string& pattern, const std::string& text);
}  // namespace veld

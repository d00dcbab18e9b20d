#include "lib/general/filelist.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "lib/general/binfile.h"
#include "lib/general/log.h"
#include "lib/general/logfiles.h"
#include "lib/general/path.h"
#include "lib/general/result_file.h"
#include "lib/general/txtfile.h"

namespace veld {
namespace {
// The path with the links of its directory resolved, but not that of the name itself.
std::string place_of(const std::string& path) {
  std::string dir, name;
  split_path(path, dir, name);
  return with_slash(real_path(dir.empty() ? "." : dir)) + name;
}

// What identifies a file: device and inode; the place of one that does not exist.
std::string file_key(const std::string& path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0) return place_of(path);
  return std::to_string(info.st_dev) + ":" + std::to_string(info.st_ino);
}

// A directory as messages show it.
std::string shown(const std::string& dir) { return dir.empty() ? "./" : dir; }

// Also true for a link that leads nowhere.
bool is_there(const std::string& path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0;
}

// What a path is that is no regular file.
std::string kind_of(const std::string& path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0)
    return errno == ENOENT || errno == ELOOP ? "a link to nothing"
                                             : std::string("unknown: ") + std::strerror(errno);
  switch (info.st_mode & S_IFMT) {
    case S_IFDIR:
      return "a directory";
    case S_IFIFO:
      return "a FIFO";
    case S_IFSOCK:
      return "a socket";
    default:
      return "a device";
  }
}

// One file that the user has named.
bool add_named_file(FileList& list, const FileList& excl, const std::string& path, int idx, bool dup_error) {
  std::string dir, name;
  split_path(path, dir, name);
  if (!is_regular_file(path)) {
    const bool brackets = name.find_first_of("[{") != std::string::npos;
    ERROR_MSG("could not find file " << path
                                     << (is_directory(path)
                                             ? ", it is " + kind_of(path) + ": give a pattern such as " +
                                                   with_slash(path) + "*"
                                         : is_there(path) ? ", it is " + kind_of(path)
                                         : brackets       ? ": patterns know * and ? only, no brackets"
                                                          : ""));
    return false;
  }
  if (excl.contains(path)) {
    ERROR_MSG("could not add file " << name << " in directory " << shown(dir) << " (excluded)");
    return false;
  }
  if (list.contains(path)) {
    if (dup_error) ERROR_MSG("duplicate file " << path);
    return !dup_error;
  }
  list.add(path, idx);
  return true;
}

bool touch(const std::string& path) {
  const int fd = open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  close(fd);
  return true;
}
}  // namespace

std::string FileList::listed_as(const std::string& path) const {
  const auto found = names_.find(file_key(path));
  return found == names_.end() ? std::string() : found->second;
}

void FileList::add(const std::string& path, int index) {
  name.push_back(path);
  idx.push_back(index);
  names_.emplace(file_key(path), path);
}

std::string expand_refdir(const std::string& path, const std::string& refdir) {
  if (refdir.empty() || path.empty() || path[0] != '$') return path;
  if (path.size() == 1) return refdir;
  return path[1] == '/' ? with_slash(refdir) + path.substr(2) : path;
}

std::string complete_path(const std::string& path, const PathRules& rules) {
  return add_input_directory(expand_refdir(path, rules.refdir), rules.idir);
}

bool has_wildcard(const std::string& name) { return name.find_first_of("*?") != std::string::npos; }

bool match_files(const std::string& pattern, std::vector<std::string>& files,
                 std::vector<std::string>* others) {
  std::string dir, name;
  split_path(pattern, dir, name);
  files.clear();
  if (others) others->clear();
  DIR* const handle = opendir(dir.empty() ? "." : dir.c_str());
  if (!handle) {
    ERROR_MSG("could not open directory " << (dir.empty() ? "." : dir) << ": " << std::strerror(errno));
    return false;
  }
  while (const dirent* const entry = readdir(handle)) {
    const std::string path = dir + entry->d_name;
    if (!wildcard_match(name, entry->d_name)) continue;
    if (is_regular_file(path))
      files.push_back(path);
    else if (others && std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
      others->push_back(path);
  }
  closedir(handle);
  std::sort(files.begin(), files.end());
  if (others) std::sort(others->begin(), others->end());
  return true;
}

bool update_file_list(FileList& list, const FileList& excl, const std::string& pattern, int idx,
                      bool dup_error, const PathRules& rules) {
  LOG_ENTER("update_file_list '" << pattern << "' idx=" << idx << " IL=0 DUP=" << dup_error
                                 << " flist.size()=" << list.size() << " excl.size()=" << excl.size());
  const std::string path = complete_path(pattern, rules);
  std::string dir, name;
  split_path(path, dir, name);
  if (!has_wildcard(name)) return add_named_file(list, excl, path, idx, dup_error);

  std::vector<std::string> files, others;
  if (!match_files(path, files, &others)) return false;
  for (const std::string& other : others)
    WARNING_MSG(other << " matches " << name << " but is " << kind_of(other) << ", passed over");
  if (files.empty()) {
    ERROR_MSG("no match for " << name << " in directory " << shown(dir)
                              << (name.find_first_of("[{") == std::string::npos
                                      ? ""
                                      : ": patterns know * and ? only, no brackets"));
    return false;
  }
  size_t nexcluded = 0, nadded = 0;
  bool good = true;
  for (const std::string& file : files) {
    const std::string listed = list.listed_as(file);
    if (excl.contains(file)) {
      nexcluded++;
    } else if (listed.empty()) {
      list.add(file, idx);
      nadded++;
    } else if (dup_error && place_of(listed) != place_of(file)) {
      ERROR_MSG("duplicate file " << file << " (another name of " << listed << ")");
      good = false;
    }
  }
  if (!good) return false;
  if (nexcluded == files.size()) {
    ERROR_MSG("no match for " << name << " in directory " << shown(dir) << " (all files were excluded)");
    return false;
  }
  if (nadded == 0 && dup_error) {
    ERROR_MSG("duplicate file " << files[0]);
    return false;
  }
  return true;
}

bool update_file_list_lof(FileList& list, const FileList& excl, const std::string& lof, int idx,
                          bool dup_error, const PathRules& rules, bool patterns) {
  LOG_ENTER("update_file_list '" << lof << "' idx=" << idx << " IL=1 DUP=" << dup_error
                                 << " flist.size()=" << list.size() << " excl.size()=" << excl.size());
  const std::string path = complete_path(lof, rules);
  TxtFileIn in(false);
  if (!is_regular_file(path) || !in.open(path)) {
    ERROR_MSG("could not find list of files " << lof);
    return false;
  }
  size_t nfound = 0;
  bool good = true;
  std::string line;
  while (in.getline(line)) {
    if (line.empty()) continue;
    nfound++;
    if (patterns && has_wildcard(line)) {
      if (!update_file_list(list, excl, line, idx, dup_error, rules)) good = false;
      continue;
    }
    const std::string file = complete_path(line, rules);
    if (excl.contains(file)) continue;  // a list may name more than is wanted
    if (!add_named_file(list, excl, file, idx, dup_error)) good = false;
  }
  if (nfound == 0) ERROR_MSG("no file found in list of files " << lof);
  return good && nfound > 0;
}

bool update_check_file(std::string& file, const PathRules& rules) {
  const std::string path = complete_path(file, rules);
  std::string dir, name;
  split_path(path, dir, name);
  if (!has_wildcard(name)) {
    if (!is_regular_file(path)) {
      ERROR_MSG("could not find file " << path);
      return false;
    }
    file = path;
    return true;
  }
  std::vector<std::string> files;
  if (!match_files(path, files)) return false;
  if (files.empty()) {
    ERROR_MSG("no match for " << name << " in " << shown(dir));
    return false;
  }
  if (files.size() > 1)
    WARNING_MSG("found " << files.size() << " matches for " << name << " in directory " << shown(dir)
                         << " - using " << base_name(files[0]));
  file = files[0];
  return true;
}

bool copy_file(const std::string& from, const std::string& to, bool report) {
  if (same_file(from, to)) return true;
  const int64_t size = file_size(from);
  BufBinFileIn in(BULK_BUFFER, report);
  if (!in.open(from)) return false;
  BinResultFile out(BULK_BUFFER, report);
  bool good = out.open(to);
  std::vector<char> block(BULK_BUFFER);
  for (int64_t left = size; good && left > 0;) {
    const uint64_t n = static_cast<uint64_t>(std::min<int64_t>(left, BULK_BUFFER));
    good = in.read(block.data(), n) && out.write(block.data(), n);
    left -= static_cast<int64_t>(n);
  }
  return good && out.commit();
}

bool dum_chk_dir_eq(const std::string& a, const std::string& b) {
  const std::string marker = "_dum_chk_dir_eq_" + own_tag();  // of another run it would prove nothing
  const std::string path = with_slash(a) + marker;
  if (!touch(path)) return false;
  const bool equal = file_mode(with_slash(b) + marker) >= 0;
  remove_file(path);
  return equal;
}

bool dir_writable(const std::string& dir) {
  const std::string path = with_slash(dir) + "_dum_chk_dir_w_p_" + own_tag();
  if (!is_directory(dir.empty() ? "." : dir) || !touch(path)) return false;
  remove_file(path);
  return true;
}

bool dir_readable(const std::string& dir) {
  return is_directory(dir.empty() ? "." : dir) && access(dir.empty() ? "." : dir.c_str(), R_OK | X_OK) == 0;
}
}  // namespace veld

#include "lib/general/path.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "lib/general/filelist.h"
#include "lib/general/log.h"

namespace veld {
namespace {
constexpr size_t MAX_INPUT_SIZE = 256;  // characters that the matcher takes

size_t name_start(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? 0 : slash + 1;
}
// Position of the extension's dot, or the length of the path.
size_t extension_start(const std::string& path) {
  const size_t dot = path.rfind('.');
  return dot == std::string::npos || dot < name_start(path) ? path.size() : dot;
}
bool get_stat(const std::string& path, struct stat& info) { return stat(path.c_str(), &info) == 0; }
}  // namespace

std::string change_extension(const std::string& path, const std::string& ext) {
  return path.substr(0, extension_start(path)) + ext;
}
std::string get_extension(const std::string& path) { return path.substr(extension_start(path)); }
std::string base_name(const std::string& path) { return path.substr(name_start(path)); }
std::string change_directory(const std::string& path, const std::string& dir) {
  return with_slash(dir) + base_name(path);
}
void split_path(const std::string& path, std::string& dir, std::string& name) {
  const size_t start = name_start(path);
  name = path.substr(start);
  dir = path.substr(0, start);
}
std::string with_slash(const std::string& dir) { return dir.empty() || dir.back() == '/' ? dir : dir + '/'; }

bool current_directory(std::string& dir) {
  char text[PATH_MAX];
  if (!getcwd(text, sizeof text)) return false;
  dir = with_slash(text);
  return true;
}

std::string add_input_directory(const std::string& path, const std::string& idir) {
  const bool absolute = path.rfind("/", 0) == 0 || path.rfind("./", 0) == 0 || path.rfind("../", 0) == 0 ||
                        (path.size() > 1 && path[1] == ':');
  return absolute ? path : with_slash(idir) + path;
}

int64_t file_mode(const std::string& path) {
  struct stat info;
  const bool strip = path.size() > 1 && path.back() == '/';
  return get_stat(strip ? path.substr(0, path.size() - 1) : path, info) ? static_cast<int64_t>(info.st_mode)
                                                                        : -1;
}
bool is_regular_file(const std::string& path) {
  struct stat info;
  return get_stat(path, info) && S_ISREG(info.st_mode);
}
bool is_directory(const std::string& path) {
  struct stat info;
  return get_stat(path, info) && S_ISDIR(info.st_mode);
}
int64_t file_size(const std::string& path) {
  struct stat info;
  return get_stat(path, info) ? static_cast<int64_t>(info.st_size) : -1;
}
FileStamp file_stamp(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return {};
  return {st.st_dev, st.st_ino, st.st_mtim.tv_sec * int64_t{1000000000} + st.st_mtim.tv_nsec};
}

int64_t file_mtime(const std::string& path) {
  struct stat info;
  return get_stat(path, info) ? static_cast<int64_t>(info.st_mtime) : -1;
}
bool same_file(const std::string& a, const std::string& b) {
  struct stat ia, ib;
  return get_stat(a, ia) && get_stat(b, ib) && ia.st_dev == ib.st_dev && ia.st_ino == ib.st_ino;
}
bool name_fits(const std::string& path) {
  std::string dir, name;
  split_path(path, dir, name);
  const long limit = pathconf(dir.empty() ? "." : dir.c_str(), _PC_NAME_MAX);
  return (limit < 0 || name.size() <= static_cast<size_t>(limit)) && path.size() < PATH_MAX;
}
std::string real_path(const std::string& path) {
  char* const text = realpath(path.c_str(), nullptr);
  const std::string result = text ? text : path;
  std::free(text);
  return result;
}
bool sync_file(int fd) {
  int result = 0;
  do result = fsync(fd);
  while (result != 0 && errno == EINTR);
  return result == 0 || errno == EINVAL || errno == EROFS || errno == ENOSYS || errno == ENOTSUP;
}
bool sync_file(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool ok = sync_file(fd);
  const int reason = errno;
  close(fd);
  errno = reason;
  return ok;
}
bool remove_file(const std::string& path) { return unlink(path.c_str()) == 0; }
bool rename_file(const std::string& from, const std::string& to) {
  return std::rename(from.c_str(), to.c_str()) == 0;
}

bool publish_file(const std::string& part, const std::string& name) {
  if (rename_file(part, name)) return true;
  ERROR_MSG("renaming failed, file='" << name << "': " << std::strerror(errno));
  return false;
}

bool delete_files(const std::string& pattern, uint64_t& nfiles, uint64_t& nbytes) {
  if (pattern.empty() || pattern.back() == '*') {
    WARNING_MSG("attempt to delete '" << pattern << "' blocked");
    return false;
  }
  std::vector<std::string> files;
  if (has_wildcard(pattern)) {
    if (!match_files(pattern, files)) return false;
  } else if (is_regular_file(pattern)) {
    files.push_back(pattern);
  }
  bool all = true;
  for (const std::string& file : files) {
    const int64_t size = file_size(file);
    if (!remove_file(file)) {
      all = false;
      continue;
    }
    nfiles++;
    if (size > 0) nbytes += static_cast<uint64_t>(size);
  }
  return all;
}

bool wildcard_match(const std::string& pattern, const std::string& text) {
  const size_t np = pattern.size(), nt = text.size();
  if (np > MAX_INPUT_SIZE || nt > MAX_INPUT_SIZE) {
    ERROR_MSG("MAX_INPUT_SIZE in wildcard_match");
    return false;
  }
  // row[i]: the pattern's tail from i matches the text's tail from j; next is the row of j + 1.
  bool row[MAX_INPUT_SIZE + 2] = {}, next[MAX_INPUT_SIZE + 2] = {};
  for (size_t j = nt + 1; j-- > 0;) {
    row[np] = j == nt;
    for (size_t i = np; i-- > 0;) {
      if (pattern[i] == '*')
        row[i] = row[i + 1] || (j < nt && next[i]);
      else
        row[i] = j < nt && (pattern[i] == '?' || pattern[i] == text[j]) && next[i + 1];
    }
    for (size_t i = 0; i <= np; i++) next[i] = row[i];
  }
  return row[0];
}
}  // namespace veld

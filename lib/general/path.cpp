#include "lib/general/path.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "lib/general/log.h"

namespace {
// Where the extension of the last component starts, dot included; the length of the path when there is none.
size_t extension_at(const std::string& path) {
  const size_t slash = path.rfind('/');
  const size_t dot = path.rfind('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return path.size();
  return dot;
}

bool stat_path(const std::string& path, struct stat& st) {
  std::string p = path;
  if (p.size() > 1 && p.back() == '/') p.pop_back();
  return stat(p.c_str(), &st) == 0;
}
}  // namespace

std::string change_extension(const std::string& path, const std::string& ext) {
  return path.substr(0, extension_at(path)) + ext;
}

std::string get_extension(const std::string& path) { return path.substr(extension_at(path)); }

void split_path(const std::string& path, std::string& dir, std::string& name) {
  const size_t slash = path.rfind('/');
  const size_t at = slash == std::string::npos ? 0 : slash + 1;
  const std::string whole = path;  // dir or name may be the argument itself
  dir = whole.substr(0, at);
  name = whole.substr(at);
}

std::string base_name(const std::string& path) {
  std::string dir, name;
  split_path(path, dir, name);
  return name;
}

std::string change_directory(const std::string& path, const std::string& dir) {
  return with_slash(dir) + base_name(path);
}

std::string with_slash(const std::string& dir) { return dir.empty() || dir.back() == '/' ? dir : dir + "/"; }

bool current_directory(std::string& dir) {
  char buffer[PATH_MAX];
  if (!getcwd(buffer, sizeof buffer)) return false;
  dir = with_slash(buffer);
  return true;
}

std::string add_input_directory(const std::string& path, const std::string& idir) {
  const std::string_view p = path;
  const bool stays =
      p.starts_with("/") || p.starts_with("./") || p.starts_with("../") || (p.size() > 1 && p[1] == ':');
  return stays ? path : idir + path;
}

int64_t file_mode(const std::string& path) {
  struct stat st;
  return stat_path(path, st) ? static_cast<int64_t>(st.st_mode) : -1;
}

bool is_regular_file(const std::string& path) {
  struct stat st;
  return stat_path(path, st) && S_ISREG(st.st_mode);
}

bool is_directory(const std::string& path) {
  struct stat st;
  return stat_path(path, st) && S_ISDIR(st.st_mode);
}

int64_t file_size(const std::string& path) {
  struct stat st;
  return stat_path(path, st) ? static_cast<int64_t>(st.st_size) : -1;
}

int64_t file_mtime(const std::string& path) {
  struct stat st;
  return stat_path(path, st) ? static_cast<int64_t>(st.st_mtime) : -1;
}

bool same_file(const std::string& a, const std::string& b) {
  struct stat sa, sb;
  return stat_path(a, sa) && stat_path(b, sb) && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

std::string real_path(const std::string& path) {
  char* resolved = realpath(path.c_str(), nullptr);
  if (!resolved) return path;
  const std::string result = resolved;
  std::free(resolved);
  return result;
}

bool remove_file(const std::string& path) { return unlink(path.c_str()) == 0; }

bool rename_file(const std::string& from, const std::string& to) {
  return std::rename(from.c_str(), to.c_str()) == 0;
}

bool delete_files(const std::string& pattern, uint64_t& nfiles, uint64_t& nbytes) {
  if (pattern.empty() || pattern.back() == '*') {
    WARNING_MSG("attempt to delete '" << pattern << "' blocked");
    return false;
  }
  std::string dir, name;
  split_path(pattern, dir, name);
  std::vector<std::string> found;
  if (name.find_first_of("*?") == std::string::npos) {
    if (is_regular_file(pattern)) found.push_back(pattern);
  } else if (DIR* d = opendir(dir.empty() ? "." : dir.c_str())) {
    while (const dirent* entry = readdir(d))
      if (wildcard_match(name, entry->d_name) && is_regular_file(dir + entry->d_name))
        found.push_back(dir + entry->d_name);
    closedir(d);
  }
  bool ok = true;
  for (const std::string& path : found) {
    const int64_t size = file_size(path);
    if (!remove_file(path)) {
      ok = false;
      continue;
    }
    nfiles++;
    nbytes += size > 0 ? static_cast<uint64_t>(size) : 0;
  }
  return ok;
}

bool wildcard_match(const std::string& pattern, const std::string& text) {
  constexpr size_t MAX_INPUT_SIZE = 256;
  static unsigned char table[MAX_INPUT_SIZE + 1][MAX_INPUT_SIZE + 1];  // [text tail][pattern tail]
  const size_t np = pattern.size(), nt = text.size();
  if (np > MAX_INPUT_SIZE || nt > MAX_INPUT_SIZE) {
    ERROR_MSG("MAX_INPUT_SIZE in wildcard_match");
    return false;
  }
  for (size_t j = nt + 1; j-- > 0;)
    for (size_t i = np + 1; i-- > 0;) {
      unsigned char& cell = table[j][i];
      if (i == np)
        cell = j == nt;
      else if (pattern[i] == '*')
        cell = table[j][i + 1] || (j < nt && (table[j + 1][i] || table[j + 1][i + 1]));
      else
        cell = j < nt && (pattern[i] == '?' || pattern[i] == text[j]) && table[j + 1][i + 1];
    }
  return table[0][0] != 0;
}

// lib/general/filelist.h
// File name patterns expanded into checked lists, copies of files, tests of directories.
// Here:     what touches directories and needs the rules for reference and input directories.
// Not here: operations on one path (path.h), lists by project group (prj/LiDAR/inputs).
#pragma once
#include <string>
#include <unordered_map>
#include <vector>

namespace veld {
struct PathRules {     // how a path that the user gave is completed
  std::string refdir;  // takes the place of a leading "$"; empty for none
  std::string idir;    // put in front of relative paths; empty for none
};

// A list of files in the order they were added, each with the index of its group. Two names are the same file
// when they lead to it by any links, symbolic or hard; names that differ in case only are two files.
struct FileList {
  std::vector<std::string> name;
  std::vector<int> idx;
  bool contains(const std::string& path) const { return !listed_as(path).empty(); }
  // The name under which the file stands in the list, empty when it does not.
  std::string listed_as(const std::string& path) const;
  void add(const std::string& path, int index);
  size_t size() const { return name.size(); }

 private:
  std::unordered_map<std::string, std::string> names_;  // of a file, by what identifies it
};

std::string expand_refdir(const std::string& path, const std::string& refdir);
std::string complete_path(const std::string& path, const PathRules& rules);  // REFDIR, then input directory
bool has_wildcard(const std::string& name);                                  // holds "*" or "?"

// Regular files whose name matches the pattern's file part, sorted byte-wise, with the directory in front.
// others, when wanted: matches that are none, in the same way; they are no error. False after an ERROR line when
// the directory cannot be read; no match is no error.
[[nodiscard]] bool match_files(const std::string& pattern, std::vector<std::string>& files,
                               std::vector<std::string>* others = nullptr);

// Adds the files that a pattern names, with the given index. Files of excl are left out. With dup_error a
// named file that is listed already is an error, and so is a pattern all of whose files are, and a match that
// is another name of a listed file. A match that is no regular file is passed over with a WARNING. False after an
// ERROR line: nothing found, directory unreadable, everything excluded, duplicate.
[[nodiscard]] bool update_file_list(FileList& list, const FileList& excl, const std::string& pattern, int idx,
                                    bool dup_error, const PathRules& rules);

// The same for a text file with one file name a line, or with patterns one pattern.
[[nodiscard]] bool update_file_list_lof(FileList& list, const FileList& excl, const std::string& lof, int idx,
                                        bool dup_error, const PathRules& rules, bool patterns = false);

// Resolves one name or pattern to one existing file, the first by name with a WARNING when there are more.
[[nodiscard]] bool update_check_file(std::string& file, const PathRules& rules);

// A copy that appears whole or not at all. report: failures are ERROR lines.
[[nodiscard]] bool copy_file(const std::string& from, const std::string& to, bool report = true);

bool dum_chk_dir_eq(const std::string& a, const std::string& b);  // one directory, by a marker file
bool dir_writable(const std::string& dir);                        // by creating and removing a file
bool dir_readable(const std::string& dir);
}  // namespace veld

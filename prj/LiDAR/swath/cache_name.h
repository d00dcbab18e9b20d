// prj/LiDAR/swath/cache_name.h
// The names of a swath's cache files, as a value that is made once a swath: resolving links and hashing the
// directory cost a walk through the file system each time.
// Here:     the only definition of these names.
// Not here: the suffixes and what stands in the files (LmTidx_r, LmTgrid_w, VR2POsync).
#pragma once
#include <cstdint>
#include <string>

namespace veld {
// Two hashes of a text in one number, (h2 << 32) | h1; 0 for an empty one.
uint64_t cache_dir_hash(const std::string& text);

class CacheName {
 public:
  CacheName() = default;
  // Of the swath whose file stands at path. TMPDIR must be set; links of path are resolved now.
  explicit CacheName(const std::string& path);
  // Of references that are one swath together, named by the first of them. The source names no file.
  static CacheName of_union(const CacheName& first);

  const std::string& source() const { return source_; }  // path of the swath's file, as it was given
  bool is_union() const { return source_.ends_with(UNION_EXT); }
  const std::string& dir() const { return dir_; }    // directory of the file, links resolved
  const std::string& name() const { return name_; }  // its base name
  // A cache file: TMPDIR, 16 hexadecimal digits that stand for dir(), "_", name(), the suffix.
  std::string file(const std::string& suffix) const { return prefix_ + name_ + suffix; }
  // The same of a swath with a number: number and "_" stand before the name.
  std::string file(const std::string& suffix, int number) const {
    return prefix_ + std::to_string(number) + "_" + name_ + suffix;
  }

 private:
  static constexpr char UNION_EXT[] = ".union";
  std::string source_, dir_, name_, prefix_;
};
}  // namespace veld

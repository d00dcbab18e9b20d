#include "prj/LiDAR/swath/cache_name.h"

#include <cstdio>

#include "lib/general/path.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr int64_t HASH_MOD = 1000000009;

// Sum of c[i] * base^i, reduced at each step; characters count as signed bytes, so the sum is brought back
// into [0, HASH_MOD).
uint64_t poly_hash(const std::string& text, int64_t base) {
  int64_t sum = 0, power = 1;
  for (const char c : text) {
    sum = (sum + static_cast<signed char>(c) * power) % HASH_MOD;
    power = power * base % HASH_MOD;
  }
  return static_cast<uint64_t>(sum < 0 ? sum + HASH_MOD : sum);
}
}  // namespace

uint64_t cache_dir_hash(const std::string& text) { return (poly_hash(text, 97) << 32) | poly_hash(text, 53); }

CacheName::CacheName(const std::string& path) : source_(path) {
  split_path(real_path(path), dir_, name_);
  char digits[20];
  std::snprintf(digits, sizeof digits, "%016llx_", static_cast<unsigned long long>(cache_dir_hash(dir_)));
  prefix_ = TMPDIR + digits;
}

CacheName CacheName::of_union(const CacheName& first) {
  CacheName u = first;
  u.source_ = first.dir_ + first.name_ + UNION_EXT;
  u.name_ += UNION_EXT;
  return u;
}
}  // namespace veld

// prj/LiDAR/LmTidx_r/pin_cache.h
// Which caches this run works with: a family that another run replaces in between, with other options or other
// swaths beside it, is refused from then on instead of being taken for the one that was checked.
#pragma once
#include "prj/LiDAR/swath/cache_name.h"

namespace veld {
// From now on the family of a swath must be what it is at this moment; sums: EXT_MTSUM or EXT_GMTSUM.
void pin_cache(const CacheName& swath, const char* sums);
void unpin_cache(const CacheName& swath, const char* sums);
// False, after an ERROR line, when a pinned family is another by now. Those that are not pinned pass.
bool check_pinned(const CacheName& swath, const char* sums);
}  // namespace veld

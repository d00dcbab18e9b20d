#include "prj/LiDAR/LmTidx_r/pin_cache.h"

#include <map>
#include <mutex>

#include "lib/general/family_out.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_files.h"

namespace veld {
namespace {
struct Pinned {
  FileStamp stamp;  // of the checksums: while it is the same nothing has to be read
  uint64_t id = 0;
};
struct Pins {
  std::mutex mutex;
  std::map<std::string, Pinned> families;  // by the name of their checksums
};
Pins& pins() {
  static Pins* const list = new Pins;
  return *list;
}
}  // namespace

void pin_cache(const CacheName& swath, const char* sums) {
  const std::string name = swath.file(sums);
  const Pinned now{file_stamp(name), family_id(name)};
  const std::lock_guard lock(pins().mutex);
  pins().families[name] = now;
}

void unpin_cache(const CacheName& swath, const char* sums) {
  const std::lock_guard lock(pins().mutex);
  pins().families.erase(swath.file(sums));
}

bool check_pinned(const CacheName& swath, const char* sums) {
  const std::string name = swath.file(sums);
  Pinned pinned;
  {
    const std::lock_guard lock(pins().mutex);
    const auto at = pins().families.find(name);
    if (at == pins().families.end()) return true;
    pinned = at->second;
  }
  if (pinned.id == 0 || file_stamp(name) == pinned.stamp || family_id(name) == pinned.id) return true;
  ERROR_MSG("cache replaced by another run with other options or swaths, use a -tmpdir of its own, file "
            << name);
  return false;
}
}  // namespace veld

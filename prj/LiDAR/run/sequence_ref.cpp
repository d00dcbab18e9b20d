// The references of the scan sequence: which of them lie on the mobile data at all, and their union.
#include <algorithm>
#include <cmath>

#include "las/las_access.h"
#include "lib/general/log.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "prj/LiDAR/LmTidx_w/LmT_union.h"
#include "prj/LiDAR/run/sequence_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// Occupied microtiles of the mobile swaths that were tiled.
bool comp_ovr_mob(const SwathTable& swaths, double mTsize, Tovr& ovr) {
  LOG_ENTER("comp_ovr_mob nsw=" << swaths.size() << " nswok=" << std::ranges::count_if(swaths, &Swath::mobile)
                                << " mTsize=" << mTsize);
  std::vector<LTidxInfo> infos;
  for (const Swath& s : swaths)
    if (s.mobile() && (infos.emplace_back(), !read_LTidxInfo(s.cache, infos.back()))) return false;
  std::vector<const LTidxInfo*> pointers;
  for (const LTidxInfo& info : infos) pointers.push_back(&info);
  const TileInfo frame = comp_frame(pointers);
  LOG_LINE("MOB TI X:[" << frame.XI << " " << frame.XI + frame.nx << "] Y:[" << frame.YI << " "
                        << frame.YI + frame.ny << "]");
  if (frame.nx > static_cast<int>(MAX_FRAME) || frame.ny > static_cast<int>(MAX_FRAME)) return false;
  ovr = make_Tovr(frame);
  for (const Swath& s : swaths) {
    Tocc occ;
    if (!s.mobile()) continue;
    if (!read_Tocc(s.cache, occ)) return false;
    add_Tovr_Tocc(ovr, occ);
  }
  const mTbbox b = comp_mTbbox_Tovr(ovr, 1);
  LOG_LINE("MOB mTI X:[" << b.xmin << " " << b.xmax << "] Y:[" << b.ymin << " " << b.ymax << "] n=" << b.n);
  return true;
}

// Whether a microtile of the map lies in the box of a file, m.
bool meets_map(const Tovr& ovr, double mTsize, double xmin, double ymin, double xmax, double ymax) {
  const int64_t side = mTsub;
  const auto index = [&](double metres, int64_t first, int64_t n) {
    const double i = std::floor((metres - GROUND_ORIGIN) / mTsize) - static_cast<double>(first * side);
    return static_cast<int64_t>(std::clamp(i, -1.0, static_cast<double>(n * side)));
  };
  const int64_t nx = ovr.frame.nx, ny = ovr.frame.ny;
  const int64_t x0 = std::max<int64_t>(0, index(xmin, ovr.frame.XI, nx));
  const int64_t y0 = std::max<int64_t>(0, index(ymin, ovr.frame.YI, ny));
  const int64_t x1 = std::min(nx * side - 1, index(xmax, ovr.frame.XI, nx));
  const int64_t y1 = std::min(ny * side - 1, index(ymax, ovr.frame.YI, ny));
  for (int64_t y = y0; y <= y1; y++)
    for (int64_t x = x0; x <= x1; x++) {
      const Image<uint8_t>& n = ovr.n(static_cast<int>(x / side), static_cast<int>(y / side));
      if (n.xsize() == 0)
        x |= side - 1;  // on to the next tile
      else if (n(static_cast<int>(x % side), static_cast<int>(y % side)) > 0)
        return true;
    }
  return false;
}

// Rejects fixed swaths that lie beside the mobile ones, by the boxes of their headers.
bool bbox_rej_ovr_mob(SwathTable& swaths, double mTsize, const Tovr& ovr) {
  int nfx = 0, nbeside = 0;
  for (const Swath& s : swaths.present()) nfx += s.fixed;
  LOG_ENTER("bbox_rej_ovr_mob nsw=" << swaths.size() << " nfx0=" << nfx);
  for (const SwathId id : swaths.ids()) {
    const Swath& s = swaths[id];
    if (!s.fixed) continue;
    std::unique_ptr<LASreader> reader = las_read_open(s.path(), INPARSE, false, 0);
    if (!reader) continue;  // the tiling reports why, and rejects it
    const LASheader& h = reader->header;
    if (!(std::isfinite(h.min_x + h.max_x) && std::isfinite(h.min_y + h.max_y))) continue;  // the same
    if (meets_map(ovr, mTsize, h.min_x * DATAUNIT, h.min_y * DATAUNIT, h.max_x * DATAUNIT,
                  h.max_y * DATAUNIT))
      continue;
    swaths.reject(id, SwathState::beside, "no overlap with mobile swaths");
    LOG_LINE("<!> drop S " << id << " " << s.path());
    nbeside++;
  }
  if (nbeside > 0) LOG_MSG(nbeside << " reference files dropped based on mobile data overlap map");
  LOG_LINE("nfxf=" << nfx - nbeside);
  if (nbeside < nfx) return true;
  ERROR_MSG("all reference data rejected, no overlap with mobile swaths");
  return false;
}

// The row of a union: the one that an earlier step made of the same references, or a new one.
SwathId union_row(SwathTable& swaths, const std::vector<SwathId>& members) {
  const auto same = [&](const Swath& s) { return s.members == members; };
  if (const auto at = std::ranges::find_if(swaths, same); at != swaths.end()) {
    at->state = SwathState::used;
    return at->id;
  }
  Swath s = swaths[members[0]];
  s.members = members;
  s.mainch = SwathId();
  return swaths.add(s);
}
}  // namespace

bool select_references(SwathTable& swaths, double mTsize) {
  Tovr ovr;
  if (comp_ovr_mob(swaths, mTsize, ovr)) return bbox_rej_ovr_mob(swaths, mTsize, ovr);
  ERROR_MSG("failed to compute occupancy map for mobile swaths");
  return false;
}

bool unite_references(SwathTable& swaths, const TilingParam& tiling) {
  std::vector<SwathId> refs;
  for (const Swath& s : swaths.present())
    if (s.fixed) refs.push_back(s.id);
  if (refs.size() < 2) return true;
  LOG_ENTER("resize_swaths_union nisw=" << swaths.size() << " nfx=" << refs.size());
  std::vector<CacheName> names;
  for (const SwathId id : refs) names.push_back(swaths[id].cache);
  std::vector<bool> left(refs.size(), true);
  std::vector<SwathId> unions;
  for (size_t i = 0; i < refs.size(); i++) {
    if (!left[i]) continue;
    std::vector<size_t> places;
    std::vector<bool> used(refs.size(), false);
    CacheName cache;
    bool ok = choose_union(i, names, left, places);
    std::vector<SwathId> members;
    for (const size_t m : places) {
      used[m] = true;
      left[m] = false;
      members.push_back(refs[m]);
    }
    ok = ok && LmT_union(i, names, used, tiling, cache);
    if (!ok) {
      ERROR_MSG("failed to create union from fixed swaths");
      return false;
    }
    unions.push_back(union_row(swaths, members));
    swaths[unions.back()].cache = cache;
    for (const SwathId m : members)
      swaths.reject(m, SwathState::replaced, "part of the union " + to_string(unions.back()));
  }
  const auto nmobile = std::ranges::count_if(swaths, &Swath::mobile);
  LOG_LINE("nsw=" << swaths.size());
  LOG_MSG("Using " << nmobile << " mobile swaths and " << unions.size() << " reference swath"
                   << (unions.size() > 1 ? "s" : ""));
  for (const SwathId id : unions) LOG_LINE("S " << id << " F " << swaths.name(id));
  return true;
}

void split_references(SwathTable& swaths) {
  for (Swath& s : swaths) {
    if (!s.present()) continue;
    s.state = SwathState::used;
    if (s.members.empty()) continue;
    for (const SwathId member : s.members) swaths[member].state = SwathState::used;
    swaths.reject(s.id, SwathState::replaced, "taken apart");
  }
}
}  // namespace veld

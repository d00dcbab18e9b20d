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
bool comp_ovr_mob(const Project& prj, const std::vector<bool>& used, Tovr& ovr) {
  const auto nok = std::count(used.begin(), used.end(), true);
  LOG_ENTER("comp_ovr_mob nsw=" << prj.swaths.size() << " nswok=" << nok << " mTsize=" << prj.scale.mTsize);
  std::vector<LTidxInfo> infos;
  for (size_t i = 0; i < prj.swaths.size(); i++)
    if (used[i] && (infos.emplace_back(), !read_LTidxInfo(prj.swaths[i].cache, infos.back()))) return false;
  std::vector<const LTidxInfo*> pointers;
  for (const LTidxInfo& info : infos) pointers.push_back(&info);
  const TileInfo frame = comp_frame(pointers);
  LOG_LINE("MOB TI X:[" << frame.XI << " " << frame.XI + frame.nx << "] Y:[" << frame.YI << " "
                        << frame.YI + frame.ny << "]");
  if (frame.nx > static_cast<int>(MAX_FRAME) || frame.ny > static_cast<int>(MAX_FRAME)) return false;
  ovr = make_Tovr(frame);
  for (size_t i = 0; i < prj.swaths.size(); i++) {
    Tocc occ;
    if (!used[i]) continue;
    if (!read_Tocc(prj.swaths[i].cache, occ)) return false;
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

// Drops fixed swaths that lie beside the mobile ones, by the boxes of their headers.
bool bbox_rej_ovr_mob(const Project& prj, const Tovr& ovr, std::vector<bool>& dropped) {
  const auto nfx =
      std::count_if(prj.swaths.begin(), prj.swaths.end(), [](const Swath& s) { return s.fixed; });
  LOG_ENTER("bbox_rej_ovr_mob nsw=" << prj.swaths.size() << " nfx0=" << nfx);
  int64_t ndropped = 0;
  for (size_t i = 0; i < prj.swaths.size(); i++) {
    if (!prj.swaths[i].fixed) continue;
    std::unique_ptr<LASreader> reader = las_read_open(prj.swaths[i].path(), INPARSE, false, 0);
    if (!reader) continue;  // the tiling reports why, and rejects it
    const LASheader& h = reader->header;
    if (!(std::isfinite(h.min_x + h.max_x) && std::isfinite(h.min_y + h.max_y))) continue;  // the same
    dropped[i] = !meets_map(ovr, static_cast<double>(prj.scale.mTsize), h.min_x * DATAUNIT,
                            h.min_y * DATAUNIT, h.max_x * DATAUNIT, h.max_y * DATAUNIT);
    if (!dropped[i]) continue;
    LOG_LINE("<!> drop S " << i << " " << prj.swaths[i].path());
    ndropped++;
  }
  if (ndropped > 0) LOG_MSG(ndropped << " reference files dropped based on mobile data overlap map");
  LOG_LINE("nfxf=" << nfx - ndropped);
  if (ndropped < nfx) return true;
  ERROR_MSG("all reference data rejected, no overlap with mobile swaths");
  return false;
}
}  // namespace

bool select_references(const Project& prj, const std::vector<bool>& used, std::vector<bool>& dropped) {
  dropped.assign(prj.swaths.size(), false);
  Tovr ovr;
  if (!comp_ovr_mob(prj, used, ovr)) {
    ERROR_MSG("failed to compute occupancy map for mobile swaths");
    return false;
  }
  return bbox_rej_ovr_mob(prj, ovr, dropped);
}

bool unite_references(Project& prj, const TilingParam& tiling) {
  std::vector<CacheName> names;
  std::vector<bool> left;
  for (const Swath& s : prj.swaths) {
    names.push_back(s.cache);
    left.push_back(s.fixed);
  }
  const auto first = std::find(left.begin(), left.end(), true);
  if (std::count(first, left.end(), true) < 2) return true;
  const size_t sw0 = static_cast<size_t>(first - left.begin());
  LOG_ENTER("resize_swaths_union nisw=" << prj.swaths.size() << " sw0=" << sw0);
  std::vector<Swath> swaths(prj.swaths.begin(), prj.swaths.begin() + static_cast<std::ptrdiff_t>(sw0));
  for (size_t i = sw0; i < names.size(); i++) {
    if (!left[i]) continue;
    std::vector<size_t> members;
    std::vector<bool> used(names.size(), false);
    Swath s = prj.swaths[i];
    bool ok = choose_union(i, names, left, members);
    for (const size_t m : members) {
      used[m] = true;
      left[m] = false;
      s.members.push_back(names[m]);
    }
    ok = ok && LmT_union(i, names, used, tiling, s.cache);
    if (!ok) {
      ERROR_MSG("failed to create union from fixed swaths");
      return false;
    }
    s.mainch = static_cast<int>(swaths.size());
    swaths.push_back(s);
  }
  prj.swaths.swap(swaths);
  const size_t nref = prj.swaths.size() - sw0;
  LOG_LINE("nsw=" << prj.swaths.size());
  LOG_MSG("Using " << sw0 << " mobile swaths and " << nref << " reference swath" << (nref > 1 ? "s" : ""));
  for (size_t i = sw0; i < prj.swaths.size(); i++) LOG_LINE("S " << i << " F " << swath_name(prj.swaths[i]));
  return true;
}

void split_references(Project& prj) {
  std::vector<Swath> swaths;
  for (const Swath& s : prj.swaths) {
    if (s.members.empty()) swaths.push_back(s);
    for (const CacheName& file : s.members) {
      Swath member = s;
      member.cache = file;
      member.members.clear();
      swaths.push_back(member);
    }
  }
  for (size_t i = 0; i < swaths.size(); i++)
    if (swaths[i].fixed) swaths[i].mainch = static_cast<int>(i);
  prj.swaths.swap(swaths);
}
}  // namespace veld

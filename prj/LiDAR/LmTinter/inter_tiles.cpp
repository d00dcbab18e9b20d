#include "prj/LiDAR/LmTinter/inter_tiles.h"

#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "lib/general/timing.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
uint64_t count_valid(const Image<float>& img) {
  return static_cast<uint64_t>(
      std::count_if(img.val, img.val + img.size(), [](float z) { return z != NODATA; }));
}

GridLimits compared_heights(float GSD) { return {reg_smax_code(Z_SMAXF, GSD), KEEPZmin, KEEPZmax}; }

// Image of tile numbers over the frame of the tiles.
void set_tile_frame(InterTiles& inter, Image<int16_t>& TI) {
  uint32_t XI1 = 0, YI1 = 0;
  inter.XI0 = inter.YI0 = UINT32_MAX;
  for (const ToccTile& t : inter.tiles) {
    inter.XI0 = std::min(inter.XI0, t.x), XI1 = std::max(XI1, t.x);
    inter.YI0 = std::min(inter.YI0, t.y), YI1 = std::max(YI1, t.y);
  }
  TI.resize(static_cast<int>(XI1 - inter.XI0) + 1, static_cast<int>(YI1 - inter.YI0) + 1, int16_t{-1});
  for (size_t i = 0; i < inter.tiles.size(); i++)
    TI(static_cast<int>(inter.tiles[i].x - inter.XI0), static_cast<int>(inter.tiles[i].y - inter.YI0)) =
        static_cast<int16_t>(i);
}

// The microtiles of the moved swath that a pair may look at: its overlap with the other swath and a ring around it.
// A grid holds more where other swaths meet this one; a pair that used it would change with them.
Tocc moved_mtiles(const InterSwath& s1, const Tocc& both) {
  Tocc moved = dilate_Tocc(both, s1.grid.TI);
  for (ToccTile& t : moved) {
    const Image<uint8_t>& own = s1.occ[t.k].occ;
    for (int m = 0; m < mTn; m++) t.occ[m] = t.occ[m] & own[m] & 1;
  }
  return moved;
}
}  // namespace

bool read_InterSwath(const Project& prj, SwathId sw, InterSwath& s) {
  if (s.sw == sw) return s.ok;
  s = InterSwath{};
  s.sw = sw;
  s.cache = prj.swaths[sw].cache;
  s.ok = read_LTidxInfo(s.cache, s.info) && read_Tocc(s.cache, s.occ) &&
         read_gZDSidx_tiles_idx(s.cache, s.grid) && static_cast<int>(s.grid.hdr.dim) == prj.scale.dim;
  if (!s.ok) LOG_LINE("<!> gridok sw=" << sw);
  return s.ok;
}

// A strip narrower than a few vertices has no neighbours to hold its estimates: they would be bent to fit noise.
int min_overlap_width(const RegLevels& levels) {
  constexpr int MIN_WIDTH = 4;  // vertex spacings
  return std::min(MIN_WIDTH << levels.Jend, static_cast<int>(mTsub));
}

bool open_times(const Project& prj, InterSwath& s) {
  return prj.swaths[s.sw].fixed || s.tables.is_open() || s.tables.open(s.cache, s.info.nt, true);
}

InterState choose_inter_tiles(const Project& prj, const InterSwath& s1, const InterSwath& s2, int nmTmin,
                              const RegLevels& levels, InterTiles& inter) {
  LOG_ENTER("choose_inter_tiles nmTmin=" << nmTmin << " sw1=" << s1.sw << " sw2=" << s2.sw);
  inter = InterTiles{};
  const Tocc both = inter_Tocc(s1.occ, s2.occ);
  LOG_LINE("inter_Tocc nt1=" << s1.occ.size() << " nt2=" << s2.occ.size() << " ntint=" << both.size());
  const int width = min_overlap_width(levels);  // gaps of up to two vertex spacings count as filled
  inter.tiles = erode_Tocc_closed(both, width, width / 4);
  const size_t ntX0 = inter.tiles.size();
  std::erase_if(inter.tiles, [nmTmin](const ToccTile& t) {
    return std::count_if(t.occ.val, t.occ.val + t.occ.size(), [](uint8_t v) { return v != 0; }) < nmTmin;
  });
  const uint64_t nt = inter.tiles.size();
  const uint64_t n = static_cast<uint64_t>(mTsub * prj.scale.dim);
  LOG_LINE("ntX0=" << ntX0 << " ntdrop=" << ntX0 - nt << " tnmti=" << count_Tocc(inter.tiles)
                   << " Mpix=" << static_cast<double>(nt * n * n) * 1e-6);
  inter.moved = moved_mtiles(s1, both);
  if (nt == 0) return both.empty() ? InterState::none : InterState::narrow;
  const uint64_t MB = (comp_reg_bytes(nt, prj.scale.dim, levels) >> 20) + 1;
  LOG_LINE(" TILES MEMORY=" << MB << " MB");
  if (MB > static_cast<uint64_t>(MEM_MB) || nt > INT16_MAX) {
    WARNING_MSG("swaths " << s1.sw << "/" << s2.sw << " skipped, registration and QC require " << MB
                          << " MB, only " << MEM_MB << " reserved (use option -mem)");
    return InterState::memory;
  }
  return InterState::ok;
}

InterState inter_TZ1_TZ2(const Project& prj, const InterSwath& s1, const InterSwath& s2, int nmTmin,
                         const RegLevels& levels, int nthreads, InterTiles& inter, NRpair& pair) {
  const InterState state = choose_inter_tiles(prj, s1, s2, nmTmin, levels, inter);
  return state == InterState::ok ? read_inter_tiles(prj, s1, s2, levels, nthreads, inter, pair) : state;
}

InterState read_inter_tiles(const Project& prj, const InterSwath& s1, const InterSwath& s2,
                            const RegLevels& levels, int nthreads, InterTiles& inter, NRpair& pair) {
  const GridLimits limits = compared_heights(prj.scale.GSD());
  LOG_ENTER("read_inter_tiles dim=" << prj.scale.dim << " sw1=" << s1.sw << " sw2=" << s2.sw << " Smax="
                                    << limits.smax << " Z:[" << limits.zmin << " " << limits.zmax << "] ");
  const Stopwatch time;
  const uint64_t nt = inter.tiles.size();
  pair = NRpair{};
  GridLimits all =
      limits;  // rough pixels stay in the moved image: no spline could close holes in their place
  all.smax = GridLimits{}.smax;
  pair.smax = limits.smax;
  pair.buf = levels.buf;
  pair.dim = prj.scale.dim;
  pair.mTsize = prj.scale.mTsize;
  set_tile_frame(inter, pair.TI);
  pair.img1.resize(nt);
  pair.img2.resize(nt);
  pair.S1.resize(nt);
  pair.S2.resize(nt);
  pair.rough_unit = prj.scale.GSD() / 16;
  Vector<uint64_t> n1(nt, 0), n2(nt, 0);
  const int64_t bad = run_units(static_cast<int64_t>(nt), nthreads, [&](int64_t i, int) {
    const ToccTile& t = inter.tiles[static_cast<size_t>(i)];
    if (read_gZ_tile_8nn(s1.grid, t.x, t.y, pair.buf, &inter.moved, all, pair.img1[i], &pair.S1[i]) ==
            GridRead::failed ||
        read_gZ_tile(s2.grid, static_cast<int>(t.k2), &t.occ, limits, pair.img2[i], &pair.S2[i]) ==
            GridRead::failed)
      return false;
    n1[i] = count_valid(pair.img1[i]);
    n2[i] = count_valid(pair.img2[i]);
    return true;
  });
  if (bad >= 0) return InterState::failed;
  for (uint64_t i = 0; i < nt; i++) inter.nfpix1 += n1[i], inter.nfpix2 += n2[i];
  LOG_LINE("ntX=" << nt << " -> tnfpix1=" << inter.nfpix1 << " tnfpix2=" << inter.nfpix2);
  LOG_LINE("/// INTER_TZ1_TZ2_TIME=" << time.text());
  return inter.nfpix1 > 0 && inter.nfpix2 > 0 ? InterState::ok : InterState::none;
}
}  // namespace veld

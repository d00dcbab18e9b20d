// The steps of one swath: what is wanted of it, its tiles one after the other, the files that they become.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "lib/general/binfile.h"
#include "lib/general/family_out.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/LmTgrid_w/LmTgrid_internal.h"
#include "prj/LiDAR/LmTidx_r/pin_cache.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
std::string block_name(const USGDstr& u, uint32_t k) {
  std::string n = std::to_string(k);
  return u.swath->cache.file(".T" + std::string(5 - std::min<size_t>(5, n.size()), '0') + n + EXT_GMTZDS);
}

uint64_t count_mtiles(const Image<uint8_t>& occ) {
  return static_cast<uint64_t>(
      std::count_if(occ.val, occ.val + occ.size(), [](uint8_t v) { return (v & 1) != 0; }));
}

// The microtiles of a swath that are to be gridded: in the overlaps with the ring around them, or everywhere,
// which for a reference means where mobile swaths lie.
bool wanted_mtiles(const Swath& swath, const GridScope& scope, Tocc& want) {
  Vector<TIsxy> TI;
  if (!read_Tocc(swath.cache, want) || !read_LTidx_TI(swath.cache, TI)) {
    ERROR_MSG("missing/incompatible temp. tile files, swath " << swath.path());
    return false;
  }
  if (!scope.full || swath.fixed)
    want = dilate_Tocc(inter_TLocc_Tovr(want, scope.ovr, scope.full ? 1 : 2), TI);
  std::erase_if(want, [](const ToccTile& t) { return count_mtiles(t.occ) == 0; });
  return true;
}

// What is wrong with the files of a grid; empty when they are sound, or there is none.
std::string grid_fault(const CacheName& swath) {
  const std::string base = swath.file("");
  if (file_size(base + EXT_GMTIDX) < 0) return "";
  for (const char* const suffix : {EXT_GMTIDX, EXT_GMTZDS})
    if (std::string fault = member_fault(base, suffix, EXT_GMTSUM, true); !fault.empty()) return fault;
  return "";
}

bool cached_grid(const Swath& swath, const GridScope& scope, const Tocc& want) {
  SwGrid grid;
  if (!CACHE_GRID) return false;
  if (const std::string fault = grid_fault(swath.cache); !fault.empty()) {
    WARNING_MSG("damaged grid cache is made anew: " << fault << ", swath " << swath.path());
    return false;
  }
  unpin_cache(swath.cache, EXT_GMTSUM);
  const bool fits = check_gZDSidx(swath.cache, swath.id, scope.dim, scope.full, true) &&
                    read_gZDSidx_tiles_idx(swath.cache, grid) && check_gZDSidx_gTocc(grid, want);
  if (fits) pin_cache(swath.cache, EXT_GMTSUM);
  return fits;
}

// Bytes that the largest of the wanted tiles needs while it is worked on.
bool largest_need(const Swath& swath, const GridScope& scope, const Tocc& want, uint64_t& need) {
  Vector<TIsxy> TI;
  if (!read_LTidx_TI(swath.cache, TI)) {
    ERROR_MSG("missing/incompatible temp. tile files, swath " << swath.path());
    return false;
  }
  need = 0;
  for (const ToccTile& t : want) {
    const uint64_t nmt = count_mtiles(t.occ);
    const uint64_t points = TI(t.k).n * 2ull * sizeof(xyz);
    const uint64_t words =
        nmt * static_cast<uint64_t>(scope.dim) * static_cast<uint64_t>(scope.dim) * sizeof(uint32_t);
    need = std::max(need, comp_LKR_bytes(nmt, scope.dim) + points + words);
  }
  return true;
}

// In one piece, with one open: there are as many of these files as tiles.
bool write_gZDS_T(const std::string& name, const Vector<uint32_t>& words) {
  std::FILE* const file = std::fopen(name.c_str(), "wb");
  bool ok = file != nullptr;
  if (ok) std::setvbuf(file, nullptr, _IONBF, 0);
  ok = ok && std::fwrite(words.val, sizeof(uint32_t), words.size(), file) == words.size();
  int reason = errno;
  if (file && std::fclose(file) != 0 && ok) {
    ok = false;
    reason = errno;
  }
  if (!ok) ERROR_MSG("writing failed, file='" << name << "': " << std::strerror(reason));
  return ok;
}

bool write_gZDSidx_tiles(const USGDstr& u, int dim, bool full, FamilyOut& family) {
  LOG_ENTER("write_gZDSidx_tiles GridVersion=" << GridVersion << " GZ_SMAXF=" << GZ_SMAXF << " dim=" << dim
                                               << " full=" << full);
  GridHdr hdr;
  hdr.tstamp = source_tstamp(u.swath->cache);
  if (hdr.tstamp == -1) {
    ERROR_MSG("timestamp read error, " << u.swath->path());
    return false;
  }
  hdr.smaxf = GZ_SMAXF;
  hdr.dim = static_cast<uint32_t>(dim);
  hdr.full = full;
  SummedFileOut* const out = family.create(EXT_GMTIDX, 0x40000);
  if (!out || !out->write(&hdr, sizeof(hdr)) || !out->write(u.gT.val, u.gT.size() * 2)) return false;
  size_t next = 0;  // the wanted tiles stand in the order of the table
  for (uint32_t k = 0; k < u.gT.size(); k++) {
    const uint8_t flag = next < u.want.size() && u.want[next].k == k;
    if (!out->write(&flag, 1)) return false;
    if (!flag) continue;
    uint8_t gTocc[mTn];
    for (int m = 0; m < mTn; m++) gTocc[m] = u.want[next].occ[m] & 1;
    if (!out->write(gTocc, mTn)) return false;
    next++;
  }
  return true;
}

bool copy_block(const std::string& from, uint64_t bytes, SummedFileOut& out, Vector<char>& buffer) {
  BufBinFileIn in(0);
  if (!in.open(from)) return false;
  while (bytes > 0) {
    const uint64_t n = std::min<uint64_t>(bytes, buffer.size());
    if (!in.read(buffer.val, n) || !out.write(buffer.val, n)) return false;
    bytes -= n;
  }
  return true;
}

// Joins the block files in the order of the tiles.
bool merge_gZDS_tiles(const USGDstr& u, int dim, FamilyOut& family) {
  SummedFileOut* const out = family.create(EXT_GMTZDS, 0);
  Vector<char> buffer(0x40000);
  if (!out) return false;
  uint64_t npix = 0;
  for (uint32_t k = 0; k < u.gT.size(); k++) {
    if (u.gT(k) == 0) continue;
    const uint64_t n = u.gT(k) * static_cast<uint64_t>(dim) * static_cast<uint64_t>(dim);
    if (!copy_block(block_name(u, k), n * sizeof(uint32_t), *out, buffer)) return false;
    npix += n;
  }
  LOG_LINE("merged " << static_cast<double>(npix) * 1e-6 << " Mpix, ");
  return true;
}

void delete_blocks(const USGDstr& u) {
  for (uint32_t k = 0; k < u.gT.size(); k++)
    if (u.gT(k) != 0 && !remove_file(block_name(u, k))) LOG_LINE("<!> FAILED TO DELETE " << block_name(u, k));
}

}  // namespace

bool sound_points(const SwathTable& swaths, const Swath& swath) {
  bool sound = true;
  const auto check = [&sound](const CacheName& points) {
    const std::string fault = points_fault(points);
    if (fault.empty()) return;
    WARNING_MSG("damaged tile cache is made anew: " << fault << ", swath " << points.source());
    remove_file(points.file(EXT_TIDX));
    sound = false;
  };
  if (swath.members.empty()) check(swath.cache);
  for (const SwathId member : swath.members) check(swaths[member].cache);
  return sound;
}

GridPlan plan_grid(const Swath& swath, const GridScope& scope) {
  GridPlan plan;
  Tocc want;
  plan.task = GridTask::failed;
  plan.index = file_stamp(swath.cache.file(EXT_GMTIDX));
  if (!wanted_mtiles(swath, scope, want)) return plan;
  if (want.empty()) {
    plan.task = GridTask::none;
  } else if (cached_grid(swath, scope, want)) {
    plan.task = GridTask::cached;
  } else if (largest_need(swath, scope, want, plan.need)) {
    plan.task = plan.need > static_cast<uint64_t>(MEM_MB) << 20 ? GridTask::beyond : GridTask::grid;
    plan.ntiles = want.size();
  }
  return plan;
}

bool lock_grid(USGDstr& u, const GridScope& scope) {
  const CacheName& swath = u.swath->cache;
  const LockState lock = u.lock.take(swath.file(EXT_GMTLOCK), "the grid of swath " + swath.source());
  if (lock == LockState::failed) return false;
  if (lock == LockState::busy && u.state != UnitState::busy)
    LOG_MSG1("waiting for the grid of swath " << swath.source() << ", in work by another run");
  u.state = lock == LockState::busy ? UnitState::busy : UnitState::work;
  if (lock == LockState::busy || file_stamp(swath.file(EXT_GMTIDX)) == u.index) return true;
  Tocc want;
  if (!wanted_mtiles(*u.swath, scope, want)) return false;
  if (!cached_grid(*u.swath, scope, want)) return true;
  u.state = UnitState::cached;
  u.lock.release();
  return true;
}

bool sw_grid_pre(USGDstr& u, const GridScope& scope) {
  LOG_ENTER("sw_grid_pre sw=" << u.swath->id << " nt=" << u.ntiles);
  if (!wanted_mtiles(*u.swath, scope, u.want)) return false;
  if (u.want.size() != u.ntiles || !read_SwTiles(u.swath->cache, u.tiles)) {
    ERROR_MSG("missing/incompatible temp. tile files, swath " << u.swath->path());
    return false;
  }
  if (!open_points(u.tiles) || !u.tables.open(u.swath->cache, u.tiles.info.nt, false)) return false;
  uint64_t nfiles = 0, nbytes = 0;
  if (!delete_LmT_grid(u.swath->cache, nfiles, nbytes))
    LOG_LINE("<!> FAILED TO DELETE grid of sw=" << u.swath->id);
  u.gT.resize(u.tiles.TI.size(), 0);
  return true;
}

// Mean height of a tile in whole metres, of all its points: what is gridded of it must not change the last bits.
bool tile_height(const USGDstr& u, uint32_t k, double& z0) {
  Image<uint32_t> N;
  Image<int32_t> Zm;
  if (!u.tables.read_N(k, N) || !u.tables.read_Zm(k, Zm)) return false;
  double sum = 0, n = 0;
  for (int m = 0; m < mTn; m++)
    if (N[m] > 0) sum += Zm[m], n++;
  z0 = n > 0 ? std::round(sum / n * M_PER_UNIT) : 0;
  return true;
}

bool sw_grid_tile(USGDstr& u, size_t tile, const GridScope& scope, GridWorker& w, uint64_t& np,
                  uint64_t& npix) {
  ToccTile& t = u.want[tile];
  LOG_ENTER("tile sw=" << u.swath->id << " xi=" << t.x << " yi=" << t.y);
  uint64_t np0 = 0;
  double z0 = 0;
  const int reach = (3 + scope.dim - 1) / scope.dim;
  if (!read_LmT_tile_nn(u.tiles, t.k, t.occ, reach, w.points, np, np0) || !tile_height(u, t.k, z0)) {
    ERROR_MSG("missing/incompatible temp. tile files, swath " << u.swath->path());
    return false;
  }
  if (np == 0) {
    LOG_LINE("<!> EMPTY");
    return true;
  }
  const LKRstate state = LKRgrid_tile_nn(w.points.val, np, z0, t.occ, scope.dim, scope.mTsize, GZ_SMAXF,
                                         TARGET_DF, w.tile, w.words);
  LOG_LINE("tok=" << (state == LKRstate::done) << " np=" << np);
  if (state != LKRstate::done) return true;
  npix = w.words.size();
  u.gT(t.k) = static_cast<uint16_t>(count_mtiles(t.occ));
  if (write_gZDS_T(block_name(u, t.k), w.words)) return true;
  u.gT(t.k) = 0;
  remove_file(block_name(u, t.k));
  return false;
}

bool sw_grid_post(USGDstr& u, const GridScope& scope) {
  LOG_ENTER("sw_grid_post sw=" << u.swath->id);
  FamilyOut family(u.swath->cache.file(""), EXT_GMTIDX, EXT_GMTSUM);
  const bool ok = !u.failed && write_gZDSidx_tiles(u, scope.dim, scope.full, family) &&
                  merge_gZDS_tiles(u, scope.dim, family) && family.publish();
  if (ok) pin_cache(u.swath->cache, EXT_GMTSUM);
  delete_blocks(u);
  u.tiles = SwTiles{};
  u.tables = TileTables{};
  u.want = Tocc{};
  u.gT.clear();
  u.lock.release();
  return ok;
}
}  // namespace veld

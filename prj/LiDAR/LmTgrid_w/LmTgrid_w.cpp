#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"

#include <algorithm>
#include <mutex>

#include "lib/general/binfile.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/progress.h"
#include "lib/general/timing.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/LmTgrid_w/LKRgrid.h"
#include "prj/LiDAR/tuning.h"

namespace {
// One swath to grid, shared by the threads. Each tile has its own slots; the counts are guarded by a mutex.
struct USGDstr {
  int sw = 0;
  std::string path;
  SwTiles tiles;
  Tocc want;            // tiles and microtiles to grid
  Vector<uint16_t> gT;  // by tile of the table: gridded microtiles in the file
  size_t ngt_w = 0;     // tiles done
  bool failed = false;
};

struct Block {
  int unit;
  int tile;  // in USGDstr::want
};

struct Worker {  // buffers of one thread
  LKRtile tile;
  Vector<xyz> points;
  Vector<uint32_t> words;
};

std::string block_name(const USGDstr& u, uint32_t k) {
  std::string n = std::to_string(k);
  return cache_name(u.path, ".T" + std::string(5 - std::min<size_t>(5, n.size()), '0') + n + EXT_GMTZDS);
}

uint64_t count_mtiles(const Image<uint8_t>& occ) {
  return static_cast<uint64_t>(
      std::count_if(occ.val, occ.val + occ.size(), [](uint8_t v) { return (v & 1) != 0; }));
}

// The microtiles of a swath that are to be gridded.
bool wanted_mtiles(const std::string& path, const Tovr& ovr, bool full, Tocc& want) {
  Tocc occ;
  Vector<TIsxy> TI;
  if (!read_Tocc(path, occ) || !read_LTidx_TI(path, TI)) {
    ERROR_MSG("missing/incompatible temp. tile files, swath " << path);
    return false;
  }
  want = full ? occ : dilate_Tocc(inter_TLocc_Tovr(occ, ovr), TI);
  std::erase_if(want, [](const ToccTile& t) { return count_mtiles(t.occ) == 0; });
  return true;
}

bool cached_grid(const USGDstr& u, int dim, bool full) {
  SwGrid grid;
  return CACHE_GRID && check_gZDSidx(u.path, u.sw, dim, full, true) && read_gZDSidx_tiles_idx(u.path, grid) &&
         check_gZDSidx_gTocc(grid, u.want);
}

// Reads what the tile threads need and removes an older grid, so that a half-done run leaves none behind.
bool sw_grid_pre(USGDstr& u) {
  LOG_ENTER("sw_grid_pre sw=" << u.sw << " nt=" << u.want.size());
  if (!read_SwTiles(u.path, u.tiles)) {
    ERROR_MSG("missing/incompatible temp. tile files, swath " << u.path);
    return false;
  }
  uint64_t nfiles = 0, nbytes = 0;
  if (!delete_LmT_grid(u.path, nfiles, nbytes)) LOG_LINE("<!> FAILED TO DELETE grid of sw=" << u.sw);
  u.gT.resize(u.tiles.TI.size(), 0);
  return true;
}

bool write_gZDS_T(const std::string& name, const Vector<uint32_t>& words) {
  BufBinFileOut out(0x40000);
  return out.open(name, 0) && out.write(words.val, words.size() * sizeof(uint32_t)) && out.close();
}

// Grids one tile into its block file. np, npix: points read, words written.
bool sw_grid_tile(USGDstr& u, int tile, int dim, float mTsize, Worker& w, uint64_t& np, uint64_t& npix) {
  ToccTile& t = u.want[static_cast<size_t>(tile)];
  LOG_ENTER("tile sw=" << u.sw << " xi=" << t.x << " yi=" << t.y);
  uint64_t np0 = 0;
  const int reach = (3 + dim - 1) / dim;
  if (!read_LmT_tile_nn(u.tiles, t.k, t.occ, reach, w.points, np, np0)) {
    ERROR_MSG("missing/incompatible temp. tile files, swath " << u.path);
    return false;
  }
  if (np == 0) {
    LOG_LINE("<!> EMPTY");
    return true;
  }
  const LKRstate state =
      LKRgrid_tile_nn(w.points.val, np, t.occ, dim, mTsize, GZ_SMAXF, TARGET_DF, w.tile, w.words);
  LOG_LINE("tok=" << (state == LKRstate::done) << " np=" << np);
  if (state != LKRstate::done) return true;
  npix = w.words.size();
  u.gT(t.k) = static_cast<uint16_t>(count_mtiles(t.occ));
  if (write_gZDS_T(block_name(u, t.k), w.words)) return true;
  u.gT(t.k) = 0;
  remove_file(block_name(u, t.k));
  return false;
}

bool write_gZDSidx_tiles(const USGDstr& u, int dim, bool full, const std::string& name) {
  LOG_ENTER("write_gZDSidx_tiles GridVersion=" << GridVersion << " GZ_SMAXF=" << GZ_SMAXF << " dim=" << dim
                                               << " full=" << full);
  GridHdr hdr;
  hdr.tstamp = file_mtime(u.path);
  if (hdr.tstamp == -1) {
    ERROR_MSG("timestamp read error, " << u.path);
    return false;
  }
  hdr.smaxf = GZ_SMAXF;
  hdr.dim = static_cast<uint32_t>(dim);
  hdr.full = full;
  BufBinFileOut out(0x40000);
  if (!out.open(name, 0) || !out.write(&hdr, sizeof(hdr)) || !out.write(u.gT.val, u.gT.size() * 2))
    return false;
  size_t next = 0;  // the wanted tiles stand in the order of the table
  for (uint32_t k = 0; k < u.gT.size(); k++) {
    const uint8_t flag = next < u.want.size() && u.want[next].k == k;
    if (!out.write(&flag, 1)) return false;
    if (!flag) continue;
    uint8_t gTocc[mTn];
    for (int m = 0; m < mTn; m++) gTocc[m] = u.want[next].occ.val[m] & 1;
    if (!out.write(gTocc, mTn)) return false;
    next++;
  }
  return out.close();
}

bool copy_block(const std::string& from, uint64_t bytes, BufBinFileOut& out, Vector<char>& buffer) {
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
bool merge_gZDS_tiles(const USGDstr& u, int dim, const std::string& name) {
  BufBinFileOut out(0);
  Vector<char> buffer(0x40000);
  if (!out.open(name, 0)) return false;
  uint64_t npix = 0;
  for (uint32_t k = 0; k < u.gT.size(); k++) {
    if (u.gT(k) == 0) continue;
    const uint64_t n = u.gT(k) * static_cast<uint64_t>(dim) * static_cast<uint64_t>(dim);
    if (!copy_block(block_name(u, k), n * sizeof(uint32_t), out, buffer)) return false;
    npix += n;
  }
  LOG_LINE("merged " << static_cast<double>(npix) * 1e-6 << " Mpix, ");
  return out.close();
}

void delete_blocks(const USGDstr& u) {
  for (uint32_t k = 0; k < u.gT.size(); k++)
    if (u.gT(k) != 0 && !remove_file(block_name(u, k))) LOG_LINE("<!> FAILED TO DELETE " << block_name(u, k));
}

// After the last tile of a swath: index and merged grid under temporary names, then renamed, the index last.
bool sw_grid_post(USGDstr& u, int dim, bool full) {
  LOG_ENTER("sw_grid_post sw=" << u.sw);
  const std::string zds = cache_name(u.path, EXT_GMTZDS), idx = cache_name(u.path, EXT_GMTIDX);
  bool ok = !u.failed && write_gZDSidx_tiles(u, dim, full, idx + ".part") &&
            merge_gZDS_tiles(u, dim, zds + ".part") && publish_file(zds + ".part", zds);
  ok = ok && publish_file(idx + ".part", idx);
  delete_blocks(u);
  if (!ok)
    for (const std::string& name : {idx, zds})
      if (is_regular_file(name + ".part")) remove_file(name + ".part");
  return ok;
}

// Threads that fit into the memory budget; 0 when not even one does.
int threads_in_budget(const std::vector<USGDstr>& units, int dim, int nthreads) {
  uint64_t need = 0;
  for (const USGDstr& u : units)
    for (const ToccTile& t : u.want) {
      const uint64_t nmt = count_mtiles(t.occ);
      const uint64_t points = u.tiles.TI(t.k).n * 2ull * sizeof(xyz);
      const uint64_t words = nmt * static_cast<uint64_t>(dim) * static_cast<uint64_t>(dim) * sizeof(uint32_t);
      need = std::max(need, comp_LKR_bytes(nmt, dim) + points + words);
    }
  const uint64_t budget = static_cast<uint64_t>(MEM_MB) << 20;
  if (need > budget) {
    ERROR_MSG("gridding requires " << (need >> 20) + 1 << " MB, only " << MEM_MB
                                   << " reserved (use option -mem)");
    return 0;
  }
  return need == 0 ? nthreads
                   : static_cast<int>(
                         std::min(static_cast<uint64_t>(nthreads), std::max<uint64_t>(1, budget / need)));
}

// Fills the list of units: swaths that need a grid. Cached and skipped ones are counted.
bool collect_units(const Project& prj, const Tovr& ovr, bool full, std::vector<USGDstr>& units,
                   GridResult& result) {
  bool ok = true;
  for (size_t sw = 0; sw < prj.swaths.size(); sw++) {
    if (!prj.swaths[sw].used) continue;
    USGDstr u;
    u.sw = static_cast<int>(sw);
    u.path = prj.swaths[sw].path;
    if (!wanted_mtiles(u.path, ovr, full, u.want)) {
      ok = false;
    } else if (u.want.empty()) {
      result.nskipped++;
    } else if (cached_grid(u, prj.scale.dim, full)) {
      result.ncached++;
    } else if (sw_grid_pre(u)) {
      units.push_back(std::move(u));
    } else {
      ok = false;
    }
  }
  if (result.nskipped > 0) WARNING_MSG("skipped gridding " << result.nskipped << " swaths (no overlap)");
  if (result.ncached > 0) LOG_MSG1("Cached " << result.ncached << " swaths");
  return ok;
}
}  // namespace

bool LmT_grid(const Project& prj, const Tovr& ovr, bool full, int nthreads, GridResult& result) {
  const int dim = prj.scale.dim;
  const float mTsize = prj.scale.mTsize;
  ASSERT(dim > 0 && nthreads > 0);
  LOG_ENTER("LmT_grid[T] nsw=" << prj.swaths.size() << " nthreads=" << nthreads << " dim=" << dim
                               << " mTsize=" << mTsize << " full=" << full << " LmTcacheG=" << CACHE_GRID
                               << " CHECK_SW_TSTAMP=" << CHECK_SW_TSTAMP);
  const Stopwatch time;
  result = GridResult{};
  std::vector<USGDstr> units;
  bool ok = collect_units(prj, ovr, full, units, result);
  LOG_LINE("nswu=" << units.size());
  std::vector<Block> blocks;
  for (size_t i = 0; i < units.size(); i++)
    for (size_t k = 0; k < units[i].want.size(); k++)
      blocks.push_back({static_cast<int>(i), static_cast<int>(k)});
  result.nblocks = blocks.size();
  const int nth = threads_in_budget(units, dim, nthreads);
  if (nth == 0) return false;
  LOG_MSG1((full ? "FULL" : "OVERLAP") << " GRIDDING [V1] " << units.size() << " swaths, " << blocks.size()
                                       << " blocks [" << nth << " TH]");
  std::vector<Worker> workers(static_cast<size_t>(nth));
  std::mutex mutex;
  size_t ngt_w = 0, ngs_w = 0;
  if (!blocks.empty()) progress_start(static_cast<int>(std::min<size_t>(blocks.size(), INT32_MAX)));
  run_units(static_cast<int64_t>(blocks.size()), nth, [&](int64_t b, int thread) {
    const Block& block = blocks[static_cast<size_t>(b)];
    USGDstr& u = units[static_cast<size_t>(block.unit)];
    uint64_t np = 0, npix = 0;
    LOG_ENTER("th_LmT_grid_tile[T] id=" << thread);
    bool tok = false, last = false;
    {
      const std::lock_guard<std::mutex> lock(mutex);
      tok = !u.failed;
    }
    if (tok) tok = sw_grid_tile(u, block.tile, dim, mTsize, workers[static_cast<size_t>(thread)], np, npix);
    size_t ndone = 0;
    {
      const std::lock_guard<std::mutex> lock(mutex);
      result.npoints += np;
      result.npixels += npix;
      u.failed = u.failed || !tok;
      last = ++u.ngt_w == u.want.size();
      ndone = ++ngt_w;
    }
    if (last && !sw_grid_post(u, dim, full)) u.failed = true;
    if (last) {
      const std::lock_guard<std::mutex> lock(mutex);
      ngs_w += !u.failed;
    }
    progress_step(static_cast<int>(ndone), "GRIDDED " + std::to_string(ndone) + " blocks");
    return true;
  });
  if (!blocks.empty()) progress_end("GRIDDED " + std::to_string(ngt_w) + " blocks");
  result.ngridded = static_cast<int>(ngs_w);
  if (ngs_w < units.size()) {
    ERROR_MSG(units.size() << " swaths, at least one failed");
    ok = false;
  }
  const double Mpt = static_cast<double>(result.npoints) * 1e-6,
               Mpixt = static_cast<double>(result.npixels) * 1e-6;
  LOG_LINE("ngt=" << blocks.size() << " ngs=" << units.size() << " ngt_w=" << ngt_w << " ngs_w=" << ngs_w
                  << " Mpt=" << Mpt << " Mpixt=" << Mpixt);
  LOG_LINE("/// GRID_TIME=" << time.text());
  LOG_MSG1("Used " << Mpt << " Mp, written " << Mpixt << " Mpix ~ " << Mpixt * 4 << " MB | " << time.text());
  return ok;
}

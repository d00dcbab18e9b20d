// The grid cache: index file, validity, height images of tiles.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "lib/general/binfile.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/LmTgrid_w/LKRgrid.h"
#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr uint32_t MAXDIM = 16384;

void set_tile_map(SwGrid& grid) {
  grid.timg.clear();
  if (grid.TI.empty()) return;
  const TileInfo frame = extent_of(grid.TI);
  grid.XImin = frame.XI;
  grid.YImin = frame.YI;
  build_tile_map(frame, grid.TI, grid.timg);
}

bool open_words(const CacheName& swath, uint64_t nwords, SwGrid& grid) {
  PosFileIn file(false);
  if (!open_cache(swath, EXT_GMTZDS, file) || file.size() != nwords * sizeof(uint32_t)) return false;
  file.report();
  grid.words = std::make_shared<const PosFileIn>(std::move(file));
  return true;
}

// The words of a tile's block. False after an ERROR line.
bool read_block(const SwGrid& grid, int tile, Vector<uint32_t>& words) {
  const uint64_t n = grid.gT(tile) * static_cast<uint64_t>(grid.hdr.dim) * grid.hdr.dim;
  words.resize(n);
  if (grid.words->read(grid.ofs(tile) * sizeof(uint32_t), words.val, n * sizeof(uint32_t))) return true;
  LOG_LINE("read_gZ_tile <!> read");
  return false;
}

// Expands the block of a tile into the part of Z that starts at pixel (x0, y0) of the tile's own frame.
uint64_t expand_block(const SwGrid& grid, int tile, const Image<uint8_t>* mask, const GridLimits& limits,
                      const uint32_t* words, int x0, int y0, Image<float>& Z, Image<uint8_t>* S) {
  const int dim = static_cast<int>(grid.hdr.dim);
  const uint32_t smax = static_cast<uint32_t>(std::clamp(limits.smax, 0, 31)) << 24;
  const Image<uint8_t>& occ = grid.gTocc(tile);
  uint64_t npix = 0, block = 0;
  for (int m = 0; m < mTn; m++) {
    if (occ[m] == 0) continue;
    const uint32_t* w = words + block * static_cast<uint64_t>(dim) * static_cast<uint64_t>(dim);
    block++;
    if (mask && (*mask)[m] == 0) continue;
    const int x = m % mTsub * dim - x0, y = m / mTsub * dim - y0;  // the microtile in Z
    const int xa = std::max(0, -x), xb = std::min(dim, Z.xsize() - x);
    for (int row = std::max(0, -y); row < std::min(dim, Z.ysize() - y); row++) {
      float* out = Z.row(y + row) + x;
      const uint32_t* in = w + static_cast<int64_t>(row) * dim;
      for (int i = xa; i < xb; i++) {
        const float z = decode_Z(in[i]);
        const bool ok =
            (in[i] & GRID_ZMASK) != 0 && (in[i] & 0x1F000000) <= smax && z >= limits.zmin && z <= limits.zmax;
        if (!ok) continue;
        out[i] = z;
        if (S) S->row(y + row)[x + i] = static_cast<uint8_t>((in[i] >> 24) & 31);
        npix++;
      }
    }
  }
  return npix;
}

// The occupancy of a tile of the table; null without one.
const Image<uint8_t>* find_tile(const Tocc& tiles, int k) {
  const auto at = std::ranges::lower_bound(tiles, static_cast<uint32_t>(k), {}, &ToccTile::k);
  return at != tiles.end() && at->k == static_cast<uint32_t>(k) ? &at->occ : nullptr;
}
}  // namespace

int SwGrid::tile_at(int64_t XI, int64_t YI) const {
  const int64_t x = XI - XImin, y = YI - YImin;
  if (x < 0 || y < 0 || x >= timg.xsize() || y >= timg.ysize()) return -1;
  const uint16_t k = timg.row(static_cast<int>(y))[x];
  return k == NO_TILE ? -1 : k;
}

int grid_smax_code(float smax, float GSD) {
  return static_cast<int>(std::lround(std::min(16.0f * smax / GSD, 31.0f)));
}

int reg_smax_code(float smax, float GSD) {
  return std::min(grid_smax_code(smax, GSD), grid_smax_code(smax, 1.0f));
}

bool read_gZDSidx_tiles(const CacheName& swath, SwGrid& grid) {
  const uint64_t nt = grid.TI.size();
  PosFileIn idx(false);
  if (!open_cache(swath, EXT_GMTIDX, idx)) return false;
  PosReader file(idx);
  if (!file.read(&grid.hdr, sizeof(grid.hdr))) return false;
  if (grid.hdr.magic != GridMagic || grid.hdr.version != GridVersion) return false;
  if (grid.hdr.dim == 0 || grid.hdr.dim > MAXDIM) return false;
  if (nt > MAX_TILES || idx.size() < sizeof(GridHdr) + 3 * nt) return false;
  grid.gT.resize(nt);
  if (nt > 0 && !file.read(grid.gT.val, 2 * nt)) return false;
  grid.gTocc = Vector<Image<uint8_t>>(nt);
  grid.ofs.resize(nt);
  const uint64_t nmtpix = static_cast<uint64_t>(grid.hdr.dim) * grid.hdr.dim;
  uint64_t nword = 0, nmap = 0;
  for (uint64_t k = 0; k < nt; k++) {
    uint8_t flag = 0;
    if (!file.read(&flag, 1) || flag > 1) return false;
    uint64_t n = 0;
    if (flag) {
      grid.gTocc[k].resize(mTsub, mTsub);
      if (!file.read(grid.gTocc[k].val, mTn)) return false;
      n = static_cast<uint64_t>(
          std::count_if(grid.gTocc[k].val, grid.gTocc[k].val + mTn, [](uint8_t v) { return v != 0; }));
      nmap++;
    }
    const uint64_t gT = grid.gT[k];
    if (gT != 0 && gT != n) return false;
    grid.ofs[k] = nword;
    nword += gT * nmtpix;
  }
  set_tile_map(grid);
  return idx.size() == sizeof(GridHdr) + 3 * nt + mTn * nmap && open_words(swath, nword, grid);
}

bool read_gZDSidx_tiles_idx(const CacheName& swath, SwGrid& grid) {
  return read_LTidx_TI(swath, grid.TI) && read_gZDSidx_tiles(swath, grid);
}

bool check_gZDSidx(const CacheName& swath, SwathId sw, int dim, bool full, bool check_dim_full) {
  LOG_ENTER("check_gZDSidx sw=" << sw << " dim=" << dim << " full=" << full);
  GridHdr hdr;
  BufBinFileIn file(256, false);
  if (!file.open(swath.file(EXT_GMTIDX)) || !file.read(&hdr, sizeof(hdr))) return false;
  if (hdr.magic != GridMagic || hdr.version != GridVersion) {
    LOG_LINE("<!> magic=" << hdr.magic << " version=" << hdr.version);
    return false;
  }
  if (swath.is_union() || file_mode(swath.source()) != -1) {
    const int64_t tstamp = source_tstamp(swath);
    if (tstamp == -1) {
      ERROR_MSG("timestamp read error, " << swath.source());
      return false;
    }
    if (CHECK_SW_TSTAMP && hdr.tstamp != tstamp) {
      LOG_LINE("<!> _tstamp=" << hdr.tstamp << " tstamp=" << tstamp);
      return false;
    }
  }
  if (hdr.smaxf != GZ_SMAXF) {
    LOG_LINE("<!> _smaxf=" << hdr.smaxf);
    return false;
  }
  if (!is_regular_file(swath.file(EXT_GMTZDS))) {
    LOG_LINE("<!> mT_ZDS_EXT");
    return false;
  }
  if (check_dim_full && (hdr.dim != static_cast<uint32_t>(dim) || (hdr.full != 0) != full)) {
    LOG_LINE("<!> _dim=" << hdr.dim << " _full=" << static_cast<int>(hdr.full));
    return false;
  }
  return true;
}

bool check_gZDSidx_gTocc(const SwGrid& grid, const Tocc& wanted) {
  for (const ToccTile& t : wanted) {
    if (t.k >= grid.gTocc.size() || grid.gTocc(t.k).empty()) {
      LOG_LINE("<!> gTocc tile " << t.k);
      return false;
    }
    for (int m = 0; m < mTn; m++)
      if ((t.occ[m] & 1) && grid.gTocc(t.k)[m] == 0) {
        LOG_LINE("<!> gTocc mtile " << t.k << " " << m);
        return false;
      }
  }
  return true;
}

GridRead read_gZ_tile(const SwGrid& grid, int tile, const Image<uint8_t>* mask, const GridLimits& limits,
                      Image<float>& Z, Image<uint8_t>* S) {
  const int n = mTsub * static_cast<int>(grid.hdr.dim);
  Z.resize(n, n, NODATA);
  if (S) S->resize(n, n, 0);
  if (tile < 0 || grid.gT(tile) == 0) {
    LOG_LINE("read_gZ_tile <!> tile: nmt=0");
    return GridRead::none;
  }
  Vector<uint32_t> words;
  if (!read_block(grid, tile, words)) return GridRead::failed;
  return expand_block(grid, tile, mask, limits, words.val, 0, 0, Z, S) > 0 ? GridRead::heights
                                                                           : GridRead::none;
}

GridRead read_gZ_tile_8nn(const SwGrid& grid, int64_t XI, int64_t YI, int buf, const Tocc* mask,
                          const GridLimits& limits, Image<float>& Z, Image<uint8_t>* S) {
  const int n = mTsub * static_cast<int>(grid.hdr.dim);
  ASSERT(buf >= 0 && buf <= n);
  Z.resize(n + 2 * buf, n + 2 * buf, NODATA);
  if (S) S->resize(n + 2 * buf, n + 2 * buf, 0);
  Vector<uint32_t> words;
  bool any = false;
  uint64_t npix = 0;
  for (int dy = -1; dy <= 1; dy++)
    for (int dx = -1; dx <= 1; dx++) {
      const int tile = grid.tile_at(XI + dx, YI + dy);
      if (tile < 0 || grid.gT(tile) == 0 || (buf == 0 && (dx != 0 || dy != 0))) continue;
      const Image<uint8_t>* const occ = mask ? find_tile(*mask, tile) : nullptr;
      if (mask && !occ) continue;
      if (!read_block(grid, tile, words)) return GridRead::failed;
      any = true;
      npix += expand_block(grid, tile, occ, limits, words.val, -buf - dx * n, -buf - dy * n, Z, S);
    }
  if (!any) LOG_LINE("read_gZ_tile_8nn <!> nn tiles: nmt=0 ");
  return npix > 0 ? GridRead::heights : GridRead::none;
}

GridRead read_gZ_tile_sub(const SwGrid& grid, int tile, int sub, Image<uint32_t>& out) {
  const int dim = static_cast<int>(grid.hdr.dim), n = mTsub * dim;
  ASSERT(sub > 0 && n % sub == 0);
  out.resize(n / sub, n / sub, 0u);
  if (tile < 0 || grid.gT(tile) == 0) return GridRead::none;
  Vector<uint32_t> words;
  if (!read_block(grid, tile, words)) return GridRead::failed;
  const Image<uint8_t>& occ = grid.gTocc(tile);
  const auto first_taken = [sub](int from) { return from + (sub / 2 - from % sub + sub) % sub; };
  uint32_t any = 0;
  const uint32_t* block = words.val;
  for (int m = 0; m < mTn; m++) {
    if (occ[m] == 0) continue;
    const int x0 = m % mTsub * dim, y0 = m / mTsub * dim;  // the microtile in the tile
    const int x1 = first_taken(x0);
    for (int y = first_taken(y0); y < y0 + dim; y += sub) {
      uint32_t* to = out.row(y / sub);
      const uint32_t* from = block + static_cast<int64_t>(y - y0) * dim;
      for (int x = x1; x < x0 + dim; x += sub) any |= to[x / sub] = from[x - x0];
    }
    block += static_cast<int64_t>(dim) * dim;
  }
  return (any & GRID_ZMASK) != 0 ? GridRead::heights : GridRead::none;
}
}  // namespace veld

// Per-tile tables: counts, heights, times, for one tile or for all tiles of a swath.
#include <algorithm>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_internal.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"

namespace veld {
namespace {
// Calls use(tile index, record) for the nt records of a file, in order.
template <typename Record, typename Use>
bool for_all_tiles(const CacheName& swath, const char* suffix, uint32_t nt, Record& record, uint64_t bytes,
                   Use use) {
  PosFileIn file(false);
  if (!open_cache(swath, suffix, file) || file.size() != nt * bytes) return false;
  PosReader in(file);
  for (uint32_t k = 0; k < nt; k++) {
    if (!in.read(&record, bytes)) return false;
    use(k);
  }
  return true;
}

template <typename T>
bool read_images(const CacheName& swath, const char* suffix, uint32_t nt, Vector<Image<T>>& images) {
  T values[mTn];
  static_assert(sizeof values == MT_IMG_BYTES);
  images.resize(nt);
  return for_all_tiles(swath, suffix, nt, values, sizeof values, [&](uint32_t k) {
    images[k].resize(mTsub, mTsub);
    std::copy_n(values, mTn, images[k].val);
  });
}

template <typename T, typename S>
void to_image(const S* values, int side, Image<T>& img) {
  img.resize(side, side);
  std::copy_n(values, side * side, img.val);
}
}  // namespace

bool read_LmTidx_tiles_TN(const CacheName& swath, uint32_t nt, Vector<Image<uint32_t>>& TN) {
  return read_images(swath, EXT_MTIDX, nt, TN);
}

bool read_LmTidx_tiles_mocc(const CacheName& swath, uint32_t nt, Vector<Image<uint8_t>>& mocc) {
  uint32_t counts[mTn];
  mocc.resize(nt);
  return for_all_tiles(swath, EXT_MTIDX, nt, counts, sizeof counts, [&](uint32_t k) {
    mocc[k].resize(mTsub, mTsub);
    for (int i = 0; i < mTn; i++) mocc[k][i] = counts[i] > NMT_MIN ? 1 : 0;
  });
}

bool TileTables::open(const CacheName& swath, uint32_t nt, bool times) {
  const auto opened = [&](PosFileIn& file, const char* suffix, uint64_t bytes) {
    if (!open_cache(swath, suffix, file)) return false;
    if (file.size() == nt * bytes) return true;
    ERROR_MSG("table of " << file.size() << " bytes, expected " << nt * bytes << ", file='" << file.name()
                          << "'");
    return false;
  };
  return opened(counts_, EXT_MTIDX, MT_IMG_BYTES) && opened(heights_, EXT_MTZM, MT_IMG_BYTES) &&
         (!times || opened(times_, EXT_MTDT, sizeof(LmTtimeRec)));
}

bool TileTables::read_N(uint32_t k, Image<uint32_t>& N) const {
  N.resize(mTsub, mTsub);
  return counts_.read(k * MT_IMG_BYTES, N.val, MT_IMG_BYTES);
}

bool TileTables::read_Zm(uint32_t k, Image<int32_t>& Zm) const {
  Zm.resize(mTsub, mTsub);
  return heights_.read(k * MT_IMG_BYTES, Zm.val, MT_IMG_BYTES);
}

bool TileTables::read_Vt(uint32_t k, Image<int32_t>& Vt) const {
  Vt.resize(mTsub + 1, mTsub + 1);
  return times_.read(k * sizeof(LmTtimeRec) + offsetof(LmTtimeRec, vertex), Vt.val, Vt.size() * 4);
}

bool TileTables::read_Ct(uint32_t k, Image<int32_t>& Ct) const {
  Ct.resize(mTsub, mTsub);
  return times_.read(k * sizeof(LmTtimeRec) + offsetof(LmTtimeRec, centre), Ct.val, MT_IMG_BYTES);
}

bool read_sw_CZt_tiles(const CacheName& swath, uint32_t nt, Vector<Image<int32_t>>& Ct,
                       Vector<Image<int32_t>>& Zm) {
  LmTtimeRec rec;
  Ct.resize(nt);
  return for_all_tiles(swath, EXT_MTDT, nt, rec, sizeof rec,
                       [&](uint32_t k) { to_image(rec.centre, mTsub, Ct[k]); }) &&
         read_images(swath, EXT_MTZM, nt, Zm);
}

bool read_sw_t_tiles(const CacheName& swath, uint32_t nt, Vector<Image<int32_t>>& Ct,
                     Vector<Image<uint8_t>>& dt, Vector<Image<uint8_t>>& dev) {
  LmTtimeRec rec;
  Ct.resize(nt);
  dt.resize(nt);
  dev.resize(nt);
  return for_all_tiles(swath, EXT_MTDT, nt, rec, sizeof rec, [&](uint32_t k) {
    to_image(rec.centre, mTsub, Ct[k]);
    to_image(rec.dt, mTsub, dt[k]);
    to_image(rec.dev, mTsub, dev[k]);
  });
}
}  // namespace veld

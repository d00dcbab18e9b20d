// prj/LiDAR/LmTidx_r/LmTidx_rec.h
// Records of the tile cache files, byte for byte. Little-endian; packed, so fields stand unaligned: a field
// goes into a reference (std::min, a container) as a copy only: double{info.bbmin[0]}.
#pragma once
#include <cstddef>
#include <cstdint>

#include "prj/LiDAR/LmTidx_r/tile_geom.h"
#include "prj/LiDAR/swath/swath_clock.h"

namespace veld {
constexpr uint32_t TileMagic = 0x471EFA32;
constexpr uint32_t TileVersion = 0x3ADE0;

struct TIsxy {       // one tile of a swath
  uint32_t x, y, n;  // tile indices, points in the tile
};
static_assert(sizeof(TIsxy) == 12);

struct TileInfo {   // a frame of tiles that is not tied to one swath
  uint32_t XI = 0;  // indices of its lower left tile
  uint32_t YI = 0;
  int nx = 0;  // size in tiles
  int ny = 0;
};

struct [[gnu::packed]] LTidxHdr {  // start of ".0T.idx": what the cache was made from and with
  uint32_t magic;                  // TileMagic
  uint32_t stmax;                  // -dev_max x 1000, truncated
  uint16_t dtr;                    // -dt_range, s
  uint16_t str;                    // -dev_range x 1000, truncated
  uint32_t version;                // TileVersion
  int64_t tstamp;                  // modification time of the LAS file, s
  uint32_t TIO_XI;                 // tile origin of the drop map
  uint32_t TIO_YI;
  uint32_t reserved;  // written as 0, never read
  uint64_t chk;       // checksum of the drop map, 0 without one
  uint8_t msublevel;  // mT_SUB_LEVEL
  uint8_t nxcls;      // count of dropped classes: the bytes that follow this record
  uint8_t xlevel;     // low 7 bits
  uint8_t flags;      // HDR_* bits
};

struct [[gnu::packed]] LTidxInfo {  // the swath in numbers; coordinates in metres
  uint64_t np;                      // points kept in the microtiles
  uint32_t nt;                      // tiles
  uint32_t nmt;                     // microtiles that hold a point
  uint32_t reserved;                // 0
  uint8_t flags;                    // INFO_* bits
  double t0;                        // s, time of the first kept point: origin of all stored times
  double tmin, tmax;                // s
  uint32_t XImin, YImin, Nmin;      // smallest tile indices, smallest tile count
  uint32_t XImax, YImax, Nmax;
  double bbmin[3];  // box of the kept points
  double bbmax[3];
  double bbmin0[3];  // box of all points with valid coordinates
  double bbmax0[3];
  float mdt, maxdt;    // s, mean and largest time range in a microtile
  float mdev, maxdev;  // mean and largest time deviation (ratio to the range)
  float amin, amax;    // scan angle, degrees
  double mbr[4][2];    // corners of the minimum bounding rectangle: (umin,vmin) (umax,vmin) (umax,vmax)
                       // (umin,vmax)
};

static_assert(sizeof(LTidxHdr) == 48 && offsetof(LTidxHdr, tstamp) == 16 && offsetof(LTidxHdr, chk) == 36 &&
              offsetof(LTidxHdr, flags) == 47);
static_assert(sizeof(LTidxInfo) == 253 && offsetof(LTidxInfo, t0) == 21 && offsetof(LTidxInfo, XImin) == 45 &&
              offsetof(LTidxInfo, bbmin) == 69 && offsetof(LTidxInfo, bbmin0) == 117 &&
              offsetof(LTidxInfo, mdt) == 165 && offsetof(LTidxInfo, mbr) == 189);

// Bits of LTidxHdr::flags.
constexpr uint8_t HDR_FIRST = 1;      // only first returns were kept (-last off)
constexpr uint8_t HDR_ALL = 2;        // -keep_all
constexpr uint8_t HDR_LARGE = 4;      // -large
constexpr uint8_t HDR_FEET = 8;       // DATAUNIT is not 1
constexpr uint8_t HDR_INT_FEET = 16;  // DATAUNIT is 0.3048
constexpr uint8_t HDR_SYN = 32;       // -keep_synthetic
constexpr uint8_t HDR_TPROC = 64;     // time stamps were processed
constexpr uint8_t HDR_DM = 128;       // a drop map was applied

// Bits of LTidxInfo::flags.
constexpr uint8_t INFO_ADJ = 1;  // adjusted GPS time
constexpr uint8_t INFO_RO = 2;   // a rollover was corrected
constexpr uint8_t INFO_WRO = 4;  // it was a week's, else a day's

// The clock in the record, as the tiling leaves it.
inline SwathClock clock_of(const LTidxInfo& info) {
  SwathClock c;
  if (info.flags & INFO_RO) c.rover = info.flags & INFO_WRO ? Rollover::week : Rollover::day;
  c.raw_adj = info.flags & INFO_ADJ;
  c.t0 = info.t0;
  c.tmin = info.tmin;
  c.tmax = info.tmax;
  return c;
}
inline void set_clock(const SwathClock& c, LTidxInfo& info) {
  info.flags = static_cast<uint8_t>((c.raw_adj ? INFO_ADJ : 0) | (c.rover != Rollover::none ? INFO_RO : 0) |
                                    (c.rover == Rollover::week ? INFO_WRO : 0));
  info.t0 = c.t0;
  info.tmin = c.tmin;
  info.tmax = c.tmax;
}

// ".mT.tbl.dT", one record a tile: times in ticks of 1/1024 s relative to t0, NO_I32 where there is none.
struct LmTtimeRec {
  int32_t centre[mTn];                        // at microtile centres
  int32_t vertex[(mTsub + 1) * (mTsub + 1)];  // at microtile corners, 33 a row
  uint8_t dt[mTn];                            // coded time range: 255 is DT_RANGE seconds and above
  uint8_t dev[mTn];                           // coded deviation: 255 is DEV_RANGE and above; 0 only for 0
};
static_assert(sizeof(LmTtimeRec) == 10500);

struct [[gnu::packed]] LmTpoint {  // ".mT.XYZ": one point, in units
  uint32_t xyz;   // bits 0-13 X in the microtile, 14-27 Y, 28-31 bits 16-19 of the relative height
  uint16_t zlow;  // bits 0-15 of the relative height
};
static_assert(sizeof(LmTpoint) == 6);

constexpr uint64_t MT_IMG_BYTES = mTn * 4;  // one tile of ".mT.idx" or ".mT.tbl.Zm"
constexpr uint64_t TT_REC_BYTES = 11;       // one point of a temporary tile file
}  // namespace veld

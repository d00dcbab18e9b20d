// prj/LiDAR/LmTidx_w/LmTidx_w_internal.h
// Private to LmTidx_w: what the two passes over a swath share.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lib/DataStructure/image.h"
#include "lib/DataStructure/vector.h"
#include "lib/general/family_out.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_files.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_internal.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_rec.h"
#include "prj/LiDAR/LmTidx_w/LmTidx_w.h"

namespace veld {
constexpr double BIG = 2e307;             // running minima start here, maxima at -BIG
constexpr double MAX_SWATH_SPAN = 32400;  // s

struct Box {  // x, y, z
  double min[3] = {BIG, BIG, BIG};
  double max[3] = {-BIG, -BIG, -BIG};
  bool empty() const { return min[0] > max[0]; }
  void add(const Box& b) {
    for (int i = 0; i < 3; i++) {
      if (b.min[i] < min[i]) min[i] = b.min[i];
      if (b.max[i] > max[i]) max[i] = b.max[i];
    }
  }
};

struct TTresult {            // of the first pass
  bool again = false;        // a rollover was found: nothing but clock.rover, raw_adj and tmax is valid
  SwathClock clock;          // raw_adj: the file's flag, or with -auto_adj what the times look like
  int64_t tstamp = -1;       // modification time of the file, s
  Box kept, all;             // metres
  float amin = 0, amax = 0;  // scan angle, degrees
  uint64_t npts = 0;         // kept points
  uint64_t nfile = 0;        // points read
  Vector<TIsxy> TI;
};

struct LmTstat {        // of the second pass, summed over the tiles
  uint64_t np = 0;      // points stored
  uint64_t nlost = 0;   // points that fit into no microtile record
  uint64_t ntdrop = 0;  // tiles with masked microtiles
  uint64_t nmt = 0;     // microtiles with points
  uint64_t nmtl = 0;    // of these, with time statistics
  uint64_t nfit = 0;    // of these, with a time
  uint64_t ndev = 0;    // of these, refused for their deviation
  double sum_dt = 0;    // ticks
  double sum_dev = 0;   // per mille
  int64_t max_dt = 0;   // ticks
  int64_t max_dev = 0;  // per mille
};

// ERROR line; keeps its text as the reason of the failure. Always false.
bool swath_error(SwathFailure& why, const std::string& text, SwathFault fault = SwathFault::input);

// First pass: filters the points of a file into temporary tile files. rover, before: the rollover that the
// pass before found and a time before it. On failure the tile files made so far are removed.
bool sw_LAS2TT(const CacheName& swath, SwathId sw, const TilingParam& par, Rollover rover, double before,
               uint64_t max_bytes, TTresult& res, SwathFailure& why);

// Second pass: temporary tile files into the final family, the index last. Leaves np = 0 when no point is
// left. Waits for the memory that its largest tile needs.
bool sw_TT2LmT_XYZ(const CacheName& swath, const TilingParam& par, MemoryBudget& budget, TTresult& tt,
                   LmTstat& stat, SwathFailure& why);

void remove_TT_files(const CacheName& swath, const Vector<TIsxy>& TI);

// --- steps of the second pass on one tile ---

struct TileWork {                // buffers of one swath, reused from tile to tile
  std::vector<uint8_t> raw;      // n x 11 bytes (and 8 of slack)
  std::vector<LmTpoint> points;  // in microtile order
  std::vector<int32_t> ticks;    // their times
  uint32_t N[mTn];               // points of each microtile; after sorting, those stored
  uint32_t offset[mTn];          // first of each in points and ticks
  int32_t Zm[mTn];               // NO_I32 where empty
  int64_t sum[mTn];
  LmTtimeRec time;
};

struct TileCounts {       // of one tile; no count can pass 32 bits, since the tile's own does not
  uint64_t nmt = 0;       // microtiles with points; after sorting, with stored points
  uint64_t nmtdrop = 0;   // masked microtiles that had points
  uint64_t nptsdrop = 0;  // their points
  uint64_t np = 0;        // stored points
  uint64_t ndrop = 0;     // points of masked microtiles met while sorting
  uint64_t nZout = 0;     // points too far from the mean height of their microtile
};

// Counts and mean heights of the microtiles. mask: 32 x 32, not 0 = dropped; null for none.
bool comp_LmT_LNZm(TileWork& w, uint32_t n, const TileGeom& g, const Image<uint8_t>* mask, TileCounts& c);
// Points into microtile order.
bool sort_LmT_XYZT(TileWork& w, uint32_t n, const TileGeom& g, TileCounts& c);
// Time planes of the microtiles; adds to the statistics. stmax: largest accepted deviation, per mille.
void proc_LmT(TileWork& w, const TileGeom& g, uint32_t stmax, LmTstat& stat);

// --- the swath as a whole ---

struct OccBits {  // the occupied microtiles of a tile: bit m % 64 of word m / 64
  uint64_t word[mTn / 64] = {};
};
OccBits occupied_bits(const uint32_t* counts);  // 1024 counts

// Minimum bounding rectangle of the occupied microtiles into info, whose counts are logged with it. False when
// there are too few of them.
bool mtile_MBR_stat(const TileGeom& g, const Vector<TIsxy>& TI, const Vector<OccBits>& occ, LTidxInfo& info);
// ".0T.idx" of a family under construction. False after an ERROR line.
bool write_LTidx(FamilyOut& family, const LTidxHdr& hdr, const std::vector<uint8_t>& xcls,
                 const LTidxInfo& info, const Vector<TIsxy>& TI);
}  // namespace veld

// prj/LiDAR/LmTinter/LmTinter_internal.h
// The steps of reg_inter_LmT on one pair.
#pragma once
#include <functional>
#include <string>
#include <vector>

#include "lib/threads/memory_budget.h"
#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/LmTinter/LmTinter.h"
#include "prj/LiDAR/LmTinter/corr_field.h"
#include "prj/LiDAR/LmTinter/inter_tiles.h"
#include "prj/LiDAR/TNRreg/TNRreg.h"
#include "prj/LiDAR/stat_xyz.h"

namespace veld {
constexpr uint32_t RegCacheMagic = 0xAC810769;
constexpr uint32_t RegCacheVersion = 0x3378D;  // 0x3378C: pixels beside holes took part

struct [[gnu::packed]] RegpairIdx {  // ".rpc.idx": what a pair was registered from and with
  uint32_t magic = RegCacheMagic;
  uint32_t version = RegCacheVersion;
  uint64_t tstamp1 = 0, tstamp2 = 0;        // time stamps of the two grid indices, ns
  uint64_t P1 = 0, N1 = 0, P2 = 0, N2 = 0;  // hashes of directory and file name
  int32_t js = 0, je = 0, jreg = 0, boost = 0;
  float smaxf = 0, zmin = 0, zmax = 0, regsmax = 0, regs0 = 0;
  uint8_t okreg = 0;
};
static_assert(sizeof(RegpairIdx) == 93);

// The record of a pair as it stands now, okreg off. False after an ERROR line when a grid index has no time.
bool make_regpair_idx(const CacheName& swath1, const CacheName& swath2, const RegLevels& levels,
                      RegpairIdx& idx);
// Cache file of a pair, without suffix; empty when the cache is off.
std::string regpair_name(const RegpairIdx& idx);
// Whether the pair's deformation in the cache was made from the same grids with the same parameters, and is
// valid.
bool check_regpair_idx(SwathId sw1, SwathId sw2, const RegpairIdx& now);
bool write_regpair_idx(SwathId sw1, SwathId sw2, const RegpairIdx& now, bool okreg);

struct PairJob {  // what is to be done with all pairs
  const Project& prj;
  const InterParam& param;
  RegLevels levels;
  // Corrections of the swaths: the displacements that they amount to are a model that pairs are registered about. Null:
  // none, pairs are registered from coarse to fine.
  const SwathVector<SCorrTbl>* model = nullptr;
  const CorrAtOf* corr_at = nullptr;  // the same at any place, with model
};
struct PairWork : PairJob {
  int nthreads;          // within a pair
  MemoryBudget& memory;  // a pair waits for its share
};
struct PairSwaths {  // tables of the swaths that a thread is at
  InterSwath s1, s2;
};
struct PairOutcome {                    // what a pair gives to the logs and the DUT files
  InterState state = InterState::none;  // of its tiles
  std::vector<DUTstr> rec;
  std::string lost;  // why there are no records; empty when that is no loss
  bool registered = false, cached = false, has_before = false, has_after = false;
  double Mpix = 0;
  DZstat before, after;
  StatXYZ disp;
  Tocc tiles;                    // of the pair, for the maps of the differences and footprints
  Vector<Image<float>> dz0, dz;  // these by tile, before and after; empty when they are not wanted
};
// False, after an ERROR line, when one of the program's own files cannot be read or written: a pair that is left out
// for its data is no failure.
[[nodiscard]] bool process_pair(const PairWork& work, const SwPair& p, PairSwaths& sw, PairOutcome& out);

// Takes the outcome of the pair at a place of the list. False after an ERROR line.
using PairWriter = std::function<bool(size_t, PairOutcome&)>;
// Processes pairs side by side, as many as the memory holds; threads that are left over work within the pairs. Outcomes
// are written one at a time in the order of the list. False after an ERROR line.
[[nodiscard]] bool for_pairs(const PairJob& job, const std::vector<SwPair>& pairs, const PairWriter& write);

// The records of a registered pair of swaths whose times are open. stat: of the displacements written, metres. False after an ERROR line when
// the times cannot be read.
[[nodiscard]] bool write_DUT(const Project& prj, const InterSwath& s1, const InterSwath& s2,
                             const InterTiles& tiles, const NRresult& reg, int Jend, std::vector<DUTstr>& rec,
                             StatXYZ& stat);
}  // namespace veld

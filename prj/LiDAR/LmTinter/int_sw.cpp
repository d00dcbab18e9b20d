// Choice of the swath pairs.
#include <algorithm>
#include <set>

#include "lib/general/log.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/LmTinter/LmTinter.h"

namespace veld {
namespace {
uint64_t tile_place(const TIsxy& t) { return static_cast<uint64_t>(t.y) << 32 | t.x; }

// Whether two tiles have an occupied microtile in common.
bool tiles_meet(const Image<uint32_t>& N1, const Image<uint32_t>& N2) {
  for (int m = 0; m < mTn; m++)
    if (N1[m] > NMT_MIN && N2[m] > NMT_MIN) return true;
  return false;
}

struct SwathTables {
  const Vector<TIsxy>& TI;
  const TileTables& tables;
};

// Walks over the tiles of the shorter table and looks each up in the longer one: a strip against a reference
// of many thousand tiles costs what the strip is long. False after an ERROR line.
bool swaths_meet(const SwathTables& a, const SwathTables& b, bool& meet) {
  if (a.TI.size() > b.TI.size()) return swaths_meet(b, a, meet);
  Image<uint32_t> N1, N2;
  meet = false;
  const TIsxy* from = b.TI.begin();
  for (uint64_t k = 0; k < a.TI.size() && !meet; k++) {
    const TIsxy& t = a.TI[k];
    from = std::lower_bound(from, b.TI.end(), t,
                            [](const TIsxy& u, const TIsxy& v) { return tile_place(u) < tile_place(v); });
    if (from == b.TI.end()) break;
    if (tile_place(*from) != tile_place(t)) continue;
    if (!a.tables.read_N(static_cast<uint32_t>(k), N1) ||
        !b.tables.read_N(static_cast<uint32_t>(from - b.TI.begin()), N2))
      return false;
    meet = tiles_meet(N1, N2);
  }
  return true;
}

// Pairs with the same first swath, near[first, last).
struct PairRun {
  size_t first, last;
};

std::vector<PairRun> list_runs(const SwPairList& near) {
  std::vector<PairRun> runs;
  for (size_t i = 0; i < near.size(); i++) {
    if (i == 0 || near[i].first != near[i - 1].first) runs.push_back({i, i});
    runs.back().last = i + 1;
  }
  return runs;
}

const char* filter_word(int v, const char* same, const char* all, const char* diff) {
  return v == KEEP_SAME ? same : v == KEEP_ALL ? all : diff;
}

// Channels are a swath's own; a line flown by two channels is two swaths at the same time.
struct PairFlags {
  bool samech, samefl, samegrpfl, anyfixed, main1, main2;
};

PairFlags comp_pair_flags(const Swath& a, const Swath& b) {
  PairFlags f;
  f.anyfixed = a.fixed || b.fixed;
  f.samech = a.channel == b.channel;
  f.samefl = !f.samech && !f.anyfixed && a.clock.tmin < b.clock.tmax && b.clock.tmin < a.clock.tmax;
  f.samegrpfl = a.group == b.group || f.samefl;
  f.main1 = a.is_main();
  f.main2 = b.is_main();
  return f;
}

bool keep_pair(const PairFlags& f, const PairFilter& filter) {
  if (filter.RDIM == 1 && !f.samech && !f.samefl) return false;
  if (filter.RDIM == 2 && !(f.samefl ? f.main1 || f.main2 : f.main1 && f.main2)) return false;
  if (!filter.filter) return true;
  if (filter.GRP == KEEP_SAME && !f.samegrpfl) return false;
  if (filter.GRP == KEEP_DIFF && f.samegrpfl) return false;
  if (filter.REF == KEEP_SAME && f.anyfixed) return false;
  if (filter.REF == KEEP_DIFF && !f.anyfixed) return false;
  if (filter.CH == KEEP_SAME && !f.samech) return false;
  return filter.CH != KEEP_DIFF || !f.samech;
}
}  // namespace

bool comp_sw_overlap(const Project& prj, const SwPairList& near, int nthreads, SwPairList& overlap) {
  LOG_ENTER("comp_sw_overlap nsw=" << prj.swaths.size() << " ninter2=" << near.size());
  SwathVector<Vector<TIsxy>> TI(prj.swaths);
  SwathVector<uint8_t> wanted(prj.swaths);
  const auto gridded = [&](SwathId id) { return prj.swaths[id].state != SwathState::no_grid; };
  const auto open = [&](SwathId id, TileTables& tables) {
    return tables.open(prj.swaths[id].cache, static_cast<uint32_t>(TI[id].size()), false);
  };
  for (const auto& [i, j] : near) wanted[i] = wanted[j] = 1;
  for (const Swath& s : prj.swaths.present())
    if (wanted[s.id] && gridded(s.id) && !read_LTidx_TI(s.cache, TI[s.id])) {
      ERROR_MSG("missing/incompatible temp. tile files, swath " << s.path());
      return false;
    }
  const std::vector<PairRun> runs = list_runs(near);
  std::vector<uint8_t> meet(near.size(), 0);
  const int64_t bad = run_units(static_cast<int64_t>(runs.size()), nthreads, [&](int64_t r, int) {
    const PairRun run = runs[static_cast<size_t>(r)];
    const SwathId i = near[run.first].first;
    TileTables first;
    if (!gridded(i)) return true;
    if (!open(i, first)) return false;
    for (size_t p = run.first; p < run.last; p++) {
      const SwathId j = near[p].second;
      TileTables second;
      bool both = false;
      if (!gridded(j)) continue;
      if (!open(j, second) || !swaths_meet({TI[i], first}, {TI[j], second}, both)) return false;
      meet[p] = both;
    }
    return true;
  });
  overlap.clear();
  for (size_t p = 0; p < near.size() && bad < 0; p++)
    if (meet[p]) overlap.push_back(near[p]);
  LOG_LINE("nover=" << overlap.size());
  return bad < 0;
}

std::vector<SwPair> comp_int_sw(const SwathTable& swaths, const SwPairList& overlap, const PairFilter& filter,
                                bool REG, int& n0, int& n1) {
  const char* label = REG ? "Reg Pair filtering" : "QC Pair filtering";
  LOG_ENTER("comp_int_sw nsw=" << swaths.size() << " REG=" << REG << " ALLDZ=" << filter.ALLDZ << " RDIM="
                               << filter.RDIM << " GRPREG=" << filter.GRP << " REFREG=" << filter.REF
                               << " CHREG=" << filter.CH << " filter=" << filter.filter);
  if (filter.filter)
    LOG_LINE(label << ": Grp=" << filter_word(filter.GRP, "same", "all", "diff")
                   << " Ref=" << filter_word(filter.REF, "off", "on", "only")
                   << " Ch=" << filter_word(filter.CH, "same", "all", "diff") << " Reduce=" << filter.RDIM);
  n0 = n1 = 0;
  std::vector<SwPair> pairs;
  std::set<int> channels;
  for (const Swath& s : swaths.present())
    if (s.mobile()) channels.insert(s.channel);
  if (REG && filter.RDIM == 2 && channels.size() > 2)
    LOG_MSG(
        "of " << channels.size()
              << " channels those of main channels alone are registered between lines; where these have few "
                 "points all do better (option -reg_reduce 1)");
  for (const auto& [i, j] : overlap) {
    const Swath &a = swaths[i], &b = swaths[j];
    if (a.fixed && b.fixed) continue;
    const PairFlags f = comp_pair_flags(a, b);
    const bool reg = keep_pair(f, filter);
    LOG_LINE("sw1=" << i << " sw2=" << j << " ch1=" << a.channel << " ch2=" << b.channel << " main1="
                    << f.main1 << " main2=" << f.main2 << " samech=" << f.samech << " samefl=" << f.samefl
                    << " samegrpfl=" << f.samegrpfl << " nofx=" << !f.anyfixed << " reg=" << reg);
    n0++;
    n1 += reg;
    if (reg || filter.ALLDZ) pairs.push_back({i, j, reg, static_cast<int>(pairs.size())});
  }
  LOG_LINE("n0=" << n0 << " n1=" << n1 << " " << label);
  return pairs;
}
}  // namespace veld

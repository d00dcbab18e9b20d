#include "prj/LiDAR/LmTQC/LmTQC.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/result_file.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/LmTQCimg/pair_maps.h"
#include "prj/LiDAR/LmTinter/LmTinter.h"
#include "prj/LiDAR/LmTinter/corr_field.h"
#include "prj/LiDAR/LmTinter/inter_tiles.h"
#include "prj/LiDAR/TNRreg/TNRreg.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr int NM_TMIN = 4;  // smallest overlap of a tile, microtiles: as for the registration

const char* word(int v, const char* same, const char* all, const char* diff) {
  return v == KEEP_SAME ? same : v == KEEP_ALL ? all : diff;
}

struct QCsum {
  double n = 0, sum = 0, sum2 = 0, area = 0;
};

void add_DZ(QCsum& t, const DZstat& s, double m2) {
  const double n = static_cast<double>(s.n), m = static_cast<double>(s.m), sd = static_cast<double>(s.s);
  t.n += n;
  t.sum += n * m;
  t.sum2 += n * (m * m + sd * sd);
  t.area += m2;
}

// Whether a swath that could not be read has a grid of this spacing all the same. Without one it is only left out.
bool unreadable_grid(const Project& prj, SwathId sw, const InterSwath& s) {
  if (s.sw != sw || s.ok || file_size(s.cache.file(EXT_GMTIDX)) < 0) return false;
  PosFileIn in(false);
  GridHdr hdr;
  const bool read = open_cache(s.cache, EXT_GMTIDX, in) && in.read(0, &hdr, sizeof hdr);
  if (read && static_cast<int>(hdr.dim) != prj.scale.dim) return false;
  ERROR_MSG("missing/incompatible temp. tile or grid files, swath " << s.cache.source());
  return true;
}

// gridok: both swaths have grids. failed: a grid could not be read, after an ERROR line.
bool measure_pair(const Project& prj, const SwPair& p, const SwathVector<SCorrTbl>& corr, int nthreads,
                  InterSwath& s1, InterSwath& s2, DZstat& stat, DZstat& before, double& Mpix, bool& gridok,
                  bool& failed, DZpicture& picture) {
  gridok = read_InterSwath(prj, p.sw1, s1) && read_InterSwath(prj, p.sw2, s2);
  if (!gridok) {
    failed = unreadable_grid(prj, p.sw1, s1) || unreadable_grid(prj, p.sw2, s2);
    return false;
  }
  const SCorrTbl &c1 = corr[p.sw1], &c2 = corr[p.sw2];
  LOG_ENTER("SCorr2Def sw1=" << p.sw1 << " sw2=" << p.sw2 << " SCorr1[sw1].size()=" << c1.C.size()
                             << " SCorr1[sw2].size()=" << c2.C.size());
  if (!fits(c1, s1) || !fits(c2, s2)) {
    LOG_LINE("<!> tiles and correction tables differ");
    gridok = false;
    return false;
  }
  InterTiles inter;
  NRpair pair;
  const RegLevels levels = levels_for(max_corr(c1) + max_corr(c2), prj.scale, 0);
  const InterState state = inter_TZ1_TZ2(prj, s1, s2, NM_TMIN, levels, nthreads, inter, pair);
  failed = state == InterState::failed;
  if (state != InterState::ok) return false;
  Vector<Image<xyz>> Def(inter.tiles.size());
  for (size_t i = 0; i < inter.tiles.size(); i++)
    Def[i] = SCorr2Def(s1, s2, c1, c2, inter.tiles[i], prj.scale.GSD(), 0);
  Mpix += static_cast<double>(inter.nfpix2) * 1e-6;
  prepare_pair(pair, 0, nthreads);
  DZmap map;
  map.sub = picture.sub();
  map.want = picture.active();
  const bool ok = acc_qc_tiles(pair, &Def, nthreads, stat, &map, &before) && stat.n > 0;
  failed = ok && !picture.add(inter.tiles, map.dz);
  return ok;
}

void set_totals(const QCsum& sum, double& stddev, double& rms, double& area) {
  if (!(sum.n > 0)) return;
  const double mean = sum.sum / sum.n;
  rms = std::sqrt(sum.sum2 / sum.n);
  stddev = std::sqrt(std::max(0.0, sum.sum2 / sum.n - mean * mean));
  area = sum.area;
}

// A line a measured pair, then the totals. pixel: m2.
bool write_DZcorr_log(const Project& prj, const std::vector<SwPair>& pairs, const std::vector<DZstat>& stats,
                      double pixel, const QCcorrResult& total) {
  const bool km = total.area >= 1e6;
  const char* unit_name = km ? "km2" : "m2";
  const double unit = km ? 1e6 : 1;
  ResultFile out;
  if (!out.open(prj.name + "_DZcorr_stat.log")) return false;
  out.fs << DZ_STAT_HEADER << unit_name << DZ_STAT_NAMES << '\n';
  for (size_t i = 0; i < stats.size(); i++) {
    const DZstat& s = stats[i];
    if (s.n == 0) continue;
    out.fs << pairs[i].number << ' ' << pairs[i].sw1 << ' ' << pairs[i].sw2 << ' ' << s.m << ' ' << s.s << ' '
           << s.rms << ' ' << 100 * s.out << ' ' << 100 * std::max(s.ff, 0.0f) << ' '
           << static_cast<double>(s.n) * pixel / unit << pair_names(prj.swaths, pairs[i].sw1, pairs[i].sw2)
           << '\n';
  }
  out.fs << "\nNPairs StdDev RMS Area:" << unit_name << " [StdDev RMS m]\n"
         << total.nused << ' ' << total.stddev << ' ' << total.rms << ' ' << total.area / unit << '\n';
  return out.commit();
}
}  // namespace

std::vector<SwPair> comp_int_sw_qc(const Project& prj, const DUTidx& idx, const PairFilter& filter, int& n0) {
  LOG_ENTER("comp_int_sw_qc nint=" << idx.nint() << " ALLDZ=" << filter.ALLDZ << " GRPQC=" << filter.GRP
                                   << " REFQC=" << filter.REF << " CHQC=" << filter.CH
                                   << " filter=" << filter.filter);
  if (filter.filter)
    LOG_MSG("QC pair filtering: Grp=" << word(filter.GRP, "same", "all", "diff")
                                      << " Ref=" << word(filter.REF, "off", "on", "only")
                                      << " Ch=" << word(filter.CH, "same", "all", "diff"));
  ASSERT(idx.nsw() == prj.swaths.size());
  std::map<std::pair<SwathId, SwathId>, int> number;  // of a pair in the index
  for (int k = 0; k < idx.nint(); k++) {
    const DUTinter& p = idx.pairs[static_cast<size_t>(k)];
    number.emplace(std::minmax(p.sw1, p.sw2), k);
  }
  SwPairList overlap;
  for (const auto& entry : number) overlap.push_back(entry.first);
  PairFilter qc = filter;
  qc.RDIM = 0;
  int n1 = 0;
  std::vector<SwPair> pairs = comp_int_sw(prj.swaths, overlap, qc, false, n0, n1);
  for (SwPair& p : pairs) p.number = number.at({p.sw1, p.sw2});
  LOG_LINE("nqc0=" << n0 << " nqc=" << pairs.size());
  return pairs;
}

bool QC_DZ_corr_LmT(const Project& prj, const std::vector<SwPair>& pairs, const SwathVector<SCorrTbl>& corr,
                    int nthreads, const MapParam& map, const TileInfo& frame, QCcorrResult& result) {
  const double GSD = static_cast<double>(prj.scale.GSD());
  LOG_ENTER("QC_DZ_corr_LmT nsw=" << prj.swaths.size() << " nint=" << pairs.size()
                                  << " level=" << prj.scale.level << " large=" << prj.scale.large
                                  << " dim=" << prj.scale.dim << " Tsize=" << prj.scale.Tsize
                                  << " mTsize=" << prj.scale.mTsize << " GSD=" << GSD);
  ASSERT(corr.size() == static_cast<size_t>(prj.swaths.size()));
  const Stopwatch time;
  result = QCcorrResult{};
  result.nint = static_cast<int>(pairs.size());
  LOG_MSG("POST-CORRECTION QC:");
  std::vector<DZstat> stats(pairs.size());  // n stays 0 for pairs that cannot be measured
  QCsum sum, sum0;
  InterSwath s1, s2;
  DZpicture picture;
  if (!picture.open(prj, frame, map)) return false;
  int ngrid = 0;
  for (size_t i = 0; i < pairs.size(); i++) {
    bool gridok = false, failed = false;
    DZstat stat, before;
    const bool used = measure_pair(prj, pairs[i], corr, nthreads, s1, s2, stat, before, result.Mpix, gridok,
                                   failed, picture);
    if (failed) return false;
    ngrid += gridok;
    if (!used) continue;
    stats[i] = stat;
    result.pairs.push_back({pairs[i].number, pairs[i].sw1, pairs[i].sw2, before, stat});
    result.nused++;
    add_DZ(sum, stat, static_cast<double>(stat.n) * GSD * GSD);
    add_DZ(sum0, before, static_cast<double>(before.n) * GSD * GSD);
    result.ncompared += static_cast<double>(stat.n);
    if (static_cast<double>(stat.rms) > result.worst_rms) {
      result.worst_rms = static_cast<double>(stat.rms);
      result.worst1 = pairs[i].sw1;
      result.worst2 = pairs[i].sw2;
    }
  }
  LOG_LINE("QC CORR " << pairs.size() << " pairs, " << result.nused << " used, " << result.Mpix << " Mpix");
  LOG_MSG("Processed " << result.Mpix << " Mpix | " << time.text());
  LOG_LINE("nintqc=" << result.nused << " Mpix=" << result.Mpix << " ndzt=" << sum.n);
  LOG_LINE("/// QC_CORR_INTER_TIME=" << time.text());
  if (ngrid == 0 && !pairs.empty()) {
    ERROR_MSG("no gridded data available");
    return false;
  }
  result.npixel = result.Mpix * 1e6;
  set_totals(sum, result.stddev, result.rms, result.area);
  set_totals(sum0, result.stddev0, result.rms0, result.area0);
  if (!write_DZcorr_log(prj, pairs, stats, GSD * GSD, result)) return false;
  if (!picture.save(prj.name + "_DZcorr", "corrected Z-difference")) return false;
  result.hist = picture.histogram();
  LOG_MSG("ORIGINAL DATA STATISTICS (SAME GROUND)");
  LOG_MSG("StdDev DZ=" << result.stddev0 << " RMS DZ=" << result.rms0 << " Area=" << result.area0 << " m2");
  LOG_MSG("CORRECTED DATA STATISTICS");
  LOG_MSG("StdDev DZ=" << result.stddev << " RMS DZ=" << result.rms << " Area=" << result.area << " m2");
  return true;
}
}  // namespace veld

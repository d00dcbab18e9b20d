// The loop over pairs.
#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/progress.h"
#include "lib/general/result_file.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/LmTQCimg/pair_maps.h"
#include "prj/LiDAR/LmTinter/LmTinter_internal.h"
#include "prj/LiDAR/LmTinter/pair_footprints.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr int64_t MAX_NOTIME = 20;  // percent of vectors without a time that pass without a warning

struct AreaUnit {  // of the logs: square kilometres for large projects
  const char* name;
  double m2;
};

AreaUnit area_unit(const Project& prj, const DUTidx& head) {
  const double mT = static_cast<double>(prj.scale.mTsize);
  const double dx = static_cast<double>(head.area.xmax - head.area.xmin + 1) * mT;
  const double dy = static_cast<double>(head.area.ymax - head.area.ymin + 1) * mT;
  return dx * dy >= 1e6 ? AreaUnit{"km2", 1e6} : AreaUnit{"m2", 1};
}

struct DZsum {  // over the pairs, weighted by their pixels
  double n = 0, sum2 = 0, area = 0;
  void add(const DZstat& s, double m2) {
    n += static_cast<double>(s.n);
    sum2 += static_cast<double>(s.n) * static_cast<double>(s.rms) * static_cast<double>(s.rms);
    area += m2;
  }
  double rms() const { return n > 0 ? std::sqrt(sum2 / n) : 0; }
};

struct RegRun {  // what the loop carries
  const Project& prj;
  const InterParam& param;
  RegLevels levels;
  AreaUnit unit;
  ResultFile dz, dzreg, dxyz;  // logs of one line a pair; closed when they are not wanted
  DUTwriter dut;
  DZsum before, after;
  StatXYZ disp;
  DZpicture dz_img, dzreg_img;
  VecPicture disp_img, unc_img;
  PairFootprints footprints;
};

bool open_pictures(RegRun& run, double gsize) {
  const InterParam& p = run.param;
  LOG_LINE("alloc_DZ QC=" << p.QC << " REG=" << p.REG << " dimx=" << p.frame.nx << " dimy=" << p.frame.ny
                          << " DZ_sub=" << p.map.DZ_sub << " DZ_16=" << p.map.DZ_16);
  if (p.nop || p.frame.nx == 0) return true;
  if (p.QC && !run.dz_img.open(run.prj, p.frame, p.map)) return false;
  if (!p.REG) return true;
  return (!p.QC || run.dzreg_img.open(run.prj, p.frame, p.map)) &&
         run.disp_img.open(run.prj, p.frame, p.map, gsize) &&
         run.unc_img.open(run.prj, p.frame, p.map, gsize);
}

bool add_vectors(RegRun& run, const std::vector<DUTstr>& rec) {
  std::vector<VecPicture::Sample> disp, unc;
  for (const DUTstr& r : rec) {
    if (r.Z == DUT_NODATA) continue;
    disp.push_back({static_cast<double>(r.X), static_cast<double>(r.Y), r.Disp});
    unc.push_back({static_cast<double>(r.X), static_cast<double>(r.Y), r.Unc});
  }
  return run.disp_img.add(disp) && run.unc_img.add(unc);
}

bool save_pictures(const RegRun& run) {
  const std::string& name = run.prj.name;
  const MapParam& map = run.param.map;
  return run.dz_img.save(name + "_DZ", "Z-difference") &&
         run.dzreg_img.save(name + "_DZreg", "registered Z-difference") &&
         run.disp_img.save(name + "_DXYZ", "displacement", map.vectors) &&
         run.disp_img.save_scatter(name + "_DXYZ") &&
         run.unc_img.save(name + "_UNC", "uncertainty", uncertainty_style(map));
}

void put_DZ_line(ResultFile& log, const SwPair& pair, const DZstat& s, const RegRun& run, DZsum& sum) {
  const double GSD = static_cast<double>(run.prj.scale.GSD());
  const double m2 = static_cast<double>(s.n) * GSD * GSD;
  sum.add(s, m2);
  if (!log.is_open()) return;
  log.fs << pair.number << ' ' << pair.sw1 << ' ' << pair.sw2 << ' ' << s.m << ' ' << s.s << ' ' << s.rms
         << ' ' << 100 * s.out << ' ' << 100 * std::max(s.ff, 0.0f) << ' ' << m2 / run.unit.m2
         << pair_names(run.prj.swaths, pair.sw1, pair.sw2) << '\n';
}

void put_DXYZ_line(ResultFile& log, const SwathTable& swaths, const SwPair& pair, const StatXYZ& s) {
  if (!log.is_open()) return;
  std::ofstream& fs = log.fs;
  fs << pair.number << ' ' << pair.sw1 << ' ' << pair.sw2;
  for (const dxyz& v : {s.mean(), s.stddev(), s.rms(), s.vmin, s.vmax}) {
    fs << "  ";
    put_xyz(fs, v);
  }
  fs << "  " << s.n << pair_names(swaths, pair.sw1, pair.sw2) << '\n';
}

bool open_log(ResultFile& log, const std::string& name, const std::string& header) {
  if (!log.open(name)) return false;
  log.fs << header << '\n';
  return true;
}

bool open_logs_DUT(RegRun& run, const DUTidx& head) {
  if (run.param.nop) return true;
  const std::string DZ = DZ_STAT_HEADER + std::string(run.unit.name) + DZ_STAT_NAMES;
  if (!open_log(run.dz, run.prj.name + "_DZ_stat.log", DZ)) return false;
  if (!run.param.REG) return true;
  return open_log(run.dzreg, run.prj.name + "_DZreg_stat.log", DZ) &&
         open_log(run.dxyz, run.prj.name + "_DXYZreg_stat.log",
                  "Pair# Swath#1 Swath#2 Mean{X Y Z} StdDev{X Y Z} RMS{X Y Z} Min{X Y Z} Max{X Y Z} NPts "
                  "FileName1 FileName2 [m]") &&
         open_DUT_IDX(run.dut, run.prj.name, head, true, false);
}

bool commit_logs_DUT(RegRun& run) {
  for (ResultFile* const log : {&run.dz, &run.dzreg, &run.dxyz})
    if (log->is_open() && !log->commit()) return false;
  return close_DUT_IDX(run.dut);
}

// Brings a pair, in the order of the index, to the logs and the DUT files. False after an ERROR line.
bool write_pair(RegRun& run, const SwPair& p, PairOutcome& out, InterResult& result) {
  result.Mpix += out.Mpix;
  result.ncached += out.cached;
  result.nreg += out.registered;
  if (out.has_after) {
    put_DZ_line(run.dzreg, p, out.after, run, run.after);
    if (!run.dzreg_img.add(out.tiles, out.dz)) return false;
  }
  if (out.registered) {
    put_DXYZ_line(run.dxyz, run.prj.swaths, p, out.disp);
    run.disp.add(out.disp);
    if (!add_vectors(run, out.rec)) return false;
  }
  if (out.has_before) {
    put_DZ_line(run.dz, p, out.before, run, run.before);
    result.nqc++;
    if (!run.dz_img.add(out.tiles, out.dz0)) return false;
  }
  if (!out.lost.empty()) {
    const SwathTable& swaths = run.prj.swaths;
    const std::string text = LOG_STR("swaths " << swaths.name(p.sw1) << " and " << swaths.name(p.sw2)
                                               << " not registered: " << out.lost);
    if (out.state == InterState::memory)
      WARNING_MSG(text);
    else
      LOG_MSG(text);  // narrow overlaps are common
  }
  result.nvec += out.rec.size();
  result.pairs.push_back({p.number, p.sw1, p.sw2, out.rec.size(), out.before, out.after, out.disp, out.lost});
  run.footprints.add(run.prj, result.pairs.back(), out.tiles);
  for (const DUTstr& r : out.rec) result.nnotime += r.Time1 == DUT_NOTIME;
  return write_DUT_pair(run.dut, p.sw1, p.sw2, out.rec, out.lost);
}

std::string progress_text(const InterParam& param, int done, const InterResult& r) {
  const std::string Mpix = std::to_string(static_cast<int64_t>(std::lround(r.Mpix))) + " Mpix";
  if (!param.REG)
    return "QC PROCESSED " + std::to_string(done) + " pairs, " + std::to_string(r.nqc) + " valid, " + Mpix;
  return "REGISTERED " + std::to_string(done) + " pairs, " + std::to_string(r.ncached) + " cached, " +
         std::to_string(done - r.ncached) + " proc, " + std::to_string(r.nreg) + " valid, " + Mpix;
}

void report(const RegRun& run, const InterResult& r, const std::string& time) {
  if (run.param.REG)
    LOG_MSG1("Registered " << r.nreg << " pairs | " << time);
  else
    LOG_MSG1("QC processed " << r.nqc << " pairs | " << time);
  if (run.before.n > 0)
    LOG_MSG1("Z-difference RMS=" << run.before.rms() << ", area=" << run.before.area / run.unit.m2 << " "
                                 << run.unit.name);
  if (run.after.n > 0) LOG_MSG1("Z-difference after registration RMS=" << run.after.rms());
  if (run.disp.n > 0) {
    const dxyz m = run.disp.mean(), s = run.disp.rms();
    LOG_MSG1("Displacement mean=" << m.x << " " << m.y << " " << m.z << " RMS=" << s.x << " " << s.y << " "
                                  << s.z << ", N vectors=" << run.disp.n);
  }
  if (r.nnotime > 0) {
    const int64_t percent = std::lround(100.0 * static_cast<double>(r.nnotime) / static_cast<double>(r.nvec));
    const std::string text = LOG_STR(r.nnotime << " of " << r.nvec << " vectors (" << percent
                                               << "%) have no time and cannot be used in the inversion");
    if (percent > MAX_NOTIME)
      WARNING_MSG(text);
    else
      LOG_MSG1(text);
  }
  LOG_LINE("nint0=" << r.nint0 << " nint1=" << r.nint1 << " nint=" << r.nint << " nreg=" << r.nreg
                    << " nqc=" << r.nqc << " Mpix=" << r.Mpix);
}

bool process_pairs(RegRun& run, const std::vector<SwPair>& pairs, InterResult& result) {
  return for_pairs({run.prj, run.param, run.levels}, pairs, [&](size_t i, PairOutcome& out) {
    if (!write_pair(run, pairs[i], out, result)) return false;
    const int done = static_cast<int>(i) + 1;
    progress_step(done, progress_text(run.param, done, result));
    return true;
  });
}
}  // namespace

bool reg_inter_LmT(const Project& prj, const DUTidx& head, const SwPairList& overlap, const InterParam& param,
                   InterResult& result) {
  const RegLevels levels = comp_reg_levels(param.Jinit, param.Jend);
  LOG_ENTER("reg_inter_LmT nsw=" << prj.swaths.size() << " dim=" << prj.scale.dim
                                 << " level=" << prj.scale.level << " large=" << prj.scale.large
                                 << " Jstart=" << levels.Jstart << " Jinit=" << param.Jinit
                                 << " Jend=" << levels.Jend << " REG=" << param.REG << " QC=" << param.QC);
  LOG_LINE("Tsize=" << prj.scale.Tsize << " mTsize=" << prj.scale.mTsize << " buf=" << levels.buf
                    << " Jend=" << levels.Jend << " gsize=" << head.gsize << " H_STEP=" << H_STEP);
  ASSERT(head.gsize == std::lround(prj.scale.mTsize * static_cast<float>(1 << levels.Jend)));
  const Stopwatch time;
  result = InterResult{};
  const std::vector<SwPair> pairs =
      comp_int_sw(prj.swaths, overlap, param.filter, param.REG, result.nint0, result.nint1);
  result.nint = static_cast<int>(pairs.size());
  LOG_MSG1((param.REG ? "REGISTRATION" : "ACCURATE QC") << " [V1] using " << pairs.size() << " pairs ["
                                                        << param.nthreads << " TH] GridSize=" << head.gsize);
  if (pairs.empty())
    WARNING_MSG("insufficient overlap or all pairs filtered"
                << (param.REG ? ", check options -reg_grp -reg_ref -reg_ch" : ""));
  RegRun run{prj, param, levels, area_unit(prj, head), {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}};
  if (!open_logs_DUT(run, head) || !open_pictures(run, head.gsize)) return false;
  if (param.FP && !param.nop && !run.footprints.open(prj, param.OUTOBJ)) return false;
  if (!pairs.empty()) progress_start(result.nint);
  if (!process_pairs(run, pairs, result)) return false;
  if (!pairs.empty()) progress_end(progress_text(param, result.nint, result));
  if (!commit_logs_DUT(run) || !run.footprints.commit(prj)) return false;
  if (!save_pictures(run)) return false;
  result.hist = run.dz_img.histogram();
  result.rms_before = run.before.rms();
  result.rms_after = run.after.rms();
  report(run, result, time.text());
  return true;
}
}  // namespace veld

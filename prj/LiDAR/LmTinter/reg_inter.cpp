// The loop over pairs.
#include <algorithm>
#include <cmath>

#include "lib/general/file_lock.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/progress.h"
#include "lib/general/result_file.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/LmTinter/LmTinter_internal.h"
#include "prj/LiDAR/TNRreg/reg_cache.h"
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
  InterSwath s1, s2;
  DZsum before, after;
  StatXYZ disp;
};

void put_DZ_line(ResultFile& log, const SwPair& pair, const DZstat& s, const RegRun& run, DZsum& sum) {
  const double GSD = static_cast<double>(run.prj.scale.GSD());
  const double m2 = static_cast<double>(s.n) * GSD * GSD;
  sum.add(s, m2);
  if (!log.is_open()) return;
  log.fs << pair.number << ' ' << pair.sw1 << ' ' << pair.sw2 << ' ' << s.m << ' ' << s.s << ' ' << s.rms
         << ' ' << 100 * s.out << ' ' << 100 * std::max(s.ff, 0.0f) << ' ' << m2 / run.unit.m2 << '\n';
}

void put_DXYZ_line(ResultFile& log, const SwPair& pair, const StatXYZ& s) {
  if (!log.is_open()) return;
  std::ofstream& fs = log.fs;
  fs << pair.number << ' ' << pair.sw1 << ' ' << pair.sw2;
  for (const dxyz& v : {s.mean(), s.stddev(), s.rms(), s.vmin, s.vmax}) {
    fs << "  ";
    put_xyz(fs, v);
  }
  fs << "  " << s.n << '\n';
}

bool open_log(ResultFile& log, const std::string& name, const std::string& header) {
  if (!log.open(name)) return false;
  log.fs << header << '\n';
  return true;
}

bool open_logs_DUT(RegRun& run, const DUTidx& head) {
  if (run.param.nop) return true;
  const std::string DZ = DZ_STAT_HEADER + std::string(run.unit.name);
  if (!open_log(run.dz, run.prj.name + "_DZ_stat.log", DZ)) return false;
  if (!run.param.REG) return true;
  return open_log(run.dzreg, run.prj.name + "_DZreg_stat.log", DZ) &&
         open_log(run.dxyz, run.prj.name + "_DXYZreg_stat.log",
                  "Pair# Swath#1 Swath#2 Mean{X Y Z} StdDev{X Y Z} RMS{X Y Z} Min{X Y Z} Max{X Y Z} NPts") &&
         open_DUT_IDX(run.dut, run.prj.name, head, true, false);
}

bool commit_logs_DUT(RegRun& run) {
  for (ResultFile* const log : {&run.dz, &run.dzreg, &run.dxyz})
    if (log->is_open() && !log->commit()) return false;
  return close_DUT_IDX(run.dut);
}

// Looks whether the cache of a pair will do. If not, it is locked for this run, after a wait for another that makes
// it. False after an ERROR line.
bool lock_pair(const SwPair& p, const std::string& name, const RegpairIdx& idx, FileLock& lock,
               bool& cached) {
  const FileStamp before = file_stamp(name + EXT_RPCIDX);
  cached = check_regpair_idx(p.sw1, p.sw2, idx);
  if (cached || name.empty()) return true;
  if (!lock.wait(name + ".rpc.lock", LOG_STR("the pair of swaths " << p.sw1 << "/" << p.sw2))) return false;
  if (file_stamp(name + EXT_RPCIDX) != before) cached = check_regpair_idx(p.sw1, p.sw2, idx);
  return true;
}

// The parameters of a pair's registration; its cache is locked unless it will do. False after an ERROR line.
bool make_NRparam(const RegRun& run, const SwPair& p, RegpairIdx& idx, FileLock& lock, NRparam& param) {
  if (!make_regpair_idx(run.s1.cache, run.s2.cache, run.levels, idx)) return false;
  const std::string name = regpair_name(idx);
  param.Jstart = run.levels.Jstart;
  param.Jend = run.levels.Jend;
  param.nthreads = run.param.nthreads;
  param.cache = name.empty() ? "" : name + EXT_RPCD0;
  if (!lock_pair(p, name, idx, lock, param.cached)) return false;
  if (!param.cached && !name.empty())
    remove_file(name + EXT_RPCIDX);  // never an index of another deformation
  return true;
}

// Measures a pair at displacement 0.
void measure_before(RegRun& run, const SwPair& p, const NRpair& pair, InterResult& result) {
  DZstat before;
  if (!run.param.QC || !acc_qc_tiles(pair, nullptr, run.param.nthreads, before)) return;
  put_DZ_line(run.dz, p, before, run, run.before);
  result.nqc++;
}

// Measures a pair and registers it; rec holds its records if it is valid, else lost says why not.
// False after an ERROR line.
bool register_pair(RegRun& run, const SwPair& p, const InterTiles& inter, NRpair& pair,
                   std::vector<DUTstr>& rec, std::string& lost, InterResult& result) {
  RegpairIdx idx;
  NRparam param;
  FileLock lock;
  if (!make_NRparam(run, p, idx, lock, param)) return false;
  NRstart start = start_reg(pair.img2.size(), param);
  prepare_pair(pair, start.depth(), param.nthreads);
  measure_before(run, p, pair, result);
  NRresult reg;
  const bool ok = mg_nr_reg_tiles(pair, param, std::move(start), reg);
  const bool fresh = !param.cache.empty() && !reg.from_cache;
  if (fresh && ((ok && !reg.cache_written) || !write_regpair_idx(p.sw1, p.sw2, idx, ok))) {
    ERROR_MSG("pair cache not written, swaths " << p.sw1 << "/" << p.sw2);
    return false;
  }
  lock.release();
  result.ncached += ok && reg.from_cache;
  lost = ok ? "" : "the registration finds no solution";
  if (!ok) return true;
  DZstat after;
  if (run.param.QC && acc_qc_tiles(pair, &reg.Def, run.param.nthreads, after))
    put_DZ_line(run.dzreg, p, after, run, run.after);
  StatXYZ stat;
  if (!open_times(run.prj, run.s1) || !open_times(run.prj, run.s2)) return false;
  if (!write_DUT(run.prj, run.s1, run.s2, inter, reg, run.levels.Jend, rec, stat)) return false;
  if (rec.empty()) lost = "no vertex could be estimated";
  if (rec.empty()) return true;
  result.nreg++;
  LOG_LINE("stat_Def[img] ntX=" << inter.tiles.size() << " npts=" << stat.n);
  put_DXYZ_line(run.dxyz, p, stat);
  run.disp.add(stat);
  return true;
}

// Why nothing of a pair could be compared.
std::string why_lost(InterState state, const RegRun& run) {
  if (state == InterState::memory) return "too large for the memory reserved (-mem)";
  if (state == InterState::none) return "no common ground";
  const float width = static_cast<float>(min_overlap_width(run.levels)) * run.prj.scale.mTsize;
  return LOG_STR("overlap narrower than " << std::lround(width) << " m");
}

// One pair from its tiles to its lines in the logs and the DUT files. False, after an ERROR line, when one of
// the program's own files cannot be read or written: a pair that is left out for its data is no failure.
bool process_pair(RegRun& run, const SwPair& p, InterResult& result) {
  LOG_ENTER("pair " << p.number << " sw1=" << p.sw1 << " sw2=" << p.sw2 << " reg=" << p.reg);
  std::vector<DUTstr> rec;
  InterTiles inter;
  NRpair pair;
  for (const int sw : {p.sw1, p.sw2})
    if (!read_InterSwath(run.prj, sw, sw == p.sw1 ? run.s1 : run.s2)) {
      ERROR_MSG("missing/incompatible temp. tile or grid files, swath "
                << run.prj.swaths[static_cast<size_t>(sw)].path());
      return false;
    }
  const InterState state =
      inter_TZ1_TZ2(run.prj, run.s1, run.s2, run.param.nmTmin, run.levels, run.param.nthreads, inter, pair);
  if (state == InterState::failed) return false;
  std::string lost = run.param.REG && p.reg && state != InterState::ok ? why_lost(state, run) : "";
  if (state == InterState::ok) {
    result.Mpix += static_cast<double>(inter.nfpix2) * 1e-6;
    if (run.param.REG && p.reg) {
      if (!register_pair(run, p, inter, pair, rec, lost, result)) return false;
    } else {
      prepare_pair(pair, 0, run.param.nthreads);
      measure_before(run, p, pair, result);
    }
  }
  if (!lost.empty()) WARNING_MSG("swaths " << p.sw1 << "/" << p.sw2 << " not registered: " << lost);
  result.nvec += rec.size();
  for (const DUTstr& r : rec) result.nnotime += r.Time1 == DUT_NOTIME;
  return write_DUT_pair(run.dut, p.sw1, p.sw2, rec, lost);
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

bool read_infos(const Project& prj, std::vector<LTidxInfo>& info) {
  info.resize(prj.swaths.size());
  for (size_t i = 0; i < info.size(); i++)
    if (prj.swaths[i].used && !read_LTidxInfo(prj.swaths[i].cache, info[i])) {
      ERROR_MSG("missing/incompatible temp. tile files, swath " << prj.swaths[i].path());
      return false;
    }
  return true;
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
  std::vector<LTidxInfo> info;
  if (!read_infos(prj, info)) return false;
  const std::vector<SwPair> pairs =
      comp_int_sw(prj, info, overlap, param.filter, param.REG, result.nint0, result.nint1);
  result.nint = static_cast<int>(pairs.size());
  LOG_MSG1((param.REG ? "REGISTRATION" : "ACCURATE QC") << " [V1] using " << pairs.size() << " pairs ["
                                                        << param.nthreads << " TH] GridSize=" << head.gsize);
  if (pairs.empty())
    WARNING_MSG("insufficient overlap or all pairs filtered"
                << (param.REG ? ", check options -reg_grp -reg_ref -reg_ch" : ""));
  RegRun run{prj, param, levels, area_unit(prj, head), {}, {}, {}, {}, {}, {}, {}, {}, {}};
  if (!open_logs_DUT(run, head)) return false;
  if (!pairs.empty()) progress_start(result.nint);
  for (int i = 0; i < result.nint; i++) {
    if (!process_pair(run, pairs[static_cast<size_t>(i)], result)) return false;
    progress_step(i + 1, progress_text(param, i + 1, result));
  }
  if (!pairs.empty()) progress_end(progress_text(param, result.nint, result));
  if (!commit_logs_DUT(run)) return false;
  report(run, result, time.text());
  return true;
}
}  // namespace veld

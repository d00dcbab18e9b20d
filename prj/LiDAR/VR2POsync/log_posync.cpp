// Reports of a synchronisation, and the judgement on it.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/LmTidx_r/tile_geom.h"
#include "prj/LiDAR/VR2POsync/VR2POsync_internal.h"
#include "prj/LiDAR/swath/gps_time.h"

namespace veld {
namespace {
constexpr double SIDE_MARGIN = 2000;  // m, how far beside its track a part cut out of a swath may lie

// " Xmin Xmax Ymin Ymax Zmin Zmax", rounded outward.
std::string box_text(const dxyz& min, const dxyz& max) {
  char text[200];
  std::snprintf(text, sizeof(text), " %8.0f %8.0f %8.0f %8.0f %5.0f %5.0f", std::floor(min.x),
                std::ceil(max.x), std::floor(min.y), std::ceil(max.y), std::floor(min.z), std::ceil(max.z));
  return text;
}

std::string span_text(double tmin, double tmax, bool adj) {
  return interval_text(tmax - tmin) + " " + date_word(tmin, adj) + " " + date_word(tmax, adj);
}

bool log_files(const SyncJob& job) {
  ResultFile out;
  if (!out.open(job.prj.name + "_PO_stat.log")) return false;
  out.fs << "POFile# Freq TimeInt DateTimeMin DateTimeMax Xmin Xmax Ymin Ymax Zmin Zmax FileName "
            "[Freq 1/s, DateTime UTC, X Y Z m]\n";
  dxyz min = {99999999, 99999999, 9999}, max = {-99999999, -99999999, -9999};
  double tmin = 2e307, tmax = -2e307;
  int n = 0;
  bool adj = false;
  for (int g = 0; g < static_cast<int>(job.res.groups.size()); g++) {
    for (int f = 0; f < job.nfiles(); f++) {
      const POfileState& file = job.file(f);
      if (job.file_group(f) != g || !file.used || file.tmin == file.tmax) continue;
      char head[64];
      std::snprintf(head, sizeof(head), "%3d %4.0f ", f, file.dt > 0 ? std::round(1 / file.dt) : 0);
      out.fs << head << span_text(file.tmin, file.tmax, file.scan.tadj) << box_text(file.min, file.max) << ' '
             << job.file_path(f) << '\n';
      grow_box(min, max, file.min);
      grow_box(min, max, file.max);
      tmin = std::min(tmin, file.tmin), tmax = std::max(tmax, file.tmax);
      adj = file.scan.tadj;
      n++;
    }
  }
  if (n > 0) out.fs << n << " files " << span_text(tmin, tmax, adj) << box_text(min, max) << '\n';
  return out.commit();
}

bool log_swaths(const SyncJob& job) {
  const POsync& res = job.res;
  const std::string name = job.prj.name + "_PO_sync_stat.log";
  ResultFile out;
  LOG_MSG("Writing PO file synchronization stats " << name);
  if (!out.open(name)) return false;
  out.fs << "Swath# POFile# Group# Ch# MainCh TimeCorr TimeInt DateTimeMin DateTimeMax Xmin Xmax Ymin Ymax "
            "Zmin Zmax FileName [TimeCorr s, DateTime UTC, X Y Z m]\n";
  for (const Swath& s : job.swaths()) {
    if (s.track.file < 0) continue;
    out.fs << s.id << ' ' << s.track.file << ' ' << s.group << ' ' << s.channel << ' ' << s.is_main() << ' '
           << s.clock.shift << ' ' << span_text(s.clock.begin, s.clock.end, s.clock.adj)
           << box_text(s.track.min, s.track.max) << ' ' << s.path() << '\n';
  }
  out.fs << "\nPOFile# Group# Ch# TimeCorr TimeInt DateTimeMin DateTimeMax FileName "
            "[TimeCorr s, DateTime UTC]\n";
  for (int f = 0; f < job.nfiles(); f++) {
    const POfileState& file = job.file(f);
    if (!file.used) continue;
    out.fs << f << ' ' << job.file_group(f) + 1 << ' ' << job.channel_of_group(job.file_group(f)) << ' '
           << file.TimeCorr << ' ' << span_text(file.tmin, file.tmax, file.scan.tadj) << ' '
           << job.file_path(f) << '\n';
  }
  out.fs << "\nGroup# NSwathsSync NPOFilesSync GPSWeekIn GPSDayIn GPSWeek TimeInt DateTimeMin DateTimeMax "
            "GPSWeekDate [DateTime UTC]\n";
  for (int g = 0; g < static_cast<int>(res.groups.size()); g++) {
    const POgroupState& group = job.group(g);
    if (group.Tmin > group.Tmax) continue;
    const POgroup& user = job.prj.pogroups[static_cast<size_t>(g)];
    const uint32_t week = group.adj ? gps_week(group.Tmin + ADJ_S) : 0;
    out.fs << g + 1 << ' ' << group.nsw << ' ' << group.nPO << ' ' << user.gweek << ' ' << user.gday << ' '
           << week << ' ' << span_text(group.Tmin, group.Tmax, group.adj) << ' ';
    // 100 s into the week, so that leap seconds don't turn it into the evening before.
    out.fs << (group.adj ? date_text(week * WEEK_S - ADJ_S + 100, true).substr(0, 10) : std::string("-"))
           << '\n';
  }
  return out.commit();
}

// A list of rejected inputs. An empty one leaves no file.
bool write_rejected(const std::string& name, const char* header, const std::vector<std::string>& lines) {
  if (lines.empty()) return true;
  ResultFile out;
  if (!out.open(name)) return false;
  out.fs << header << '\n';
  for (const std::string& line : lines) out.fs << line << '\n';
  return out.commit();
}

// A unit behind its label; metres need no word but beside another unit.
std::string unit_text(const char* label, double unit) {
  const std::string word = unit == FEET_INT  ? "ft_int"
                           : unit == FEET_US ? "ft_us"
                           : unit == 1.0     ? "m"
                                             : LOG_STR(unit << "m");
  return unit == 1.0 && label == std::string(" Unit=") ? std::string() : label + word;
}

// Words for n swaths rejected out of nswm for one reason. file: with their names, empty for none.
void report_rejected(int n, int nswm, const char* reason, const std::string& file) {
  if (n == 0) return;
  if (n == nswm)
    WARNING_MSG("time sync failed for " << n << " mobile swaths (" << reason << ")");
  else if (!file.empty())
    WARNING_MSG(n << " out of " << nswm << " mobile swaths rejected, " << reason << ", see file " << file);
}
}  // namespace

std::string interval_text(double seconds) { return hms_text(std::max(0.0, seconds)); }

bool log_posync(const SyncJob& job) {
  LOG_ENTER("log_posync nsw=" << job.swaths().size() << " npo=" << job.nfiles());
  return !job.par.reports || (log_files(job) && log_swaths(job));
}

SyncVerdict judge_sync(SyncJob& job) {
  SyncVerdict v;
  const auto reject = [&](const Swath& s, const char* why, int& n) {
    n++;
    job.swaths().reject(s.id, SwathState::no_track, why);
  };
  for (const Swath& s : job.swaths()) {
    if (!s.mobile()) continue;
    v.nswm++;
    if (s.track.file >= 0) job.group(job.po_group(s)).nsw++;
    if (s.track.file == -2)
      reject(s, "more than one trajectory has its times", v.nswmul);
    else if (!job.regsw[s.id] && !job.par.ALL)
      reject(s, "no displacements to other swaths", v.nswrejint);
    else if (s.track.file == -1)
      reject(s, "no trajectory has its times", v.nswrejmatch);
    else
      job.res.nswok++;
  }
  std::vector<bool> used(job.res.files.size(), false);  // by the file that one stands for
  for (int f = 0; f < job.nfiles(); f++) {
    if (!job.file(f).used) continue;
    job.group(job.file_group(f)).nPO++;
    used[static_cast<size_t>(job.first_file(f))] = true;
  }
  for (int f = 0; f < job.nfiles(); f++) {
    if (job.file(f).dup >= 0) continue;
    v.ntraj++;
    if (!used[static_cast<size_t>(f)]) v.unused.push_back(f);
  }
  return v;
}

bool report_verdict(const SyncJob& job, const SyncVerdict& v) {
  LOG_ENTER("valid_PO_sync nsw=" << job.swaths().size() << " ALL=" << job.par.ALL);
  const auto file = [&](const char* ext) { return job.par.reports ? job.prj.name + ext : std::string(); };
  const std::string swname = file("_sw_PO_rej.log"), poname = file("_PO_rej.log");
  std::vector<std::string> swrej, porej;
  for (const Swath& s : job.swaths())
    if (s.state == SwathState::no_track) swrej.push_back(to_string(s.id) + " " + s.path());
  for (const int f : v.unused) porej.push_back(std::to_string(f) + " " + job.file_path(f));
  LOG_LINE("nswm=" << v.nswm << " nswmul=" << v.nswmul << " nswrejint=" << v.nswrejint
                   << " nswrejmatch=" << v.nswrejmatch << " ntraj0=" << v.ntraj << " ntrajok0="
                   << v.ntraj - static_cast<int>(v.unused.size()) << " nswok=" << job.res.nswok);
  if (v.nswmul > 0)
    WARNING_MSG("time sync failed for " << v.nswmul << " mobile swaths (multiple matching PO files)");
  report_rejected(v.nswrejint, v.nswm, "no registration data", swname);
  report_rejected(v.nswrejmatch, v.nswm, "no single matching PO file", swname);
  if (!porej.empty() && job.par.reports)
    WARNING_MSG(porej.size() << " out of " << v.ntraj << " PO files were rejected, see file " << poname);
  LOG_LINE("N PO used " << v.ntraj - static_cast<int>(v.unused.size()) << " out of " << v.ntraj);
  if (!job.par.reports) return true;
  return write_rejected(swname, "Swath# FileName", swrej) &&
         write_rejected(poname, "POFile# FileName", porej);
}

bool display_traj_proc(const SyncJob& job) {
  const GeoRefParam& g = job.prj.georef;
  const bool ortho = !g.geoid.empty() || g.geoid_h != 0;
  LOG_MSG("Attitude " << (job.par.AROT ? "IMU rotated" : "original") << " Projection=" << proj_word(g.kind)
                      << (g.kind == ProjKind::UTM ? " " + std::to_string(g.Zone) : std::string())
                      << (g.wkt ? " [WKT]" : "") << unit_text(" Unit=", g.unit)
                      << (g.unit_z == g.unit ? std::string() : unit_text(" HeightUnit=", g.unit_z))
                      << " Heights=" << (ortho ? "ortho" : "ell") << " GeoHeight=" << g.geoid_h
                      << " Geoid=" << g.geoid);
  dxyz min = {99999999, 99999999, 9999}, max = {-99999999, -99999999, -9999};
  for (const POfileState& file : job.res.files)
    if (file.used) {
      grow_box(min, max, file.min);
      grow_box(min, max, file.max);
    }
  const double mTsize = std::ldexp(1.0, job.res.idx.level - 5);
  const mTbox& a = job.res.idx.area;
  const auto metres = [&](int64_t index) { return static_cast<double>(index) * mTsize + GROUND_ORIGIN; };
  const dxyz lo = {metres(a.xmin), metres(a.ymin), 0}, hi = {metres(a.xmax + 1), metres(a.ymax + 1), 0};
  LOG_MSG("PO data X:[" << min.x << " " << max.x << "] Y:[" << min.y << " " << max.y << "] Z:[" << min.z
                        << " " << max.z << "]");
  LOG_MSG("mT X:[" << lo.x << " " << hi.x << "] Y:[" << lo.y << " " << hi.y << "]");
  const double m = SIDE_MARGIN;
  if (min.x <= hi.x + m && max.x >= lo.x - m && min.y <= hi.y + m && max.y >= lo.y - m) return true;
  ERROR_MSG("no overlap between LiDAR and trajectory, wrong unit/projection or wrong PO format options");
  return false;
}
}  // namespace veld

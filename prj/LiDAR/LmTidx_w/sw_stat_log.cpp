// The file "_sw_stat.log".
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/LmTidx_w/swath_stat.h"

namespace veld {
namespace {
constexpr double KM_FROM = 10000;  // m: lengths are told in kilometres when the longest swath reaches this

struct LengthUnit {
  const char* letter;  // "k" or ""
  double factor;       // from metres
};

// Civil date of a day count from 1970-01-01 (H. Hinnant, "chrono-compatible low-level date algorithms").
void civil_date(int64_t days, int& year, int& month, int& day) {
  days += 719468;
  const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const int64_t doe = days - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  year = static_cast<int>(yoe + era * 400 + (month <= 2));
}

// One word: date and time (GPS) of an adjusted time, else day of the week and time.
std::string date_time(double t, bool adj) {
  char text[64];
  const int64_t s = static_cast<int64_t>(std::floor(adj ? t + 1e9 : t));
  const int64_t day = s >= 0 ? s / 86400 : -((86399 - s) / 86400);
  const int sec = static_cast<int>(s - day * 86400);
  if (adj) {
    int y, m, d;
    civil_date(day + 3657, y, m, d);  // GPS time starts on 1980-01-06
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", y, m, d, sec / 3600, sec / 60 % 60,
                  sec % 60);
  } else {
    std::snprintf(text, sizeof text, "%lld-%02d:%02d:%02d", static_cast<long long>(day), sec / 3600,
                  sec / 60 % 60, sec % 60);
  }
  return text;
}

double mega(uint64_t n) { return static_cast<double>(n) * 1e-6; }

void write_common(ResultFile& out, const Project& prj, size_t i, const SwathStat& s, const LengthUnit& u) {
  const Swath& sw = prj.swaths[i];
  out.fs << i << ' ' << sw.group << ' ' << sw.channel << ' ' << (sw.mainch == static_cast<int>(i)) << ' '
         << mega(s.info.np) << ' ' << s.info.nt << ' ' << s.info.nmt << ' ' << s.length * u.factor << ' '
         << s.width * u.factor << ' ' << s.area * u.factor * u.factor << ' ' << s.heading << ' ' << s.density
         << ' ' << s.grid.dim << ' ' << s.grid.GGSD << ' ' << s.info.bbmin[0] << ' ' << s.info.bbmax[0] << ' '
         << s.info.bbmin[1] << ' ' << s.info.bbmax[1] << ' ' << s.Zmin << ' ' << s.Zmax << ' ' << s.Zmed
         << ' ';
}

void write_mobile(ResultFile& out, const Project& prj, const ProjectStat& stat, const LengthUnit& u) {
  out.fs << "Swath# Group# Ch# MainCh MPts NTiles NmTiles Length:" << u.letter << "m Width:" << u.letter
         << "m Area:" << u.letter << "m2 Heading Density Dim GGSD Xmin Xmax Ymin Ymax Zmin Zmax Zmed "
         << "DateTimeMin DateTimeMax Amin Amax AdjGPS RO WRO TimeRes DTmax Dev Devmax\n";
  for (size_t i = 0; i < stat.swaths.size(); i++) {
    if (prj.swaths[i].fixed) continue;
    const SwathStat& s = stat.swaths[i];
    const bool adj = s.info.flags & INFO_ADJ;
    write_common(out, prj, i, s, u);
    out.fs << date_time(s.info.tmin, adj) << ' ' << date_time(s.info.tmax, adj) << ' ' << s.info.amin << ' '
           << s.info.amax << ' ' << adj << ' ' << ((s.info.flags & INFO_RO) != 0) << ' '
           << ((s.info.flags & INFO_WRO) != 0) << ' ' << s.info.mdt << ' ' << s.info.maxdt << ' '
           << s.info.mdev << ' ' << s.info.maxdev << '\n';
  }
  out.fs << '\n';
}

void write_reference(ResultFile& out, const Project& prj, const ProjectStat& stat, const LengthUnit& u) {
  const bool any = std::any_of(prj.swaths.begin(), prj.swaths.end(), [](const Swath& s) { return s.fixed; });
  if (!any) return;
  out.fs << "RefSwath# Group# Ch# MainCh MPts NTiles NmTiles Length:" << u.letter << "m Width:" << u.letter
         << "m Area:" << u.letter
         << "m2 Ori Density Dim GGSD Xmin Xmax Ymin Ymax Zmin Zmax Zmed TimeMin TimeMax\n";
  for (size_t i = 0; i < stat.swaths.size(); i++) {
    if (!prj.swaths[i].fixed) continue;
    write_common(out, prj, i, stat.swaths[i], u);
    out.fs << stat.swaths[i].info.tmin << ' ' << stat.swaths[i].info.tmax << '\n';
  }
  out.fs << '\n';
}

void write_project(ResultFile& out, const Project& prj, const ProjectStat& stat, const LengthUnit& u) {
  double lo[3] = {1e30, 1e30, 1e30}, hi[3] = {-1e30, -1e30, -1e30};
  double distance = 0, time = 0, maxdt = 0, maxdev = 0;
  uint64_t nt = 0;
  for (size_t i = 0; i < stat.swaths.size(); i++) {
    const SwathStat& s = stat.swaths[i];
    nt += s.info.nt;
    for (int c = 0; c < 3; c++) {
      lo[c] = std::min(lo[c], double{s.info.bbmin[c]});
      hi[c] = std::max(hi[c], double{s.info.bbmax[c]});
    }
    if (prj.swaths[i].fixed || prj.swaths[i].mainch != static_cast<int>(i)) continue;
    distance += s.length;
    time += s.info.tmax - s.info.tmin;
    maxdt = std::max(maxdt, double{s.info.maxdt});
    maxdev = std::max(maxdev, double{s.info.maxdev});
  }
  out.fs << "NSwaths NGrp MPts NTiles NmTiles BBox_DX:" << u.letter << "m BBox_DY:" << u.letter
         << "m TileSize mTileSize Density Dim GGSD Xmin Xmax Ymin Ymax Zmin Zmax Zmed Zmin0 Zmax0 Distance:"
         << u.letter << "m Speed FlightTime TimeRes DTmax Dev Devmax\n";
  out.fs << stat.swaths.size() << ' ' << prj.ngrp << ' ' << mega(stat.np) << ' ' << nt << ' ' << stat.nmt
         << ' ' << (hi[0] - lo[0]) * u.factor << ' ' << (hi[1] - lo[1]) * u.factor << ' ' << prj.scale.Tsize
         << ' ' << prj.scale.mTsize << ' ' << stat.density << ' ' << prj.scale.dim << ' ' << prj.scale.GSD()
         << ' ' << lo[0] << ' ' << hi[0] << ' ' << lo[1] << ' ' << hi[1] << ' ' << stat.Zmin << ' '
         << stat.Zmax << ' ' << stat.Zmed << ' ' << lo[2] << ' ' << hi[2] << ' ' << distance * u.factor << ' '
         << (time > 0 ? distance / time : 0.0) << ' ' << time << ' ' << stat.mdt << ' ' << maxdt << ' '
         << stat.mdev << ' ' << maxdev << '\n';
}
}  // namespace

bool write_sw_stat(const Project& prj, const ProjectStat& stat) {
  const std::string name = prj.name + "_sw_stat.log";
  LOG_MSG("Writing swath stats file '" << name << "'");
  double longest = 0;
  for (const SwathStat& s : stat.swaths) longest = std::max(longest, s.length);
  const LengthUnit unit = longest >= KM_FROM ? LengthUnit{"k", 1e-3} : LengthUnit{"", 1.0};
  ResultFile out;
  if (!out.open(name)) return false;
  write_mobile(out, prj, stat, unit);
  write_reference(out, prj, stat, unit);
  write_project(out, prj, stat, unit);
  return out.commit();
}
}  // namespace veld

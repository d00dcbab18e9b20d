// The file "_sw_stat.log".
#include <algorithm>

#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/LmTidx_w/swath_stat.h"

namespace veld {
namespace {
constexpr double KM_FROM =
    10000;  // m: lengths are reported in kilometres when the longest swath reaches this

struct LengthUnit {
  const char* letter;  // "k" or ""
  double factor;       // from metres
};

constexpr char STAT_UNITS[] = "[MPts million, Heading degrees, Density 1/m2, GGSD X Y Z m";

double mega(uint64_t n) { return static_cast<double>(n) * 1e-6; }

void write_common(ResultFile& out, const Swath& sw, const SwathStat& s, const LengthUnit& u) {
  out.fs << sw.id << ' ' << sw.group << ' ' << sw.channel << ' ' << sw.is_main() << ' ' << mega(s.info.np)
         << ' ' << s.info.nt << ' ' << s.info.nmt << ' ' << s.length * u.factor << ' ' << s.width * u.factor
         << ' ' << s.area * u.factor * u.factor << ' ' << s.heading << ' ' << s.density << ' ' << s.grid.dim
         << ' ' << s.grid.GGSD << ' ' << s.info.bbmin[0] << ' ' << s.info.bbmax[0] << ' ' << s.info.bbmin[1]
         << ' ' << s.info.bbmax[1] << ' ' << s.Zmin << ' ' << s.Zmax << ' ' << s.Zmed << ' ';
}

void write_mobile(ResultFile& out, const Project& prj, const ProjectStat& stat, const LengthUnit& u) {
  out.fs << "Swath# Group# Ch# MainCh MPts NTiles NmTiles Length:" << u.letter << "m Width:" << u.letter
         << "m Area:" << u.letter << "m2 Heading Density Dim GGSD Xmin Xmax Ymin Ymax Zmin Zmax Zmed "
         << "DateTimeMin DateTimeMax Amin Amax AdjGPS RO WRO TimeRes DTmax Dev Devmax FileName " << STAT_UNITS
         << ", DateTime UTC, A degrees, TimeRes DTmax s]\n";
  for (const Swath& sw : prj.swaths.present()) {
    if (sw.fixed) continue;
    const SwathStat& s = stat.swaths[sw.id];
    const SwathClock& clock = sw.clock;
    write_common(out, sw, s, u);
    out.fs << date_word(clock.tmin, clock.raw_adj) << ' ' << date_word(clock.tmax, clock.raw_adj) << ' '
           << s.info.amin << ' ' << s.info.amax << ' ' << clock.raw_adj << ' '
           << (clock.rover != Rollover::none) << ' ' << (clock.rover == Rollover::week) << ' ' << s.info.mdt
           << ' ' << s.info.maxdt << ' ' << s.info.mdev << ' ' << s.info.maxdev << ' ' << sw.path() << '\n';
  }
  out.fs << '\n';
}

void write_reference(ResultFile& out, const Project& prj, const ProjectStat& stat, const LengthUnit& u) {
  if (std::ranges::none_of(prj.swaths.present(), &Swath::fixed)) return;
  out.fs << "RefSwath# Group# Ch# MainCh MPts NTiles NmTiles Length:" << u.letter << "m Width:" << u.letter
         << "m Area:" << u.letter
         << "m2 Ori Density Dim GGSD Xmin Xmax Ymin Ymax Zmin Zmax Zmed TimeMin TimeMax FileName "
         << STAT_UNITS << ", Time s]\n";
  for (const Swath& sw : prj.swaths.present()) {
    if (!sw.fixed) continue;
    write_common(out, sw, stat.swaths[sw.id], u);
    out.fs << sw.clock.tmin << ' ' << sw.clock.tmax << ' ' << sw.path() << '\n';
  }
  out.fs << '\n';
}

void write_project(ResultFile& out, const Project& prj, const ProjectStat& stat, const LengthUnit& u) {
  double lo[3] = {1e30, 1e30, 1e30}, hi[3] = {-1e30, -1e30, -1e30};
  double distance = 0, time = 0, maxdt = 0, maxdev = 0;
  uint64_t nt = 0, nsw = 0;
  for (const Swath& sw : prj.swaths.present()) {
    const SwathStat& s = stat.swaths[sw.id];
    nsw++;
    nt += s.info.nt;
    for (int c = 0; c < 3; c++) {
      lo[c] = std::min(lo[c], double{s.info.bbmin[c]});
      hi[c] = std::max(hi[c], double{s.info.bbmax[c]});
    }
    if (sw.fixed || !sw.is_main()) continue;
    distance += s.length;
    time += s.info.tmax - s.info.tmin;
    maxdt = std::max(maxdt, double{s.info.maxdt});
    maxdev = std::max(maxdev, double{s.info.maxdev});
  }
  out.fs << "NSwaths NGrp MPts NTiles NmTiles BBox_DX:" << u.letter << "m BBox_DY:" << u.letter
         << "m TileSize mTileSize Density Dim GGSD Xmin Xmax Ymin Ymax Zmin Zmax Zmed Zmin0 Zmax0 Distance:"
         << u.letter
         << "m Speed FlightTime TimeRes DTmax Dev Devmax [TileSize mTileSize GGSD X Y Z m, Density 1/m2, "
            "Speed m/s, FlightTime TimeRes DTmax s]\n";
  out.fs << nsw << ' ' << prj.ngrp << ' ' << mega(stat.np) << ' ' << nt << ' ' << stat.nmt << ' '
         << (hi[0] - lo[0]) * u.factor << ' ' << (hi[1] - lo[1]) * u.factor << ' ' << prj.scale.Tsize << ' '
         << prj.scale.mTsize << ' ' << stat.density << ' ' << prj.scale.dim << ' ' << prj.scale.GSD() << ' '
         << lo[0] << ' ' << hi[0] << ' ' << lo[1] << ' ' << hi[1] << ' ' << stat.Zmin << ' ' << stat.Zmax
         << ' ' << stat.Zmed << ' ' << lo[2] << ' ' << hi[2] << ' ' << distance * u.factor << ' '
         << (time > 0 ? distance / time : 0.0) << ' ' << time << ' ' << stat.mdt << ' ' << maxdt << ' '
         << stat.mdev << ' ' << maxdev << '\n';
}
}  // namespace

bool write_sw_stat(const Project& prj, const ProjectStat& stat) {
  const std::string name = prj.name + "_sw_stat.log";
  LOG_MSG("Writing swath stats file '" << name << "'");
  double longest = 0;
  for (const Swath& s : prj.swaths.present()) longest = std::max(longest, stat.swaths[s.id].length);
  const LengthUnit unit = longest >= KM_FROM ? LengthUnit{"k", 1e-3} : LengthUnit{"", 1.0};
  ResultFile out;
  if (!out.open(name)) return false;
  write_mobile(out, prj, stat, unit);
  write_reference(out, prj, stat, unit);
  write_project(out, prj, stat, unit);
  return out.commit();
}
}  // namespace veld

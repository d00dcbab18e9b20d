#include "prj/LiDAR/LmTQCimg/swath_text.h"

#include <cmath>
#include <cstdio>

#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "prj/LiDAR/LmTidx_r/tile_geom.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
bool put_swath(const Project& prj, const Swath& s, uint32_t nt, ResultFile& all, ResultFile& times) {
  Vector<TIsxy> TI;
  TileTables tables;
  Vector<Image<int32_t>> Ct;
  Vector<Image<uint8_t>> dt, dev;
  if (!read_LTidx_TI(s.cache, TI) || !tables.open(s.cache, nt, false)) return false;
  const bool timed = !s.fixed && read_sw_t_tiles(s.cache, nt, Ct, dt, dev);
  const TileGeom geom = make_tile_geom(prj.scale.level);
  Image<uint32_t> N;
  Image<int32_t> Zm;
  char line[160];
  for (uint32_t k = 0; k < TI.size(); k++) {
    if (!tables.read_N(k, N) || !tables.read_Zm(k, Zm)) return false;
    for (int m = 0; m < mTn; m++) {
      if (N[m] == 0) continue;
      const long X = std::lround(std::floor(tile_origin(geom, TI[k].x) + (m % mTsub + 0.5) * geom.mTsize));
      const long Y = std::lround(std::floor(tile_origin(geom, TI[k].y) + (m / mTsub + 0.5) * geom.mTsize));
      const double Z = Zm[m] * M_PER_UNIT;
      char time[32] = "-1E10";
      if (timed && Ct[k][m] != NO_I32) {
        std::snprintf(time, sizeof time, "%.3f", s.clock.t0 + Ct[k][m] * TICK_S);
        std::snprintf(line, sizeof line, "%ld %ld %s %d %d\n", X, Y, time, s.id.number, s.group);
        times.fs << line;
      }
      const double DT = timed ? dt[k][m] * DT_RANGE / 255.0 : 0;
      const double Dev = timed ? dev[k][m] * static_cast<double>(DEV_RANGE) / 255 : 0;
      std::snprintf(line, sizeof line, "%ld %ld %.3f %s %.3f %.3f %u %d %d\n", X, Y, Z, time, DT, Dev, N[m],
                    s.id.number, s.group);
      all.fs << line;
    }
  }
  return true;
}
}  // namespace

bool mtiles_zbounds_plot_tdnsg(const Project& prj, const ProjectStat& stat) {
  ResultFile all, times;
  if (!all.open(prj.name + "_tnsg.txt") || !times.open(prj.name + "_t.txt")) return false;
  LOG_MSG("Writing microtile xyz,time,dt,dev,n,swath,group " << prj.name << "_tnsg.txt");
  all.fs << "X Y Z Time DT Dev N Swath# Group#\n";
  times.fs << "X Y Time Swath# Group#\n";
  for (const Swath& s : prj.swaths.present())
    if (!put_swath(prj, s, stat.swaths[s.id].info.nt, all, times)) {
      ERROR_MSG("missing/incompatible temp. tile files, " << s.path());
      return false;
    }
  return all.commit() && times.commit();
}
}  // namespace veld

#include "prj/LiDAR/LmTplot/LmTplot_txt.h"

#include <cmath>
#include <cstdio>

#include "lib/general/log.h"
#include "lib/general/txtfile.h"
#include "prj/LiDAR/tuning.h"

namespace {
// A closed polygon of four corners per swath, as text and, with outobj, as .obj.
template <typename Corners>
bool write_polygons(const std::string& name, const char* suffix, const std::vector<SwathPlot>& swaths,
                    bool outobj, bool app, Corners corners) {
  const std::string file = name + suffix;
  TxtFileOut txt(true);
  if (!txt.open(file + ".txt", app ? 1 : 0)) return false;
  if (!app) txt.fs << "X Y Swath# Group#\n";
  TxtFileOut obj(true);
  if (outobj && !obj.open(file + ".obj", app ? 1 : 0)) return false;
  for (const SwathPlot& s : swaths) {
    double c[4][2];
    corners(s.info, c);
    for (int i = 0; i <= 4; i++) {
      const double x = c[i % 4][0], y = c[i % 4][1];
      txt.fs << x << ' ' << y << ' ' << s.sw << ' ' << s.group << '\n';
      if (outobj) obj.fs << "v " << x << ' ' << y << " 0\n";
    }
    if (outobj) obj.fs << "l -1 -2 -3 -4 -5\n";
  }
  return txt.close() && (!outobj || obj.close());
}

void box_corners(double x0, double y0, double x1, double y1, double (*c)[2]) {
  const double x[4] = {x0, x1, x1, x0}, y[4] = {y0, y0, y1, y1};
  for (int i = 0; i < 4; i++) {
    c[i][0] = x[i];
    c[i][1] = y[i];
  }
}

long ground(double v) { return std::lround(v); }
}  // namespace

bool write_MBR(const std::string& name, const std::vector<SwathPlot>& swaths, bool outobj, bool app) {
  return write_polygons(name, "_mbr", swaths, outobj, app, [](const LTidxInfo& info, double(*c)[2]) {
    for (int i = 0; i < 4; i++)
      for (int k = 0; k < 2; k++) c[i][k] = info.mbr[i][k];
  });
}

bool write_BBOX(const std::string& name, const std::vector<SwathPlot>& swaths, bool outobj, bool app) {
  return write_polygons(name, "_bb", swaths, outobj, app, [](const LTidxInfo& info, double(*c)[2]) {
    box_corners(info.bbmin[0], info.bbmin[1], info.bbmax[0], info.bbmax[1], c);
  });
}

bool write_BBOX(const std::string& file, double xmin, double ymin, double xmax, double ymax) {
  double c[4][2];
  box_corners(xmin, ymin, xmax, ymax, c);
  TxtFileOut txt(true);
  if (!txt.open(file, 0)) return false;
  txt.fs << "X Y \n";
  for (int i = 0; i <= 4; i++) txt.fs << c[i % 4][0] << ' ' << c[i % 4][1] << '\n';
  return txt.close();
}

bool mtiles_plot_Nimg(const std::string& name, const Image<uint32_t>& img, double x0, double y0, double gs) {
  const std::string file = name + ".img.txt";
  LOG_MSG("Writing total microtile point count image '" << file << "', grid spacing=" << gs);
  TxtFileOut txt(true);
  if (!txt.open(file, 0)) return false;
  txt.fs << "X Y NPts\n";
  char line[96];
  for (int y = 0; y < img.ysize(); y++)
    for (int x = 0; x < img.xsize(); x++) {
      if (img.row(y)[x] == 0) continue;
      std::snprintf(line, sizeof line, "%ld %ld  %d\n", ground(x0 + x * gs), ground(y0 + y * gs),
                    static_cast<int>(img.row(y)[x]));
      txt.fs << line;
    }
  return txt.close();
}

bool mtiles_plot_vecimg(const std::string& file, const Image<xyz>& img, double x0, double y0, double gs) {
  LOG_MSG("Writing vector image '" << file << "'");
  TxtFileOut txt(true);
  if (!txt.open(file, 0)) return false;
  txt.fs << "X Y Vector{X Y Z} (no data -9999)\n";
  char line[128];
  for (int y = 0; y < img.ysize(); y++)
    for (int x = 0; x < img.xsize(); x++) {
      const xyz& v = img.row(y)[x];
      const long px = ground(x0 + x * gs), py = ground(y0 + y * gs);
      if (v.z == -9999.0f)
        std::snprintf(line, sizeof line, "%ld %ld  -9999 -9999 -9999\n", px, py);
      else
        std::snprintf(line, sizeof line, "%ld %ld  %.3f %.3f %.3f\n", px, py, static_cast<double>(v.x),
                      static_cast<double>(v.y), static_cast<double>(v.z));
      txt.fs << line;
    }
  return txt.close();
}

namespace {
// One line per occupied microtile of a swath, at its centre.
bool plot_swath_tnsg(const SwathPlot& s, TxtFileOut& tnsg, TxtFileOut& times) {
  SwTiles sw;
  Vector<Image<uint32_t>> TN;
  Vector<Image<int32_t>> Ct, Zm;
  Vector<Image<uint8_t>> dt, dev;
  if (!read_SwTiles(s.path, sw)) return false;
  const uint32_t nt = sw.info.nt;
  TileTables tables;
  if (!read_LmTidx_tiles_TN(s.path, nt, TN) || !read_sw_t_tiles(s.path, nt, Ct, dt, dev)) return false;
  if (!tables.open(s.path, nt, false)) return false;
  const double t0 = sw.info.t0, code_s = DT_RANGE / 255.0, code_dev = static_cast<double>(DEV_RANGE) / 255.0;
  Image<int32_t> Z;
  for (uint32_t k = 0; k < nt; k++) {
    if (!tables.read_Zm(k, Z)) return false;
    for (int mt = 0; mt < mTn; mt++) {
      const uint32_t n = TN.val[k].val[mt];
      if (n <= NMT_MIN) continue;
      const double x = tile_origin(sw.geom, sw.TI.val[k].x) + (mt % mTsub + 0.5) * sw.geom.mTsize;
      const double y = tile_origin(sw.geom, sw.TI.val[k].y) + (mt / mTsub + 0.5) * sw.geom.mTsize;
      const int32_t tick = Ct.val[k].val[mt];
      const double t = tick == NO_I32 ? -9999.0 : t0 + tick * TICK_S;
      tnsg.fs << x << ' ' << y << ' ' << Z.val[mt] * M_PER_UNIT << ' ' << t << ' '
              << dt.val[k].val[mt] * code_s << ' ' << dev.val[k].val[mt] * code_dev << ' ' << n << ' ' << s.sw
              << ' ' << s.group << '\n';
      if (tick != NO_I32) times.fs << x << ' ' << y << ' ' << t << ' ' << s.sw << ' ' << s.group << '\n';
    }
  }
  return true;
}
}  // namespace

bool mtiles_zbounds_plot_tdnsg(const std::string& name, const std::vector<SwathPlot>& swaths) {
  LOG_MSG("Writing microtile xyz,time,dt,dev,n,swath,group '" << name << "_tnsg.txt'");
  TxtFileOut tnsg(true), times(true);
  if (!tnsg.open(name + "_tnsg.txt", 0) || !times.open(name + "_t.txt", 0)) return false;
  tnsg.fs << "X Y Z Time DT Dev N Swath# Group#\n";
  times.fs << "X Y Time Swath# Group#\n";
  for (const SwathPlot& s : swaths)
    if (!plot_swath_tnsg(s, tnsg, times)) {
      ERROR_MSG("missing/incompatible temp. tile files, " << s.path);
      return false;
    }
  return tnsg.close() && times.close();
}

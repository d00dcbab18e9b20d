#include "prj/LiDAR/LmTplot/LmTplot_txt.h"

#include <iomanip>

#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// A closed polygon of four corners per swath, as text and, with outobj, as .obj.
template <typename Corners>
bool write_polygons(const std::string& name, const char* suffix, const std::vector<SwathPlot>& swaths,
                    bool outobj, Corners corners) {
  const std::string file = name + suffix;
  ResultFile txt, obj;
  if (!txt.open(file + ".txt") || (outobj && !obj.open(file + ".obj"))) return false;
  txt.fs << "X Y Swath# Group#\n";
  for (const SwathPlot& s : swaths) {
    double c[4][2];
    corners(s.info, c);
    for (int i = 0; i <= 4; i++) {
      const double x = c[i % 4][0] / OUTDATAUNIT, y = c[i % 4][1] / OUTDATAUNIT;
      txt.fs << x << ' ' << y << ' ' << s.sw << ' ' << s.group << '\n';
      if (outobj) obj.fs << "v " << x << ' ' << y << " 0\n";
    }
    if (outobj) obj.fs << "l -1 -2 -3 -4 -5\n";
  }
  return txt.commit() && (!outobj || obj.commit());
}

void box_corners(double x0, double y0, double x1, double y1, double (*c)[2]) {
  const double x[4] = {x0, x1, x1, x0}, y[4] = {y0, y0, y1, y1};
  for (int i = 0; i < 4; i++) {
    c[i][0] = x[i];
    c[i][1] = y[i];
  }
}

}  // namespace

bool write_MBR(const std::string& name, const std::vector<SwathPlot>& swaths, bool outobj) {
  return write_polygons(name, "_mbr", swaths, outobj, [](const LTidxInfo& info, double(*c)[2]) {
    for (int i = 0; i < 4; i++)
      for (int k = 0; k < 2; k++) c[i][k] = info.mbr[i][k];
  });
}

bool write_BBOX(const std::string& name, const std::vector<SwathPlot>& swaths, bool outobj) {
  return write_polygons(name, "_bb", swaths, outobj, [](const LTidxInfo& info, double(*c)[2]) {
    box_corners(info.bbmin[0], info.bbmin[1], info.bbmax[0], info.bbmax[1], c);
  });
}

void put_edges(ResultFile& txt, ResultFile& obj, const std::vector<BorderEdge>& edges, double mTsize,
               const std::string& columns) {
  const auto ground = [&](int64_t v) {
    return (static_cast<double>(v) * mTsize + GROUND_ORIGIN) / OUTDATAUNIT;
  };
  if (OUTDATAUNIT == 1.0)  // borders of microtiles are whole metres
    for (ResultFile* const file : {&txt, &obj}) file->fs << std::setprecision(0);
  for (const BorderEdge& e : edges) {
    for (const EdgePoint& p : {e.a, e.b}) {
      txt.fs << ground(p.x) << ' ' << ground(p.y) << columns << '\n';
      if (obj.is_open()) obj.fs << "v " << ground(p.x) << ' ' << ground(p.y) << " 0\n";
    }
    if (obj.is_open()) obj.fs << "l -1 -2\n";
  }
}

bool write_BBOX(const std::string& file, double xmin, double ymin, double xmax, double ymax) {
  double c[4][2];
  box_corners(xmin, ymin, xmax, ymax, c);
  ResultFile txt;
  if (!txt.open(file)) return false;
  txt.fs << "X Y \n";
  for (int i = 0; i <= 4; i++)
    txt.fs << c[i % 4][0] / OUTDATAUNIT << ' ' << c[i % 4][1] / OUTDATAUNIT << '\n';
  return txt.commit();
}
}  // namespace veld

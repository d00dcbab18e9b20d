// prj/LiDAR/LmTplot/LmTplot_txt.h
// Small text plots of swaths. Each returns false after an ERROR line of the file class.
#pragma once
#include <string>
#include <vector>

#include "lib/general/result_file.h"
#include "prj/LiDAR/LmTplot/LmTplot.h"
#include "prj/LiDAR/LmTplot/footprint.h"

namespace veld {
struct SwathPlot {  // one swath of a plot
  std::string path;
  SwathId sw;
  int group = 0;
  LTidxInfo info;
};

// Rectangles of swaths: name + "_mbr.txt" and, with outobj, name + "_mbr.obj".
[[nodiscard]] bool write_MBR(const std::string& name, const std::vector<SwathPlot>& swaths, bool outobj);
// Boxes of swaths: name + "_bb.txt" and "_bb.obj".
[[nodiscard]] bool write_BBOX(const std::string& name, const std::vector<SwathPlot>& swaths, bool outobj);
// Border edges, two corners each in output units, behind them the columns (" 3 1"); into obj as lines when it is open.
void put_edges(ResultFile& txt, ResultFile& obj, const std::vector<BorderEdge>& edges, double mTsize,
               const std::string& columns);
// One box in metres (xmin, ymin, xmax, ymax) into exactly this file.
[[nodiscard]] bool write_BBOX(const std::string& file, double xmin, double ymin, double xmax, double ymax);
}  // namespace veld

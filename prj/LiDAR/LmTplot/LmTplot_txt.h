// prj/LiDAR/LmTplot/LmTplot_txt.h
// Small text plots of swaths and microtile images. Each returns false after an ERROR line of the file class.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lib/DataStructure/image.h"
#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/LmTplot/LmTplot.h"

struct SwathPlot {  // one swath of a plot
  std::string path;
  int sw = 0;
  int group = 0;
  LTidxInfo info;
};

// Rectangles of swaths: name + "_mbr.txt" and, with outobj, name + "_mbr.obj". app: append to the files.
[[nodiscard]] bool write_MBR(const std::string& name, const std::vector<SwathPlot>& swaths, bool outobj,
                             bool app);
// Boxes of swaths: name + "_bb.txt" and "_bb.obj".
[[nodiscard]] bool write_BBOX(const std::string& name, const std::vector<SwathPlot>& swaths, bool outobj,
                              bool app);
// One box in metres (xmin, ymin, xmax, ymax) into exactly this file.
[[nodiscard]] bool write_BBOX(const std::string& file, double xmin, double ymin, double xmax, double ymax);

// Counts, name + ".img.txt": x0, y0 the position of pixel (0, 0), gs the grid spacing, metres.
[[nodiscard]] bool mtiles_plot_Nimg(const std::string& name, const Image<uint32_t>& img, double x0, double y0,
                                    double gs);
// Vectors into exactly this file; a z of -9999 means no data.
[[nodiscard]] bool mtiles_plot_vecimg(const std::string& file, const Image<xyz>& img, double x0, double y0,
                                      double gs);
// Heights and times of every occupied microtile of the swaths: name + "_tnsg.txt" and name + "_t.txt".
[[nodiscard]] bool mtiles_zbounds_plot_tdnsg(const std::string& name, const std::vector<SwathPlot>& swaths);

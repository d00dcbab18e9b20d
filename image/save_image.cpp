#include "image/save_image.h"

#include <algorithm>
#include <cmath>

#include "image/jpeg_out.h"
#include "image/tiff_out.h"
#include "lib/general/log.h"

namespace veld {
namespace {
template <typename T, typename Value>
bool save_values(const std::string& name, const std::string& title, const ImgParam& par,
                 const ImgScale& scale, const ImgPlace& place, const Image<T>& img, Value value) {
  RasterOut out;
  if (!out.open(name, title, par, scale, place, img.xsize(), img.ysize())) return false;
  std::vector<float> row(static_cast<size_t>(img.xsize()));
  for (int y = img.ysize() - 1; y >= 0; y--) {
    for (int x = 0; x < img.xsize(); x++) row[static_cast<size_t>(x)] = value(img.row(y)[x]);
    if (!out.put_rows(row.data(), 1)) return false;
  }
  return out.close();
}

template <typename T>
float count_value(T v) {
  return v == 0 ? IMG_NODATA : static_cast<float>(v);
}

float largest(const xyz& v) {
  const float a = std::fabs(v.x), b = std::fabs(v.y), c = std::fabs(v.z);
  return a >= b && a >= c ? v.x : b >= c ? v.y : v.z;
}

using RowOf = std::function<const xyz*(int y)>;

struct VectorMap {  // what the pictures of a map of vectors share
  const ImgParam& par;
  const ImgPlace& place;
  int xsize, ysize;
  const RowOf& row_of;
  ImgScale scale;
};

template <typename T, typename Value>
bool put_vectors(RasterOut& out, const VectorMap& map, Value value) {
  std::vector<T> row(static_cast<size_t>(map.xsize));
  for (int y = 0; y < map.ysize; y++) {
    const xyz* v = map.row_of(y);
    if (!v) return false;
    for (int x = 0; x < map.xsize; x++)
      row[static_cast<size_t>(x)] = v[x].z == IMG_NODATA ? value(nullptr) : value(&v[x]);
    if (!out.put_rows(row.data(), 1)) return false;
  }
  return out.close();
}

bool save_rgb(const std::string& name, const std::string& title, const VectorMap& map) {
  RasterOut out;
  return out.open_rgb(name, title, map.par, map.place, map.xsize, map.ysize) &&
         put_vectors<RGBchar>(out, map, [&](const xyz* v) {
           return v ? RGBchar{code8(map.scale, v->x), code8(map.scale, v->y), code8(map.scale, v->z)}
                    : RGBchar();
         });
}

template <typename Value>
bool save_scalar(const std::string& name, const std::string& title, const VectorMap& map, Value value) {
  RasterOut out;
  return out.open(name, title, map.par, map.scale, map.place, map.xsize, map.ysize) &&
         put_vectors<float>(out, map, [&](const xyz* v) { return v ? value(*v) : IMG_NODATA; });
}

// A plot of colours in memory, row 0 at the bottom.
bool save_plot(const std::string& name, const ImgParam& par, const Image<RGBchar>& img) {
  JpegOut jpeg;
  TiffOut tiff;
  TiffSpec spec;
  spec.pixel = Pixel::rgb;
  spec.xsize = img.xsize(), spec.ysize = img.ysize();
  spec.cog = false;
  if (par.OUTJPEG && !jpeg.open(name + ".jpg", img.xsize(), img.ysize(), 3, 95)) return false;
  if (par.OUTTIFF && !tiff.open(name + ".tif", spec)) return false;
  for (int y = img.ysize() - 1; y >= 0; y--) {
    if (par.OUTJPEG && !jpeg.put_rows(&img.row(y)->r, 1)) return false;
    if (par.OUTTIFF && !tiff.put_rows(img.row(y), 1)) return false;
  }
  return (!par.OUTJPEG || jpeg.close()) && (!par.OUTTIFF || tiff.close());
}

struct Ink {  // colours of a plot, on black or on white
  RGBchar ground, axis, mark;
};
Ink ink(bool inv) {
  const RGBchar white{255, 255, 255}, black{0, 0, 0}, grey{128, 128, 128};
  return inv ? Ink{white, grey, black} : Ink{black, grey, white};
}

bool save_plane(const std::string& name, const ImgParam& par, const Image<uint32_t>& plane) {
  const Ink colours = ink(par.inv);
  const Vector<RGBchar> table = make_colormap(COLOR_SEQUENTIAL, par.inv);
  const uint32_t most = *std::max_element(plane.val, plane.val + plane.size());
  const float full = std::log1p(static_cast<float>(std::max(most, 1u)));
  Image<RGBchar> img(plane.xsize(), plane.ysize(), colours.ground);
  for (int y = 0; y < plane.ysize(); y++)
    for (int x = 0; x < plane.xsize(); x++) {
      const uint32_t n = plane.row(y)[x];
      if (n > 0)
        img(x, y) = table[1 + std::lround(254 * std::log1p(static_cast<float>(n)) / full)];
      else if (x == plane.xsize() / 2 || y == plane.ysize() / 2)
        img(x, y) = colours.axis;
    }
  return save_plot(name, par, img);
}
}  // namespace

bool save_XXimg(const std::string& name, const std::string& title, const ImgParam& par, const ImgScale& scale,
                const ImgPlace& place, const Image<float>& img) {
  return save_values(name, title, par, scale, place, img, [](float v) { return v; });
}
bool save_XXimg(const std::string& name, const std::string& title, const ImgParam& par, const ImgScale& scale,
                const ImgPlace& place, const Image<uint16_t>& img) {
  LOG_LINE("save_XXimg [u16]");
  return save_values(name, title, par, scale, place, img, count_value<uint16_t>);
}
bool save_XXimg(const std::string& name, const std::string& title, const ImgParam& par, const ImgScale& scale,
                const ImgPlace& place, const Image<uint8_t>& img) {
  LOG_LINE("save_XXimg [u08]");
  return save_values(name, title, par, scale, place, img, count_value<uint8_t>);
}

bool save_img_Def(const std::string& name, const std::string& title, const ImgParam& par,
                  const VectorStyle& style, const ImgPlace& place, int xsize, int ysize,
                  const RowOf& row_of) {
  VectorMap map{par, place, xsize, ysize, row_of, {}};
  map.scale.range = map.scale.range16 = style.range;
  map.scale.mix = style.is_signed;
  map.scale.color = style.color;
  if (style.rgb) {
    LOG_MSG("Writing vector image " << name << "_* as RGB image with R=X,G=Y,B=Z");
    if (!save_rgb(name + "_rgb", title, map)) return false;
  }
  if (style.max) {
    LOG_MSG("Writing vector image " << name << "_* as 1 scalar image with max amplitude (X,Y,Z)");
    if (!save_scalar(name + "_max", title + " max", map, largest)) return false;
  }
  if (!style.sep) return true;
  LOG_MSG("Writing vector image " << name << "_* as 3 scalar images (X,Y,Z)");
  return save_scalar(name + "_x", title + " x", map, [](const xyz& v) { return v.x; }) &&
         save_scalar(name + "_y", title + " y", map, [](const xyz& v) { return v.y; }) &&
         save_scalar(name + "_z", title + " z", map, [](const xyz& v) { return v.z; });
}

ScatterPlanes make_scatter(int side, float range) {
  ScatterPlanes p;
  p.range = range;
  for (Image<uint32_t>* plane : {&p.XY, &p.YZ, &p.XZ}) plane->resize(side | 1, side | 1, 0);
  return p;
}

void update_XY_YZ_XZ_img(ScatterPlanes& p, const xyz& v) {
  const int side = p.XY.xsize();
  const auto at = [&](float c) {
    return static_cast<int>(std::floor((c / p.range * 0.5f + 0.5f) * static_cast<float>(side)));
  };
  p.n++;
  if (!(std::fabs(v.x) < p.range && std::fabs(v.y) < p.range && std::fabs(v.z) < p.range)) {
    p.nout++;
    return;
  }
  const int x = at(v.x), y = at(v.y), z = at(v.z);
  p.XY(x, y)++;
  p.YZ(y, z)++;
  p.XZ(x, z)++;
}

bool save_XY_YZ_XZ_img(const std::string& name, const ImgParam& par, const ScatterPlanes& planes) {
  const double beyond =
      100 * static_cast<double>(planes.nout) / static_cast<double>(std::max<uint64_t>(planes.n, 1));
  LOG_MSG("Writing 3 scatterplot images (XY,YZ,XZ) " << name << "_*, range=" << planes.range << ", " << beyond
                                                     << "% of the vectors beyond");
  LOG_LINE("save_XY_YZ_XZ_img name=" << name << " range=" << planes.range << " inv=" << par.inv);
  return save_plane(name + "_XY", par, planes.XY) && save_plane(name + "_YZ", par, planes.YZ) &&
         save_plane(name + "_XZ", par, planes.XZ);
}

bool save_DZH_img(const std::string& name, const ImgParam& par, const DZHistogram& h, float range, bool logh,
                  int side) {
  LOG_MSG("Writing DZ histogram image " << name << "_hist, range=" << range);
  LOG_LINE("save_DZH_img name=" << name << " range=" << range << " logh=" << logh);
  std::vector<double> column(static_cast<size_t>(side), 0.0);
  const int64_t middle = static_cast<int64_t>(h.count.size() / 2);
  for (size_t i = 0; i < h.count.size(); i++) {
    const float v = (static_cast<float>(static_cast<int64_t>(i) - middle) + 0.5f) * h.step;
    if (std::fabs(v) >= range) continue;
    const auto x = static_cast<size_t>((v / range * 0.5f + 0.5f) * static_cast<float>(side));
    column[std::min(x, column.size() - 1)] += static_cast<double>(h.count[i]);
  }
  double most = 0;
  for (double& c : column) {
    if (logh) c = std::log1p(c);
    most = std::max(most, c);
  }
  const Ink colours = ink(par.inv);
  Image<RGBchar> img(side, side, colours.ground);
  for (int x = 0; x < side; x++) {
    const int top =
        most > 0 ? static_cast<int>(std::lround(column[static_cast<size_t>(x)] / most * (side - 1))) : 0;
    for (int y = 0; y < side; y++)
      if (y < top)
        img(x, y) = colours.mark;
      else if (x == side / 2)
        img(x, y) = colours.axis;
  }
  return save_plot(name + "_hist", par, img);
}
}  // namespace veld

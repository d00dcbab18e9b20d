#include "prj/LiDAR/report/svg_plots.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "prj/LiDAR/report/html.h"

namespace veld {
namespace {
std::string num(double v, int digits = 1) {
  char text[48];
  std::snprintf(text, sizeof text, "%.*f", digits, v);
  return text;
}

// The largest of 1, 2, 5 times a power of ten that is not above v.
double round_step(double v) {
  const double p = std::pow(10, std::floor(std::log10(v)));
  return p * (v / p >= 5 ? 5 : v / p >= 2 ? 2 : 1);
}

void put_svg_begin(std::ostream& os, double w, double h, const std::string& label) {
  os << "<figure><svg xmlns=\"http://www.w3.org/2000/svg\" role=\"img\" width=\"" << num(w, 0)
     << "\" height=\"" << num(h, 0) << "\" viewBox=\"0 0 " << num(w, 0) << ' ' << num(h, 0)
     << "\" font-family=\"sans-serif\" "
     << "font-size=\"11\"><title>" << html_text(label) << "</title>\n";
}

void put_svg_end(std::ostream& os, const std::string& caption) {
  os << "</svg><figcaption>" << html_text(caption) << "</figcaption></figure>\n";
}

void put_text(std::ostream& os, double x, double y, const std::string& text, const char* anchor = "start") {
  os << "<text x=\"" << num(x) << "\" y=\"" << num(y) << "\" text-anchor=\"" << anchor << "\">"
     << html_text(text) << "</text>\n";
}

void put_mark(std::ostream& os, double x, double y, MapPoint kind) {
  const auto at = [&](double dx, double dy) { return num(x + dx) + "," + num(y + dy); };
  if (kind == MapPoint::check)
    os << "<circle cx=\"" << num(x) << "\" cy=\"" << num(y) << "\" r=\"4\" fill=\"#fff\" stroke=\"#000\"/>\n";
  else if (kind == MapPoint::control)
    os << "<polygon points=\"" << at(0, -5) << ' ' << at(5, 4) << ' ' << at(-5, 4) << "\" fill=\"#000\"/>\n";
  else
    os << "<path d=\"M" << at(-5, -5) << " L" << at(5, 5) << " M" << at(-5, 5) << " L" << at(5, -5)
       << "\" stroke=\"#000\" stroke-width=\"2\"/>\n";
}

const char* const DASHES[] = {"", "6 3", "2 2", "8 3 2 3", "1 3", "12 4"};
}  // namespace

void put_map(std::ostream& os, const std::vector<MapSwath>& swaths, const std::vector<MapMark>& marks) {
  dxy lo{1e300, 1e300}, hi{-1e300, -1e300};
  const auto extend = [&](const dxy& p) {
    lo = {std::min(lo.x, p.x), std::min(lo.y, p.y)};
    hi = {std::max(hi.x, p.x), std::max(hi.y, p.y)};
  };
  for (const MapSwath& s : swaths)
    for (const dxy& c : s.corner) extend(c);
  if (swaths.empty() || !(hi.x > lo.x && hi.y > lo.y)) return;
  constexpr double SIDE = 640, RIM = 30;
  const double scale = SIDE / std::max(hi.x - lo.x, hi.y - lo.y);
  const double w = (hi.x - lo.x) * scale + 2 * RIM, h = (hi.y - lo.y) * scale + 2 * RIM + 30;
  const auto X = [&](double x) { return RIM + (x - lo.x) * scale; };
  const auto Y = [&](double y) { return RIM + (hi.y - y) * scale; };
  put_svg_begin(os, w, h, "Map of swaths and control points");
  for (const MapSwath& s : swaths) {
    os << "<polygon points=\"";
    for (const dxy& c : s.corner) os << num(X(c.x)) << ',' << num(Y(c.y)) << ' ';
    os << "\" fill=\"#000\" fill-opacity=\"0.04\" stroke=\"#444\""
       << (s.fixed ? " stroke-dasharray=\"6 3\"" : "") << "><title>" << html_text(s.name)
       << "</title></polygon>\n";
  }
  if (swaths.size() <= 60)  // more names than that cover the map
    for (const MapSwath& s : swaths) {
      const dxy at = (s.corner[0] + s.corner[1]) * 0.5 * 0.85 + (s.corner[2] + s.corner[3]) * 0.5 * 0.15;
      put_text(os, X(at.x), Y(at.y), s.name, "middle");
    }
  int nout = 0;
  for (const MapMark& m : marks) {
    if (m.at.x < lo.x || m.at.x > hi.x || m.at.y < lo.y || m.at.y > hi.y) {
      nout++;
      continue;
    }
    put_mark(os, X(m.at.x), Y(m.at.y), m.kind);
    if (marks.size() <= 80) put_text(os, X(m.at.x) + 7, Y(m.at.y) + 4, m.name);
  }
  const double bar = round_step((hi.x - lo.x) / 3);
  os << "<path d=\"M" << num(RIM) << ' ' << num(h - 14) << " h" << num(bar * scale)
     << "\" stroke=\"#000\" stroke-width=\"3\"/>\n";
  put_text(os, RIM + bar * scale + 6, h - 10, num(bar, 0) + " m");
  put_text(os, w - RIM, 14, "North is up", "end");
  put_svg_end(os,
              std::string("Swaths (rectangles, dashed: references), control points (filled triangles), check "
                          "points (circles), rejected points (crosses)") +
                  (nout > 0 ? "; " + std::to_string(nout) + " points lie outside" : ""));
}

void put_bars(std::ostream& os, const std::string& label, const std::vector<BarPair>& bars) {
  double most = 0;
  for (const BarPair& b : bars) most = std::max({most, b.before, b.after});
  if (bars.empty() || most <= 0) return;
  constexpr double NAME = 190, WIDTH = 330, ROW = 26;
  const double h = ROW * static_cast<double>(bars.size()) + 10;
  put_svg_begin(os, NAME + WIDTH + 90, h, label);
  double y = 4;
  for (const BarPair& b : bars) {
    put_text(os, NAME - 6, y + 14, b.name, "end");
    const auto bar = [&](double v, double dy, const char* fill) {
      if (v < 0) return;
      os << "<rect x=\"" << num(NAME) << "\" y=\"" << num(y + dy) << "\" width=\"" << num(v / most * WIDTH, 2)
         << "\" height=\"9\" fill=\"" << fill << "\" stroke=\"#000\"/>\n";
      put_text(os, NAME + v / most * WIDTH + 5, y + dy + 9, num(v, 3) + " m");
    };
    bar(b.before, 0, "#fff");
    bar(b.after, 11, "#333");
    y += ROW;
  }
  put_svg_end(os, label + ": open bars before, filled bars after the correction");
}

void put_drift(std::ostream& os, const std::string& label, const std::vector<DriftLine>& lines) {
  double tmax = 0, vmax = 0;
  for (const DriftLine& l : lines)
    for (size_t i = 0; i < l.t.size(); i++)
      tmax = std::max(tmax, l.t[i] - l.t[0]), vmax = std::max(vmax, std::fabs(l.v[i]));
  if (!(tmax > 0 && vmax > 0)) return;
  constexpr double LEFT = 62, W = 420, H = 150, TOP = 10;
  put_svg_begin(os, LEFT + W + 100, H + TOP + 30, label);
  const auto X = [&](double t) { return LEFT + t / tmax * W; };
  const auto Y = [&](double v) { return TOP + H / 2 - v / vmax * H / 2; };
  for (const double v : {-vmax, 0.0, vmax}) {
    os << "<path d=\"M" << num(LEFT) << ' ' << num(Y(v)) << " h" << num(W) << "\" stroke=\"#999\"/>\n";
    put_text(os, LEFT - 4, Y(v) + 4, num(v, vmax < 0.1 ? 4 : 3), "end");
  }
  size_t k = 0;
  for (const DriftLine& l : lines) {
    os << "<polyline fill=\"none\" stroke=\"#000\" stroke-dasharray=\"" << DASHES[k % std::size(DASHES)]
       << "\" points=\"";
    for (size_t i = 0; i < l.t.size(); i++) os << num(X(l.t[i] - l.t[0])) << ',' << num(Y(l.v[i])) << ' ';
    os << "\"><title>" << html_text(l.name) << "</title></polyline>\n";
    if (lines.size() <= 12 && !l.t.empty())
      put_text(os, X(l.t.back() - l.t[0]) + 4, Y(l.v.back()) + 4, l.name);
    k++;
  }
  put_text(os, LEFT, H + TOP + 20, "0 s");
  put_text(os, LEFT + W, H + TOP + 20, num(tmax, 0) + " s from the beginning of each swath", "end");
  put_svg_end(os, label);
}
}  // namespace veld

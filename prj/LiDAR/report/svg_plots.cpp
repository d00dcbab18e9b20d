#include "prj/LiDAR/report/svg_plots.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "image/colormap.h"
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
     << "font-size=\"12\"><title>" << html_text(label) << "</title>\n";
}

void put_svg_end(std::ostream& os, const std::string& caption) {
  os << "</svg><figcaption>" << html_text(caption) << "</figcaption></figure>\n";
}

void put_text(std::ostream& os, double x, double y, const std::string& text, const char* anchor = "start") {
  os << "<text x=\"" << num(x) << "\" y=\"" << num(y) << "\" text-anchor=\"" << anchor << "\">"
     << html_text(text) << "</text>\n";
}

// On a white rim, so that it can be read above lines.
void put_label(std::ostream& os, double x, double y, const std::string& text, const char* anchor = "start") {
  os << "<text x=\"" << num(x) << "\" y=\"" << num(y) << "\" text-anchor=\"" << anchor
     << "\" paint-order=\"stroke\" stroke=\"#fff\" stroke-width=\"3\">" << html_text(text) << "</text>\n";
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

double area_of(const MapRing& ring) {
  double a = 0;
  for (size_t i = 0; i < ring.size(); i++) {
    const dxy &p = ring[i], &q = ring[(i + 1) % ring.size()];
    a += p.x * q.y - q.x * p.y;
  }
  return std::fabs(a) / 2;
}

double distance(const dxy& p, const dxy& a, const dxy& b) {
  const dxy u = b - a, v = p - a;
  const double l2 = u.x * u.x + u.y * u.y;
  const double f = l2 > 0 ? std::clamp((u.x * v.x + u.y * v.y) / l2, 0.0, 1.0) : 0;
  return std::hypot(v.x - f * u.x, v.y - f * u.y);
}

// Where the name of a swath stands: on the axis along which it is longest, in from an end; every second one at the other
// end, so that the names of lines that cross keep apart. From the moments of its area (Green's theorem).
dxy label_place(const MapSwath& s, size_t number) {
  double A = 0, Sx = 0, Sy = 0, Sxx = 0, Syy = 0, Sxy = 0;
  if (s.rings.empty() || s.rings[0].empty()) return {0, 0};
  const dxy o = s.rings[0][0];  // sums are taken from a corner, for the sake of digits
  for (const MapRing& r : s.rings)
    for (size_t i = 0; i < r.size(); i++) {
      const dxy p = r[i] - o, q = r[(i + 1) % r.size()] - o;
      const double c = p.x * q.y - q.x * p.y;
      A += c / 2;
      Sx += c * (p.x + q.x) / 6, Sy += c * (p.y + q.y) / 6;
      Sxx += c * (p.x * p.x + p.x * q.x + q.x * q.x) / 12;
      Syy += c * (p.y * p.y + p.y * q.y + q.y * q.y) / 12;
      Sxy += c * (p.x * q.y + 2 * p.x * p.y + 2 * q.x * q.y + q.x * p.y) / 24;
    }
  if (A == 0) return o;
  const dxy m{Sx / A, Sy / A};
  const double vx = Sxx / A - m.x * m.x, vy = Syy / A - m.y * m.y, vxy = Sxy / A - m.x * m.y;
  const double theta = 0.5 * std::atan2(2 * vxy, vx - vy);
  const dxy axis{std::cos(theta), std::sin(theta)};
  double low = 0, high = 0;
  for (const MapRing& r : s.rings)
    for (const dxy& p : r) {
      const dxy d = p - o - m;
      const double u = d.x * axis.x + d.y * axis.y;
      low = std::min(low, u), high = std::max(high, u);
    }
  return o + m + axis * (0.8 * (number % 2 == 0 ? low : high));
}
}  // namespace

MapRing simplify_ring(const MapRing& ring, double tolerance) {
  if (ring.size() < 4) return ring;
  // Two corners that stay: the first, and the one farthest from it.
  size_t far = 0;
  double most = -1;
  for (size_t i = 1; i < ring.size(); i++) {
    const dxy d = ring[i] - ring[0];
    if (const double l = std::hypot(d.x, d.y); l > most) most = l, far = i;
  }
  std::vector<char> keep(ring.size(), 0);
  keep[0] = keep[far] = 1;
  std::vector<std::pair<size_t, size_t>> parts = {{0, far}, {far, ring.size()}};
  while (!parts.empty()) {
    const auto [a, b] = parts.back();
    parts.pop_back();
    size_t worst = a;
    double off = tolerance;
    for (size_t i = a + 1; i < b; i++)
      if (const double e = distance(ring[i], ring[a], ring[b % ring.size()]); e > off) off = e, worst = i;
    if (worst == a) continue;
    keep[worst] = 1;
    parts.emplace_back(a, worst);
    parts.emplace_back(worst, b);
  }
  MapRing simple;
  for (size_t i = 0; i < ring.size(); i++)
    if (keep[i]) simple.push_back(ring[i]);
  return simple;
}

void put_map(std::ostream& os, const std::vector<MapSwath>& swaths, const std::vector<MapMark>& marks) {
  dxy lo{1e300, 1e300}, hi{-1e300, -1e300};
  for (const MapSwath& s : swaths)
    for (const MapRing& r : s.rings)
      for (const dxy& p : r) {
        lo = {std::min(lo.x, p.x), std::min(lo.y, p.y)};
        hi = {std::max(hi.x, p.x), std::max(hi.y, p.y)};
      }
  if (!(hi.x > lo.x && hi.y > lo.y)) return;
  constexpr double SIDE = 760, RIM = 34, BELOW = 30,
                   LEAST = 12;  // LEAST: pixels2, smaller rings are left out
  const double scale = SIDE / std::max(hi.x - lo.x, hi.y - lo.y);
  const double w = (hi.x - lo.x) * scale + 2 * RIM, h = (hi.y - lo.y) * scale + 2 * RIM + BELOW;
  const auto X = [&](double x) { return RIM + (x - lo.x) * scale; };
  const auto Y = [&](double y) { return RIM + (hi.y - y) * scale; };
  put_svg_begin(os, w, h, "Map of swaths and control points");
  for (const MapSwath& s : swaths) {
    os << "<path fill-rule=\"evenodd\" fill=\"#000\" fill-opacity=\"0.05\" stroke=\"#444\""
       << (s.fixed ? " stroke-dasharray=\"6 3\"" : "") << " d=\"";
    for (const MapRing& r : s.rings) {
      if (area_of(r) * scale * scale < LEAST) continue;
      for (size_t i = 0; i < r.size(); i++)
        os << (i == 0 ? 'M' : 'L') << num(X(r[i].x)) << ' ' << num(Y(r[i].y));
      os << 'Z';
    }
    os << "\"><title>" << html_text(s.name) << "</title></path>\n";
  }
  if (swaths.size() <= 60)  // more names than that cover the map
    for (size_t k = 0; k < swaths.size(); k++) {
      const dxy at = label_place(swaths[k], k);
      put_label(os, X(at.x), Y(at.y), "swath " + swaths[k].name, "middle");
    }
  int nout = 0;
  for (const MapMark& m : marks) {
    if (m.at.x < lo.x || m.at.x > hi.x || m.at.y < lo.y || m.at.y > hi.y) {
      nout++;
      continue;
    }
    put_mark(os, X(m.at.x), Y(m.at.y), m.kind);
    if (marks.size() <= 80) put_label(os, X(m.at.x) + 7, Y(m.at.y) + 4, m.name);
  }
  const double bar = round_step((hi.x - lo.x) / 3);
  os << "<path d=\"M" << num(RIM) << ' ' << num(h - 14) << " h" << num(bar * scale)
     << "\" stroke=\"#000\" stroke-width=\"3\"/>\n";
  put_text(os, RIM + bar * scale + 6, h - 10, num(bar, 0) + " m");
  put_text(os, w - RIM, 16, "North is up", "end");
  put_svg_end(
      os, std::string("Outlines of the swaths (dashed: references), control points (filled triangles), check "
                      "points (circles), points that were not used (crosses)") +
              (nout > 0 ? "; " + std::to_string(nout) + " points lie outside" : ""));
}

void put_bars(std::ostream& os, const std::string& label, const std::vector<BarPair>& bars) {
  double most = 0;
  for (const BarPair& b : bars) most = std::max({most, b.before, b.after});
  if (bars.empty() || most <= 0) return;
  constexpr double NAME = 240, WIDTH = 400, ROW = 26;
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

namespace {
constexpr int NBIN = 81;  // bars of a histogram, the middle one about 0

// The counts of h in NBIN bars of equal width from -reach to reach.
std::vector<double> bars_of(const DZHistogram& h, double reach) {
  std::vector<double> sums(NBIN, 0.0);
  const double half = static_cast<double>(h.count.size()) / 2, step = static_cast<double>(h.step);
  for (size_t i = 0; i < h.count.size(); i++) {
    const double v = (static_cast<double>(i) - half + 0.5) * step;
    const int k = static_cast<int>(std::floor((v + reach) / (2 * reach) * NBIN));
    if (k >= 0 && k < NBIN) sums[static_cast<size_t>(k)] += static_cast<double>(h.count[i]);
  }
  return sums;
}

// What 99 percent of the values stay below, by magnitude.
double reach_of(const DZHistogram& h) {
  double all = 0, sum = 0;
  for (const uint64_t c : h.count) all += static_cast<double>(c);
  const size_t half = h.count.size() / 2;
  for (size_t k = 0; k < half; k++) {
    sum += static_cast<double>(h.count[half + k] + h.count[half - 1 - k]);
    if (sum >= 0.99 * all && all > 0) return static_cast<double>(k + 1) * static_cast<double>(h.step);
  }
  return 0;
}

std::string signed_bound(double v) {
  return (v < 0 ? "\u2212" : "") + num(std::fabs(v), std::fabs(v) < 0.1 ? 3 : 2);
}
}  // namespace

void put_histograms(std::ostream& os, const std::string& label, const DZHistogram& before,
                    const DZHistogram& after) {
  const double reach = std::max(reach_of(before), reach_of(after));
  if (!(reach > 0)) return;
  constexpr double LEFT = 60, W = 600, H = 110, GAP = 16;
  const bool both = reach_of(before) > 0 && reach_of(after) > 0;
  put_svg_begin(os, LEFT + W + 30, (both ? 2 : 1) * (H + GAP) + 44, label);
  double y = GAP;
  const auto panel = [&](const DZHistogram& h, const char* name, const char* fill) {
    if (!(reach_of(h) > 0)) return;
    const std::vector<double> sums = bars_of(h, reach);
    const double most = *std::max_element(sums.begin(), sums.end());
    put_text(os, LEFT - 8, y + H - 2, name, "end");
    for (size_t k = 0; k < sums.size() && most > 0; k++)
      if (const double height = sums[k] / most * H; height >= 0.05)
        os << "<rect x=\"" << num(LEFT + static_cast<double>(k) * W / NBIN, 2) << "\" y=\""
           << num(y + H - height, 2) << "\" width=\"" << num(W / NBIN, 2) << "\" height=\"" << num(height, 2)
           << "\" fill=\"" << fill << "\" stroke=\"#000\" stroke-width=\"0.5\"/>\n";
    os << "<path d=\"M" << num(LEFT) << ' ' << num(y + H) << " h" << num(W) << "\" stroke=\"#000\"/>\n";
    y += H + GAP;
  };
  panel(before, "before", "#fff");
  panel(after, "after", "#333");
  for (const double f : {-1.0, -0.5, 0.0, 0.5, 1.0})
    put_text(os, LEFT + (f + 1) / 2 * W, y + 4, f == 0 ? "0" : signed_bound(f * reach), "middle");
  put_text(os, LEFT + W / 2, y + 18, "height difference of two swaths, m", "middle");
  put_svg_end(os, label + ": each drawn to the same height");
}

void put_drift(std::ostream& os, const std::string& label, const std::vector<DriftLine>& lines) {
  double t0 = 1e300, t1 = -1e300, vmax = 0;
  for (const DriftLine& l : lines)
    for (size_t i = 0; i < l.t.size(); i++)
      t0 = std::min(t0, l.t[i]), t1 = std::max(t1, l.t[i]), vmax = std::max(vmax, std::fabs(l.v[i]));
  if (!(t1 > t0 && vmax > 0)) return;
  constexpr double LEFT = 70, W = 640, H = 110, TOP = 18;
  put_svg_begin(os, LEFT + W + 20, H + TOP + 26, label);
  const auto X = [&](double t) { return LEFT + (t - t0) / (t1 - t0) * W; };
  const auto Y = [&](double v) { return TOP + H / 2 - v / vmax * H / 2; };
  for (const double v : {-vmax, 0.0, vmax}) {
    os << "<path d=\"M" << num(LEFT) << ' ' << num(Y(v)) << " h" << num(W) << "\" stroke=\"#999\"/>\n";
    put_text(os, LEFT - 4, Y(v) + 4, (v < 0 ? "\u2212" : "") + num(std::fabs(v), vmax < 0.1 ? 4 : 3), "end");
  }
  double last = -1e300;  // names stand apart
  for (const DriftLine& l : lines) {
    if (l.t.empty()) continue;
    os << "<polyline fill=\"none\" stroke=\"#000\" stroke-width=\"1.5\" points=\"";
    for (size_t i = 0; i < l.t.size(); i++) os << num(X(l.t[i])) << ',' << num(Y(l.v[i])) << ' ';
    os << "\"><title>" << html_text(l.name) << "</title></polyline>\n";
    const double x = (X(l.t.front()) + X(l.t.back())) / 2;
    if (x - last < 18) continue;
    last = x;
    put_text(os, x, TOP - 4, l.name, "middle");
  }
  put_text(os, LEFT, TOP + H + 18, "0 s");
  put_text(os, LEFT + W, TOP + H + 18, num(t1 - t0, 0) + " s", "end");
  put_svg_end(os, label);
}

void put_scale(std::ostream& os, const std::string& label, const ImgScale& scale) {
  constexpr double LEFT = 70, W = 512, H = 18;
  constexpr int STEPS = 64;
  const Vector<RGBchar> map = make_colormap(scale.color, false);
  const float low = scale.mix ? scale.z0 - scale.range : scale.z0, high = scale.z0 + scale.range;
  put_svg_begin(os, LEFT + W + 80, H + 12, label);
  for (int k = 0; k < STEPS; k++) {
    const float v = low + (high - low) * (static_cast<float>(k) + 0.5f) / STEPS;
    const RGBchar c = map[code8(scale, v)];
    char fill[8];
    std::snprintf(fill, sizeof fill, "#%02x%02x%02x", c.r, c.g, c.b);
    os << "<rect x=\"" << num(LEFT + k * W / STEPS) << "\" y=\"4\" width=\"" << num(W / STEPS + 0.3)
       << "\" height=\"" << num(H, 0) << "\" fill=\"" << fill << "\"/>\n";
  }
  put_text(os, LEFT - 6, 18, signed_bound(static_cast<double>(low)), "end");
  put_text(os, LEFT + W + 6, 18, signed_bound(static_cast<double>(high)) + " m");
  put_svg_end(os, label);
}
}  // namespace veld

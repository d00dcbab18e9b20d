#include "prj/LiDAR/LmTQCGCP/gcp_tin.h"

#include <algorithm>
#include <cmath>

#include "lib/general/assert_fail.h"
#include "lib/general/log.h"
#include "prj/LiDAR/LmTidx_r/tile_geom.h"

namespace veld {
namespace {
__extension__ typedef __int128 int128;

constexpr int next3(int i) { return i == 2 ? 0 : i + 1; }

// The triangulation while it grows: triangles, and the hull as a ring of vertices.
class TINbuilder {
 public:
  TINbuilder(const std::vector<PointXY>& p, std::vector<TINtri>& tri)
      : p_(p), tri_(tri), next_(p.size(), -1), prev_(p.size(), -1), edge_(p.size(), -1) {}

  void build() {
    const int n = static_cast<int>(p_.size());
    int k = 2;  // the first point off the line of those before it
    while (k < n && orient(0, 1, k) == 0) k++;
    if (k >= n) return;
    begin(k);
    for (int i = k + 1; i < n; i++) add(i);
  }

 private:
  int64_t orient(int a, int b, int c) const {
    return orient2d(p_[static_cast<size_t>(a)], p_[static_cast<size_t>(b)], p_[static_cast<size_t>(c)]);
  }
  TINtri& T(int t) { return tri_[static_cast<size_t>(t)]; }
  int& next(int v) { return next_[static_cast<size_t>(v)]; }
  int& prev(int v) { return prev_[static_cast<size_t>(v)]; }
  int& edge(int v) { return edge_[static_cast<size_t>(v)]; }

  void join(int a, int b, int t) {  // hull edge a -> b of triangle t
    next(a) = b;
    prev(b) = a;
    edge(a) = t;
  }
  int add_tri(int a, int b, int c) {
    tri_.push_back({{a, b, c}, {-1, -1, -1}});
    return static_cast<int>(tri_.size()) - 1;
  }
  int side_of(int t, int v) {  // the corner at which vertex v stands
    for (int i = 0; i < 3; i++)
      if (T(t).v[i] == v) return i;
    ASSERT(false && "fail_link_1");
    return 0;
  }
  void link(int t, int i, int s, int j) {
    T(t).n[i] = s;
    T(s).n[j] = t;
  }

  // A fan over the collinear points 0 .. k - 1 with the tip k.
  void begin(int k) {
    const bool left = orient(0, 1, k) > 0;
    int last = -1;
    for (int i = 0; i + 1 < k; i++) {
      const int t = left ? add_tri(i, i + 1, k) : add_tri(i + 1, i, k);
      // Corner opposite the edge from k to point i: where i + 1 stands, and the other way round.
      if (last >= 0) link(last, side_of(last, i - 1), t, side_of(t, i + 1));
      if (left)
        join(i, i + 1, t);
      else
        join(i + 1, i, t);
      last = t;
    }
    const int first = 0;
    if (left) {
      join(k - 1, k, last);
      join(k, 0, first);
    } else {
      join(0, k, first);
      join(k, k - 1, last);
    }
  }

  // Point v to the right of all others: a triangle on each hull edge that it sees.
  void add(int v) {
    const int q = v - 1;  // the point before it is on the hull, and v sees it
    std::vector<int> made;
    int a = q, below = -1, above = -1;  // the outermost new triangles
    while (orient(a, next(a), v) < 0) {
      const int b = next(a), inner = edge(a), t = add_tri(b, a, v);
      link(t, 2, inner, opposite(inner, a, b));
      if (above >= 0) link(t, side_of(t, b), above, side_of(above, before_));
      before_ = a;
      above = t;
      if (below < 0) below = t;
      made.push_back(t);
      a = b;
    }
    const int end = a;
    a = q;
    while (orient(prev(a), a, v) < 0) {
      const int c = prev(a), inner = edge(c), t = add_tri(a, c, v);
      link(t, 2, inner, opposite(inner, c, a));
      // The triangle before this one in the ring shares the edge from a to v.
      if (below >= 0) link(t, side_of(t, c), below, other(below, a, v));
      below = t;
      if (above < 0) above = t;
      made.push_back(t);
      a = c;
    }
    join(a, v, below);
    join(v, end, above);
    for (const int t : made) legalize(t, v);
  }
  int other(int t, int a, int b) {  // the corner of t at neither
    for (int i = 0; i < 3; i++)
      if (T(t).v[i] != a && T(t).v[i] != b) return i;
    ASSERT(false && "fail_link_2");
    return 0;
  }
  int opposite(int t, int a, int b) { return other(t, a, b); }

  // Flips edges opposite v from triangle t on until all circles are empty.
  void legalize(int t0, int v) {
    std::vector<int> todo{t0};
    while (!todo.empty()) {
      const int t = todo.back();
      todo.pop_back();
      const int i = side_of(t, v), s = T(t).n[i];
      if (s < 0) continue;
      const int a = T(t).v[next3(i)], b = T(t).v[next3(next3(i))], j = other(s, a, b), d = T(s).v[j];
      const auto P = [&](int k) -> const PointXY& { return p_[static_cast<size_t>(k)]; };
      if (incircle(P(v), P(a), P(b), P(d)) <= 0) continue;
      // (v a b) and (d b a) become (v a d) and (v d b).
      const int ta = T(t).n[next3(next3(i))], tb = T(t).n[next3(i)];     // across v a, b v
      const int sa = T(s).n[side_of(s, b)], sb = T(s).n[side_of(s, a)];  // across a d, d b
      T(t) = {{v, a, d}, {sa, s, ta}};
      T(s) = {{v, d, b}, {sb, tb, t}};
      relink(sa, a, d, t);
      relink(tb, b, v, s);
      if (ta < 0) edge(v) = t;  // hull edges: from the first vertex, counter-clockwise
      if (sa < 0) edge(a) = t;
      if (sb < 0) edge(d) = s;
      if (tb < 0) edge(b) = s;
      todo.push_back(t);
      todo.push_back(s);
    }
  }
  // The neighbour t across the edge of vertices a and b now is to.
  void relink(int t, int a, int b, int to) {
    if (t >= 0) T(t).n[other(t, a, b)] = to;
  }

  const std::vector<PointXY>& p_;
  std::vector<TINtri>& tri_;
  std::vector<int> next_, prev_,
      edge_;  // of a hull vertex: its neighbours, and the triangle of the edge to the next
  int before_ = -1;
};

int128 square(const PointXY& a, const PointXY& d) {
  const int64_t x = int64_t{a.x} - d.x, y = int64_t{a.y} - d.y;
  return static_cast<int128>(x) * x + static_cast<int128>(y) * y;
}
}  // namespace

int64_t orient2d(const PointXY& a, const PointXY& b, const PointXY& c) {
  return (int64_t{b.x} - a.x) * (int64_t{c.y} - a.y) - (int64_t{b.y} - a.y) * (int64_t{c.x} - a.x);
}

int incircle(const PointXY& a, const PointXY& b, const PointXY& c, const PointXY& d) {
  const int128 det =
      square(a, d) * orient2d(d, b, c) + square(b, d) * orient2d(d, c, a) + square(c, d) * orient2d(d, a, b);
  return det > 0 ? 1 : det < 0 ? -1 : 0;
}

void comp_TIN(const std::vector<PointXY>& p, std::vector<TINtri>& tri) {
  tri.clear();
  if (p.size() >= 3) TINbuilder(p, tri).build();
}

TINresult GCP_TIN(const xyz* l0, uint64_t nin, double x, double y) {
  struct Vertex {
    PointXY p;
    uint64_t i;
  };
  double xmin = 1.797e308, xmax = -1.797e308, ymin = 1.797e308, ymax = -1.797e308;
  std::vector<Vertex> all;
  for (uint64_t i = 0; i < nin; i++) {
    const double dx = static_cast<double>(l0[i].x) - x, dy = static_cast<double>(l0[i].y) - y;
    if (std::fabs(dx) >= TIN_RANGE * M_PER_UNIT || std::fabs(dy) >= TIN_RANGE * M_PER_UNIT) continue;
    xmin = std::min(xmin, dx), xmax = std::max(xmax, dx);
    ymin = std::min(ymin, dy), ymax = std::max(ymax, dy);
    all.push_back({{static_cast<int32_t>(std::lround(dx * UNITS_PER_M)),
                    static_cast<int32_t>(std::lround(dy * UNITS_PER_M))},
                   i});
  }
  std::sort(all.begin(), all.end(), [&](const Vertex& a, const Vertex& b) {
    if (a.p.x != b.p.x) return a.p.x < b.p.x;
    if (a.p.y != b.p.y) return a.p.y < b.p.y;
    return l0[a.i].z < l0[b.i].z;
  });
  all.erase(std::unique(all.begin(), all.end(), [](const Vertex& a, const Vertex& b) { return a.p == b.p; }),
            all.end());
  std::vector<PointXY> p;
  for (const Vertex& v : all) p.push_back(v.p);
  std::vector<TINtri> tri;
  comp_TIN(p, tri);
  TINresult r;
  r.ntri = static_cast<int>(tri.size());
  LOG_LINE("GCP_TIN nin=" << nin << " ntri=" << r.ntri << " x:[" << xmin << " " << xmax << "] y:[" << ymin
                          << " " << ymax << "]");
  const PointXY place{0, 0};
  for (const TINtri& t : tri) {
    const auto P = [&](int i) -> const PointXY& { return p[static_cast<size_t>(t.v[i])]; };
    const int64_t w[3] = {orient2d(P(1), P(2), place), orient2d(P(2), P(0), place),
                          orient2d(P(0), P(1), place)};
    if (w[0] < 0 || w[1] < 0 || w[2] < 0) continue;
    double sum = 0;
    for (int i = 0; i < 3; i++) {
      r.T[i] = to_dxyz(l0[all[static_cast<size_t>(t.v[i])].i]);
      r.z_tin += static_cast<double>(w[i]) * r.T[i].z;
      sum += static_cast<double>(w[i]);
    }
    r.z_tin /= sum;
    r.ok = true;
    return r;
  }
  LOG_LINE("TIN exception: fail_tri");
  return r;
}
}  // namespace veld

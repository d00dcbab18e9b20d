// Conjugate gradients on the vertices, preconditioned by the inverse of each vertex' own block; for one
// right-hand side or for eight side by side, which share the loads of the matrix.
#include <type_traits>

#include "prj/LiDAR/TNRreg/TNRreg_normal.h"

namespace veld {
namespace {
template <typename V>
struct LaneSum {  // sums in double, one a lane
  static constexpr int N = std::is_same_v<V, float> ? 1 : LANES;
  double v[N] = {};
  [[gnu::always_inline]] void add(const V& part) {
    if constexpr (N == 1)
      v[0] += static_cast<double>(part);
    else
      for (int l = 0; l < N; l++) v[l] += static_cast<double>(part[l]);
  }
};
template <typename V>
[[gnu::always_inline]] inline V to_lanes(const LaneSum<V>& s) {
  if constexpr (LaneSum<V>::N == 1) {
    return static_cast<float>(s.v[0]);
  } else {
    V out;
    for (int l = 0; l < LANES; l++) out[l] = static_cast<float>(s.v[l]);
    return out;
  }
}

template <typename V>
[[gnu::always_inline]] inline V3<V> times(const float* m, const V3<V>& a) {
  return {m[0] * a.x + m[1] * a.y + m[2] * a.z, m[1] * a.x + m[3] * a.y + m[4] * a.z,
          m[2] * a.x + m[4] * a.y + m[5] * a.z};
}
template <typename V>
[[gnu::always_inline]] inline void add(V3<V>& a, const V3<V>& b) {
  a.x += b.x, a.y += b.y, a.z += b.z;
}

// A p of one row of vertices of a tile, without the other tiles' shares.
template <typename V>
[[gnu::always_inline]] inline void multiply_row(const NormalEq& N, const VertexRun& run, const V3<V>* p,
                                                V3<V>* Ap) {
  const size_t S = static_cast<size_t>(N.stride);
  for (size_t k = run.first; k < run.end; k++) {
    const VertexBlock* const b = &N.block[k];
    V3<V> y = times(b->self, p[k]);
    add(y, times(b->right, p[k + 1]));
    add(y, times(b[-1].right, p[k - 1]));
    add(y, times(b->up, p[k + S]));
    add(y, times(b->cross, p[k + S + 1]));
    add(y, times(b[-1].cross, p[k + S - 1]));
    const VertexBlock* const below = b - N.stride;
    add(y, times(below->up, p[k - S]));
    add(y, times(below->cross, p[k - S + 1]));
    add(y, times(below[-1].cross, p[k - S - 1]));
    const float x0 = N.cx[k - 1], x1 = N.cx[k], x2 = N.cx[k + 1];
    const float y0 = N.cy[k - S], y1 = N.cy[k], y2 = N.cy[k + S];
    const float own = (x0 + 4 * x1 + x2) + (y0 + 4 * y1 + y2);
    const float left = -2 * (x0 + x1), right = -2 * (x1 + x2), down = -2 * (y0 + y1), up = -2 * (y1 + y2);
    const auto stencil = [&](V V3<V>::*c) __attribute__((always_inline)) {
      return own * p[k].*c + (left * p[k - 1].*c + right * p[k + 1].*c) +
             (x0 * p[k - 2].*c + x2 * p[k + 2].*c) + (down * p[k - S].*c + up * p[k + S].*c) +
             (y0 * p[k - 2 * S].*c + y2 * p[k + 2 * S].*c);
    };
    const V3<float>& added = N.added[k];
    Ap[k] = {y.x + N.omega.x * stencil(&V3<V>::x) + added.x * p[k].x,
             y.y + N.omega.y * stencil(&V3<V>::y) + added.y * p[k].y,
             y.z + N.omega.z * stencil(&V3<V>::z) + added.z * p[k].z};
  }
}

template <typename V>
[[gnu::always_inline]] inline void multiply(const NormalEq& N, std::vector<V3<V>>& p,
                                            std::vector<V3<V>>& Ap) {
  for (const auto& [slave, partner] : N.seam) p[slave] = p[partner];
  for (const VertexRun& run : N.runs) multiply_row(N, run, p.data(), Ap.data());
  for (const auto& [slave, partner] : N.seam) {
    add(Ap[partner], Ap[slave]);
    Ap[slave] = p[slave] = V3<V>{};
  }
}

// Calls row(run) for each row of vertices of all tiles, and adds up what it returns, in order.
template <typename V, typename Row>
[[gnu::always_inline]] inline LaneSum<V> sum_rows(const NormalEq& N, Row&& row) {
  LaneSum<V> sum;
  for (const VertexRun& run : N.runs) sum.add(row(run));
  return sum;
}

template <typename V>
[[gnu::always_inline]] inline LaneSum<V> quotient(const LaneSum<V>& a, const LaneSum<V>& b) {
  LaneSum<V> q;
  for (int l = 0; l < LaneSum<V>::N; l++) q.v[l] = b.v[l] > 0 ? a.v[l] / b.v[l] : 0;
  return q;
}

template <typename V>
[[gnu::always_inline]] inline int solve(const NormalEq& N, PCGwork<V>& w, double tol, int limit) {
  for (std::vector<V3<V>>* v : {&w.x, &w.p, &w.Ap}) v->assign(N.size(), V3<V>{});
  LaneSum<V> rz = sum_rows<V>(
      N, [&](const VertexRun& run) __attribute__((always_inline)) {
        V sum{};
        for (size_t k = run.first; k < run.end; k++) {
          w.p[k] = times(N.inverse[k].v, w.r[k]);
          sum += dot3(w.r[k], w.p[k]);
        }
        return sum;
      });
  const LaneSum<V> start = rz;
  for (int iteration = 0; iteration < limit; iteration++) {
    multiply(N, w.p, w.Ap);
    const V alpha = to_lanes(quotient(rz, sum_rows<V>(
                                              N, [&](const VertexRun& run) __attribute__((always_inline)) {
                                                V sum{};
                                                for (size_t k = run.first; k < run.end; k++)
                                                  sum += dot3(w.p[k], w.Ap[k]);
                                                return sum;
                                              })));
    const LaneSum<V> rz_new = sum_rows<V>(
        N, [&](const VertexRun& run) __attribute__((always_inline)) {
          V sum{};
          for (size_t k = run.first; k < run.end; k++) {
            const V3<V>&p = w.p[k], &Ap = w.Ap[k];
            add(w.x[k], {alpha * p.x, alpha * p.y, alpha * p.z});
            V3<V>& r = w.r[k];
            r.x -= alpha * Ap.x, r.y -= alpha * Ap.y, r.z -= alpha * Ap.z;
            sum += dot3(r, times(N.inverse[k].v, r));
          }
          return sum;
        });
    bool done = true;
    for (int l = 0; l < LaneSum<V>::N; l++) done = done && rz_new.v[l] <= tol * tol * start.v[l];
    if (done) return iteration + 1;
    const V beta = to_lanes(quotient(rz_new, rz));
    rz = rz_new;
    for (const VertexRun& run : N.runs)
      for (size_t k = run.first; k < run.end; k++) {
        const V3<V> z = times(N.inverse[k].v, w.r[k]);
        V3<V>& p = w.p[k];
        p = {z.x + beta * p.x, z.y + beta * p.y, z.z + beta * p.z};
      }
  }
  return limit;
}
}  // namespace

HOT_CLONES int solve_PCG(const NormalEq& N, PCGwork<float>& w, double tol, int limit) {
  return solve(N, w, tol, limit);
}
HOT_CLONES int solve_PCG(const NormalEq& N, PCGwork<v8f>& w, double tol, int limit) {
  return solve(N, w, tol, limit);
}
}  // namespace veld

// lib/Optim/optNLCG.h
// OptNLCG: non-linear conjugate gradients on the gradient alone, in single precision.
// beta is the Fletcher-Reeves quotient, with a restart every 20 iterations. The line search finds
// the zero of the slope d . g between two points of opposite sign: doubling, bisection until the slope is
// nearly linear, secant. Source of the method: Fletcher, Reeves, Function minimization by conjugate
// gradients, Comput. J. 7 (1964).
#pragma once
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>

#include "lib/DataStructure/vector.h"

namespace veld {
struct NLCGwork {  // working vectors, kept by the caller between calls
  Vector<float> g, d, X0;
};
struct NLCGresult {
  int niter = 0;  // iterations done
  int neval = 0;  // gradients evaluated
  bool div =
      false;  // the line search found no bracket, or the objective rose: V is what it was before the run
};

namespace optnlcg {
constexpr int MAX_DOUBLE = 10, MAX_BISECT = 10, MAX_SECANT = 10;  // steps of a line search
constexpr int RESTART = 20;                                       // iterations between restarts
constexpr float LINEAR = 0.05f;                                   // largest bend of the slope for the secant

inline double dot(const Vector<float>& a, const Vector<float>& b) {
  double sum = 0;
  for (uint64_t i = 0; i < a.size(); i++) sum += static_cast<double>(a[i]) * static_cast<double>(b[i]);
  return sum;
}
// wild and prec hold one value for all parameters, or one each.
inline float at(const Vector<float>& v, uint64_t i) { return v[v.size() == 1 ? 0 : i]; }

// The line X0 + s d, and the slope of the objective's descent along it.
template <typename Func>
struct Line {
  Vector<float>& V;
  NLCGwork& w;
  Func& func;
  NLCGresult& res;
  double f = 0;
  double slope(double s) {
    const float step = static_cast<float>(s);
    for (uint64_t i = 0; i < V.size(); i++) V[i] = w.X0[i] + step * w.d[i];
    f = func(w.g, V);
    res.neval++;
    return dot(w.d, w.g);
  }
};

struct Bracket {
  double lo = 0, glo, hi = 0, ghi = 0;
  void replace(double s, double gd) {
    if (gd <= 0)
      hi = s, ghi = gd;
    else
      lo = s, glo = gd;
  }
};

// Steps c and d of the search: an interval in which the slope changes its sign and is nearly linear.
template <typename Func>
bool find_bracket(Line<Func>& line, Bracket& b, double first) {
  double s = first;
  int k = 0;
  for (; k < MAX_DOUBLE; k++, s *= 2) {
    const double gd = line.slope(s);
    if (gd < 0) {
      b.hi = s, b.ghi = gd;
      break;
    }
    b.lo = s, b.glo = gd;
  }
  if (k == MAX_DOUBLE) return false;
  for (k = 0; k < MAX_BISECT; k++) {
    const double mid = 0.5 * (b.lo + b.hi), gd = line.slope(mid), range = b.glo - b.ghi;
    if (!(range > 0)) return false;
    const double bend = std::fabs(gd - 0.5 * (b.glo + b.ghi)) / range;
    b.replace(mid, gd);
    if (bend < static_cast<double>(LINEAR)) break;
  }
  return true;
}

inline double secant(const Bracket& b) {
  const double range = b.glo - b.ghi;
  const double s = range != 0 ? (b.glo * b.hi - b.lo * b.ghi) / range : 0.5 * (b.lo + b.hi);
  return s > 0 ? s : 0;
}

// The zero of the slope by secants, until the next one would move no parameter by its precision. Leaves V and
// g there. One pass is the rule, as the slope is nearly linear by now.
template <typename Func>
void find_zero(Line<Func>& line, Bracket& b, double maxstep) {
  double s = secant(b);
  for (int k = 0; k < MAX_SECANT; k++) {
    b.replace(s, line.slope(s));
    const double next = secant(b);
    if (std::fabs(next - s) * maxstep < 1) break;
    s = next;
  }
}
}  // namespace optnlcg

// Minimises from V, in place. func(g, V) writes the descent direction (minus the gradient) at V into g, of
// V's size, and gives the objective's value, or constant 0 where none is computed. wild: the largest first
// move of a parameter in a line search; prec: the move below which it counts as settled; both of size 1 or of
// V's size (asserted). Ends when all parameters are settled (after 4 iterations at the earliest), at niter
// iterations, or diverged.
template <typename Func>
NLCGresult OptNLCG(Vector<float>& V, Func&& func, const Vector<float>& wild, const Vector<float>& prec,
                   int64_t niter, NLCGwork& w) {
  using namespace optnlcg;
  const uint64_t dim = V.size(), dimwild = wild.size(), dimprec = prec.size();
  ASSERT(dimwild == dim || dimwild == 1);
  ASSERT(dimprec == dim || dimprec == 1);
  NLCGresult res;
  w.g.resize(dim);
  w.d.resize(dim);
  w.X0.resize(dim);
  const Vector<float> start = V;
  Line<std::remove_reference_t<Func>> line{V, w, func, res};

  const double f0 = line.f = func(w.g, V);
  res.neval++;
  double gg = dot(w.g, w.g);
  if (gg == 0) return res;
  copy(w.d, w.g);
  for (int64_t iter = 0; iter < niter; iter++) {
    copy(w.X0, V);
    double gd = dot(w.d, w.g);
    if (gd <= 0) {
      copy(w.d, w.g);
      gd = gg;
    }
    double s = 1.0e10, maxstep = 0;
    for (uint64_t i = 0; i < dim; i++) {
      const double size = std::fabs(static_cast<double>(w.d[i]));
      if (size == 0) continue;
      s = std::min(s, static_cast<double>(at(wild, i)) / size);
      maxstep = std::max(maxstep, size / static_cast<double>(at(prec, i)));
    }
    Bracket b;
    b.glo = gd;
    if (!find_bracket(line, b, s)) {
      res.div = true;
      break;
    }
    find_zero(line, b, maxstep);
    res.niter++;

    bool settled = iter > 2;
    for (uint64_t i = 0; i < dim && settled; i++) settled = std::fabs(V[i] - w.X0[i]) < at(prec, i);
    if (settled) break;
    const double gg_new = dot(w.g, w.g);
    if (gg_new == 0) break;
    const float beta = iter > 0 && iter % RESTART == 0 ? 0.0f : static_cast<float>(gg_new / gg);
    for (uint64_t i = 0; i < dim; i++) w.d[i] = beta * w.d[i] + w.g[i];
    gg = gg_new;
  }
  if (line.f > f0) res.div = true;
  if (res.div) copy(V, start);
  return res;
}
}  // namespace veld

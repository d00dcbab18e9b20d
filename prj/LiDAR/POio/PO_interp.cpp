// Interpolation of trajectories.
#include <algorithm>
#include <cmath>

#include "lib/general/assert_fail.h"
#include "prj/LiDAR/POio/POio.h"

namespace veld {
namespace {
constexpr double UNEVEN = 0.01;  // relative difference of spacings up to which the kernel for even ones holds
constexpr int MAX_WALK = 16;     // steps from the proportional index before the bracket is searched for

// Index i with po[i].t <= t < po[i+1].t, in [0, n-2]; n > 1.
int64_t find_bracket(const PO* po, int64_t n, double t, double dt) {
  const double pos = (t - po[0].t) / dt;
  int64_t i = pos <= 0 ? 0 : pos >= static_cast<double>(n - 2) ? n - 2 : static_cast<int64_t>(pos);
  for (int walk = 0; walk < MAX_WALK; walk++) {
    if (i > 0 && po[i].t > t)
      i--;
    else if (i < n - 2 && po[i + 1].t <= t)
      i++;
    else
      return i;
  }
  const PO* next = std::upper_bound(po, po + n, t, [](double value, const PO& rec) { return value < rec.t; });
  return std::clamp<int64_t>(next - po - 1, 0, n - 2);
}

// Cubic convolution (Keys 1981, a = -1/2) between the second and the third of four samples.
void convolve(const PO& p0, const PO& p1, const PO& p2, const PO& p3, double f, PO& out) {
  const double f2 = f * f, f3 = f2 * f;
  const double w0 = -0.5 * f3 + f2 - 0.5 * f;
  const double w1 = 1.5 * f3 - 2.5 * f2 + 1;
  const double w2 = -1.5 * f3 + 2 * f2 + 0.5 * f;
  const double w3 = 0.5 * f3 - 0.5 * f2;
  out.x = w0 * p0.x + w1 * p1.x + w2 * p2.x + w3 * p3.x;
  out.y = w0 * p0.y + w1 * p1.y + w2 * p2.y + w3 * p3.y;
  out.z = w0 * p0.z + w1 * p1.z + w2 * p2.z + w3 * p3.z;
  out.roll = static_cast<float>(w0 * p0.roll + w1 * p1.roll + w2 * p2.roll + w3 * p3.roll);
  out.pitch = static_cast<float>(w0 * p0.pitch + w1 * p1.pitch + w2 * p2.pitch + w3 * p3.pitch);
  out.yaw = static_cast<float>(w0 * p0.yaw + w1 * p1.yaw + w2 * p2.yaw + w3 * p3.yaw);
}

void mix(const PO& a, const PO& b, double f, PO& out) {
  const float g = static_cast<float>(f);
  out.x = a.x + (b.x - a.x) * f;
  out.y = a.y + (b.y - a.y) * f;
  out.z = a.z + (b.z - a.z) * f;
  out.roll = a.roll + (b.roll - a.roll) * g;
  out.pitch = a.pitch + (b.pitch - a.pitch) * g;
  out.yaw = a.yaw + (b.yaw - a.yaw) * g;
}

// The answer at and beyond the ends. True when t was dealt with.
bool end_sample(const PO* po, int64_t n, double t, PO& out) {
  if (t > po[0].t && t < po[n - 1].t) return false;
  out = t <= po[0].t ? po[0] : po[n - 1];
  out.t = t;
  return true;
}

bool inside(const PO* po, int64_t n, double t) {
  return t >= po[0].t - PO_TTOL && t <= po[n - 1].t + PO_TTOL;
}
}  // namespace

bool InterpPO(const Vector<PO>& po, double t, double dt, PO& out) {
  ASSERT(dt > 0.0);
  ASSERT(po.size());
  const PO* rec = po.val;
  const int64_t n = static_cast<int64_t>(po.size());
  if (!inside(rec, n, t)) return false;
  if (end_sample(rec, n, t, out)) return true;
  const int64_t i = find_bracket(rec, n, t, dt);
  const PO& p0 = rec[std::max<int64_t>(i - 1, 0)];
  const PO& p1 = rec[i];
  const PO& p2 = rec[i + 1];
  const PO& p3 = rec[std::min(i + 2, n - 1)];
  const double h = p2.t - p1.t;
  const double f = (t - p1.t) / h;
  const double before = i > 0 ? p1.t - p0.t : h;
  const double behind = i + 2 < n ? p3.t - p2.t : h;
  if (std::fabs(before - h) <= UNEVEN * h && std::fabs(behind - h) <= UNEVEN * h)
    convolve(p0, p1, p2, p3, f, out);
  else
    mix(p1, p2, f, out);
  out.t = t;
  return true;
}

bool SafeInterpPO(const Vector<PO>& po, double t, double dt, PO& out) {
  ASSERT(dt > 0.0);
  ASSERT(po.size());
  const PO* rec = po.val;
  const int64_t n = static_cast<int64_t>(po.size());
  if (std::isnan(t)) return false;
  if (!end_sample(rec, n, t, out)) {
    const int64_t i = find_bracket(rec, n, t, dt);
    mix(rec[i], rec[i + 1], (t - rec[i].t) / (rec[i + 1].t - rec[i].t), out);
    out.t = t;
  }
  return inside(rec, n, t);
}
}  // namespace veld

#include "tests/prj/LiDAR/VR2inv/inv_sim.h"

#include <cmath>
#include <random>

#include "sim/flight.h"

namespace veld {
namespace {
constexpr double RAD = 0.017453292519943295;

// Rotations of the simulator of whole projects, of angles in degrees; the way back is the product with the rows.
Mat3 mount(const dxyz& deg) { return rotation_xyz(deg.x * RAD, deg.y * RAD, deg.z * RAD); }
Mat3 attitude(const dxyz& deg) { return body_to_world(deg.x * RAD, deg.y * RAD, deg.z * RAD); }
Mat3 back(const Mat3& m) {
  const dxyz *a = m.r, *b = m.r + 1, *c = m.r + 2;
  return {{{a->x, b->x, c->x}, {a->y, b->y, c->y}, {a->z, b->z, c->z}}};
}

double ground(double x, double y) {
  return 12 * std::sin(x / 140) * std::cos(y / 190) + 4 * std::sin((x + y) / 55) +
         3 * std::cos((x - 2 * y) / 37);
}

class Wander {  // a sum of sines with random phases: standard deviation 1, correlation time about tau
 public:
  Wander(std::mt19937& gen, double tau) {
    std::uniform_real_distribution<double> uni(0, 1);
    for (int k = 0; k < N; k++) {
      period_[k] = tau * (2 + 8 * (k + uni(gen)) / N);
      phase_[k] = 2 * M_PI * uni(gen);
    }
  }
  double at(double t) const {
    double s = 0;
    for (int k = 0; k < N; k++) s += std::sin(2 * M_PI * t / period_[k] + phase_[k]);
    return s * std::sqrt(2.0 / N);
  }

 private:
  static constexpr int N = 6;
  double period_[N], phase_[N];
};

struct Flight {
  SimStrip s;
  double speed, t0;
  std::vector<Wander> drift;  // position x y z, attitude roll pitch yaw
  const SimParam& par;
  dxyz const_pos;

  dxyz dir() const { return {std::sin(s.heading * RAD), std::cos(s.heading * RAD), 0}; }
  double duration() const { return s.length / speed; }
  double time_of(double x, double y) const {
    return t0 + duration() / 2 + ((x - s.x) * dir().x + (y - s.y) * dir().y) / speed;
  }
  double across(double x, double y) const { return (x - s.x) * dir().y - (y - s.y) * dir().x; }
  bool sees(double x, double y) const {
    const double along = (x - s.x) * dir().x + (y - s.y) * dir().y;
    return std::fabs(along) < s.length / 2 &&
           std::fabs(across(x, y)) < s.height * std::tan(par.half_fov * RAD);
  }
  dxyz O(double t) const {
    const double d = (t - t0 - duration() / 2) * speed;
    return {s.x + d * dir().x, s.y + d * dir().y, s.height + 2 * std::sin(t / 9)};
  }
  dxyz Att(double t) const {
    return {2.5 * std::sin(t / 2.7), 2 + 1.5 * std::sin(t / 4.1), s.heading + 2 * std::sin(t / 6.3)};
  }
  dxyz O_rec(double t) const {
    const dxyz a = par.drift_pos * s.worse;
    return O(t) + const_pos + dxyz{a.x * drift[0].at(t), a.y * drift[1].at(t), a.z * drift[2].at(t)};
  }
  dxyz Att_rec(double t) const {
    const dxyz a = par.drift_att * s.worse;
    return Att(t) + dxyz{a.x * drift[3].at(t), a.y * drift[4].at(t), a.z * drift[5].at(t)};
  }
  // Where the point appears in the data of this strip.
  dxyz observed(const dxyz& X) const {
    if (s.fixed) return X - dxyz{0, 0, par.fixed_shift_z};
    const double t = time_of(X.x, X.y);
    dxyz v = apply(back(mount(par.bore)), apply(back(attitude(Att(t))), X - O(t)) - par.lever);
    v -= internal(v);
    return O_rec(t) + apply(attitude(Att_rec(t)), v);
  }
  dxyz internal(const dxyz& v) const {
    const double* I = par.internal;
    const double R = norm(v), th = std::atan2(v.y, v.z);
    const double turn = I[2] * th + I[3] * th * th + I[4] * th * th * th;
    return {v.x * (I[0] / R + I[1]) + I[5] * (R - v.z), v.y * (I[0] / R + I[1]) - turn * v.z,
            v.z * (I[0] / R + I[1]) + turn * v.y};
  }
};

xyz f32(const dxyz& v) { return to_xyz(v); }

struct Box {
  double x0, x1, y0, y1;
};
// What a strip may see lies inside.
Box box_of(const SimStrip& s, double half_fov) {
  const double r = s.length / 2 + 2 * s.height * std::tan((half_fov + 10) * RAD) + 50;
  return {s.x - r, s.x + r, s.y - r, s.y + r};
}
// Calls visit(x, y) for the points of a grid over the ground that lie in both boxes.
template <typename Visit>
void for_ground(double extent, double step, const Box& a, const Box& b, Visit&& visit) {
  const auto first = [&](double low) {
    return std::max(0.0, std::ceil((low + extent) / step)) * step - extent;
  };
  const double x1 = std::min({extent, a.x1, b.x1}), y1 = std::min({extent, a.y1, b.y1});
  for (double x = first(std::max(a.x0, b.x0)); x < x1; x += step)
    for (double y = first(std::max(a.y0, b.y0)); y < y1; y += step) visit(x, y);
}
}  // namespace

std::vector<SimStrip> five_strips(double azimuth) {
  const double s = std::sin(azimuth * RAD), c = std::cos(azimuth * RAD);
  std::vector<SimStrip> strips;
  for (int k = -1; k <= 1; k++) strips.push_back({azimuth + (k == 0 ? 180 : 0), 90. * k * c, -90. * k * s});
  for (int k = -1; k <= 1; k += 2)
    strips.push_back({azimuth + 90 * k, 250. * k * s, 250. * k * c, 700, k > 0 ? 245. : 220.});
  return strips;
}

SimProject simulate(const SimParam& par) {
  std::mt19937 gen(par.seed);
  std::normal_distribution<double> normal(0, 1);
  std::uniform_real_distribution<double> uni(-1, 1);
  std::vector<Flight> flights;
  double t0 = 1000;
  for (const SimStrip& s : par.strips) {
    std::vector<Wander> drift;
    for (int k = 0; k < 6; k++) drift.emplace_back(gen, par.drift_time);
    const dxyz c = {par.const_pos.x * normal(gen), par.const_pos.y * normal(gen),
                    par.const_pos.z * normal(gen)};
    flights.push_back({s, par.speed, t0, drift, par, c});
    t0 += s.length / par.speed + 60;
  }

  SimProject sim;
  sim.in.GSD = 0.5f;
  sim.truth.resize(flights.size());
  for (size_t i = 0; i < flights.size(); i++) {
    const Flight& f = flights[i];
    InvSwath w;
    w.group = f.s.fixed ? 0 : f.s.group;
    w.mainch = SwathId(static_cast<int>(i));
    w.fl = f.s.fixed ? -1 : 0;
    w.fixed = f.s.fixed;
    w.tmin = f.t0;
    w.tmax = f.t0 + f.duration();
    sim.const_pos.push_back(f.const_pos);
    std::vector<dxyz> truth;
    const Box box = box_of(f.s, par.half_fov);
    for_ground(par.extent, par.sample, box, box, [&](double x, double y) {
      if (f.sees(x, y)) truth.push_back({x, y, ground(x, y)});
    });
    const uint64_t n = truth.size();
    sim.truth[i].resize(n);
    w.samples.P.resize(n), w.samples.t.resize(n), w.samples.O.resize(n), w.samples.Att.resize(n);
    for (uint64_t k = 0; k < n; k++) {
      const double t = f.time_of(truth[k].x, truth[k].y);
      sim.truth[i](k) = truth[k];
      w.samples.P(k) = f.observed(truth[k]);
      w.samples.t(k) = t;
      w.samples.O(k) = f.O_rec(t);
      w.samples.Att(k) = f32(f.Att_rec(t));
    }
    sim.in.swaths.push_back(w);
  }

  for (size_t i = 0; i < flights.size(); i++)
    for (size_t j = i + 1; j < flights.size(); j++) {
      const Flight &a = flights[i], &b = flights[j];
      std::vector<dxyz> X;
      if (a.s.fixed && b.s.fixed) continue;
      for_ground(par.extent, par.spacing, box_of(a.s, par.half_fov), box_of(b.s, par.half_fov),
                 [&](double x, double y) {
                   if (a.sees(x, y) && b.sees(x, y)) X.push_back({x, y, ground(x, y)});
                 });
      if (X.empty()) continue;
      InvPair p;
      p.sw1 = SwathId(static_cast<int>(i)), p.sw2 = SwathId(static_cast<int>(j));
      const uint64_t n = X.size();
      p.P.resize(n), p.Def.resize(n), p.Unc.resize(n), p.t1.resize(n), p.t2.resize(n);
      p.O1.resize(n), p.O2.resize(n), p.Att1.resize(n), p.Att2.resize(n);
      for (uint64_t k = 0; k < n; k++) {
        const dxyz P1 = a.observed(X[k]), P2 = b.observed(X[k]);
        const double sxy = par.sigma_xy * std::pow(2, uni(gen)), sz = par.sigma_z * std::pow(2, uni(gen));
        p.P(k) = P2;
        p.Def(k) = f32(P1 - P2 + dxyz{sxy * normal(gen), sxy * normal(gen), sz * normal(gen)});
        p.Unc(k) = f32({sxy, sxy, sz});
        p.t1(k) = a.time_of(X[k].x, X[k].y), p.t2(k) = b.time_of(X[k].x, X[k].y);
        p.O1(k) = a.O_rec(p.t1(k)), p.O2(k) = b.O_rec(p.t2(k));
        p.Att1(k) = f32(a.Att_rec(p.t1(k))), p.Att2(k) = f32(b.Att_rec(p.t2(k)));
        if (a.s.fixed) p.O1(k) = {1000, 1000, -9999};
        if (b.s.fixed) p.O2(k) = {1000, 1000, -9999};
      }
      sim.in.pairs.push_back(std::move(p));
    }
  return sim;
}

SimError corrected_error(const SimProject& sim, const InvResult& res, const GeomFlags& flags) {
  dxyz sum = {0, 0, 0}, sum2 = {0, 0, 0};
  double n = 0;
  for (const SwathId s : sim.in.swaths.ids()) {
    const InvSwath& w = sim.in.swaths[s];
    const InvCorr& found = res.swaths[s];
    if (w.fixed) continue;
    for (uint64_t k = 0; k < w.samples.P.size(); k++) {
      Vector<PO> po(2);  // a trajectory that stands still at this sample
      const dxyz& O = w.samples.O(k);
      const xyz& A = w.samples.Att(k);
      po(0) = {w.samples.t(k) - 0.05, O.x, O.y, O.z, A.x, A.y, A.z};
      po(1) = po(0);
      po(1).t += 0.1;
      SwathCorr c;
      c.po = &po;
      c.rot = w.rot;
      c.flags = flags;
      const Calib cal = found.cal < 0 ? Calib{} : res.calib[found.cal];
      c.CL = res.CL, c.CB = res.CB, c.CI = res.CI;
      c.L = cal.L, c.B = cal.B;
      for (int i = 0; i < N_INTERNAL; i++) c.I[i] = cal.I(i);
      c.CT = res.CT, c.CA = res.CA;
      c.Tt = &found.Tt, c.At = &found.At, c.t0 = found.t0, c.Dt = found.Dt;
      if (res.has_shift) c.S = to_xyz(res.shift);
      if (!init_SwathCorr(c)) return {{1e9, 1e9, 1e9}, {1e9, 1e9, 1e9}};
      CorrCursor cursor;
      const xyz C = comp_point_corr(c, cursor, w.samples.P(k), w.samples.t(k));
      const dxyz e = w.samples.P(k) + to_dxyz(C) - sim.truth[s.number](k);
      sum += e;
      sum2 += {e.x * e.x, e.y * e.y, e.z * e.z};
      n++;
    }
  }
  SimError err;
  err.mean = sum / n;
  const auto sd = [n](double s2, double m) { return std::sqrt(std::fmax(0, s2 / n - m * m)); };
  err.rms = {sd(sum2.x, err.mean.x), sd(sum2.y, err.mean.y), sd(sum2.z, err.mean.z)};
  return err;
}
}  // namespace veld

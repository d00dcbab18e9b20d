// Robust statistics of the residuals by histograms.
#include <algorithm>
#include <cmath>

#include "lib/ImgProc/bspline3.h"
#include "lib/general/log.h"
#include "prj/LiDAR/TNRreg/TNRreg_internal.h"

namespace veld {
namespace {
constexpr float S_FLOOR = 0.0001f;  // height units, below it a scale counts as zero

// Bins that stand out against both neighbours by more than a factor are cut down; returns the counts taken
// away.
uint64_t remove_spikes(Vector<uint32_t>& hist) {
  uint64_t nspike = 0;
  for (int k = 1; k < H_SIZE - 1; k++) {
    const uint64_t around = static_cast<uint64_t>(hist[k + 1]) + hist[k - 1];
    if (2 * around >= hist[k]) continue;
    nspike += hist[k];
    hist[k] = static_cast<uint32_t>(around / 2);
    k++;
  }
  if (4ull * hist[1] < hist[0]) {
    nspike += hist[0];
    hist[0] = hist[1];
  }
  return nspike;
}

uint64_t sum_of(const Vector<uint32_t>& hist) {
  uint64_t sum = 0;
  for (const uint32_t n : hist) sum += n;
  return sum;
}

// Scale from the mean of |r| below two scales, iterated; the fraction of outliers against a Gaussian.
void truncated_mean(const Vector<uint32_t>& hist, float h, float& s, float& out) {
  constexpr double TO_SIGMA = 1.3888888;  // of a Gaussian's mean |r| below two sigmas
  const double h0 = 0.5 * hist[0], total = static_cast<double>(sum_of(hist));
  double limit = 1000.0 * 2, last = -1, c = 0;
  double scale = 0;
  for (int pass = 0; pass < 20; pass++) {
    double a = 0;
    c = h0;
    for (int k = 1; k + 1 < H_SIZE && k * static_cast<double>(h) <= limit; k++) {
      a += k * static_cast<double>(h) * hist[k];
      c += hist[k];
    }
    if (!(c > 0)) {
      out = 1.0f;
      s = S_FLOOR;
      return;
    }
    scale = a / c * TO_SIGMA;
    limit = 2 * scale;
    if (pass > 0 && c == last) break;
    last = c;
  }
  out = static_cast<float>(std::max(0.0, 0.955 - c / (total - h0)));
  s = std::hypot(static_cast<float>(scale), S_FLOOR);
}
}  // namespace

void robust_stat(Vector<uint32_t>& hist, float h, float& s, float& out, float& ff) {
  ASSERT(hist.size() == H_SIZE);
  const uint64_t total = sum_of(hist);
  ff = total > 0 ? static_cast<float>(static_cast<double>(remove_spikes(hist)) / static_cast<double>(total))
                 : -1.0f;
  truncated_mean(hist, h, s, out);
  if (s <= S_FLOOR) ff = -1.0f;
}

namespace {
// A signed histogram folded about a position (in bins): mean of both sides by cubic spline.
struct Folded {
  Vector<uint32_t> bin;
  double amplitude;  // at the median
};
Folded fold_hist(const Vector<uint32_t>& H, double index) {
  constexpr int MARGIN = 32;  // bins until the spline's ringing about the filled ones has died away
  const int n = 2 * H_SIZE;
  int first = 0, last = n - 1;
  while (first < n - 1 && H[first] == 0) first++;
  while (last > first && H[last] == 0) last--;
  first = std::max(0, first - MARGIN);
  last = std::min(n - 1, last + MARGIN);
  Vector<float> bs(static_cast<uint64_t>(last - first + 1));
  for (int i = first; i <= last; i++) bs[i - first] = static_cast<float>(H[i]);
  bspline3_coef(bs);
  const auto at = [&](double x) { return x < first || x > last ? 0.0f : bspline3_value(bs, x - first); };
  Folded f;
  f.bin.resize(H_SIZE, 0);
  const int reach = static_cast<int>(std::min<double>(H_SIZE - 1, std::max(last - index, index - first) + 1));
  for (int k = 0; k <= reach; k++) {
    const float v = (at(index + k) + at(index - k)) / 2;
    if (v > 0.0f) f.bin[k] = static_cast<uint32_t>(v + 0.5f);
  }
  f.amplitude = f.bin[0];
  return f;
}

// Slope of the squared misfit between the folded histogram and a half Gaussian, up to a positive factor.
double misfit_slope(const Folded& f, int K, double h, double sig, double N) {
  double sum = 0;
  for (int k = 1; k <= K; k++) {
    const double r = k * h, g = std::exp(-0.5 * (r / sig) * (r / sig));
    sum += (f.amplitude * g - f.bin[k]) * r * r * g;
  }
  return sum / (sig * sig * sig * N);
}

// The Gaussian's width by a secant search about s0; nsec counts its steps. s0 itself when the search finds
// none.
float fit_half_gaussian(const Folded& f, float s0, float h, double N, int& nsec) {
  const int K = static_cast<int>(std::min(5.0 * s0 / h, static_cast<double>(H_SIZE - 1)));
  double a = 0.8 * s0, b = 1.2 * s0, s = s0;
  double fa = misfit_slope(f, K, h, a, N), fb = misfit_slope(f, K, h, b, N);
  for (nsec = 0; nsec < 5 && fa != fb; nsec++) {
    const double c = (a * fb - b * fa) / (fb - fa);
    if (c <= S_FLOOR || c >= 2.0 * s0) break;
    s = c;
    const double fc = misfit_slope(f, K, h, c, N);
    if (fc == 0) break;
    if ((fc > 0) == (fa > 0))
      a = c, fa = fc;
    else
      b = c, fb = fc;
  }
  return static_cast<float>(s);
}
}  // namespace

void sigma_histo_med(float& m, float& s, float& out, const Vector<uint32_t>& H, float h) {
  ASSERT(H.size() == 2 * H_SIZE);
  const uint64_t N = sum_of(H);
  m = 0.0f;
  s = S_FLOOR;
  out = 1.0f;
  if (N == 0) return;
  const double half = static_cast<double>(N) / 2;
  uint64_t cum = 0;
  int i = 0;
  while (static_cast<double>(cum += H[i]) < half) i++;
  const double index = i + 0.5 + (half - static_cast<double>(cum)) / H[i];
  m = static_cast<float>((index - H_SIZE) * static_cast<double>(h));

  const Folded f = fold_hist(H, index);
  truncated_mean(f.bin, h, s, out);
  const float sinit = s, outinit = out;
  int nsec = 0;
  if (out < 1.0f) {
    const float fit = fit_half_gaussian(f, s, h, static_cast<double>(N), nsec);
    if (fit >= h) {
      s = fit;
      double beyond = 0;
      for (int k = static_cast<int>(2.0f * s / h) + 1; k < H_SIZE; k++) {
        const double q = k * static_cast<double>(h) / static_cast<double>(s);
        beyond += std::max(0.0, f.bin[k] - f.amplitude * std::exp(-0.5 * q * q));
      }
      const double rest = static_cast<double>(sum_of(f.bin)) - f.amplitude / 2;
      out = rest > 0 ? static_cast<float>(beyond / rest) : 0.0f;
    }
  }
  LOG_LINE("sigma_histo_med -> sinit=" << sinit << " outinit=" << outinit << " secant " << nsec << " s=" << s
                                       << " out=" << out << " sum=" << N);
}
}  // namespace veld

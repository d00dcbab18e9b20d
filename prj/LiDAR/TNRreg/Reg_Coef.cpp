#include "prj/LiDAR/TNRreg/Reg_Coef.h"

#include <algorithm>
#include <thread>

#include "lib/ImgProc/bspline3.h"
#include "lib/general/log.h"
#include "lib/threads/pool.h"
#include "prj/Inference/GaussLBP1D.h"
#include "prj/LiDAR/TNRreg/TNRreg.h"

namespace veld {
namespace {
// Heights to coefficients, in place. Works on heights above their mean: the precisions that close the holes and the recursive filters are of
// single precision, and both leave a constant alone.
void comp_coef(Image<float>& Z) {
  Image<float> W(Z.xsize(), Z.ysize(), 1.0f);
  double sum = 0;
  uint64_t n = 0;
  for (uint64_t k = 0; k < Z.size(); k++)
    if (Z[k] != NR_NODATA) {
      sum += static_cast<double>(Z[k]);
      n++;
    }
  const float mean = n > 0 ? static_cast<float>(sum / static_cast<double>(n)) : 0.0f;
  for (uint64_t k = 0; k < Z.size(); k++) {
    const bool hole = Z[k] == NR_NODATA;
    Z[k] = hole ? 0.0f : Z[k] - mean;
    if (hole) W[k] = 0.0f;
  }
  if (n < Z.size()) GLBP_fill_image(Z, W);
  bspline3_coef(Z);
  for (uint64_t k = 0; k < Z.size(); k++) Z[k] += mean;
}

void coef_images(Vector<Image<float>>& heights, int nthreads, const char* name, Vector<CoefImage>& coef) {
  const int64_t nt = static_cast<int64_t>(heights.size());
  const int n = static_cast<int>(std::min<int64_t>(std::max(nthreads, 1), nt));
  Vector<uint8_t> seen(static_cast<uint64_t>(n), 0);
  coef.resize(heights.size());
  run_units(nt, n, [&](int64_t t, int thread) {
    if (!seen(thread)) {
      seen(thread) = 1;
      LOG_LINE(name << " id=" << std::this_thread::get_id());
    }
    coef[t].value = std::move(heights[t]);
    comp_coef(coef[t].value);
    return true;
  });
  heights.clear();
}
}  // namespace

void Reg_Coef(Vector<Image<float>>& heights, int nthreads, Vector<CoefImage>& coef) {
  coef_images(heights, nthreads, "th_Reg_Coef", coef);
}

void Reg_Coef_mg(Vector<Vector<Image<float>>>& heights, int nthreads, Vector<Vector<CoefImage>>& coef) {
  coef.resize(heights.size());
  for (uint64_t l = 0; l < heights.size(); l++) coef_images(heights[l], nthreads, "th_Reg_Coef_mg", coef[l]);
}
}  // namespace veld

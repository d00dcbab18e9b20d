#include <cstdio>
#include <string>

#include "lib/Optim/optimCG_internal.h"
#include "lib/general/log.h"
#include "lib/general/txtfile.h"

namespace veld {
namespace {
// The complete matrix, dense: a dump is for small systems.
Image<double> dense(const SparseView& view, bool unit_diagonal) {
  const int dim = static_cast<int>(view.D.size());
  Image<double> M(dim, dim, 0.0);
  for (int i = 0; i < dim; i++) M(i, i) = unit_diagonal ? 1.0 : view.D(i);
  for (uint64_t k = 0; k < view.dim_s; k++) {
    const int u = static_cast<int>(view.U_s(k)), v = static_cast<int>(view.V_s(k));
    M(u, v) = M(v, u) = view.A_s(k);
  }
  return M;
}

std::string number(const char* format, double value) {
  char text[400];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

// A dump that can't be written has been reported by the file class; the solve goes on.
void finish(TxtFileOut& out) { static_cast<void>(out.close()); }

void dump_matrix(const char* suffix, const Image<double>& M) {
  const std::string name = OPTIM_DEBUG.prefix + suffix;
  TxtFileOut out(true);
  if (!out.open(name, 0)) return;
  for (int row = 0; row < M.ysize(); row++) {
    for (int col = 0; col < M.xsize(); col++)
      out.fs << col << ' ' << row << ' ' << number("%f", M(col, row)) << '\n';
    out.fs << '\n';
  }
  finish(out);
  LOG_LINE("img plot " << name);
}

void dump_mat(const char* suffix, const double* values, int rows, int columns) {
  TxtFileOut out(true);
  if (!out.open(OPTIM_DEBUG.prefix + suffix, 0)) return;
  out.fs << "#type: matrix\n#rows: " << rows << "\n#columns: " << columns << '\n';
  for (int row = 0; row < rows; row++) {
    for (int col = 0; col < columns; col++)
      out.fs << (col ? " " : "") << number("%.16g", values[static_cast<uint64_t>(row) * columns + col]);
    out.fs << '\n';
  }
  finish(out);
}
}  // namespace

void dump_vector(const char* suffix, const Vector<double>& v) {
  TxtFileOut out(true);
  if (!out.open(OPTIM_DEBUG.prefix + suffix, 0)) return;
  for (uint64_t i = 0; i < v.size(); i++) out.fs << i << '\t' << number("%.16g", v(i)) << '\n';
  finish(out);
}

void dump_unscaled(const SparseView& view, const Vector<double>& Y) {
  dump_matrix("M_", dense(view, false));
  dump_vector("Y_", Y);
  dump_vector("D", view.D);
}

void dump_scaled(const SparseView& view, const Vector<double>& Y) {
  const Image<double> M = dense(view, true);
  dump_matrix("M", M);
  dump_vector("Y", Y);
  dump_mat("M.mat", M.val, M.ysize(), M.xsize());
  dump_mat("Y.mat", Y.val, static_cast<int>(Y.size()), 1);
}
}  // namespace veld

#include "lib/Optim/optimCG.h"

#include <cmath>
#include <cstdio>
#include <limits>

#include "lib/Optim/optimCG_internal.h"
#include "lib/general/log.h"

namespace veld {
OptimDebug OPTIM_DEBUG;

namespace {
// Sum of a[i] * b[i] in four lanes, added up in a fixed order.
double dot_n(const double* a, const double* b, uint64_t n) {
  double s0 = 0, s1 = 0, s2 = 0, s3 = 0;
  uint64_t i = 0;
  for (; i + 4 <= n; i += 4) {
    s0 += a[i] * b[i];
    s1 += a[i + 1] * b[i + 1];
    s2 += a[i + 2] * b[i + 2];
    s3 += a[i + 3] * b[i + 3];
  }
  for (; i < n; i++) s0 += a[i] * b[i];
  return (s0 + s1) + (s2 + s3);
}

// out = (I + S) in: one pass over the list, each entry applied to both of its places.
void unit_diag_product(const double* in, double* out, uint64_t dim, const double* A, const uint32_t* U,
                       const uint32_t* V, uint64_t dim_s) {
  std::copy_n(in, dim, out);
  for (uint64_t k = 0; k < dim_s; k++) {
    const uint32_t u = U[k], v = V[k];
    out[u] += A[k] * in[v];
    out[v] += A[k] * in[u];
  }
}

// Solves L L^t x = y for one right-hand side; x may be y.
void substitute(const Image<double>& L, const double* y, double* x) {
  const int dim = L.xsize();
  for (int i = 0; i < dim; i++) {
    const double* row = L.row(i);
    x[i] = (y[i] - dot_n(row, x, i)) / row[i];
  }
  for (int i = dim - 1; i >= 0; i--) {  // by columns of L^t, so that rows of L are walked
    const double* row = L.row(i);
    x[i] /= row[i];
    for (int k = 0; k < i; k++) x[k] -= row[k] * x[i];
  }
}

bool check_list(const Vector<double>& A_s, const Vector<uint32_t>& U_s, const Vector<uint32_t>& V_s,
                uint64_t dim, uint64_t dim_s) {
  for (uint64_t k = 0; k < dim_s; k++) {
    if (V_s[k] <= U_s[k]) {
      LOG_LINE("<!> u<v "
               << "(A_s[k]==0.0)" << (A_s[k] == 0.0));
      return false;
    }
    if (V_s[k] >= dim) {  // u < v, so one test does for both
      LOG_LINE("<!> dim " << dim << " u=" << U_s[k] << " v=" << V_s[k]);
      return false;
    }
  }
  return true;
}

// D becomes 1/sqrt(D). False on a negative entry, or when all are zero.
bool jacobi_scale(Vector<double>& D, uint64_t& nDz) {
  nDz = 0;
  for (uint64_t i = 0; i < D.size(); i++) {
    double& d = D[i];
    if (d < 0.0) {
      LOG_LINE("<!> D[i]" << d);
      return false;
    }
    if (d == 0.0) {
      d = 1.0;
      nDz++;
    } else {
      d = 1.0 / std::sqrt(d);
    }
  }
  return nDz < D.size();
}
}  // namespace

double dot(const Vector<double>& v1, const Vector<double>& v2) {
  ASSERT(v1.size() == v2.size());
  ASSERT(v1.size() != 0);
  return dot_n(v1.val, v2.val, v1.size());
}

double norm2(const Vector<double>& v) {
  ASSERT(v.size() != 0);
  return dot_n(v.val, v.val, v.size());
}

bool vec_sanitize(uint64_t dim, const Vector<double>& vec, uint64_t n) {
  ASSERT(dim <= vec.size());
  ASSERT(n <= dim);
  uint64_t ni = 0, nn = 0, ns = 0, nz = 0;
  for (uint64_t i = 0; i < n; i++) {
    const double a = std::fabs(vec[i]);
    if (!(a > 0.0))
      nz++;  // NaN as well
    else if (a == std::numeric_limits<double>::infinity())
      ni++;
    else if (a < std::numeric_limits<double>::min())
      ns++;
    else
      nn++;
  }
  LOG_LINE("vec_sanitize dim=" << dim << " ni=" << ni << " nn=" << nn << " ns=" << ns << " nz=" << nz);
  return ni == 0;
}

bool fast_vec_sanitize(uint64_t dim, const Vector<double>& vec, uint64_t n) {
  ASSERT(dim <= vec.size());
  ASSERT(n <= dim);
  for (uint64_t i = 0; i < n; i++)
    if (std::isinf(vec[i])) {
      LOG_LINE("<!> inf " << i);
      return false;
    }
  return true;
}

bool fast_vec_maxabs(uint64_t dim, const Vector<double>& vec, uint64_t n) {
  ASSERT(dim <= vec.size());
  ASSERT(n <= dim);
  for (uint64_t i = 0; i < n; i++)
    if (!(std::fabs(vec[i]) <= 1000.0)) {
      LOG_LINE("<!> maxabs " << i << " vec[i]=" << vec[i]);
      return false;
    }
  return true;
}

bool comp_Cholesky(const Image<double>& P, Image<double>& L) {
  ASSERT(P.xsize() == P.ysize());
  const int dim = P.xsize();
  L.resize(dim, dim, 0.0);
  for (int i = 0; i < dim; i++) {
    double* Li = L.row(i);
    const double* Pi = P.row(i);
    for (int j = 0; j < i; j++) {
      const double* Lj = L.row(j);
      Li[j] = (Pi[j] - dot_n(Li, Lj, j)) * (1.0 / Lj[j]);
    }
    const double d = Pi[i] - dot_n(Li, Li, i);
    if (!(d > 0.0)) return false;
    Li[i] = std::sqrt(d);
  }
  return true;
}

bool inv_LS_Cholesky(const Image<double>& P, const Vector<double>& Y, Vector<double>& X) {
  const int dim = P.xsize();
  ASSERT(P.xsize() == dim && P.ysize() == dim && Y.size() == static_cast<uint64_t>(dim));
  Image<double> L;
  if (!comp_Cholesky(P, L)) return false;
  X.resize(dim);
  substitute(L, Y.val, X.val);
  return true;
}

bool inv_M_Cholesky(const Image<double>& P, Image<double>& M) {
  ASSERT(P.xsize() == P.ysize());
  Image<double> L;
  if (!comp_Cholesky(P, L)) return false;
  const int dim = P.xsize();
  M.resize(dim, dim, 0.0);
  for (int j = 0; j < dim; j++) {  // the inverse is symmetric: its columns are stored as rows
    M(j, j) = 1.0;
    substitute(L, M.row(j), M.row(j));
  }
  for (int j = 0; j < dim; j++)  // symmetric to the last bit
    for (int i = 0; i < j; i++) M(j, i) = M(i, j);
  return true;
}

uint64_t inv_sparse_linsys_CG_DI(Vector<double>& X, const Vector<double>& Y, const Vector<double>& A_s,
                                 const Vector<uint32_t>& U_s, const Vector<uint32_t>& V_s, uint64_t dim_s,
                                 uint64_t kiter, double prec) {
  const uint64_t dim = Y.size();
  Vector<double> res(dim), dir(dim), prod(dim);
  X.resize(dim, 0.0);
  copy(res, Y);  // X is 0
  copy(dir, Y);
  double *x = X.val, *r = res.val, *p = dir.val, *q = prod.val;

  double rr = norm2(res);
  const double threshold = prec * rr;
  const uint64_t limit = dim * kiter;
  uint64_t niter = 1;
  bool done = rr == 0.0;
  for (; !done && niter <= limit; niter++) {
    unit_diag_product(p, q, dim, A_s.val, U_s.val, V_s.val, dim_s);
    const double pq = dot_n(p, q, dim);
    if (pq == 0.0) break;
    const double alpha = rr / pq;
    double s0 = 0, s1 = 0;
    uint64_t i = 0;
    for (; i + 2 <= dim; i += 2) {
      x[i] += alpha * p[i];
      x[i + 1] += alpha * p[i + 1];
      r[i] -= alpha * q[i];
      r[i + 1] -= alpha * q[i + 1];
      s0 += r[i] * r[i];
      s1 += r[i + 1] * r[i + 1];
    }
    for (; i < dim; i++) {
      x[i] += alpha * p[i];
      r[i] -= alpha * q[i];
      s0 += r[i] * r[i];
    }
    const double rr_new = s0 + s1;
    if (!(rr_new > threshold)) {  // ends on NaN too: X holds it then, and the caller's range check finds it
      done = rr_new <= threshold;
      break;
    }
    const double beta = rr_new / rr;
    for (uint64_t k = 0; k < dim; k++) p[k] = r[k] + beta * p[k];
    rr = rr_new;
  }
  LOG_LINE("inv_sparse_linsys_CG_DI OP.niter=" << limit << "-> " << (done ? "" : "<!> ")
                                               << "niter=" << niter);
  if (OPTIM_DEBUG.level == 94341) std::printf("niter=%llu\n", static_cast<unsigned long long>(niter));
  return niter;
}

bool inv_sparse_LS_CG(Vector<double>& X, Vector<double>& Y, Vector<double>& D, Vector<double>& A_s,
                      const Vector<uint32_t>& U_s, const Vector<uint32_t>& V_s, uint64_t dim_s,
                      uint64_t kiter, double prec) {
  const uint64_t dim = Y.size();
  LOG_ENTER("inv_sparse_LS_CG dim=" << dim << " dim_s=" << dim_s << " kiter=" << kiter
                                    << " -log10(prec)=" << (prec > 0 ? -std::log10(prec) : 0.0));
  ASSERT(D.size() == dim);
  ASSERT(A_s.size() >= dim_s && U_s.size() >= dim_s && V_s.size() >= dim_s);
  const bool Yok0 = vec_sanitize(dim, Y, dim);
  const bool Dok0 = vec_sanitize(dim, D, dim);
  LOG_LINE("Yok0=" << Yok0 << " Dok0=" << Dok0);
  if (!Yok0 || !Dok0) return false;
  for (uint64_t i = 0; i < dim; i++)
    if (!(D[i] > 0.0)) LOG_LINE("<!> D[i]" << D[i]);
  if (dim_s == 0) {
    X = Y;
    X /= D;
    return true;
  }
  if (!check_list(A_s, U_s, V_s, dim, dim_s)) return false;
  const bool dump = OPTIM_DEBUG.level == 999;
  const SparseView view{D, A_s, U_s, V_s, dim_s};
  if (dump) dump_unscaled(view, Y);

  uint64_t nDz = 0;
  if (!jacobi_scale(D, nDz)) return false;
  for (uint64_t k = 0; k < dim_s; k++) A_s[k] *= D[U_s[k]] * D[V_s[k]];
  Y *= D;
  const bool Yok = fast_vec_sanitize(dim, Y, dim);
  const bool Aok = fast_vec_sanitize(dim_s, A_s, dim_s);
  LOG_LINE("Yok=" << Yok << " Aok=" << Aok);
  if (!Yok || !Aok) return false;
  if (dump) dump_scaled(view, Y);

  const uint64_t niter = inv_sparse_linsys_CG_DI(X, Y, A_s, U_s, V_s, dim_s, kiter, prec);
  LOG_LINE("niter=" << niter << " nDz=" << nDz);
  if (niter == 0) return false;
  if (dump) dump_vector("X", X);
  X *= D;
  return true;
}

bool inv_LS_CG_sparsify(Vector<double>& X, const Image<double>& P, Vector<double>& Y, uint64_t kiter,
                        double prec) {
  ASSERT(P.xsize() == P.ysize() && static_cast<uint64_t>(P.xsize()) == Y.size());
  const int dim = P.xsize();
  uint64_t dim_s = 0;
  for (int row = 1; row < dim; row++)
    for (int col = 0; col < row; col++) dim_s += P.row(row)[col] != 0.0;
  LOG_ENTER("inv_LS_CG_sparsify dim=" << dim << " dim_s=" << dim_s << " (dim*(dim-1))/2="
                                      << static_cast<uint64_t>(dim) * (dim > 0 ? dim - 1 : 0) / 2
                                      << " kiter=" << kiter);
  Vector<double> D(dim), A_s(dim_s);
  Vector<uint32_t> U_s(dim_s), V_s(dim_s);
  uint64_t k = 0;
  for (int row = 0; row < dim; row++) {
    D(row) = P(row, row);
    for (int col = 0; col < row; col++) {
      const double value = P.row(row)[col];
      if (value == 0.0) continue;
      A_s(k) = value;
      U_s(k) = col;
      V_s(k) = row;
      k++;
    }
  }
  ASSERT(k == dim_s);
  return inv_sparse_LS_CG(X, Y, D, A_s, U_s, V_s, dim_s, kiter, prec);
}
}  // namespace veld

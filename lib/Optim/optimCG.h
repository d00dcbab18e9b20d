// lib/Optim/optimCG.h
// Linear solvers for symmetric positive definite systems P X = Y, all in double precision.
// Here:     dense Cholesky (small systems, inverses), sparse conjugate gradient with Jacobi scaling, input
//           guards.
// Not here: non-linear minimisers (optNLCG.h), building of normal equations (the callers).
#pragma once
#include <cstdint>
#include <string>

#include "lib/DataStructure/image.h"
#include "lib/DataStructure/vector.h"

namespace veld {
// Dense vectors are Vector<double>, dense matrices Image<double> (xsize columns, ysize rows, row-major).
// A sparse symmetric matrix is its diagonal D (dim) and its strictly upper entries: value A_s(k) stands at
// (U_s(k), V_s(k)) and at (V_s(k), U_s(k)), u < v, each place listed once, in any order. The three vectors
// may be longer than dim_s; only the first dim_s entries count.

double dot(const Vector<double>& v1, const Vector<double>& v2);  // asserts equal sizes, not empty
double norm2(const Vector<double>& v);  // sum of squares (no root); asserts not empty

// Counts the first n entries by kind and logs the counts: nz zeros (NaN counts here), ni infinities, ns
// subnormals, nn others. Asserts dim <= vec.size() and n <= dim. False if an infinity is among them.
[[nodiscard]] bool vec_sanitize(uint64_t dim, const Vector<double>& vec, uint64_t n);
// The same scan, silent, ending at the first infinity ("<!> inf " and its index in the log).
[[nodiscard]] bool fast_vec_sanitize(uint64_t dim, const Vector<double>& vec, uint64_t n);
// False at the first entry above 1000 in magnitude, or not a number: parameters are metres or radians, so the
// system has blown up. Exactly 1000 passes.
[[nodiscard]] bool fast_vec_maxabs(uint64_t dim, const Vector<double>& vec, uint64_t n);

// L lower triangular (strict upper part 0) with L L^t = P. Reads the lower triangle of P. False at the first
// pivot that is not above 0; L is then unfinished.
[[nodiscard]] bool comp_Cholesky(const Image<double>& P, Image<double>& L);
// Solves P X = Y. False, with X untouched, unless P is positive definite.
[[nodiscard]] bool inv_LS_Cholesky(const Image<double>& P, const Vector<double>& Y, Vector<double>& X);
// M = P^-1, complete and symmetric. False, with M untouched, unless P is positive definite.
[[nodiscard]] bool inv_M_Cholesky(const Image<double>& P, Image<double>& M);

// Solves the sparse system into X (resized to D.size()). Y, D and A_s are scaled in place: don't expect them
// back. kiter: the iteration limit is dim x kiter. prec: bound of the squared residual norm relative to that
// of the start, so 1e-10 means a relative residual of 1e-5. Reaching the limit is no failure, only marked in
// the log. False: an infinity, u >= v or an index out of range in the list, a negative diagonal or one that
// is all zero. A zero on the diagonal becomes 1.
[[nodiscard]] bool inv_sparse_LS_CG(Vector<double>& X, Vector<double>& Y, Vector<double>& D,
                                    Vector<double>& A_s, const Vector<uint32_t>& U_s,
                                    const Vector<uint32_t>& V_s, uint64_t dim_s, uint64_t kiter, double prec);
// The same for a dense P: its non-zero entries make the sparse list. Y is modified.
[[nodiscard]] bool inv_LS_CG_sparsify(Vector<double>& X, const Image<double>& P, Vector<double>& Y,
                                      uint64_t kiter, double prec);

// Conjugate gradient on I + S, S the off-diagonals. Returns the number of iterations; a zero right-hand side
// gives X = 0 and counts as one.
uint64_t inv_sparse_linsys_CG_DI(Vector<double>& X, const Vector<double>& Y, const Vector<double>& A_s,
                                 const Vector<uint32_t>& U_s, const Vector<uint32_t>& V_s, uint64_t dim_s,
                                 uint64_t kiter, double prec);

// Diagnostics: with level 999 each sparse solve dumps its system as text under this path prefix (files "M_",
// "Y_", "D", "M", "Y", "M.mat", "Y.mat", "X"); with 94341 the iteration count goes to the console. Set once
// at start.
struct OptimDebug {
  int level = 0;
  std::string prefix;
};
extern OptimDebug OPTIM_DEBUG;
}  // namespace veld

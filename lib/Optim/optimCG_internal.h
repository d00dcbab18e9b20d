// lib/Optim/optimCG_internal.h
// Text dumps of a sparse system for a numeric tool; written when the debug level is 999.
#pragma once
#include "lib/Optim/optimCG.h"

namespace veld {
struct SparseView {  // a system as inv_sparse_LS_CG holds it
  const Vector<double>& D;
  const Vector<double>& A_s;
  const Vector<uint32_t>& U_s;
  const Vector<uint32_t>& V_s;
  uint64_t dim_s;
};
void dump_unscaled(const SparseView& view, const Vector<double>& Y);  // "M_", "Y_", "D"
void dump_scaled(const SparseView& view,
                 const Vector<double>& Y);  // "M", "Y", "M.mat", "Y.mat"; unit diagonal
void dump_vector(const char* suffix, const Vector<double>& v);
}  // namespace veld

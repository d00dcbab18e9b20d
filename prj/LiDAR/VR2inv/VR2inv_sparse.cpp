#include "prj/LiDAR/VR2inv/VR2inv_sparse.h"

#include <algorithm>

#include "lib/general/log.h"

namespace veld {
SparseList sparsify_more(const DriftEq& sys) {
  const int stride = sys.stride;
  const uint64_t dim = sys.Y.size();
  const auto each = [&](auto&& f) {
    sys.cal.each([&](int u, int v, const double* val) { f(u, v, *val); });
    sys.cal_node.each([&](int u, int node, const double* val) {
      for (int c = 0; c < stride; c++) f(u, sys.dimcal + node * stride + c, val[c]);
    });
    sys.nodes.each([&](int a, int b, const double* val) {
      for (int i = 0; i < stride; i++)
        for (int j = a == b ? i : 0; j < stride; j++)
          f(sys.dimcal + a * stride + i, sys.dimcal + b * stride + j, val[i * stride + j]);
    });
  };
  SparseList list;
  each([&](int u, int v, double value) { list.n += u != v && value != 0; });
  list.D.resize(dim, 0.0);
  list.A.resize(list.n);
  list.U.resize(list.n);
  list.V.resize(list.n);
  uint64_t k = 0;
  each([&](int u, int v, double value) {
    if (u == v) {
      list.D[u] = value;
    } else if (value != 0) {
      list.A[k] = value;
      list.U[k] = static_cast<uint32_t>(u);
      list.V[k] = static_cast<uint32_t>(v);
      k++;
    }
  });
  for (double& d : list.D)
    if (d == 0) d = 1;
  const double dim2 = static_cast<double>(dim) * static_cast<double>(dim);
  LOG_LINE("sparsify_more dim*dim=" << dim2 << " fill="
                                    << (2.0 * static_cast<double>(list.n) + static_cast<double>(dim)) / dim2);
  return list;
}
}  // namespace veld

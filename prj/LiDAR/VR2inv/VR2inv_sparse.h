// prj/LiDAR/VR2inv/VR2inv_sparse.h
// The normal equations of step 2: few calibration parameters that all vectors share, many nodes that few do.
// Here:     their storage, and the list that the solver takes.
// Not here: what goes into them (VR2inv_step2.cpp), the solver (optimCG).
#pragma once
#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

#include "lib/DataStructure/vector.h"

namespace veld {
// Blocks of equal size, found by two indices, in the order of their first use.
class BlockMap {
 public:
  void init(size_t size) { size_ = size; }
  double* block(int a, int b) {  // zeros at first use; valid until the next one
    const uint64_t key = static_cast<uint64_t>(a) << 32 | static_cast<uint32_t>(b);
    const auto [it, fresh] = index_.try_emplace(key, keys_.size());
    if (fresh) {
      keys_.push_back(key);
      val_.resize(val_.size() + size_, 0.0);
    }
    return val_.data() + it->second * size_;
  }
  template <class F>
  void each(F&& f) const {  // f(a, b, block)
    for (size_t k = 0; k < keys_.size(); k++)
      f(static_cast<int>(keys_[k] >> 32), static_cast<int>(keys_[k] & 0xFFFFFFFF), val_.data() + k * size_);
  }
  size_t count() const { return keys_.size(); }

 private:
  size_t size_ = 1;
  std::unordered_map<uint64_t, size_t> index_;
  std::vector<uint64_t> keys_;
  std::vector<double> val_;
};

struct DriftEq {      // P x = Y, P symmetric
  int dimcal = 0;     // entries of x before the nodes
  int stride = 3;     // entries a node
  BlockMap cal;       // u <= v: one value
  BlockMap cal_node;  // calibration entry, node: stride values
  BlockMap nodes;     // node a <= node b: stride x stride values, rows of a
  Vector<double> Y;

  void init(int ncal, int node_stride, int dim) {
    dimcal = ncal;
    stride = node_stride;
    cal.init(1);
    cal_node.init(static_cast<size_t>(stride));
    nodes.init(static_cast<size_t>(stride) * stride);
    Y.resize(dim, 0.0);
  }
  void add_diag(int node, int c, double value) { nodes.block(node, node)[c * stride + c] += value; }
};

struct SparseList {  // as the solver takes it
  Vector<double> D, A;
  Vector<uint32_t> U, V;
  uint64_t n = 0;
};

// Diagonal and strictly upper entries, without exact zeros. A diagonal that is zero becomes 1.
SparseList sparsify_more(const DriftEq& sys);
}  // namespace veld

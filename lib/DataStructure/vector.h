// lib/DataStructure/vector.h
// Vector: an owning flat array whose checked access is compiled in in every build.
// Here:     construction, resizing, checked access, element-wise arithmetic.
// Not here: growth (use std::vector while a list is built), 2-D arrays (image.h).
#pragma once
#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <new>
#include <typeinfo>
#include <utility>

#include "lib/general/assert_fail.h"

namespace veld {
// No constructor or resize preserves contents. A resize to the size already held keeps the block (and what
// stands in it); any other size frees the block before the new one is allocated. Without a fill value the
// elements of arithmetic types are left uninitialised.
template <typename T>
class Vector {
 public:
  T* val = nullptr;  // the elements; hot loops may walk them once their bounds are checked

  Vector() = default;
  explicit Vector(uint64_t n) { alloc(n, "Vector/V0"); }
  Vector(uint64_t n, const T& fill) {
    alloc(n, "Vector/V1");
    std::fill_n(val, n_, fill);
  }
  Vector(std::initializer_list<T> list) {
    alloc(list.size(), "Vector/I");
    std::copy(list.begin(), list.end(), val);
  }
  Vector(const Vector& other) {
    alloc(other.n_, "Vector/E");
    std::copy_n(other.val, n_, val);
  }
  Vector(Vector&& other) noexcept { swap(other); }
  Vector& operator=(const Vector& other) {
    if (this != &other) {
      if (n_ != other.n_) {
        release();
        alloc(other.n_, "Vector/EF");
      }
      std::copy_n(other.val, n_, val);
    }
    return *this;
  }
  Vector& operator=(Vector&& other) noexcept {
    if (this != &other) {
      release();
      swap(other);
    }
    return *this;
  }
  ~Vector() { release(); }

  uint64_t size() const { return n_; }
  bool empty() const { return n_ == 0; }

  void resize(uint64_t n) {
    if (n == n_) return;
    release();
    alloc(n, "Vector/R0");
  }
  void resize(uint64_t n, const T& fill) {
    const T value = fill;  // the argument may be an element of this very block
    if (n != n_) {
      release();
      alloc(n, "Vector/R1");
    }
    std::fill_n(val, n_, value);
  }
  void clear() { release(); }

  T& operator()(int64_t index) {
    check(index);
    return val[index];
  }
  const T& operator()(int64_t index) const {
    check(index);
    return val[index];
  }

  // Unchecked, for hot loops whose bounds are checked.
  T& operator[](uint64_t index) { return val[index]; }
  const T& operator[](uint64_t index) const { return val[index]; }

  T* begin() { return val; }
  T* end() { return val + n_; }
  const T* begin() const { return val; }
  const T* end() const { return val + n_; }

  void swap(Vector& other) noexcept {
    std::swap(val, other.val);
    std::swap(n_, other.n_);
  }

 private:
  uint64_t n_ = 0;

  void check(int64_t index) const {
    if (index < 0) [[unlikely]]
      assert_failed_index("index>=0", "index", index, "operator()", typeid(T).name(), __LINE__, "vector.h");
    if (static_cast<uint64_t>(index) >= n_) [[unlikely]]
      assert_failed_index("index<val.size()", "index", index, "operator()", typeid(T).name(), __LINE__,
                          "vector.h");
  }
  void alloc(uint64_t n, const char* tag) {
    if (n == 0) return;
    if (n > UINT64_MAX / 2 / sizeof(T)) alloc_failed(tag, n, sizeof(T));
    val = new (std::nothrow) T[n];
    if (!val) alloc_failed(tag, n, sizeof(T));
    n_ = n;
  }
  void release() {
    delete[] val;
    val = nullptr;
    n_ = 0;
  }
};

template <typename T>
void copy(Vector<T>& dst, const Vector<T>& src) {
  ASSERT(dst.size() == src.size());
  std::copy_n(src.val, src.size(), dst.val);
}

template <typename T>
Vector<T>& operator+=(Vector<T>& v, const Vector<T>& V) {
  ASSERT(V.size() == v.size());
  for (uint64_t i = 0; i < v.size(); i++) v[i] += V[i];
  return v;
}
template <typename T>
Vector<T>& operator-=(Vector<T>& v, const Vector<T>& V) {
  ASSERT(V.size() == v.size());
  for (uint64_t i = 0; i < v.size(); i++) v[i] -= V[i];
  return v;
}
template <typename T>
Vector<T>& operator*=(Vector<T>& v, const Vector<T>& V) {
  ASSERT(V.size() == v.size());
  for (uint64_t i = 0; i < v.size(); i++) v[i] *= V[i];
  return v;
}
template <typename T>
Vector<T>& operator/=(Vector<T>& v, const Vector<T>& V) {
  ASSERT(V.size() == v.size());
  for (uint64_t i = 0; i < v.size(); i++) v[i] /= V[i];
  return v;
}
}  // namespace veld

// lib/DataStructure/image.h
// Image: an owning dense row-major 2-D array with checked access. Element (x, y) lies at y*xsize+x.
#pragma once
#include <algorithm>
#include <cstdint>
#include <new>
#include <typeinfo>
#include <utility>

#include "lib/DataStructure/vector.h"
#include "lib/general/assert_fail.h"

namespace veld {
// As for Vector, no contents survive a resize to another size.
template <typename T>
class Image {
 public:
  T* val = nullptr;  // the elements, row by row

  Image() = default;
  Image(int xsize, int ysize) { alloc(xsize, ysize, "Image/R0"); }
  Image(int xsize, int ysize, const T& fill) {
    alloc(xsize, ysize, "Image/R1");
    std::fill_n(val, size(), fill);
  }
  Image(const Image& other) {
    alloc(other._xsize, other._ysize, "Image/R0");
    std::copy_n(other.val, size(), val);
  }
  Image(Image&& other) noexcept { swap(other); }
  Image& operator=(const Image& other) {
    if (this != &other) {
      if (_xsize != other._xsize || _ysize != other._ysize) {
        release();
        alloc(other._xsize, other._ysize, "Image/R0");
      }
      std::copy_n(other.val, size(), val);
    }
    return *this;
  }
  Image& operator=(Image&& other) noexcept {
    if (this != &other) {
      release();
      swap(other);
    }
    return *this;
  }
  ~Image() { release(); }

  int xsize() const { return _xsize; }
  int ysize() const { return _ysize; }
  uint64_t size() const { return static_cast<uint64_t>(_xsize) * static_cast<uint64_t>(_ysize); }
  bool empty() const { return size() == 0; }

  void resize(int xsize, int ysize) {
    if (xsize == _xsize && ysize == _ysize) return;
    release();
    alloc(xsize, ysize, "Image/R0");
  }
  void resize(int xsize, int ysize, const T& fill) {
    const T value = fill;
    if (xsize != _xsize || ysize != _ysize) {
      release();
      alloc(xsize, ysize, "Image/R1");
    }
    std::fill_n(val, size(), value);
  }
  void clear() { release(); }

  T& operator()(int x, int y) {
    check(x, y);
    return val[static_cast<uint64_t>(y) * _xsize + x];
  }
  const T& operator()(int x, int y) const {
    check(x, y);
    return val[static_cast<uint64_t>(y) * _xsize + x];
  }
  // Unchecked element in the order of memory, for hot loops whose bounds are checked.
  T& operator[](uint64_t i) { return val[i]; }
  const T& operator[](uint64_t i) const { return val[i]; }
  // Unchecked start of a row, for hot loops.
  T* row(int y) { return val + static_cast<uint64_t>(y) * _xsize; }
  const T* row(int y) const { return val + static_cast<uint64_t>(y) * _xsize; }

  void getrow(int n, Vector<T>& row) const {
    ASSERT(n >= 0 && n < _ysize);
    ASSERT(static_cast<int>(row.size()) == _xsize);
    std::copy_n(this->row(n), _xsize, row.val);
  }
  void setrow(int n, const Vector<T>& row) {
    ASSERT(n >= 0 && n < _ysize);
    ASSERT(static_cast<int>(row.size()) == _xsize);
    std::copy_n(row.val, _xsize, this->row(n));
  }
  void getcol(int n, Vector<T>& col) const {
    ASSERT(n >= 0 && n < _xsize);
    ASSERT(static_cast<int>(col.size()) == _ysize);
    for (int y = 0; y < _ysize; y++) col[y] = row(y)[n];
  }
  void setcol(int n, const Vector<T>& col) {
    ASSERT(n >= 0 && n < _xsize);
    ASSERT(static_cast<int>(col.size()) == _ysize);
    for (int y = 0; y < _ysize; y++) row(y)[n] = col[y];
  }

  Image& operator+=(const Image& I) {
    ASSERT(I._xsize == _xsize && I._ysize == _ysize);
    for (uint64_t i = 0; i < size(); i++) val[i] += I[i];
    return *this;
  }
  Image& operator*=(const Image& I) {
    ASSERT(I._xsize == _xsize && I._ysize == _ysize);
    for (uint64_t i = 0; i < size(); i++) val[i] *= I[i];
    return *this;
  }

  void swap(Image& other) noexcept {
    std::swap(val, other.val);
    std::swap(_xsize, other._xsize);
    std::swap(_ysize, other._ysize);
  }

 private:
  int _xsize = 0;
  int _ysize = 0;

  void check(int x, int y) const {
    if (x < 0 || x >= _xsize) [[unlikely]]
      assert_failed_index("x>=0 && x<_xsize", "x", x, "operator()", typeid(T).name(), __LINE__, "image.h");
    if (y < 0 || y >= _ysize) [[unlikely]]
      assert_failed_index("y>=0 && y<_ysize", "y", y, "operator()", typeid(T).name(), __LINE__, "image.h");
  }
  void alloc(int xsize, int ysize, const char* tag) {
    ASSERT(xsize >= 0 && ysize >= 0);
    const uint64_t n = static_cast<uint64_t>(xsize) * static_cast<uint64_t>(ysize);
    if (n > 0) {
      if (n > UINT64_MAX / 2 / sizeof(T)) alloc_failed(tag, xsize, ysize, sizeof(T));
      val = new (std::nothrow) T[n];
      if (!val) alloc_failed(tag, xsize, ysize, sizeof(T));
    }
    _xsize = xsize;
    _ysize = ysize;
  }
  void release() {
    delete[] val;
    val = nullptr;
    _xsize = _ysize = 0;
  }
};
}  // namespace veld

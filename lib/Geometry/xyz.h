// lib/Geometry/xyz.h
// xyz (float) and dxyz (double): small vectors with component-wise arithmetic, dot and cross products.
#pragma once
#include <cmath>

#include "lib/general/assert_fail.h"

namespace veld {
// Plain aggregates without constructors: an array of them is not initialised on allocation.
template <typename S>
struct xyz_of {
  S x, y, z;

  xyz_of& operator+=(const xyz_of& o) {
    x += o.x, y += o.y, z += o.z;
    return *this;
  }
  xyz_of& operator-=(const xyz_of& o) {
    x -= o.x, y -= o.y, z -= o.z;
    return *this;
  }
  xyz_of& operator*=(S k) {
    x *= k, y *= k, z *= k;
    return *this;
  }
  xyz_of& operator/=(S k) {
    ASSERT(k != 0.);
    x /= k, y /= k, z /= k;
    return *this;
  }
  friend xyz_of operator+(xyz_of a, const xyz_of& b) { return a += b; }
  friend xyz_of operator-(xyz_of a, const xyz_of& b) { return a -= b; }
  friend xyz_of operator-(const xyz_of& a) { return {-a.x, -a.y, -a.z}; }
  friend xyz_of operator*(xyz_of a, S k) { return a *= k; }
  friend xyz_of operator*(S k, xyz_of a) { return a *= k; }
  friend xyz_of operator/(xyz_of a, S k) { return a /= k; }
  friend bool operator==(const xyz_of& a, const xyz_of& b) { return a.x == b.x && a.y == b.y && a.z == b.z; }
};

using xyz = xyz_of<float>;
using dxyz = xyz_of<double>;

template <typename S>
S dot(const xyz_of<S>& a, const xyz_of<S>& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}
template <typename S>
xyz_of<S> cross(const xyz_of<S>& a, const xyz_of<S>& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
template <typename S>
S norm(const xyz_of<S>& a) {
  return std::sqrt(dot(a, a));
}
inline xyz to_xyz(const dxyz& p) {
  return {static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z)};
}
inline dxyz to_dxyz(const xyz& p) { return {p.x, p.y, p.z}; }
}  // namespace veld

// lib/Geometry/xy.h
// dxy: a point in the plane, double precision.
#pragma once
#include "lib/general/assert_fail.h"

namespace veld {
struct dxy {
  double x, y;

  dxy& operator+=(const dxy& o) {
    x += o.x, y += o.y;
    return *this;
  }
  dxy& operator-=(const dxy& o) {
    x -= o.x, y -= o.y;
    return *this;
  }
  dxy& operator*=(double k) {
    x *= k, y *= k;
    return *this;
  }
  dxy& operator/=(double k) {
    ASSERT(k != 0.);
    x /= k, y /= k;
    return *this;
  }
  friend dxy operator+(dxy a, const dxy& b) { return a += b; }
  friend dxy operator-(dxy a, const dxy& b) { return a -= b; }
  friend dxy operator*(dxy a, double k) { return a *= k; }
  friend dxy operator/(dxy a, double k) { return a /= k; }
};
}  // namespace veld

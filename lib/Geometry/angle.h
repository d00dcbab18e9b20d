// lib/Geometry/angle.h
// Degrees and radians: the one set of constants.
#pragma once

namespace veld {
constexpr double RAD_PER_DEG = 3.14159265358979323846 / 180;
constexpr double DEG_PER_RAD = 1 / RAD_PER_DEG;
// For single precision. DEG2RAD is one unit in the last place (6e-8 of it) below the nearest number: attitudes and
// results of all versions rest on it.
constexpr float DEG2RAD = 0.01745329f;
constexpr float RAD2DEG = 57.29578f;
}  // namespace veld

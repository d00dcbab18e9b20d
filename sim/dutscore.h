// sim/dutscore.h
// Scores displacement vectors against the truth of a simulated project. The true displacement at a place is
// the difference of the errors (observed less true) that the two swaths have there.
// Here:     errors of a swath as a field, errors of vectors, their statistics by pair and land cover.
// Not here: reading of files (dutfile.h, veldscore), scores of points (score.h).
#pragma once
#include <array>
#include <string>
#include <vector>

#include "lib/DataStructure/vector.h"
#include "lib/Geometry/xyz.h"
#include "sim/dutfile.h"

namespace veld {
enum class Land { open, forest, built, all };
constexpr int NLAND = 4;
const char* land_name(Land land);

// Points of a swath with their errors, in cells.
class ErrorField {
 public:
  // observed, truth, cls: by point. cls: 2 and others open, 3 to 5 plants, 6 buildings.
  ErrorField(const Vector<dxyz>& observed, const Vector<dxyz>& truth, const std::vector<uint8_t>& cls);
  // Error at a place, by a plane through those of the points around it. Points of a square of side 2 radius
  // are used. False when fewer than 12 lie there.
  bool error_at(const dxyz& place, double radius, dxyz& error) const;
  Land land_at(const dxyz& place, double radius) const;

 private:
  struct Point {
    dxyz p, error;
    uint8_t cls;
  };
  std::vector<Point> points_;    // sorted by cell
  std::vector<uint32_t> first_;  // by cell, one more than cells
  double x0_ = 0, y0_ = 0;
  int nx_ = 0, ny_ = 0;
  template <typename F>
  void each_near(const dxyz& place, double radius, F&& use) const;
};

struct VectorStat {  // of one pair and land cover, or of many
  int64_t n = 0, ntimed = 0;
  dxyz median{0, 0, 0};                     // m, of the errors
  dxyz weighted{0, 0, 0};                   // m, mean by 1/Unc^2
  dxyz spread{0, 0, 0};                     // m, 1.4826 times the median absolute deviation
  dxyz gross{0, 0, 0};                      // share of errors above the limit
  dxyz ratio50{0, 0, 0}, ratio99{0, 0, 0};  // |error|/Unc, median and 99 %
};
struct DutScore {
  std::vector<std::array<VectorStat, NLAND>> pairs;  // as in the file
  std::array<VectorStat, NLAND> all;
  int64_t nwithout = 0;  // vectors where the truth is not known
};
// fields: by swath of the file. radius: m, of the surroundings of a vector; gross: m, limit of errors.
DutScore score_dut(const DutFile& dut, const std::vector<const ErrorField*>& fields, double radius,
                   double gross);
}  // namespace veld

// las/lasindex.h
// The spatial index of a point file: a quadtree over x and y, and for each stored cell the intervals of point
// indices that hold its points. Kept as .lax beside the file or at the end of a LAZ file.
#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "las/lasreader.h"

namespace veld {
constexpr float LAX_CELL_SIZE = 100.F;       // finest cell, file units
constexpr uint32_t LAX_THRESHOLD = 1000;     // gaps of point indices up to this are bridged
constexpr uint32_t LAX_MIN_POINTS = 100000;  // cells are merged into parents up to this many points
constexpr int LAX_MAX_INTERVALS = -20;       // per cell when negative, in all when positive, 0 no limit
constexpr uint32_t LAX_MAX_LEVELS = 15;

class LASquadtree {
 public:
  uint32_t levels = 0;
  float min_x = 0, max_x = 0, min_y = 0, max_y = 0;

  // Squares of the given size over a bounding box, doubled until one root covers them. False when the box is
  // not finite, the size not above 0, or more than LAX_MAX_LEVELS levels are needed.
  [[nodiscard]] bool setup(double bb_min_x, double bb_max_x, double bb_min_y, double bb_max_y,
                           float cell_size = LAX_CELL_SIZE);
  // Cell index of the finest level that holds (x, y); points outside fall into border cells.
  int32_t cell(double x, double y) const;
  // The box of a cell of any level.
  void cell_box(int32_t cell, float& x0, float& x1, float& y0, float& y1) const;
  // First cell index of a level: 0, 1, 5, 21, ...
  static int32_t level_base(uint32_t level) {
    return static_cast<int32_t>(((uint64_t{1} << (2 * level)) - 1) / 3);
  }
};

struct LASinterval {  // point indices from start to end, both included
  uint32_t start, end;
};

class LASindex {
 public:
  struct Cell {
    uint32_t npoints = 0;
    std::vector<LASinterval> intervals;  // ascending, disjoint
  };
  LASquadtree quadtree;
  std::map<int32_t, Cell> cells;  // stored cells by cell index

  // Starts an empty index over a quadtree that has been set up.
  void prepare(const LASquadtree& tree, uint32_t threshold = LAX_THRESHOLD);
  // The same over the bounding box of a header and a margin around it, for points that are yet to be moved.
  // False when no quadtree fits the box.
  [[nodiscard]] bool prepare(const LASheader& header, double margin = 0);
  // Adds the next point of the file; indices must ascend. False beyond 2^32 - 1 points.
  bool add(double x, double y, uint64_t index);
  // Adds n records, the points number `first` and on of the file. `point` has format, scale and offset.
  [[nodiscard]] bool add_records(LASpoint point, uint8_t* records, uint64_t n, uint64_t first);
  // Merges sparse cells into their parents and bridges the smallest gaps.
  void complete(uint32_t min_points = LAX_MIN_POINTS, int max_intervals = LAX_MAX_INTERVALS);

  // The bytes of the .lax form.
  std::vector<uint8_t> to_bytes() const;
  // Writes the .lax file beside a point file. False after an ERROR line.
  [[nodiscard]] bool write(const std::string& point_file) const;
  // Writes the index to the end of a finished LAZ file. False after an ERROR line.
  // A file that is open for reading is refused.
  [[nodiscard]] bool append(const std::string& laz_file) const;

  // Takes the .lax form of a file of npoints points. False, with the reason, when it is damaged or belongs to
  // another file.
  [[nodiscard]] bool from_bytes(const uint8_t* bytes, size_t nbytes, uint64_t npoints, std::string& reason);
  // Finds the index of a point file: the .lax beside it first, then at the end of a LAZ. False when there is
  // none (silent) or it is not usable (WARNING).
  [[nodiscard]] bool read(const std::string& point_file);

  // Index ranges that hold all points of the closed rectangle, ascending; every point must still be tested.
  // Empty when the rectangle misses the quadtree's box.
  std::vector<LASinterval> query(double x0, double x1, double y0, double y1) const;

 private:
  void merge_cells(uint32_t min_points);
  void bridge_gaps(uint64_t max_gaps);
  uint32_t threshold_ = LAX_THRESHOLD;
  // The cell of the latest point and its box: the next point is in it more often than not.
  Cell* last_ = nullptr;
  float x0_ = 0, x1_ = 0, y0_ = 0, y1_ = 0;
};

// Gives every point of the closed rectangle to `take`, in file order, reading only the ranges that the index
// names. False when reading ended early.
[[nodiscard]] bool read_las_box(LASreader& reader, const LASindex& index, double x0, double x1, double y0,
                                double y1, const std::function<void(const LASpoint&)>& take);
}  // namespace veld

#include "las/lasindex.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <tuple>

namespace veld {
namespace {
// The level of a cell, its path from the root below the level's base.
uint32_t level_of(int32_t cell, uint32_t& path) {
  uint32_t level = 0;
  while (cell >= LASquadtree::level_base(level + 1)) level++;
  path = static_cast<uint32_t>(cell - LASquadtree::level_base(level));
  return level;
}

// Joins ascending intervals that overlap or whose distance is at most `threshold`.
void join_intervals(std::vector<LASinterval>& intervals, uint32_t threshold) {
  std::sort(intervals.begin(), intervals.end(),
            [](const LASinterval& a, const LASinterval& b) { return a.start < b.start; });
  size_t n = 0;
  for (const LASinterval& next : intervals) {
    if (n > 0 && (next.start <= intervals[n - 1].end || next.start - intervals[n - 1].end <= threshold))
      intervals[n - 1].end = std::max(intervals[n - 1].end, next.end);
    else
      intervals[n++] = next;
  }
  intervals.resize(n);
}

// The square grid line at or below / above v, as in the published layout: the quotient in double precision,
// cut to an integer, the product in single precision.
float line_below(double v, float size) {
  const int32_t q = static_cast<int32_t>(v / size);
  return size * static_cast<float>(v >= 0 ? q : q - 1);
}
float line_above(double v, float size) {
  const int32_t q = static_cast<int32_t>(v / size);
  return size * static_cast<float>(v >= 0 ? q + 1 : q);
}
}  // namespace

bool LASquadtree::setup(double bb_min_x, double bb_max_x, double bb_min_y, double bb_max_y, float cell_size) {
  if (!(cell_size > 0)) return false;
  for (const double v : {bb_min_x, bb_max_x, bb_min_y, bb_max_y})
    if (!(std::abs(v / cell_size) < 1e9)) return false;  // NaN too
  min_x = line_below(bb_min_x, cell_size);
  max_x = line_above(bb_max_x, cell_size);
  min_y = line_below(bb_min_y, cell_size);
  max_y = line_above(bb_max_y, cell_size);
  const int64_t cells_x = std::llround((max_x - min_x) / cell_size);
  const int64_t cells_y = std::llround((max_y - min_y) / cell_size);
  if (cells_x < 1 || cells_y < 1) return false;
  levels = static_cast<uint32_t>(std::bit_width(static_cast<uint64_t>(std::max(cells_x, cells_y) - 1)));
  if (levels > LAX_MAX_LEVELS) return false;
  const int64_t more_x = (int64_t{1} << levels) - cells_x, more_y = (int64_t{1} << levels) - cells_y;
  max_x += static_cast<float>(more_x / 2) * cell_size;
  min_x -= static_cast<float>(more_x - more_x / 2) * cell_size;
  max_y += static_cast<float>(more_y / 2) * cell_size;
  min_y -= static_cast<float>(more_y - more_y / 2) * cell_size;
  return true;
}

int32_t LASquadtree::cell(double x, double y) const {
  float x0 = min_x, x1 = max_x, y0 = min_y, y1 = max_y;
  int32_t path = 0;
  for (uint32_t level = 0; level < levels; level++) {
    const float mid_x = (x0 + x1) / 2, mid_y = (y0 + y1) / 2;
    const bool right = x >= mid_x, upper = y >= mid_y;
    path = path << 2 | (right ? 1 : 0) | (upper ? 2 : 0);
    (right ? x0 : x1) = mid_x;
    (upper ? y0 : y1) = mid_y;
  }
  return level_base(levels) + path;
}

void LASquadtree::cell_box(int32_t cell, float& x0, float& x1, float& y0, float& y1) const {
  uint32_t path = 0;
  const uint32_t level = level_of(cell, path);
  x0 = min_x, x1 = max_x, y0 = min_y, y1 = max_y;
  for (uint32_t i = level; i-- > 0;) {
    const uint32_t quadrant = path >> (2 * i);
    const float mid_x = (x0 + x1) / 2, mid_y = (y0 + y1) / 2;
    (quadrant & 1 ? x0 : x1) = mid_x;
    (quadrant & 2 ? y0 : y1) = mid_y;
  }
}

void LASindex::prepare(const LASquadtree& tree, uint32_t threshold) {
  quadtree = tree;
  threshold_ = threshold;
  cells.clear();
  last_ = nullptr;
}

bool LASindex::prepare(const LASheader& header, double margin) {
  LASquadtree tree;
  if (!tree.setup(header.min_x - margin, header.max_x + margin, header.min_y - margin, header.max_y + margin))
    return false;
  prepare(tree);
  return true;
}

bool LASindex::add(double x, double y, uint64_t index) {
  if (index > UINT32_MAX - 1) return false;
  const uint32_t i = static_cast<uint32_t>(index);
  if (!last_ || !(x >= x0_ && x < x1_ && y >= y0_ && y < y1_)) {
    const int32_t at = quadtree.cell(x, y);
    quadtree.cell_box(at, x0_, x1_, y0_, y1_);
    last_ = &cells[at];  // stays where it is while others come
  }
  std::vector<LASinterval>& intervals = last_->intervals;
  if (intervals.empty() || i - intervals.back().end > threshold_)
    intervals.push_back({i, i});
  else
    intervals.back().end = i;
  last_->npoints++;
  return true;
}

bool LASindex::add_records(LASpoint point, uint8_t* records, uint64_t n, uint64_t first) {
  point.rec = records;
  for (uint64_t i = first; i < first + n; i++, point.rec += point.lay.reclen)
    if (!add(point.x(), point.y(), i)) return false;
  return true;
}

void LASindex::merge_cells(uint32_t min_points) {
  for (uint32_t level = quadtree.levels;
       level-- > 0;) {  // parents' level; from fine to coarse one round is enough
    const int32_t first = LASquadtree::level_base(level + 1), end = LASquadtree::level_base(level + 2);
    for (auto it = cells.lower_bound(first); it != cells.end() && it->first < end;) {
      const int32_t child = first + ((it->first - first) & ~3);
      const auto next = cells.lower_bound(child + 4);
      const auto oldest = cells.find(child);
      uint64_t npoints = 0;
      for (auto c = oldest; c != next && oldest != cells.end(); ++c) npoints += c->second.npoints;
      if (oldest != cells.end() && std::distance(oldest, next) == 4 && npoints < min_points) {
        Cell parent;
        parent.npoints = static_cast<uint32_t>(npoints);
        for (auto c = oldest; c != next; ++c)
          parent.intervals.insert(parent.intervals.end(), c->second.intervals.begin(),
                                  c->second.intervals.end());
        join_intervals(parent.intervals, threshold_);
        cells.erase(oldest, next);
        cells[LASquadtree::level_base(level) + ((child - first) >> 2)] = std::move(parent);
      }
      it = next;
    }
  }
}

void LASindex::bridge_gaps(uint64_t max_gaps) {
  struct Gap {
    uint32_t size;
    int32_t cell;
    size_t before;  // the interval that it follows
  };
  std::vector<Gap> gaps;
  for (const auto& [at, cell] : cells)
    for (size_t i = 1; i < cell.intervals.size(); i++)
      gaps.push_back({cell.intervals[i].start - cell.intervals[i - 1].end - 1, at, i - 1});
  if (gaps.size() <= max_gaps) return;
  const auto key = [](const Gap& g) { return std::tuple(g.size, g.cell, g.before); };
  std::sort(gaps.begin(), gaps.end(), [&](const Gap& a, const Gap& b) { return key(a) < key(b); });
  gaps.resize(gaps.size() - max_gaps);  // those to be closed
  std::sort(gaps.begin(), gaps.end(), [](const Gap& a, const Gap& b) {
    return std::tie(a.cell, a.before) > std::tie(b.cell, b.before);
  });
  for (const Gap& gap : gaps) {  // from the last interval of a cell to its first
    std::vector<LASinterval>& intervals = cells[gap.cell].intervals;
    intervals[gap.before].end = intervals[gap.before + 1].end;
    intervals[gap.before + 1].start = UINT32_MAX;  // taken up by the one before
  }
  for (auto& [at, cell] : cells)
    std::erase_if(cell.intervals, [](const LASinterval& i) { return i.start == UINT32_MAX; });
}

void LASindex::complete(uint32_t min_points, int max_intervals) {
  last_ = nullptr;
  if (min_points > 0) merge_cells(min_points);
  const uint64_t ncells = cells.size();
  const uint64_t maximum = max_intervals < 0 ? static_cast<uint64_t>(-int64_t{max_intervals}) * ncells
                                             : static_cast<uint64_t>(max_intervals);
  if (maximum != 0) bridge_gaps(maximum > ncells ? maximum - ncells : 0);
}

std::vector<LASinterval> LASindex::query(double x0, double x1, double y0, double y1) const {
  std::vector<LASinterval> found;
  const auto meets = [&](float bx0, float bx1, float by0, float by1) {
    return x0 <= bx1 && x1 >= bx0 && y0 <= by1 && y1 >= by0;
  };
  if (!meets(quadtree.min_x, quadtree.max_x, quadtree.min_y, quadtree.max_y)) return found;
  for (const auto& [at, cell] : cells) {
    float bx0, bx1, by0, by1;
    quadtree.cell_box(at, bx0, bx1, by0, by1);
    if (meets(bx0, bx1, by0, by1)) found.insert(found.end(), cell.intervals.begin(), cell.intervals.end());
  }
  join_intervals(found, LAX_THRESHOLD);
  return found;
}

bool read_las_box(LASreader& reader, const LASindex& index, double x0, double x1, double y0, double y1,
                  const std::function<void(const LASpoint&)>& take) {
  for (const LASinterval& range : index.query(x0, x1, y0, y1)) {
    if (!reader.seek(range.start)) return false;
    for (uint64_t i = range.start; i <= range.end; i++) {
      if (!reader.read_point()) return false;
      const double x = reader.point.x(), y = reader.point.y();
      if (x >= x0 && x <= x1 && y >= y0 && y <= y1) take(reader.point);
    }
  }
  return true;
}
}  // namespace veld

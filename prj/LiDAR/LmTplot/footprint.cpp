#include "prj/LiDAR/LmTplot/footprint.h"

#include <algorithm>
#include <iterator>
#include <map>

namespace veld {
namespace {
uint64_t tile_key(int64_t x, int64_t y) { return static_cast<uint64_t>(y) << 32 | static_cast<uint32_t>(x); }

class Occupied {
 public:
  explicit Occupied(const Tocc& occ) {
    for (const ToccTile& t : occ) tiles_.emplace(tile_key(t.x, t.y), &t.occ);
  }
  bool at(int64_t x, int64_t y) const {
    const auto found = tiles_.find(tile_key(x >> mT_SUB_LEVEL, y >> mT_SUB_LEVEL));
    return found != tiles_.end() &&
           (found->second->row(static_cast<int>(y & (mTsub - 1)))[x & (mTsub - 1)] & 1) != 0;
  }

 private:
  std::map<uint64_t, const Image<uint8_t>*> tiles_;
};

// Twice the signed area: positive for counterclockwise rings.
int64_t ring_area2(const Ring& ring) {
  int64_t sum = 0;
  for (size_t i = 0; i < ring.size(); i++) {
    const EdgePoint &p = ring[i], &q = ring[(i + 1) % ring.size()];
    const EdgePoint o = ring[0];
    sum += (p.x - o.x) * (q.y - o.y) - (q.x - o.x) * (p.y - o.y);
  }
  return sum;
}

// The vertical borders of the rings by row, each with its ring.
class VerticalBorders {
 public:
  void add(const Ring& ring, size_t number) {
    for (size_t i = 0; i < ring.size(); i++) {
      const EdgePoint &a = ring[i], &b = ring[(i + 1) % ring.size()];
      if (a.x == b.x) rows_[std::min(a.y, b.y)].emplace(a.x, number);
    }
  }
  // The ring of the border next to the left of a point on a border. What lies between them is occupied, so both rings
  // belong to the same piece of ground.
  size_t left_of(const EdgePoint& p) const {
    const auto& row = rows_.at(p.y);
    return std::prev(row.lower_bound(p.x))->second;
  }

 private:
  std::map<int64_t, std::map<int64_t, size_t>> rows_;
};

// Takes an edge that starts at p out of the map; at a corner where two meet the one that turns left, so that
// microtiles which touch in a corner only stay apart.
bool take_edge(std::multimap<EdgePoint, EdgePoint>& edges, const EdgePoint& from, EdgePoint& at) {
  const auto range = edges.equal_range(at);
  if (range.first == range.second) return false;
  auto chosen = range.first;
  for (auto e = range.first; e != range.second; ++e) {
    const int64_t turn = (at.x - from.x) * (e->second.y - at.y) - (at.y - from.y) * (e->second.x - at.x);
    if (turn > 0) chosen = e;
  }
  at = chosen->second;
  edges.erase(chosen);
  return true;
}

Ring without_straight_corners(const Ring& ring) {
  Ring corners;
  for (size_t i = 0; i < ring.size(); i++) {
    const EdgePoint &p = ring[(i + ring.size() - 1) % ring.size()], &q = ring[i],
                    &r = ring[(i + 1) % ring.size()];
    if ((q.x - p.x) * (r.y - q.y) != (q.y - p.y) * (r.x - q.x)) corners.push_back(q);
  }
  return corners;
}
}  // namespace

std::vector<BorderEdge> border_edges(const Tocc& occ) {
  const Occupied map(occ);
  std::vector<BorderEdge> edges;
  for (const ToccTile& t : occ)
    for (int j = 0; j < mTsub; j++)
      for (int i = 0; i < mTsub; i++) {
        if ((t.occ.row(j)[i] & 1) == 0) continue;
        const int64_t x = int64_t{t.x} * mTsub + i, y = int64_t{t.y} * mTsub + j;
        if (!map.at(x, y - 1)) edges.push_back({{x, y}, {x + 1, y}});
        if (!map.at(x + 1, y)) edges.push_back({{x + 1, y}, {x + 1, y + 1}});
        if (!map.at(x, y + 1)) edges.push_back({{x + 1, y + 1}, {x, y + 1}});
        if (!map.at(x - 1, y)) edges.push_back({{x, y + 1}, {x, y}});
      }
  return edges;
}

namespace {
// Cuts a ring at the corners that it passes twice: rings of polygons may touch each other in a point, not themselves.
void add_simple_rings(const Ring& ring, std::vector<Ring>& rings) {
  Ring open;
  std::map<EdgePoint, size_t> place;
  for (const EdgePoint& p : ring) {
    const auto [seen, fresh] = place.emplace(p, open.size());
    if (!fresh) {
      const auto begin = open.begin() + static_cast<std::ptrdiff_t>(seen->second);
      Ring loop(begin, open.end());
      for (size_t i = 1; i < loop.size(); i++) place.erase(loop[i]);
      open.erase(begin, open.end());
      rings.push_back(std::move(loop));
    }
    open.push_back(p);
  }
  rings.push_back(std::move(open));
}

// Rings of unit edges; those round a hole run clockwise.
std::vector<Ring> trace_rings(const std::vector<BorderEdge>& list) {
  std::multimap<EdgePoint, EdgePoint> edges;
  for (const BorderEdge& e : list) edges.emplace(e.a, e.b);
  std::vector<Ring> rings;
  while (!edges.empty()) {
    const EdgePoint start = edges.begin()->first;
    EdgePoint from = start, at = edges.begin()->second;
    edges.erase(edges.begin());
    Ring ring = {start};
    while (!(at == start)) {
      ring.push_back(at);
      const EdgePoint here = at;
      if (!take_edge(edges, from, at)) break;
      from = here;
    }
    add_simple_rings(ring, rings);
  }
  return rings;
}

// The lower end of the leftmost vertical edge of a ring of unit edges.
EdgePoint leftmost(const Ring& ring) { return *std::min_element(ring.begin(), ring.end()); }
}  // namespace

std::vector<Outline> trace_outlines(const std::vector<BorderEdge>& edges) {
  const std::vector<Ring> rings = trace_rings(edges);
  VerticalBorders borders;
  for (size_t k = 0; k < rings.size(); k++) borders.add(rings[k], k);
  // From the left, so that the ring to the left of a hole has its outline already.
  std::vector<std::pair<EdgePoint, size_t>> order;
  for (size_t k = 0; k < rings.size(); k++) order.emplace_back(leftmost(rings[k]), k);
  std::sort(order.begin(), order.end());
  std::vector<Outline> outlines;
  std::vector<size_t> outline_of(rings.size());
  for (const auto& [corner, k] : order) {
    Ring corners = without_straight_corners(rings[k]);
    if (ring_area2(rings[k]) > 0) {
      outline_of[k] = outlines.size();
      outlines.push_back({std::move(corners), {}});
    } else {
      outline_of[k] = outline_of[borders.left_of(corner)];
      outlines[outline_of[k]].holes.push_back(std::move(corners));
    }
  }
  return outlines;
}
}  // namespace veld

// prj/LiDAR/swath/swath_table.h
// The swaths of a project: one row a swath, and everything that a stage tells the next about it.
//
// A row gets its number when it is added and keeps it: what is rejected changes its state and stays. A union of
// references is a row behind them, and they are replaced by it. Stages walk over present(); who needs a row of
// numbers or samples beside the table has a SwathVector.
// Here:     the row, its states, the table.
// Not here: the points (tile caches, LmTidx_r), statistics (LmTidx_w), vectors of pairs (DUTio).
#pragma once
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <ostream>
#include <ranges>
#include <string>
#include <vector>

#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/swath/cache_name.h"
#include "prj/LiDAR/swath/swath_clock.h"

namespace veld {
struct SwathId {    // number of a swath in all logs and files
  int number = -1;  // from 0; -1: none
  constexpr SwathId() = default;
  explicit constexpr SwathId(int n) : number(n) {}
  auto operator<=>(const SwathId&) const = default;
};
inline std::ostream& operator<<(std::ostream& os, SwathId id) { return os << id.number; }
inline std::string to_string(SwathId id) { return std::to_string(id.number); }

// Names of two swaths as words at the end of a line of a table: " L01.las L02.las", blanks in them are "_".
class SwathTable;
std::string pair_names(const SwathTable& swaths, SwathId a, SwathId b);
std::string name_word(const std::string& path);  // one of them, without its directory

enum class SwathState : uint8_t {
  used,
  no_grid,   // rejected by the gridding, -mem is too small: it is in no pair
  no_track,  // rejected by the synchronisation: it gets no correction
  // Not present in the project:
  untiled,      // rejected by the tiling; "_rej.log"
  beside,       // rejected for lying beside the box of the project, or, a reference, beside the mobile swaths
  uncorrected,  // rejected by the first step of -align2
  replaced,     // other rows stand for it: its union, or the members of a union
  absent        // left out by whoever made the table: only its number is kept
};

struct SwathTrack {                       // what the synchronisation finds
  int file = -1;                          // trajectory file; -1 none, -2 more than one
  bool AREC = false;                      // the attitude is recomputed from the track (one heading)
  dxyz min = {99999999, 99999999, 9999};  // m, box of the swath's trajectory cache
  dxyz max = {-99999999, -99999999, -9999};
};

struct Swath {
  SwathId id = {};
  CacheName cache = {};  // names of its cache files, and the LAS or LAZ file that they are made of
  int group = 1;         // 1-based group of mobile swaths (one -i or -l each); 0 for fixed swaths
  int channel = 0;       // laser channel of the sensor, from 0
  bool fixed = false;    // a reference: it is compared with, never corrected
  bool corr = true;      // false: only its displacements are wanted, no corrected file
  std::vector<SwathId> members = {};  // of a union: the references that it is made of
  SwathId mainch = {};  // main channel of its line, itself if it is one; from comp_mainch_swaths on
  int64_t stamp = -1;   // of the source when it was tiled, see source_tstamp
  SwathClock clock = {};
  SwathTrack track = {};
  std::string corrected = {};  // path of its corrected file; empty without
  SwathState state = SwathState::used;
  std::string reason = {};  // of the state, in words

  const std::string& path() const { return cache.source(); }
  bool present() const { return state < SwathState::untiled; }
  bool mobile() const { return present() && !fixed && group > 0; }
  bool is_main() const { return mainch == id; }
  bool has_track() const { return mobile() && state != SwathState::no_track && track.file >= 0; }
};

// The rows of a table that stages work on, in order. Written out, as clang 14, which builds the fuzz harnesses, cannot
// compile the filters of the library.
template <typename Row>  // iterator of rows
class PresentRows : public std::ranges::view_base {
 public:
  class Walk {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Swath;
    using difference_type = std::ptrdiff_t;
    using pointer = typename Row::pointer;
    using reference = typename Row::reference;
    Walk() = default;
    Walk(Row at, Row end) : at_(at), end_(end) { skip(); }
    reference operator*() const { return *at_; }
    pointer operator->() const { return &*at_; }
    Walk& operator++() {
      ++at_;
      skip();
      return *this;
    }
    Walk operator++(int) {
      const Walk before = *this;
      ++*this;
      return before;
    }
    bool operator==(const Walk& other) const { return at_ == other.at_; }

   private:
    void skip() {
      while (at_ != end_ && !at_->present()) ++at_;
    }
    Row at_ = {}, end_ = {};
  };
  PresentRows(Row begin, Row end) : begin_(begin), end_(end) {}
  Walk begin() const { return {begin_, end_}; }
  Walk end() const { return {end_, end_}; }

 private:
  Row begin_, end_;
};

class SwathTable {
 public:
  // Appends a row and numbers it; without a main channel it is its own.
  SwathId add(Swath row);
  void reject(SwathId id, SwathState by, const std::string& why);

  Swath& operator[](SwathId id) { return rows_[static_cast<size_t>(id.number)]; }
  const Swath& operator[](SwathId id) const { return rows_[static_cast<size_t>(id.number)]; }
  bool has(SwathId id) const { return id.number >= 0 && id.number < size(); }
  int size() const { return static_cast<int>(rows_.size()); }  // rows of all states
  bool empty() const { return rows_.empty(); }
  void clear() { rows_.clear(); }
  auto begin() { return rows_.begin(); }
  auto end() { return rows_.end(); }
  auto begin() const { return rows_.begin(); }
  auto end() const { return rows_.end(); }
  // The rows that stages work on, in order.
  PresentRows<std::vector<Swath>::iterator> present() { return {begin(), end()}; }
  PresentRows<std::vector<Swath>::const_iterator> present() const { return {begin(), end()}; }
  std::vector<SwathId> ids() const;  // of these

  // The swath as logs and the index of pairs name it.
  std::string name(SwathId id) const;

 private:
  std::vector<Swath> rows_;
};

// Samples or numbers of a stage by swath, one entry for each row of a table, whatever its state.
template <typename T>
class SwathVector {
 public:
  SwathVector() = default;
  explicit SwathVector(const SwathTable& table, const T& start = T())
      : v_(static_cast<size_t>(table.size()), start) {}
  // Of the same rows as another.
  template <typename U>
  explicit SwathVector(const SwathVector<U>& other) : v_(other.size()) {}
  void push_back(const T& next) { v_.push_back(next); }  // of the row behind the last
  T& operator[](SwathId id) { return v_[static_cast<size_t>(id.number)]; }
  const T& operator[](SwathId id) const { return v_[static_cast<size_t>(id.number)]; }
  bool has(SwathId id) const { return id.number >= 0 && static_cast<size_t>(id.number) < v_.size(); }
  size_t size() const { return v_.size(); }
  auto begin() { return v_.begin(); }
  auto end() { return v_.end(); }
  auto begin() const { return v_.begin(); }
  auto end() const { return v_.end(); }
  std::vector<SwathId> ids() const {
    std::vector<SwathId> list(v_.size());
    for (size_t k = 0; k < list.size(); k++) list[k] = SwathId(static_cast<int>(k));
    return list;
  }

 private:
  std::vector<T> v_;
};
}  // namespace veld

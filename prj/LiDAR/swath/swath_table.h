// prj/LiDAR/swath/swath_table.h
// The swaths of a project: one row a swath, and everything that a stage tells the next about it.
//
// A row gets its number when it is added and keeps it: what is rejected changes its state and stays. A union of
// references is a row behind them, and they are replaced by it. Stages walk over present(); who needs a row of
// numbers or samples beside the table has a SwathVector.
// Here:     the row, its states, the table.
// Not here: the points (tile caches, LmTidx_r), statistics (LmTidx_w), vectors of pairs (DUTio).
#pragma once
#include <cstdint>
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
  auto present() { return rows_ | std::views::filter(&Swath::present); }
  auto present() const { return rows_ | std::views::filter(&Swath::present); }
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
  auto ids() const {
    return std::views::iota(0, static_cast<int>(v_.size())) |
           std::views::transform([](int n) { return SwathId(n); });
  }

 private:
  std::vector<T> v_;
};
}  // namespace veld

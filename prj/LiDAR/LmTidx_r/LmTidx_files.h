// prj/LiDAR/LmTidx_r/LmTidx_files.h
// Names of the cache files of a swath, the test whether a cache may be reused, and their removal.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lib/general/posfile.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_rec.h"

namespace veld {
// Suffixes behind a cache name.
extern const char* const EXT_TIDX;     // ".0T.idx": header, info, tile table
extern const char* const EXT_MTIDX;    // ".mT.idx": counts
extern const char* const EXT_MTZM;     // ".mT.tbl.Zm": mean heights
extern const char* const EXT_MTDT;     // ".mT.tbl.dT": times
extern const char* const EXT_MTXYZ;    // ".mT.XYZ": points
extern const char* const EXT_ULIDX;    // ".UL.idx": swaths of a union
extern const char* const EXT_MTSUM;    // ".mT.sum": checksums of all of the above
extern const char* const EXT_MTLOCK;   // ".mT.lock": held by the run that writes any of these
extern const char* const EXT_GMTIDX;   // ".gmT.idx": grid index
extern const char* const EXT_GMTZDS;   // ".gmT.ZDS": grid
extern const char* const EXT_GMTSUM;   // ".gmT.sum": checksums of the two
extern const char* const EXT_GMTLOCK;  // ".gmT.lock"

// Name of a cache file of the file at path: TMPDIR, 16 hexadecimal digits that stand for the directory of the
// resolved path, "_", the number and "_" when number >= 0, the base name, the suffix.
std::string cache_name(const std::string& path, const std::string& suffix, int number = -1);

// The 16 digits: (h2 << 32) | h1 over the directory string, 0 for an empty one.
uint64_t cache_dir_hash(const std::string& dir);

// References that are one swath together: a union. Its path is that of its first member (links resolved) with
// this behind it, which names no file, only the union's caches.
std::string union_path(const std::string& first);
bool is_union(const std::string& path);

// What tells whether the source of a swath has changed: the modification time of its file in seconds, for a
// union the stamp of its members as its index has it. -1 when there is none.
int64_t source_tstamp(const std::string& path);

// Name of the temporary file of one tile: "<cache>.TT<XI>-<YI>.XYZT".
std::string tile_tmp_name(const std::string& path, uint32_t XI, uint32_t YI);

struct TilingParam {          // what decides the contents of a tile cache
  std::vector<uint8_t> xcls;  // classes to drop, in a stable order
  TileInfo TIO;               // frame of the drop map; nx = 0 without one
  uint64_t chk = 0;           // its checksum
  float DTS = 0.2f;           // largest accepted time deviation, ratio (-dev_max)
  bool syn = false;           // keep synthetic points (-keep_synthetic)
  bool all = false;           // keep all returns (-keep_all)
  bool last = true;           // keep last returns, else first returns (-last)
  bool large = false;         // up to 1024 tiles along an axis instead of 128 (-large)
  int xlevel = 0;             // -xlevel
  bool tproc = true;          // process time stamps
  bool (*grid_ok)(const std::string& path, int sw) = nullptr;  // whether the grid of a swath without its
                                                               // point file is valid; none: never
};

// Log line "xcls drop: " or, with more than 127 classes, "xcls keep: ".
void log_xcls(const std::vector<uint8_t>& xcls);

// Whether the cache of a swath was made from the file as it is now and with these settings. The first
// test that fails is logged; never an error.
bool check_TidxHdr(const std::string& path, int sw, const TilingParam& par);

// Whether the cache of a swath is sound, fits, and may be reused: the test above and the checksums of index and
// tables (points: presence and size alone, see points_fault). What is damaged or missing is named in a WARNING.
bool check_tiles(const std::string& path, int sw, const TilingParam& par);
// What is wrong with index and tables of a swath, or with the presence and size of its points, whatever they were
// made with. Empty when they are sound; points that were cleared are no fault.
std::string tiles_fault(const std::string& path);
// Compares the points of a swath with their checksums. Empty when they are sound, else what is wrong.
std::string points_fault(const std::string& path);
// Opens a file of the family of a swath, tiles or grid, for reading at places, with its checksums.
[[nodiscard]] bool open_cache(const std::string& path, const char* suffix, PosFileIn& in);

// Removes the family of a swath; each adds to the counts and returns false if a file could not be removed.
bool delete_LmT_tile(const std::string& path, uint64_t& nfiles, uint64_t& nbytes);
bool delete_LmT_grid(const std::string& path, uint64_t& nfiles, uint64_t& nbytes);
bool delete_LmT_nonessential(const std::string& path, uint64_t& nfiles,
                             uint64_t& nbytes);  // points, temporary tiles
// "Deleted n files, s Mb)" in the log, under a scope named label.
void show_delete_file_list(const std::string& label, uint64_t nfiles, uint64_t nbytes);
}  // namespace veld

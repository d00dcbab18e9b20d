// prj/LiDAR/LmTidx_r/LmTidx_files.h
// Suffixes of the cache files of a swath, the test whether a cache may be reused, and their removal.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "lib/DataStructure/image.h"
#include "lib/general/posfile.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_rec.h"
#include "prj/LiDAR/swath/swath_table.h"

namespace veld {
// Suffixes for CacheName::file.
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

// The stamp by which a changed source of a swath is recognised: the modification time of its file in seconds, for a
// union the stamp of its members as its index has it. -1 when there is none.
int64_t source_tstamp(const CacheName& swath);

// Name of the temporary file of one tile: "<cache>.TT<XI>-<YI>.XYZT".
std::string tile_tmp_name(const CacheName& swath, uint32_t XI, uint32_t YI);

// Per tile of a frame: 32 x 32 microtiles, not 0 where points are dropped; empty for a tile without any.
using DropMap = Image<Image<uint8_t>>;

struct TilingParam {                     // what decides the contents of a tile cache
  std::vector<uint8_t> xcls;             // classes to drop, in a stable order
  std::shared_ptr<const DropMap> Tdrop;  // the drop map; none: nothing is dropped
  TileInfo TIO;                          // its frame; nx = 0 without one
  uint64_t chk = 0;                      // its checksum
  float DTS = 0.2f;                      // largest accepted time deviation, ratio (-dev_max)
  bool syn = false;                      // keep synthetic points (-keep_synthetic)
  bool all = false;                      // keep all returns (-keep_all)
  bool last = true;                      // keep last returns, else first returns (-last)
  bool large = false;                    // up to 1024 tiles along an axis instead of 128 (-large)
  int xlevel = 0;                        // -xlevel
  bool tproc = true;                     // process time stamps
  bool (*grid_ok)(const CacheName& swath, SwathId sw) = nullptr;  // whether the grid of a swath without its
                                                                  // point file is valid; none: never
};

// Log line "xcls drop: " or, with more than 127 classes, "xcls keep: ".
void log_xcls(const std::vector<uint8_t>& xcls);

// Whether the cache of a swath was made from the file as it is now and with these settings. The first
// test that fails is logged; never an error.
bool check_TidxHdr(const CacheName& swath, SwathId sw, const TilingParam& par);

// Whether the cache of a swath is sound, fits, and may be reused: the test above and the checksums of index and
// tables (points: presence and size alone, see points_fault). What is damaged or missing is named in a WARNING.
bool check_tiles(const CacheName& swath, SwathId sw, const TilingParam& par);
// What is wrong with index and tables of a swath, or with the presence and size of its points, whatever they were
// made with. Empty when they are sound; points that were cleared are no fault.
std::string tiles_fault(const CacheName& swath);
// Compares the points of a swath with their checksums. Empty when they are sound, else what is wrong.
std::string points_fault(const CacheName& swath);
// Opens a file of the family of a swath, tiles or grid, for reading at places, with its checksums.
[[nodiscard]] bool open_cache(const CacheName& swath, const char* suffix, PosFileIn& in);

// Removes the family of a swath; each adds to the counts and returns false if a file could not be removed.
bool delete_LmT_tile(const CacheName& swath, uint64_t& nfiles, uint64_t& nbytes);
bool delete_LmT_grid(const CacheName& swath, uint64_t& nfiles, uint64_t& nbytes);
bool delete_LmT_nonessential(const CacheName& swath, uint64_t& nfiles,
                             uint64_t& nbytes);  // points, temporary tiles
// "Deleted n files, s Mb)" in the log, under a scope named label.
void show_delete_file_list(const std::string& label, uint64_t nfiles, uint64_t nbytes);
}  // namespace veld

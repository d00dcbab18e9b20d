// fuzz/fuzz_caches.cpp
// Caches and displacement files without checksums, or with damaged ones: tiles, grids, deformations of pairs, sum
// files, index and records of displacements. The first byte says which; files of a family stand one after the other
// with their lengths (u16) in front.
#include <unistd.h>

#include <cstring>

#include "fuzz/fuzz_file.h"
#include "lib/general/checksum.h"
#include "lib/general/logfiles.h"
#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "prj/LiDAR/TNRreg/reg_cache.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
struct Bytes {
  const uint8_t* at;
  size_t n;
};

// The next file of the family.
Bytes take(Bytes& in) {
  if (in.n < 2) return {in.at, 0};
  uint16_t length;
  std::memcpy(&length, in.at, sizeof length);
  const Bytes part{in.at + 2, std::min<size_t>(length, in.n - 2)};
  in = {part.at + part.n, in.n - 2 - part.n};
  return part;
}

void put(const std::string& name, Bytes bytes) {
  if (FILE* const out = std::fopen(name.c_str(), "wb")) {
    if (bytes.n > 0) std::fwrite(bytes.at, 1, bytes.n, out);
    std::fclose(out);
  }
}

// Every reader of a swath's tiles. Points of up to nine tiles are read.
void read_tiles(const CacheName& swath) {
  SwTiles sw;
  std::vector<std::string> members;
  (void)read_LTidx_uswaths(swath, members);
  if (!read_SwTiles(swath, sw)) return;
  Vector<Image<uint8_t>> mocc, dt, dev;
  Vector<Image<int32_t>> Ct;
  (void)read_LmTidx_tiles_mocc(swath, sw.info.nt, mocc);
  (void)read_sw_t_tiles(swath, sw.info.nt, Ct, dt, dev);
  TileTables tables;
  Image<int32_t> Vt;
  if (tables.open(swath, sw.info.nt, true)) (void)tables.read_Vt(sw.info.nt - 1, Vt);
  Vector<xyz> P;
  uint64_t np, np0;
  for (uint32_t k = 0; k < std::min<uint32_t>(sw.info.nt, 3); k++) {
    Image<uint8_t> all(mTsub, mTsub, 1);
    (void)read_LmT_tile_nn(sw, k, all, 32, P, np, np0);
  }
}

void try_tiles(const CacheName& swath, Bytes in) {
  const char* const suffixes[] = {EXT_TIDX, EXT_MTIDX, EXT_MTZM, EXT_MTDT, EXT_ULIDX, EXT_MTXYZ};
  for (const char* const suffix : suffixes) put(swath.file(suffix), take(in));
  if (in.n > 0) put(swath.file(EXT_MTSUM), in);
  read_tiles(swath);
  for (const char* const suffix : suffixes) unlink(swath.file(suffix).c_str());
  unlink(swath.file(EXT_MTSUM).c_str());
}

void try_grid(const CacheName& swath, Bytes in) {
  const char* const suffixes[] = {EXT_TIDX, EXT_GMTIDX};
  for (const char* const suffix : suffixes) put(swath.file(suffix), take(in));
  put(swath.file(EXT_GMTZDS), in);
  SwGrid grid;
  Image<float> Z;
  Image<uint8_t> S;
  if (read_gZDSidx_tiles_idx(swath, grid) && grid.TI.size() > 0 && grid.hdr.dim <= 16) {
    const int last = static_cast<int>(grid.TI.size()) - 1;
    (void)read_gZ_tile(grid, last, nullptr, {}, Z, &S);
    (void)read_gZ_tile_8nn(grid, grid.TI[0].x, grid.TI[0].y, 8, nullptr, {}, Z, &S);
  }
  for (const char* const suffix : {EXT_TIDX, EXT_GMTIDX, EXT_GMTZDS}) unlink(swath.file(suffix).c_str());
}

void try_pair(const std::string& name, Bytes in) {
  put(name + EXT_RPCD0, take(in));
  put(name + EXT_RPCSUM, in);
  Vector<Image<xyz>> Def(1);
  Def[0].resize(17, 17);  // of one tile, as the seed has it
  (void)read_reg_cache(name + EXT_RPCD0, Def);
  unlink((name + EXT_RPCD0).c_str());
  unlink((name + EXT_RPCSUM).c_str());
}

void try_displacements(const std::string& name, Bytes in) {
  put(name + "_idx.log", take(in));
  put(name + ".dut", in);
  DUTidx idx;
  std::vector<DUTpair> pairs;
  if (read_DUT_IDX(name, idx)) (void)read_DUT(name, idx, pairs);
  unlink((name + "_idx.log").c_str());
  unlink((name + ".dut").c_str());
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t nbytes) {
  if (nbytes < 1) return 0;
  set_console(false);
  const std::string name = fuzz_file(nullptr, 0, ".las");
  TMPDIR = name.substr(0, name.rfind('/') + 1);
  const CacheName swath(name);
  const Bytes in{bytes + 1, nbytes - 1};
  switch (bytes[0] % 5) {
    case 0:
      try_tiles(swath, in);
      break;
    case 1:
      try_grid(swath, in);
      break;
    case 2:
      try_pair(name, in);
      break;
    case 3: {
      std::vector<FileSums> files;
      put(name + ".sum", in);
      (void)read_sum_file(name + ".sum", files);
      unlink((name + ".sum").c_str());
      break;
    }
    default:
      try_displacements(name, in);
  }
  unlink(name.c_str());
  return 0;
}
}  // namespace veld

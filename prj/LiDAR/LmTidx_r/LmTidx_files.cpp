#include "prj/LiDAR/LmTidx_r/LmTidx_files.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "lib/general/family_out.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_internal.h"
#include "prj/LiDAR/LmTidx_r/pin_cache.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
const char* const EXT_TIDX = ".0T.idx";
const char* const EXT_MTIDX = ".mT.idx";
const char* const EXT_MTZM = ".mT.tbl.Zm";
const char* const EXT_MTDT = ".mT.tbl.dT";
const char* const EXT_MTXYZ = ".mT.XYZ";
const char* const EXT_ULIDX = ".UL.idx";
const char* const EXT_MTSUM = ".mT.sum";
const char* const EXT_MTLOCK = ".mT.lock";
const char* const EXT_GMTIDX = ".gmT.idx";
const char* const EXT_GMTZDS = ".gmT.ZDS";
const char* const EXT_GMTSUM = ".gmT.sum";
const char* const EXT_GMTLOCK = ".gmT.lock";

namespace {
bool delete_one(const std::string& name, uint64_t& nfiles, uint64_t& nbytes) {
  const int64_t size = file_size(name);
  if (size < 0) return true;
  if (!remove_file(name)) return false;
  nfiles++;
  nbytes += static_cast<uint64_t>(size);
  return true;
}

template <size_t N>
bool delete_suffixes(const CacheName& swath, const std::array<const char*, N>& suffixes, uint64_t& nfiles,
                     uint64_t& nbytes) {
  bool ok = true;
  for (const char* suffix : suffixes) ok = delete_one(swath.file(suffix), nfiles, nbytes) && ok;
  return ok;
}

bool same_settings(const LTidxHdr& hdr, const LTidxHdr& want) {
  constexpr uint8_t bits = HDR_LARGE | HDR_FEET | HDR_INT_FEET | HDR_SYN | HDR_ALL | HDR_FIRST;
  return (hdr.xlevel & 0x7F) == want.xlevel && hdr.msublevel == mT_SUB_LEVEL &&
         (hdr.flags & bits) == (want.flags & bits);
}

bool check_classes(BufBinFileIn& in, const LTidxHdr& hdr, const std::vector<uint8_t>& xcls) {
  if (hdr.nxcls != xcls.size()) {
    LOG_LINE("<!> XCLS Hdr.nxcls=" << int(hdr.nxcls));
    return false;
  }
  std::vector<uint8_t> classes(xcls.size());
  if (!classes.empty() && !in.read(classes.data(), classes.size())) {
    LOG_LINE("<!> XCLS READ ");
    return false;
  }
  if (classes != xcls) {
    LOG_LINE("<!> XCLS VAL ");
    return false;
  }
  return true;
}

// What the flags of the header cannot say about the units: 0 for metres, international feet, and US survey feet
// (FEET_US) with heights in the same unit.
uint64_t unit_key() {
  constexpr double FEET_US_M = 1200.0 / 3937.0;
  const bool usual = DATAUNIT == 1.0 || DATAUNIT == 0.3048 || DATAUNIT == FEET_US_M;
  if (usual && DATAUNIT_Z == DATAUNIT) return 0;
  return cache_dir_hash(LOG_STR(std::hexfloat << DATAUNIT << ' ' << DATAUNIT_Z));
}

bool check_files(const CacheName& swath, SwathId sw, const TilingParam& par) {
  const bool fIDX = is_regular_file(swath.file(EXT_MTIDX));
  const bool fZ = is_regular_file(swath.file(EXT_MTZM));
  const bool fT = is_regular_file(swath.file(EXT_MTDT));
  const bool fXYZ = is_regular_file(swath.file(EXT_MTXYZ));
  const bool fZDS = !fXYZ && par.grid_ok && par.grid_ok(swath, sw);
  if (fIDX && fZ && (fT || !par.tproc) && (fXYZ || fZDS)) return true;
  LOG_LINE("<!> FILES fIDX=" << fIDX << " fZ=" << fZ << " fT=" << fT << " fXYZ=" << fXYZ << " fZDS=" << fZDS);
  return false;
}
}  // namespace

int64_t source_tstamp(const CacheName& swath) {
  if (!swath.is_union()) return file_mtime(swath.source());
  PosFileIn in(false);
  LTidxHdr hdr;
  return open_cache(swath, EXT_TIDX, in) && in.read(0, &hdr, sizeof hdr) ? hdr.tstamp : -1;
}

std::string tile_tmp_name(const CacheName& swath, uint32_t XI, uint32_t YI) {
  char suffix[48];
  std::snprintf(suffix, sizeof suffix, ".TT%04u-%05u.XYZT", XI, YI);
  return swath.file(suffix);
}

LTidxHdr make_LTidxHdr(const TilingParam& par) {
  LTidxHdr hdr{};
  hdr.magic = TileMagic;
  hdr.stmax = static_cast<uint32_t>(par.DTS * 1000.0f);
  hdr.dtr = static_cast<uint16_t>(DT_RANGE);
  hdr.str = static_cast<uint16_t>(DEV_RANGE * 1000.0f);
  hdr.version = TileVersion;
  const bool dropmap = par.TIO.nx > 0;
  hdr.TIO_XI = dropmap ? par.TIO.XI : 0;
  hdr.TIO_YI = dropmap ? par.TIO.YI : 0;
  hdr.chk = (dropmap ? par.chk : 0) ^ unit_key();
  hdr.msublevel = mT_SUB_LEVEL;
  hdr.nxcls = static_cast<uint8_t>(par.xcls.size());
  hdr.xlevel = static_cast<uint8_t>(par.xlevel);
  hdr.flags = static_cast<uint8_t>((par.last ? 0 : HDR_FIRST) | (par.all ? HDR_ALL : 0) |
                                   (par.large ? HDR_LARGE : 0) | (DATAUNIT != 1.0 ? HDR_FEET : 0) |
                                   (DATAUNIT == 0.3048 ? HDR_INT_FEET : 0) | (par.syn ? HDR_SYN : 0) |
                                   (par.tproc ? HDR_TPROC : 0) | (dropmap ? HDR_DM : 0));
  return hdr;
}

void log_xcls(const std::vector<uint8_t>& xcls) {
  std::array<bool, 256> dropped{};
  for (const uint8_t c : xcls) dropped[c] = true;
  const bool keep = xcls.size() > 127;
  std::string text = keep ? "xcls keep: " : "xcls drop: ";
  if (keep) {
    for (int c = 0; c < 256; c++)
      if (!dropped[static_cast<size_t>(c)]) text += std::to_string(c) + " ";
  } else {
    for (const uint8_t c : xcls) text += std::to_string(c) + " ";
  }
  LOG_LINE(text);
}

bool check_TidxHdr(const CacheName& swath, SwathId sw, const TilingParam& par) {
  LOG_ENTER("check_TidxHdr sw=" << sw << " DM=" << (par.TIO.nx > 0) << " DTS=" << par.DTS
                                << " syn=" << par.syn << " all=" << par.all << " last=" << par.last
                                << " xlevel=" << par.xlevel << " large=" << par.large
                                << " tproc=" << par.tproc);
  log_xcls(par.xcls);
  const std::string idx = swath.file(EXT_TIDX);
  BufBinFileIn in(1024, false);
  LTidxHdr hdr;
  if (file_size(idx) < 0 || !in.open(idx) || !in.read(&hdr, sizeof hdr)) {
    LOG_LINE("<!> no index");
    return false;
  }
  const LTidxHdr want = make_LTidxHdr(par);
  if (hdr.magic != want.magic || hdr.version != want.version) {
    LOG_LINE("<!> MAGIC/VERSION TileMagic=" << TileMagic << " Hdr.magic=" << hdr.magic << " TileVersion="
                                            << TileVersion << " Hdr.version=" << hdr.version);
    return false;
  }
  const int64_t tstamp = file_mtime(swath.source());
  if ((CHECK_SW_TSTAMP && hdr.tstamp != tstamp) || !same_settings(hdr, want)) {
    LOG_LINE("<!> PARAM Hdr.tstamp=" << int64_t(hdr.tstamp) << " tstamp=" << tstamp
                                     << " Hdr.xlevel=" << int(hdr.xlevel & 0x7F)
                                     << " Hdr.large=" << ((hdr.flags & HDR_LARGE) != 0) << " Hdr.msublevel="
                                     << int(hdr.msublevel) << " mT_SUB_LEVEL=" << mT_SUB_LEVEL << " Hdr.feet="
                                     << ((hdr.flags & HDR_FEET) != 0) << " feet=" << (DATAUNIT != 1.0)
                                     << " Hdr.int_feet=" << ((hdr.flags & HDR_INT_FEET) != 0) << " int_feet="
                                     << (DATAUNIT == 0.3048) << " Hdr.syn=" << ((hdr.flags & HDR_SYN) != 0)
                                     << " Hdr.all=" << ((hdr.flags & HDR_ALL) != 0)
                                     << " Hdr.first=" << ((hdr.flags & HDR_FIRST) != 0));
    return false;
  }
  if (par.tproc &&
      (!(hdr.flags & HDR_TPROC) || hdr.stmax != want.stmax || hdr.str != want.str || hdr.dtr != want.dtr)) {
    LOG_LINE("<!> TIME Hdr.tproc=" << ((hdr.flags & HDR_TPROC) != 0) << " Hdr.stmax=" << uint32_t(hdr.stmax)
                                   << " Hdr.str=" << hdr.str << " Hdr.dtr=" << hdr.dtr
                                   << " stmax=" << uint32_t(want.stmax) << " str=" << want.str);
    return false;
  }
  if (!check_classes(in, hdr, par.xcls)) return false;
  if (((hdr.flags ^ want.flags) & HDR_DM) || hdr.TIO_XI != want.TIO_XI || hdr.TIO_YI != want.TIO_YI ||
      hdr.chk != want.chk) {
    LOG_LINE("<!> DROP MAP Hdr.DM=" << ((hdr.flags & HDR_DM) != 0) << " Hdr.TIO.XI=" << uint32_t(hdr.TIO_XI)
                                    << " Hdr.TIO.YI=" << uint32_t(hdr.TIO_YI)
                                    << " Hdr.chk=" << uint64_t(hdr.chk));
    return false;
  }
  return check_files(swath, sw, par);
}

std::string tiles_fault(const CacheName& swath) {
  const std::string base = swath.file("");
  std::vector<FileSums> files;
  const SumState state = read_sum_file(base + EXT_MTSUM, files);
  if (state != SumState::good)
    return (state == SumState::none ? "missing file " : "damaged file ") + base + EXT_MTSUM;
  for (const FileSums& f : files) {
    const bool points = f.suffix == EXT_MTXYZ;
    if (points && file_size(base + f.suffix) < 0) continue;
    const std::string fault = file_fault(base + f.suffix, f.blocks, !points);
    if (!fault.empty()) return fault;
  }
  return "";
}

bool check_tiles(const CacheName& swath, SwathId sw, const TilingParam& par) {
  if (file_size(swath.file(EXT_TIDX)) >= 0)
    if (const std::string fault = tiles_fault(swath); !fault.empty()) {
      WARNING_MSG("damaged tile cache is made anew: " << fault << ", swath " << swath.source());
      return false;
    }
  return check_TidxHdr(swath, sw, par);
}

std::string points_fault(const CacheName& swath) {
  return member_fault(swath.file(""), EXT_MTXYZ, EXT_MTSUM, true);
}

bool open_cache(const CacheName& swath, const char* suffix, PosFileIn& in) {
  const bool grid = suffix == EXT_GMTIDX || suffix == EXT_GMTZDS;
  const char* const sums = grid ? EXT_GMTSUM : EXT_MTSUM;
  return check_pinned(swath, sums) && open_member(swath.file(""), suffix, sums, in);
}

bool delete_LmT_tile(const CacheName& swath, uint64_t& nfiles, uint64_t& nbytes) {
  unpin_cache(swath, EXT_MTSUM);
  bool ok = delete_suffixes(
      swath, std::array{EXT_TIDX, EXT_MTSUM, EXT_ULIDX, EXT_MTIDX, EXT_MTZM, EXT_MTDT, EXT_MTXYZ, ".sidx"},
      nfiles, nbytes);
  const std::string base = change_extension(swath.file(""), "");
  for (const char* part : {"_s_?.laz", "_s_??.laz"}) ok = delete_files(base + part, nfiles, nbytes) && ok;
  return delete_LmT_nonessential(swath, nfiles, nbytes) && ok;
}

bool delete_LmT_grid(const CacheName& swath, uint64_t& nfiles, uint64_t& nbytes) {
  unpin_cache(swath, EXT_GMTSUM);
  return delete_suffixes(swath, std::array{EXT_GMTIDX, EXT_GMTSUM, EXT_GMTZDS}, nfiles, nbytes);
}

bool delete_LmT_nonessential(const CacheName& swath, uint64_t& nfiles, uint64_t& nbytes) {
  const bool ok = delete_suffixes(swath, std::array{EXT_MTXYZ}, nfiles, nbytes);
  return delete_files(swath.file(".TT*.XYZT"), nfiles, nbytes) && ok;
}

void show_delete_file_list(const std::string& label, uint64_t nfiles, uint64_t nbytes) {
  LOG_ENTER(label);
  LOG_LINE("Deleted " << nfiles << " file" << (nfiles == 1 ? "" : "s") << ", "
                      << static_cast<double>(nbytes) * 1e-6 << " Mb)");
}
}  // namespace veld

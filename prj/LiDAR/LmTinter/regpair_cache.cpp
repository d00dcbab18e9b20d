// The cache of registered pairs: under which parameters a deformation may be taken again.
#include <sys/stat.h>

#include <cstdio>

#include "lib/general/binfile.h"
#include "lib/general/family_out.h"
#include "lib/general/hash.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_files.h"
#include "prj/LiDAR/LmTinter/LmTinter_internal.h"
#include "prj/LiDAR/TNRreg/reg_cache.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
struct PathHash {
  uint64_t P, N;  // of the directory, of the file name
};

PathHash hash_path(const CacheName& swath) { return {fnv1a(swath.dir()), fnv1a(swath.name())}; }

// Nanoseconds: two gridding runs within a second must differ.
bool grid_time(const CacheName& swath, uint64_t& tstamp) {
  const std::string gidx = swath.file(EXT_GMTIDX);
  struct stat st;
  if (stat(gidx.c_str(), &st) != 0) {
    ERROR_MSG("timestamp read error, " << gidx);
    return false;
  }
  tstamp =
      static_cast<uint64_t>(st.st_mtim.tv_sec) * 1000000000ull + static_cast<uint64_t>(st.st_mtim.tv_nsec);
  return true;
}
}  // namespace

bool make_regpair_idx(const CacheName& swath1, const CacheName& swath2, const RegLevels& levels,
                      RegpairIdx& idx) {
  idx = RegpairIdx{};
  uint64_t tstamp1 = 0, tstamp2 = 0;
  if (!grid_time(swath1, tstamp1) || !grid_time(swath2, tstamp2)) return false;
  const PathHash hash1 = hash_path(swath1), hash2 = hash_path(swath2);
  idx.tstamp1 = tstamp1;
  idx.tstamp2 = tstamp2;
  idx.P1 = hash1.P;
  idx.N1 = hash1.N;
  idx.P2 = hash2.P;
  idx.N2 = hash2.N;
  idx.js = levels.Jstart;
  idx.je = levels.Jend;
  idx.jreg = J0_REG;
  idx.boost = NR_BOOST;
  idx.smaxf = Z_SMAXF;
  idx.zmin = KEEPZmin;
  idx.zmax = KEEPZmax;
  idx.regsmax = NR_SMAX;
  idx.regs0 = SIGMA0_REG;
  return true;
}

std::string regpair_name(const RegpairIdx& idx) {
  if (!CACHE_REG) return "";
  char text[64];
  std::snprintf(text, sizeof(text), "%08x_%08x-%08x_%08x", static_cast<uint32_t>(idx.P1),
                static_cast<uint32_t>(idx.N1), static_cast<uint32_t>(idx.P2), static_cast<uint32_t>(idx.N2));
  return TMPDIR + text;
}

bool check_regpair_idx(SwathId sw1, SwathId sw2, const RegpairIdx& now) {
  const std::string name = regpair_name(now);
  LOG_ENTER("check_regpair_idx RegCacheVersion=" << RegCacheVersion
                                                 << " mTcacheR=" << (CACHE_REG ? TMPDIR : ""));
  if (name.empty() || file_size(name + EXT_RPCIDX) < 0) return false;
  for (const char* const suffix : {EXT_RPCIDX, EXT_RPCD0})
    if (const std::string fault = member_fault(name, suffix, EXT_RPCSUM, true); !fault.empty()) {
      WARNING_MSG("damaged pair cache is made anew: " << fault << ", swaths " << sw1 << "/" << sw2);
      return false;
    }
  LOG_LINE("sw1=" << sw1 << " sw2=" << sw2 << " pname=" << name);
  LOG_LINE("Jstart=" << now.js << " Jend=" << now.je << " J0_REG=" << now.jreg << " NR_BOOST=" << now.boost
                     << " Z_SMAXF=" << now.smaxf << " KEEPZmin=" << now.zmin << " KEEPZmax=" << now.zmax
                     << " NR_SMAX=" << now.regsmax << " SIGMA0_REG=" << now.regs0);
  BufBinFileIn file(256, false);
  RegpairIdx c;
  if (!file.open(name + EXT_RPCIDX) || !file.read(&c, sizeof(c))) return false;
  if (c.magic != now.magic || c.version != now.version) {
    LOG_LINE("<!> magic=" << c.magic << " version=" << c.version);
    return false;
  }
  if (c.tstamp1 != now.tstamp1 || c.tstamp2 != now.tstamp2) {
    LOG_LINE("<!> grid changed _tstamp1=" << c.tstamp1 << " tstamp1=" << now.tstamp1
                                          << " _tstamp2=" << c.tstamp2 << " tstamp2=" << now.tstamp2);
    return false;
  }
  if (c.P1 != now.P1 || c.N1 != now.N1 || c.P2 != now.P2 || c.N2 != now.N2) {
    LOG_LINE("<!> collision P1=" << now.P1 << " N1=" << now.N1 << " _P1=" << c.P1 << " _N1=" << c.N1 << " P2="
                                 << now.P2 << " N2=" << now.N2 << " _P2=" << c.P2 << " _N2=" << c.N2);
    return false;
  }
  if (c.js != now.js || c.je != now.je || c.jreg != now.jreg || c.boost != now.boost) {
    LOG_LINE("<!> param 1 js=" << c.js << " je=" << c.je << " jreg=" << c.jreg << " boost=" << c.boost);
    return false;
  }
  if (c.smaxf != now.smaxf || c.zmin != now.zmin || c.zmax != now.zmax || c.regsmax != now.regsmax ||
      c.regs0 != now.regs0) {
    LOG_LINE("<!> param 2 Z_SMAXF=" << c.smaxf << " zmin=" << c.zmin << " zmax=" << c.zmax
                                    << " regsmax=" << c.regsmax << " regs0=" << c.regs0);
    return false;
  }
  uint8_t more = 0;
  if (file.read(&more, 1)) return false;
  LOG_LINE("okreg=" << static_cast<int>(c.okreg));
  return c.okreg == 1;
}

bool write_regpair_idx(SwathId sw1, SwathId sw2, const RegpairIdx& now, bool okreg) {
  LOG_ENTER("write_regpair_idx RegCacheVersion=" << RegCacheVersion << " sw1=" << sw1 << " sw2=" << sw2);
  const std::string name = regpair_name(now);
  RegpairIdx idx = now;
  idx.okreg = okreg;
  std::vector<FileSums> sums = {{EXT_RPCIDX, {}}};
  SummedFileOut out(name + EXT_RPCIDX, 256);
  if (!out.open() || !out.write(&idx, sizeof(idx)) || !out.close()) return false;
  sums[0].blocks = out.sums();
  if (okreg) {
    sums.push_back({EXT_RPCD0, {}});
    if (!sum_file_blocks(name + EXT_RPCD0, sums[1].blocks)) return false;
  }
  return publish_sums(name + EXT_RPCSUM, sums) && out.commit();
}
}  // namespace veld

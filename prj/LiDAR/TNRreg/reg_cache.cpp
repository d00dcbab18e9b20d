#include "prj/LiDAR/TNRreg/reg_cache.h"

#include <cmath>

#include "lib/general/binfile.h"
#include "lib/general/family_out.h"
#include "lib/general/log.h"
#include "lib/general/result_file.h"

namespace veld {
static_assert(sizeof(xyz) == 12, "the cache holds three floats a vertex");

bool read_reg_cache(const std::string& path, Vector<Image<xyz>>& Def) {
  uint64_t bytes = 0;
  for (const Image<xyz>& D : Def) bytes += D.size() * sizeof(xyz);
  const std::string base = path.ends_with(EXT_RPCD0) ? path.substr(0, path.rfind(EXT_RPCD0)) : "";
  PosFileIn in(false);
  if (!(base.empty() ? in.open(path) : open_member(base, EXT_RPCD0, EXT_RPCSUM, in)) || in.size() != bytes)
    return false;
  PosReader file(in);
  for (Image<xyz>& D : Def) {
    if (!file.read(D.val, D.size() * sizeof(xyz))) return false;
    for (uint64_t k = 0; k < D.size(); k++) {
      const xyz& v = D[k];
      constexpr float FAR = 100000.0f;  // beyond any displacement; also refuses what is not a number
      if (!(std::fabs(v.x) < FAR && std::fabs(v.y) < FAR && std::fabs(v.z) < FAR)) return false;
    }
  }
  LOG_LINE("read_reg_cache -> " << path);
  return true;
}

bool write_reg_cache(const std::string& path, const Vector<Image<xyz>>& Def) {
  ResultFile result;
  result.begin_own(path);
  BufBinFileOut file(BULK_BUFFER);
  bool ok = file.open(result.part(), 0);
  for (uint64_t t = 0; t < Def.size() && ok; t++) ok = file.write(Def[t].val, Def[t].size() * sizeof(xyz));
  ok = file.close() && ok;
  if (!ok || !result.commit()) return false;
  LOG_LINE("write_reg_cache -> " << path);
  return true;
}
}  // namespace veld

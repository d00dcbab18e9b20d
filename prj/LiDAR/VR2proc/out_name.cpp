#include "prj/LiDAR/VR2proc/out_name.h"

#include <map>

#include "lib/general/path.h"

namespace veld {
std::vector<std::string> comp_output_names(const OutputName& out, const std::string& odir, const Project& prj,
                                           const std::vector<SwathId>& swc, int& ndup) {
  const auto stem_of = [&](SwathId sw) {
    return out.prefix + change_extension(base_name(prj.swaths[sw].path()), "") + out.suffix;
  };
  const auto ext_of = [&](SwathId sw) {
    return out.ext.empty() ? get_extension(prj.swaths[sw].path()) : out.ext;
  };
  std::map<std::string, int> count;
  for (const SwathId sw : swc) count[stem_of(sw) + ext_of(sw)]++;
  ndup = 0;
  std::vector<std::string> names;
  for (const SwathId sw : swc) {
    std::string stem = stem_of(sw);
    if (count[stem + ext_of(sw)] > 1) {
      stem += "_g_" + std::to_string(prj.swaths[sw].group) + "_sw_" + to_string(sw);
      ndup++;
    }
    names.push_back(odir + stem + ext_of(sw));
  }
  return names;
}
}  // namespace veld

#include "prj/LiDAR/run/dut_inputs.h"

#include <algorithm>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/run/dut_swaths.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
bool find_DUT(const std::string& arg, const PathRules& rules, std::string& dut) {
  const std::string stem = DUT_base(arg);
  const std::string plain = complete_path(stem, rules);
  for (const std::string& base : {plain, add_input_directory(stem, OUTDIR)})
    if (is_regular_file(base + "_idx.log")) {
      dut = base;
      return true;
    }
  ERROR_MSG("could not find file " << plain << "_idx.log");
  return false;
}

bool take_DUT_inputs(const std::string& dut, InputArgs& in, std::vector<int>& chgrp) {
  LOG_ENTER("take_DUT_inputs '" << dut << "'");
  DUTidx idx;
  if (!read_DUT_IDX(dut, idx)) return false;
  std::vector<int> channels;
  GroupArg fixed;
  int nsw = 0;
  for (const DUTswath& s : idx.swaths) {
    if (is_union_line(s)) {
      ERROR_MSG("displacement file " << dut << ".dut has united references: give the swaths (-i, -r)");
      return false;
    }
    if (!s.present()) continue;
    // The index has the paths complete; behind an input directory they would get it twice.
    nsw++;
    const std::string path = in.rules.idir.empty() ? s.path : real_path(s.path);
    if (s.fixed) {
      fixed.args.push_back(path);
      continue;
    }
    const size_t ngroup = std::max(in.mobile.size(), static_cast<size_t>(s.group));
    in.mobile.resize(ngroup);
    channels.resize(ngroup, 0);
    in.mobile[static_cast<size_t>(s.group) - 1].args.push_back(path);
    channels[static_cast<size_t>(s.group) - 1] = s.ch;
  }
  if (!fixed.args.empty()) in.fixed.push_back(fixed);
  if (chgrp.empty() && std::any_of(channels.begin(), channels.end(), [](int ch) { return ch > 0; }))
    chgrp = channels;
  LOG_MSG("Swaths are those of displacement file " << dut << ".dut: " << nsw);
  return true;
}
}  // namespace veld

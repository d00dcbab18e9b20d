#include "prj/LiDAR/run/cleanup.h"

#include "lib/general/path.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_files.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
struct Group {             // files of one kind
  bool xyz;                // with -clear_xyz, else with -clear_tmp
  const char* label;       // scope in the log
  const char* pattern[9];  // behind the temporary directory, up to the first null
};
const Group GROUPS[] = {
    {true,
     "delete_LmT_tile",
     {"*.0T.idx", "*.mT.idx", "*.mT.tbl.Zm", "*.mT.tbl.dT", "*.mT.XYZ", "*_s_?.laz", "*_s_??.laz", "*.sidx",
      "*.mT.sum"}},
    {false, "delete_LmT_grid", {"*.gmT.idx", "*.gmT.ZDS", "*.gmT.sum"}},
    {false, "delete_mT_reg", {"*.rpc.d0", "*.rpc.idx", "*.rpc.sum"}},
    {false, "delete_VT_grid", {"*.VG3mT.idx", "*.VG3mT.cgd"}},
    {false, "delete_LmT_nonessential", {"*.XYZT", "*.UL.idx", "*.poc", "*.poc.sum"}},
};
}  // namespace

void cleanup(const Options& o) {
  for (const Group& group : GROUPS) {
    if (!(group.xyz ? o.clear_xyz : o.clear_tmp)) continue;
    uint64_t nfiles = 0, nbytes = 0;
    for (const char* const pattern : group.pattern)
      if (pattern) delete_files(TMPDIR + pattern, nfiles, nbytes);
    show_delete_file_list(group.label, nfiles, nbytes);
  }
}
}  // namespace veld

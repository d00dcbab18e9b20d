#include "prj/LiDAR/inputs/tag_tree.h"

#include "lib/general/log.h"
#include "prj/LiDAR/inputs/tag_tree_internal.h"

namespace veld {
bool get_tag_tree_input(const std::vector<std::string>& taglist, InputArgs& in, Options& o) {
  LOG_ENTER("get_tag_tree_input tagopt.size()=" << taglist.size());
  LOG_MSG("Parsing tagged input parameter file, " << taglist.size() << " option lines");
  TagTree tree{in.rules, {}, {}, {}, {}, {}};
  bool ok = read_tag_tree(taglist, tree);
  for (const std::string& file : tree.fixed.name)
    if (tree.mobile.contains(file)) {
      ERROR_MSG("duplicate files, some references are also inputs");
      ok = false;
      break;
    }
  if (!ok || !fill_tag_tree(tree, in, o)) return false;
  log_tag_tree(tree, in);
  return true;
}
}  // namespace veld

// fuzz/fuzz_tags.cpp
// Trees of tags: single tag lines, and whole tagged files down to the lists of a project.
#include <unistd.h>

#include "fuzz/fuzz_file.h"
#include "lib/general/logfiles.h"
#include "lib/optparser/opttags.h"
#include "prj/LiDAR/inputs/tag_tree.h"

namespace veld {
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t nbytes) {
  set_console(false);
  const std::string text(bytes, bytes + nbytes);
  TagLine tag;
  if (ParseTagLine(text.substr(0, text.find('\n')), tag)) (void)tag.find("ch");

  // A file that the tree may name, and no other.
  const std::string swath = fuzz_file(bytes, 0, "_a.las");
  const std::string name = fuzz_file(bytes, nbytes, ".tags.xml");
  InputArgs in;
  in.rules.idir = swath.substr(0, swath.size() - 5);  // so that "a.las" is that file
  in.rules.refdir = "/nowhere";
  Options o;
  OptParser p;
  std::vector<std::string> tokens;
  if (AddFileOpt(p, name, {"map", "bore", "input", "po", "ref"}, tokens))
    (void)get_tag_tree_input(p.taglist, in, o);
  unlink(name.c_str());
  unlink(swath.c_str());
  return 0;
}
}  // namespace veld

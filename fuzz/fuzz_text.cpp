// fuzz/fuzz_text.cpp
// Text files of points; the first line is the pattern of the columns.
#include <unistd.h>

#include <algorithm>

#include "fuzz/fuzz_file.h"
#include "las/lasreader.h"

namespace veld {
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t nbytes) {
  const uint8_t* end = std::find(bytes, bytes + nbytes, uint8_t('\n'));
  const std::string parse(bytes, end);
  const size_t used = std::min(nbytes, parse.size() + 1);
  const std::string name = fuzz_file(bytes + used, nbytes - used, ".txt");
  LASreadOpener opener;
  opener.set_file_name(name);
  opener.set_parse_string(parse);
  if (auto reader = opener.open())
    while (reader->read_point()) {
    }
  unlink(name.c_str());
  return 0;
}
}  // namespace veld

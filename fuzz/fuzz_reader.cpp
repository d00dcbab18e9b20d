// fuzz/fuzz_reader.cpp
// Whole files through the reader: LAS and LAZ, with table, without, damaged. Stops after a million points,
// for an honest header may announce any number of them.
#include <unistd.h>

#include "fuzz/fuzz_file.h"
#include "las/lasindex.h"
#include "las/lasreader.h"

namespace veld {
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t nbytes) {
  const std::string name = fuzz_file(bytes, nbytes, ".laz");
  LASreadOpener opener;
  opener.set_file_name(name);
  if (auto reader = opener.open()) {
    uint64_t n = 1, sum = 0;
    while (sum < 1000000 && reader->read_block(n) != nullptr) sum += n;
    if (reader->seek(sum / 2)) reader->read_point();
  }
  LASindex().read(name) ? void() : void();  // the one at the end of the file
  unlink(name.c_str());
  return 0;
}
}  // namespace veld

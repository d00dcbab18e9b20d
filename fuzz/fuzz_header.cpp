// fuzz/fuzz_header.cpp
// Header, VLRs and EVLRs: read, made fit for writing, and laid out again.
#include <unistd.h>

#include "fuzz/fuzz_file.h"
#include "las/lasheader_io.h"

namespace veld {
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t nbytes) {
  const std::string name = fuzz_file(bytes, nbytes, ".las");
  {
    LasInFile file;
    LASheader header;
    LasFileInfo info;
    std::string error;
    if (file.open(name, error) && read_las_header(file, header, info, error) && info.sound &&
        prepare_las_header(header, info.has_scheme ? &info.scheme : nullptr, error)) {
      las_header_bytes(header, info.has_scheme, 0);
      las_vlr_bytes(header, info.has_scheme ? &info.scheme : nullptr);
    }
  }
  unlink(name.c_str());
  return 0;
}
}  // namespace veld

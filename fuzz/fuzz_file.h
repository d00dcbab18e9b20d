// fuzz/fuzz_file.h
// Input of a harness as a file, because readers open files.
#pragma once
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace veld {
// Writes the bytes under one name per process, in memory where the system has a place for that.
inline std::string fuzz_file(const uint8_t* bytes, size_t nbytes, const char* suffix) {
  static const std::string base =
      std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + "/fuzz_" + std::to_string(getpid());
  const std::string name = base + suffix;
  if (FILE* out = std::fopen(name.c_str(), "wb")) {
    if (nbytes > 0) std::fwrite(bytes, 1, nbytes, out);
    std::fclose(out);
  }
  return name;
}
}  // namespace veld

// lib/general/checksum.h
// Checksums of the program's own binary files: 64 bits for each block of 4096 bytes, kept in a file beside them.
// Here:     sums of blocks, the file that holds them, the comparison of a whole file with them.
// Not here: reading at given places with verification (posfile.h), writing (family_out.h).
//
// A sum file holds the sums of all files of a family, so that files of two families are never taken together:
// u32 magic, u32 version, u32 bytes of a block, u32 number of files; per file its suffix (16 bytes, filled with
// zeros), u64 size, u64 checksum of its sums; u64 checksum of all that stands before it; then per file a u64 for
// each of its blocks. Little-endian.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace veld {
constexpr uint64_t SUM_BLOCK = 4096;  // bytes of a file that share a sum

uint64_t checksum64(const void* data, uint64_t n);  // XXH3

struct BlockSums {             // of one file
  uint64_t size = 0;           // bytes of the file
  std::vector<uint64_t> sums;  // one a block, the last of what is left
};

// Sums bytes in the order in which they are written.
class BlockSummer {
 public:
  void add(const void* data, uint64_t n);
  BlockSums finish();  // starts anew

 private:
  BlockSums done_;
  uint64_t fill_ = 0;  // bytes of the block that is not full yet
  char block_[SUM_BLOCK];
};

struct FileSums {
  std::string suffix;  // behind the name of the family, 15 characters at most
  BlockSums blocks;
};

enum class SumState {
  none,  // no sum file
  good,
  damaged  // unreadable, or does not match its own sums
};

// Writes a sum file under this very name. False after an ERROR line.
[[nodiscard]] bool write_sum_file(const std::string& name, const std::vector<FileSums>& files);
// Reads the sums of all files of a family, or of one of them (damaged when it is not among them). Sizes are
// compared with that of the sum file before memory is taken.
[[nodiscard]] SumState read_sum_file(const std::string& name, std::vector<FileSums>& files);
[[nodiscard]] SumState read_sum_file(const std::string& name, const std::string& suffix, BlockSums& blocks);

// The sums of a file as it stands, which its writer has just closed. False after an ERROR line.
[[nodiscard]] bool sum_file_blocks(const std::string& name, BlockSums& blocks);

// Compares a file with its sums, block after block, or (whole off) its size only. Empty when it is sound, else
// what is wrong with it, with its name.
std::string file_fault(const std::string& name, const BlockSums& blocks, bool whole);
}  // namespace veld

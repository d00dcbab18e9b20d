#include "lib/general/checksum.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <algorithm>
#include <cstring>

#include "lib/general/binfile.h"
#include "lib/general/path.h"
#include "lib/general/posfile.h"

namespace veld {
namespace {
constexpr uint32_t SUM_MAGIC = 0x4D555356;  // "VSUM"
constexpr uint32_t SUM_VERSION = 1;
constexpr uint32_t MAX_FILES = 16;

struct SumHead {
  uint32_t magic = SUM_MAGIC;
  uint32_t version = SUM_VERSION;
  uint32_t block = SUM_BLOCK;
  uint32_t nfiles = 0;
};
struct SumEntry {
  char suffix[16] = {};
  uint64_t size = 0;
  uint64_t sums = 0;  // checksum of the file's sums
};
static_assert(sizeof(SumHead) == 16 && sizeof(SumEntry) == 32);

uint64_t count_blocks(uint64_t size) { return size / SUM_BLOCK + (size % SUM_BLOCK != 0); }

// The head and the entries; places: where in the file the sums of each begin. bytes: of the whole file.
SumState read_entries(PosFileIn& in, std::vector<SumEntry>& entries, std::vector<uint64_t>& places) {
  SumHead head;
  if (in.size() < sizeof head || !in.read(0, &head, sizeof head)) return SumState::damaged;
  if (head.magic != SUM_MAGIC || head.version != SUM_VERSION || head.block != SUM_BLOCK ||
      head.nfiles > MAX_FILES)
    return SumState::damaged;
  const uint64_t bytes = sizeof head + head.nfiles * sizeof(SumEntry);
  std::vector<char> text(bytes);
  uint64_t sum = 0;
  if (in.size() < bytes + sizeof sum || !in.read(0, text.data(), bytes) ||
      !in.read(bytes, &sum, sizeof sum) || checksum64(text.data(), bytes) != sum)
    return SumState::damaged;
  entries.resize(head.nfiles);
  if (head.nfiles > 0) std::memcpy(entries.data(), text.data() + sizeof head, bytes - sizeof head);
  uint64_t at = bytes + sizeof sum;
  for (SumEntry& e : entries) {
    e.suffix[sizeof e.suffix - 1] = '\0';
    if (e.size / SUM_BLOCK > in.size() / sizeof(uint64_t)) return SumState::damaged;
    places.push_back(at);
    at += count_blocks(e.size) * sizeof(uint64_t);
  }
  return at == in.size() ? SumState::good : SumState::damaged;
}

SumState read_sums(const PosFileIn& in, const SumEntry& e, uint64_t at, BlockSums& blocks) {
  blocks.size = e.size;
  blocks.sums.resize(count_blocks(e.size));
  const uint64_t bytes = blocks.sums.size() * sizeof(uint64_t);
  const bool good = in.read(at, blocks.sums.data(), bytes) && checksum64(blocks.sums.data(), bytes) == e.sums;
  return good ? SumState::good : SumState::damaged;
}
}  // namespace

uint64_t checksum64(const void* data, uint64_t n) { return XXH3_64bits(data, n); }

void BlockSummer::add(const void* data, uint64_t n) {
  const char* from = static_cast<const char*>(data);
  done_.size += n;
  while (n > 0) {
    if (fill_ == 0 && n >= SUM_BLOCK) {  // whole blocks need no copy
      done_.sums.push_back(checksum64(from, SUM_BLOCK));
      from += SUM_BLOCK;
      n -= SUM_BLOCK;
      continue;
    }
    const uint64_t part = std::min(n, SUM_BLOCK - fill_);
    std::memcpy(block_ + fill_, from, part);
    fill_ += part;
    from += part;
    n -= part;
    if (fill_ < SUM_BLOCK) return;
    done_.sums.push_back(checksum64(block_, SUM_BLOCK));
    fill_ = 0;
  }
}

BlockSums BlockSummer::finish() {
  if (fill_ > 0) done_.sums.push_back(checksum64(block_, fill_));
  fill_ = 0;
  BlockSums blocks;
  std::swap(blocks, done_);
  return blocks;
}

bool write_sum_file(const std::string& name, const std::vector<FileSums>& files) {
  SumHead head;
  head.nfiles = static_cast<uint32_t>(files.size());
  std::vector<SumEntry> entries(files.size());
  for (size_t i = 0; i < files.size(); i++) {
    const std::vector<uint64_t>& sums = files[i].blocks.sums;
    files[i].suffix.copy(entries[i].suffix, sizeof entries[i].suffix - 1);
    entries[i].size = files[i].blocks.size;
    entries[i].sums = checksum64(sums.data(), sums.size() * sizeof(uint64_t));
  }
  std::vector<char> text(sizeof head + entries.size() * sizeof(SumEntry));
  std::memcpy(text.data(), &head, sizeof head);
  if (!entries.empty())
    std::memcpy(text.data() + sizeof head, entries.data(), entries.size() * sizeof(SumEntry));
  const uint64_t sum = checksum64(text.data(), text.size());
  BufBinFileOut out(BULK_BUFFER);
  bool ok = out.open(name, 0) && out.write(text.data(), text.size()) && out.write(&sum, sizeof sum);
  for (size_t i = 0; i < files.size() && ok; i++)
    ok = out.write(files[i].blocks.sums.data(), files[i].blocks.sums.size() * sizeof(uint64_t));
  return ok && out.close();
}

SumState read_sum_file(const std::string& name, std::vector<FileSums>& files) {
  files.clear();
  PosFileIn in(false);
  if (file_mode(name) < 0) return SumState::none;
  std::vector<SumEntry> entries;
  std::vector<uint64_t> places;
  if (!in.open(name) || read_entries(in, entries, places) != SumState::good) return SumState::damaged;
  for (size_t i = 0; i < entries.size(); i++) {
    files.push_back({entries[i].suffix, {}});
    if (read_sums(in, entries[i], places[i], files.back().blocks) != SumState::good) return SumState::damaged;
  }
  return SumState::good;
}

SumState read_sum_file(const std::string& name, const std::string& suffix, BlockSums& blocks) {
  PosFileIn in(false);
  if (file_mode(name) < 0) return SumState::none;
  std::vector<SumEntry> entries;
  std::vector<uint64_t> places;
  if (!in.open(name) || read_entries(in, entries, places) != SumState::good) return SumState::damaged;
  for (size_t i = 0; i < entries.size(); i++)
    if (suffix == entries[i].suffix) return read_sums(in, entries[i], places[i], blocks);
  return SumState::damaged;
}

bool sum_file_blocks(const std::string& name, BlockSums& blocks) {
  PosFileIn in;
  if (!in.open(name)) return false;
  BlockSummer summer;
  std::vector<char> buffer(std::min<uint64_t>(in.size(), 256 * SUM_BLOCK));
  for (uint64_t at = 0; at < in.size(); at += buffer.size()) {
    const uint64_t n = std::min<uint64_t>(buffer.size(), in.size() - at);
    if (!in.read(at, buffer.data(), n)) return false;
    summer.add(buffer.data(), n);
  }
  blocks = summer.finish();
  return true;
}

std::string file_fault(const std::string& name, const BlockSums& blocks, bool whole) {
  const int64_t size = file_size(name);
  if (size < 0) return "missing file " + name;
  if (static_cast<uint64_t>(size) != blocks.size)
    return "file of " + std::to_string(size) + " bytes instead of " + std::to_string(blocks.size) + ", " +
           name;
  PosFileIn in(false);
  if (!in.open(name, BlockSums{blocks})) return "unreadable file " + name;
  if (!whole) return "";
  std::vector<char> buffer(std::min<uint64_t>(blocks.size, 256 * SUM_BLOCK));
  for (uint64_t at = 0; at < blocks.size; at += buffer.size())
    if (!in.read(at, buffer.data(), std::min<uint64_t>(buffer.size(), blocks.size - at))) return in.fault();
  return "";
}
}  // namespace veld

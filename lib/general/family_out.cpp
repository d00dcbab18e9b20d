#include "lib/general/family_out.h"

#include "lib/general/log.h"
#include "lib/general/path.h"

namespace veld {
SummedFileOut* FamilyOut::create(const char* suffix, uint64_t bsize) {
  suffixes_.push_back(suffix);
  files_.push_back(std::make_unique<SummedFileOut>(base_ + suffix, bsize));
  return files_.back()->open() ? files_.back().get() : nullptr;
}

bool FamilyOut::publish() {
  std::vector<FileSums> list;
  for (size_t i = 0; i < files_.size(); i++) {
    if (!files_[i]->close()) return false;
    list.push_back({suffixes_[i], files_[i]->sums()});
  }
  ResultFile sum_file;
  sum_file.begin_own(base_ + sums_);
  if (!write_sum_file(sum_file.part(), list)) return false;
  for (const std::string& name : {base_ + index_, base_ + sums_})
    if (file_mode(name) >= 0 && !remove_file(name)) LOG_LINE("<!> FAILED TO DELETE " << name);
  for (size_t i = 0; i < files_.size(); i++)
    if (suffixes_[i] != index_ && !files_[i]->commit()) return false;
  if (!sum_file.commit()) return false;
  for (size_t i = 0; i < files_.size(); i++)
    if (suffixes_[i] == index_ && !files_[i]->commit()) return false;
  return true;
}

uint64_t family_id(const std::string& sum_name) {
  std::vector<FileSums> files;
  if (read_sum_file(sum_name, files) != SumState::good) return 0;
  std::string text;
  for (const FileSums& f : files) {
    const std::vector<uint64_t>& sums = f.blocks.sums;
    text += f.suffix + " " + std::to_string(f.blocks.size) + " " +
            std::to_string(checksum64(sums.data(), sums.size() * sizeof(uint64_t))) + "\n";
  }
  return checksum64(text.data(), text.size());
}

bool publish_sums(const std::string& name, const std::vector<FileSums>& files) {
  ResultFile result;
  result.begin_own(name);
  return write_sum_file(result.part(), files) && result.commit();
}

std::string member_fault(const std::string& base, const std::string& suffix, const std::string& sums,
                         bool whole) {
  BlockSums blocks;
  const SumState state = read_sum_file(base + sums, suffix, blocks);
  if (state == SumState::none) return "missing file " + base + sums;
  if (state == SumState::damaged) return "damaged file " + base + sums;
  return file_fault(base + suffix, blocks, whole);
}

bool open_member(const std::string& base, const std::string& suffix, const std::string& sums, PosFileIn& in) {
  BlockSums blocks;
  const SumState state = read_sum_file(base + sums, suffix, blocks);
  if (state == SumState::none) return in.open(base + suffix);
  if (state == SumState::good) return in.open(base + suffix, std::move(blocks));
  return in.refuse(base + suffix, "its checksums are damaged, file " + base + sums);
}
}  // namespace veld

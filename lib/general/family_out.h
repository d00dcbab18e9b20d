// lib/general/family_out.h
// A family of files under construction: written under names of this process, with their checksums, and given
// their names together, the index last. So a family is whole or not there, whoever writes it and ends when.
#pragma once
#include <memory>
#include <string>
#include <vector>

#include "lib/general/binfile.h"
#include "lib/general/checksum.h"
#include "lib/general/posfile.h"
#include "lib/general/result_file.h"

namespace veld {
class SummedFileOut {
 public:
  SummedFileOut(const std::string& name, uint64_t bsize) : out_(bsize) { result_.begin_own(name); }
  [[nodiscard]] bool open() { return out_.open(result_.part(), 0); }
  // False after an ERROR line.
  [[nodiscard]] bool write(const void* src, uint64_t n) {
    summer_.add(src, n);
    return out_.write(src, n);
  }
  [[nodiscard]] bool close() { return out_.close(); }
  BlockSums sums() { return summer_.finish(); }  // of all that was written; once
  [[nodiscard]] bool commit() { return result_.commit(); }
  const std::string& part() const { return result_.part(); }

 private:
  ResultFile result_;  // outlives the stream, whose end writes what it still holds
  BufBinFileOut out_;
  BlockSummer summer_;
};

class FamilyOut {
 public:
  // base: what the names of all members begin with. index: suffix of the member without which the others are
  // nothing; sums: suffix of the file of checksums.
  FamilyOut(const std::string& base, const char* index, const char* sums)
      : base_(base), index_(index), sums_(sums) {}
  // Begins a member. Null after an ERROR line. What is not published is removed at the end.
  SummedFileOut* create(const char* suffix, uint64_t bsize);
  // Gives all members their names; an older family is gone before the first of them has its. False after an
  // ERROR line.
  [[nodiscard]] bool publish();

 private:
  std::string base_, index_, sums_;
  std::vector<std::string> suffixes_;
  std::vector<std::unique_ptr<SummedFileOut>> files_;
};

// What tells a family from any other of its name: a sum over the checksums and sizes of all its files. 0 without.
uint64_t family_id(const std::string& sum_name);

// Writes the checksums of files that have their names already. False after an ERROR line.
[[nodiscard]] bool publish_sums(const std::string& name, const std::vector<FileSums>& files);

// What is wrong with a file of a family according to its checksums (whole off: only its presence and size are
// looked at); empty when it is sound.
std::string member_fault(const std::string& base, const std::string& suffix, const std::string& sums,
                         bool whole);
// Opens a member for reading at places. A family without checksums is read as it is. False when it is missing or
// does not fit.
[[nodiscard]] bool open_member(const std::string& base, const std::string& suffix, const std::string& sums,
                               PosFileIn& in);
}  // namespace veld

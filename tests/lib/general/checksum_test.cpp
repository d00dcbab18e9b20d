// Checksums of blocks: what they find, at which places, and what their own file withstands.
#include "lib/general/checksum.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "lib/general/family_out.h"
#include "tests/lib/general/log_capture.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
std::string random_bytes(std::mt19937& random, size_t n) {
  std::string bytes(n, '\0');
  for (char& c : bytes) c = static_cast<char>(random());
  return bytes;
}

// A family of two files under dir/f; the summed writer gets its bytes in uneven pieces.
void write_family(const TempDir& dir, const std::string& first, const std::string& second) {
  FamilyOut family(dir.path + "/f", ".idx", ".sum");
  for (const auto& [suffix, bytes] : {std::pair{".idx", first}, std::pair{".dat", second}}) {
    SummedFileOut* const out = family.create(suffix, 1000);
    ASSERT_TRUE(out);
    for (size_t at = 0, n = 1; at < bytes.size(); at += n, n = n * 3 % 7919)
      ASSERT_TRUE(out->write(bytes.data() + at, std::min(n, bytes.size() - at)));
  }
  ASSERT_TRUE(family.publish());
}

std::string fault(const TempDir& dir, const char* suffix, bool whole) {
  return member_fault(dir.path + "/f", suffix, ".sum", whole);
}
}  // namespace

TEST(Checksum, PartialReadsAreRightAndSeeEachFlippedBitThatTheirBlocksHold) {
  std::mt19937 random(5);
  for (const size_t size : {0, 1, 4095, 4096, 4097, 300000}) {
    SCOPED_TRACE(size);
    const TempDir dir;
    const std::string bytes = random_bytes(random, size);
    write_family(dir, "index", bytes);
    const std::string name = dir.path + "/f.dat";
    EXPECT_EQ(read_text(name), bytes);
    EXPECT_EQ(fault(dir, ".dat", true), "");
    const size_t flipped = size == 0 ? 0 : random() % size;
    for (int i = 0; i < 400 && size > 0; i++) {
      if (i == 200) {
        std::string damaged = bytes;
        damaged[flipped] = static_cast<char>(damaged[flipped] ^ (1 << random() % 8));
        write_text(name, damaged);
        EXPECT_TRUE(holds(fault(dir, ".dat", true), "does not match its checksum, file " + name));
        EXPECT_EQ(fault(dir, ".dat", false), "");
      }
      PosFileIn in(false);
      ASSERT_TRUE(open_member(dir.path + "/f", ".dat", ".sum", in));
      const size_t at = random() % size, n = 1 + random() % (size - at);
      std::string got(n, '\0');
      const bool touched =
          flipped / SUM_BLOCK >= at / SUM_BLOCK && flipped / SUM_BLOCK <= (at + n - 1) / SUM_BLOCK;
      ASSERT_EQ(in.read(at, got.data(), n), i < 200 || !touched) << at << " " << n;
      if (i < 200) {
        ASSERT_EQ(got, bytes.substr(at, n));
      }
      EXPECT_FALSE(in.read(at, got.data(), size - at + 1));
    }
  }
}

TEST(Checksum, EveryByteOfTheSumFileCounts) {
  std::mt19937 random(6);
  const TempDir dir;
  write_family(dir, "index", random_bytes(random, 9000));
  const std::string sums = dir.path + "/f.sum", whole = read_text(sums);
  std::vector<FileSums> files;
  ASSERT_EQ(read_sum_file(sums, files), SumState::good);
  for (size_t i = 0; i < whole.size(); i++) {
    std::string damaged = whole;
    damaged[i] = static_cast<char>(damaged[i] ^ (1 << random() % 8));
    write_text(sums, damaged);
    EXPECT_EQ(read_sum_file(sums, files), SumState::damaged) << "byte " << i;
    write_text(sums, whole.substr(0, i));
    EXPECT_EQ(read_sum_file(sums, files), SumState::damaged) << "cut at " << i;
  }
  write_text(sums, whole + "x");
  EXPECT_EQ(read_sum_file(sums, files), SumState::damaged);
  std::filesystem::remove(sums);
  EXPECT_EQ(read_sum_file(sums, files), SumState::none);
  EXPECT_NE(fault(dir, ".dat", false), "");
  PosFileIn in(false);
  EXPECT_TRUE(open_member(dir.path + "/f", ".dat", ".sum", in)) << "files without checksums can be read";
}

TEST(Checksum, AFamilyIsPublishedAsAWholeOrNotAtAll) {
  const TempDir dir;
  write_family(dir, "old", "older");
  {
    FamilyOut family(dir.path + "/f", ".idx", ".sum");
    SummedFileOut* const out = family.create(".dat", 10);
    ASSERT_TRUE(out && out->write("newer and longer", 16));
    EXPECT_TRUE(exists(out->part()));
  }
  EXPECT_EQ(read_text(dir.path + "/f.idx") + read_text(dir.path + "/f.dat"), "oldolder");
  EXPECT_EQ(fault(dir, ".dat", true), "");
  write_text(dir.path + "/f.dat", "other");  // of another family, of the same size
  EXPECT_NE(fault(dir, ".dat", true), "");
  int n = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir.path)) n += entry.is_regular_file();
  EXPECT_EQ(n, 3);
}
}  // namespace veld

#include "lib/general/binfile.h"

#include <gtest/gtest.h>

#include "lib/general/txtfile.h"
#include "tests/lib/general/log_capture.h"

namespace veld {
namespace {
std::string bytes(size_t n) {
  std::string s(n, '\0');
  for (size_t i = 0; i < n; i++) s[i] = static_cast<char>(i * 31 + i / 256);
  return s;
}
}  // namespace

// Pieces below, at and above the buffer's size come back as they went in.
TEST(BinFile, WhatIsWrittenIsRead) {
  TempDir dir;
  const std::string data = bytes(5000);
  for (const uint64_t bsize : {0u, 1u, 7u, 64u, 8192u})
    for (const size_t step : {1u, 5u, 7u, 8u, 64u, 1000u}) {
      SCOPED_TRACE("bsize=" + std::to_string(bsize) + " step=" + std::to_string(step));
      const std::string path = dir.path + "/f";
      BufBinFileOut out(bsize);
      ASSERT_TRUE(out.open(path, 0));
      for (size_t i = 0; i < data.size(); i += step)
        ASSERT_TRUE(out.write(data.data() + i, std::min(step, data.size() - i)));
      ASSERT_TRUE(out.close());
      EXPECT_EQ(read_text(path), data);

      BufBinFileIn in(bsize);
      ASSERT_TRUE(in.open(path));
      EXPECT_EQ(in.get_size(), 5000);
      std::string back(data.size(), '\0');
      for (size_t i = 0; i < data.size(); i += step)
        ASSERT_TRUE(in.read(back.data() + i, std::min(step, data.size() - i)));
      EXPECT_EQ(back, data);
      char more;
      EXPECT_FALSE(in.read(&more, 1));
      ASSERT_TRUE(in.seek(4999));
      ASSERT_TRUE(in.read(&more, 1));
      EXPECT_EQ(more, data[4999]);
    }
}

TEST(BinFile, CreateEmptiesAppendGoesOnAndNoDescriptorIsHeld) {
  TempDir dir;
  const std::string path = dir.path + "/f";
  write_text(path, "old");
  BufBinFileOut out(16);
  ASSERT_TRUE(out.open(path, 0));
  EXPECT_EQ(read_text(path), "");
  ASSERT_TRUE(out.write("ab", 2));
  ASSERT_TRUE(out.close());
  ASSERT_TRUE(out.close());
  ASSERT_TRUE(out.open(path, 1));
  ASSERT_TRUE(out.write("cd", 2));
  ASSERT_TRUE(out.close());
  EXPECT_EQ(read_text(path), "abcd");

  std::vector<std::unique_ptr<BufBinFileOut>> many;  // far above the usual limit of descriptors
  for (int i = 0; i < 1200; i++) {
    many.push_back(std::make_unique<BufBinFileOut>(8));
    ASSERT_TRUE(many.back()->open(dir.path + "/t" + std::to_string(i), 0));
    ASSERT_TRUE(many.back()->write(&i, sizeof i));
  }
  for (auto& file : many) ASSERT_TRUE(file->close());
  EXPECT_EQ(read_text(dir.path + "/t1199").size(), sizeof(int));
}

TEST(BinFile, FailuresAreOneLineAndFalse) {
  TempDir dir;
  testing::internal::CaptureStderr();
  BufBinFileOut full(0);
  ASSERT_TRUE(full.open("/dev/full", 1));
  EXPECT_FALSE(full.write("x", 1));
  (void)full.close();
  BufBinFileOut silent(0, false), out(8);
  EXPECT_FALSE(silent.open(dir.path + "/absent/f", 0));
  EXPECT_FALSE(out.write("x", 1));
  BufBinFileIn in(8);
  EXPECT_FALSE(in.open(dir.path + "/absent"));
  EXPECT_EQ(in.get_size(), -1);
  BufBinFileIn directory(8);
  char c;
  EXPECT_FALSE(directory.open(dir.path) && directory.read(&c, 1));
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(holds(text, "ERROR: BufBinFileOut: write failed, file='/dev/full': No space left on device\n"))
      << text;
  EXPECT_TRUE(holds(text, "ERROR: BufBinFileOut: write failed, file not open\n"));
  EXPECT_TRUE(holds(text, "ERROR: BufBinFileIn: open failed, file='" + dir.path + "/absent': No such file"));
  EXPECT_TRUE(holds(text, "ERROR: BufBinFileIn: get_size failed, file=" + dir.path + "/absent\n"));
  EXPECT_TRUE(holds(text, "Is a directory"));
  EXPECT_FALSE(holds(text, "absent/f"));
}

TEST(TxtFile, LinesWithEitherEndAndAFullDisk) {
  TempDir dir;
  write_text(dir.path + "/t", "a\r\nb\n\nlast");
  TxtFileIn in(dir.path + "/t", true);
  std::string line, all;
  while (in.getline(line)) all += line + "|";
  EXPECT_EQ(all, "a|b||last|");

  TxtFileOut out(false);
  ASSERT_TRUE(out.open(dir.path + "/o", 0));
  out.fs << 0.5 << '\n';
  ASSERT_TRUE(out.close());
  EXPECT_EQ(read_text(dir.path + "/o"), "0.500\n");
  ASSERT_TRUE(out.open("/dev/full", 1));
  out.fs << "x";
  EXPECT_FALSE(out.close());
}
}  // namespace veld

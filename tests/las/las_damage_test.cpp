// Files that lie, end early or are corrupt; outputs that can't be written. Nothing crashes, nothing is half
// done.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <random>

#include "las/las_access.h"
#include "tests/las/las_builder.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
struct Read {
  bool opened = false, failed = false;
  uint64_t npoints = 0;
  std::string records, text;  // text: what went to standard error
};

Read read_all(const std::string& name) {
  Read r;
  testing::internal::CaptureStderr();
  if (auto reader = las_read_open(name, "xyzt", false)) {
    r.opened = true;
    uint64_t n = 0;
    while (const uint8_t* block = reader->read_block(n))
      r.records.append(reinterpret_cast<const char*>(block), n * reader->header.point_reclen);
    r.failed = reader->failed();
    r.npoints = reader->p_count;
  }
  r.text = testing::internal::GetCapturedStderr();
  return r;
}

std::string compressed(const TempDir& dir, const std::string& las) {
  write_text(dir.path + "/c.las", las);
  auto reader = las_read_open(dir.path + "/c.las", "", false);
  auto writer = las_write_open(dir.path + "/c.laz", reader->header, "");
  uint64_t n = 0;
  while (const uint8_t* block = reader->read_block(n))
    if (!writer->write_raw_records(block, n)) std::abort();
  if (!las_write_close(writer)) std::abort();
  return read_text(dir.path + "/c.laz");
}

LasBuild rich(uint64_t npoints) {
  LasBuild b;
  b.minor = 4;
  b.format = 7;
  b.nextra = 4;
  b.npoints = npoints;
  b.vlrs = {{"LASF_Spec", 4, extra_bytes_descriptor(5, 0, "h"), ""}, {"a", 1, "text", ""}};
  b.evlrs = {{"b", 2, std::string(300, 'e'), ""}};
  return b;
}
}  // namespace

TEST(LasDamage, CutFilesGiveWhatIsThere) {
  const TempDir dir;
  const std::string name = dir.path + "/cut.las";
  const BuiltLas built = build_las(rich(20));
  const std::string laz = compressed(dir, built.bytes);
  for (size_t n = 0; n < built.bytes.size(); n += n < 600 ? 13 : 3) {
    write_text(name, built.bytes.substr(0, n));
    const Read r = read_all(name);
    EXPECT_EQ(r.opened, n >= built.points_at) << n;
    EXPECT_EQ(r.records, built.records.substr(0, r.records.size())) << n;
    if (n > built.points_at) {
      EXPECT_EQ(r.npoints, std::min<size_t>(20, (n - built.points_at) / 40)) << n;
    }
    if (r.npoints < 20) {
      EXPECT_TRUE(holds(r.text, name)) << n;
    }
  }
  for (size_t n = 0; n + 1 < laz.size(); n += 7) {
    write_text(name, laz.substr(0, n));
    const Read r = read_all(name);
    if (r.npoints < 20) {
      EXPECT_TRUE(holds(r.text, "ERROR: ")) << n;
    }
  }
}

TEST(LasDamage, LyingFieldsAreSeenThrough) {
  const TempDir dir;
  const std::string name = dir.path + "/lie.las";
  const BuiltLas built = build_las(rich(50));
  const size_t first_vlr = 375, evlr = built.points_at + built.records.size();
  const struct {
    const char* what;
    size_t at, size;
    uint64_t value;
    uint64_t npoints;
    const char* text;
  } cases[] = {
      {"count", 247, 8, uint64_t{1} << 60, 50, "file holds only 50 of the "},
      {"count zero", 247, 8, 0, 0, ""},
      {"number of VLRs", 100, 4, 1000000000, 50,
       "announces 1000000000 records before the points, 2 are there"},
      {"VLR length", first_vlr + 20, 2, 65000, 50, "announces 2 records before the points, 0 are there"},
      {"EVLR start", 235, 8, uint64_t{1} << 62, 50, "announces 1 records behind the points, 0 are there"},
      {"EVLR count", 243, 4, 4000000000, 50, "announces 4000000000 records behind the points, 1 are there"},
      {"EVLR length", evlr + 20, 8, ~uint64_t{0} - 5, 50,
       "announces 1 records behind the points, 0 are there"},
      {"waveform start", 227, 8, ~uint64_t{0}, 50, ""},
      {"extra bytes type", first_vlr + 54 + 2, 1, 255, 50, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    std::string bytes = built.bytes;
    bytes.replace(c.at, c.size, reinterpret_cast<const char*>(&c.value), c.size);
    write_text(name, bytes);
    const Read r = read_all(name);
    EXPECT_TRUE(r.opened);
    EXPECT_EQ(r.npoints, c.npoints);
    EXPECT_TRUE(holds(r.text, c.text)) << r.text;
    EXPECT_FALSE(r.failed);
  }
}

TEST(LasDamage, DamagedChunkEndsReadingWithFileChunkAndPoint) {
  const TempDir dir;
  const std::string name = dir.path + "/c.laz";
  const BuiltLas built = build_las(rich(160000));
  std::string laz = compressed(dir, built.bytes);
  uint32_t points_at;
  std::memcpy(&points_at, laz.data() + 96, 4);
  uint64_t table;
  std::memcpy(&table, laz.data() + points_at, 8);
  const uint64_t layer_sizes = points_at + 8 + 40 + 4;  // behind the first chunk's raw point and count
  std::string bad = laz;
  poke(bad, layer_sizes, uint32_t{0x7FFFFFFF});
  write_text(name, bad);
  const Read first = read_all(name);
  EXPECT_TRUE(first.failed);
  EXPECT_EQ(first.npoints, 0U);
  EXPECT_TRUE(holds(first.text, "chunk 0, point 0, file '" + name + "'")) << first.text;
  {
    auto reader = las_read_open(name, "", false);  // chunks behind the damage can be had
    ASSERT_TRUE(reader && reader->seek(150000) && reader->read_point());
    EXPECT_EQ(std::memcmp(reader->point.rec, built.records.data() + 150000UL * 40, 40), 0);
  }
  for (const int64_t lie : {int64_t{-1}, static_cast<int64_t>(points_at), int64_t{1} << 50}) {
    poke(bad = laz, points_at, lie);  // no table: from the start, with a warning
    write_text(name, bad);
    const Read r = read_all(name);
    EXPECT_TRUE(r.records == built.records) << r.text;
    EXPECT_TRUE(holds(r.text, "WARNING: "));
  }
  for (const uint64_t announced : {155000, 149999, 170000}) {
    poke(bad = laz, 247, announced);
    write_text(name, bad);
    const Read r = read_all(name);
    EXPECT_EQ(r.npoints, std::min<uint64_t>(announced, 160000)) << r.text;
    EXPECT_FALSE(r.failed);
    EXPECT_FALSE(r.text.empty() && announced != 155000);
  }
}

TEST(LasDamage, RandomBytesNeverCrash) {
  const TempDir dir;
  const std::string name = dir.path + "/r.laz";
  std::mt19937 random(5);
  LasBuild old;
  old.format = 3;
  old.npoints = 300;
  for (const std::string& good : {build_las(rich(300)).bytes, compressed(dir, build_las(rich(300)).bytes),
                                  compressed(dir, build_las(old).bytes)}) {
    for (int round = 0; round < 150; round++) {
      std::string bytes = good;
      const size_t reach = round % 2 ? bytes.size() : std::min<size_t>(bytes.size(), 700);
      for (int i = 0; i < 1 + round % 4; i++) bytes[random() % reach] = static_cast<char>(random());
      write_text(name, bytes);
      const Read r = read_all(name);
      EXPECT_LE(r.npoints, 1000000U);
    }
  }
}

TEST(LasWriter, RefusesToOverwriteASource) {
  const TempDir dir;
  const std::string name = dir.path + "/s.las";
  write_text(name, build_las({}).bytes);
  std::filesystem::create_hard_link(name, dir.path + "/link.las");
  std::filesystem::create_symlink(name, dir.path + "/sym.las");
  {
    auto reader = las_read_open(name, "", false);
    for (const char* out : {"/s.las", "/link.las", "/sym.las"})
      EXPECT_FALSE(las_write_open(dir.path + out, reader->header, "")) << out;
  }
  EXPECT_FALSE(las_write_open(dir.path + "/link.las", LASheader{}, "", {name}));
  EXPECT_FALSE(las_write_open(dir.path, LASheader{}, ""));
  EXPECT_FALSE(las_write_open(dir.path + "/absent/x.las", LASheader{}, ""));
  LASheader bad;
  bad.point_reclen = 19;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(las_write_open(dir.path + "/x.las", bad, ""));
  EXPECT_EQ(
      testing::internal::GetCapturedStderr().find("ERROR: unknown point type 0 with point size 19\nERROR: "),
      0U);
  EXPECT_EQ(read_text(name), build_las({}).bytes);
  auto writer = las_write_open(dir.path + "/link.las", LASheader{}, "");  // no source any more
  EXPECT_TRUE(writer);
  writer.reset();  // given up
  EXPECT_EQ(read_text(name), build_las({}).bytes);
  EXPECT_FALSE(exists(dir.path + "/link.las.part"));
}

TEST(LasWriter, FullDiskLeavesNothing) {
  const TempDir dir;
  const BuiltLas built = build_las(rich(60000));
  const std::string in = dir.path + "/in.las";
  write_text(in, built.bytes);
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit old{};
  getrlimit(RLIMIT_FSIZE, &old);
  for (const char* out : {"/out.las", "/out.laz", "/out.txt"}) {
    for (const rlim_t limit : {rlim_t{100}, rlim_t{200000}, rlim_t{350000}}) {
      SCOPED_TRACE(out + std::to_string(limit));
      testing::internal::CaptureStderr();
      auto reader = las_read_open(in, "", false);
      auto writer = las_write_open(dir.path + out, reader->header, "xyzt");
      const rlimit low{limit, old.rlim_max};
      setrlimit(RLIMIT_FSIZE, &low);
      bool ok = true;
      while (ok && reader->read_point()) ok = writer->write_point(reader->point);
      EXPECT_FALSE(las_write_close(writer));
      setrlimit(RLIMIT_FSIZE, &old);
      const std::string text = testing::internal::GetCapturedStderr();
      EXPECT_TRUE(holds(text, dir.path + out)) << text;
      EXPECT_EQ(text.find("ERROR: "), text.rfind("ERROR: ")) << text;  // one line
      EXPECT_FALSE(exists(dir.path + out));
      EXPECT_FALSE(exists(dir.path + out + ".part"));
    }
  }
}
}  // namespace veld

// Cache names, the test whether a cache may be reused, damaged caches.
#include <filesystem>
#include <functional>

#include "lib/general/path.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "tests/support/tiling_fixture.h"

namespace veld {
namespace {
void poke(const std::string& name, size_t at, const std::string& bytes) {
  std::string text = read_text(name);
  ASSERT_LE(at + bytes.size(), text.size());
  write_text(name, text.replace(at, bytes.size(), bytes));
}

template <typename T>
std::string bytes_of(T value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

// Runs every reader on a swath; true when all succeed.
bool read_all(const std::string& path) {
  SwTiles sw;
  if (!read_SwTiles(CacheName(path), sw)) return false;
  Vector<Image<uint8_t>> mocc, dt, dev;
  Vector<Image<int32_t>> Zm, Ct;
  Vector<Image<uint32_t>> TN;
  TileTables tables;
  Image<int32_t> Vt;
  const uint32_t nt = sw.info.nt;
  bool ok = read_LmTidx_tiles_mocc(CacheName(path), nt, mocc) &&
            read_LmTidx_tiles_TN(CacheName(path), nt, TN) && read_sw_CZt_tiles(CacheName(path), nt, Ct, Zm) &&
            tables.open(CacheName(path), nt, true) && read_sw_t_tiles(CacheName(path), nt, Ct, dt, dev);
  Vector<xyz> P;
  uint64_t np, np0;
  for (uint32_t k = 0; k < nt && ok; k++) {
    ok = tables.read_Vt(k, Vt);
    Image<uint8_t> all(mTsub, mTsub, 1);
    ok = ok && read_LmT_tile_nn(sw, k, all, 32, P, np, np0);
  }
  return ok;
}
}  // namespace

TEST(CacheName, IsTheDirectoryHashAndTheBaseName) {
  EXPECT_EQ(cache_dir_hash(""), 0u);
  EXPECT_EQ(cache_dir_hash("/"), 0x0000002f0000002fu);
  // 97 + 98 x 53 and 97 + 98 x 97.
  EXPECT_EQ(cache_dir_hash("ab"), (uint64_t{9603} << 32 | 5291));
  TMPDIR = "/tmp/x/";
  EXPECT_EQ(CacheName("/a.las").file(".0T.idx"), "/tmp/x/0000002f0000002f_a.las.0T.idx");
  EXPECT_EQ(CacheName("/a.las").file(".S", 12), "/tmp/x/0000002f0000002f_12_a.las.S");
  EXPECT_EQ(tile_tmp_name(CacheName("/a.las"), 17, 123456),
            "/tmp/x/0000002f0000002f_a.las.TT0017-123456.XYZT");
  EXPECT_NE(CacheName("/p/a.las").file(""), CacheName("/q/a.las").file(""));
  // A high character counts as negative; the digits stay 16.
  EXPECT_EQ(CacheName("/\xe4/a.las").file("").size(), std::string("/tmp/x/0123456789abcdef_a.las").size());
}

TEST_F(TilingTest, LinksShareTheCacheOfTheirTarget) {
  const std::string path = make("a.las", fly_line({.length = 20, .width = 20}));
  std::filesystem::create_directory(dir.path + "/sub");
  std::filesystem::create_symlink(path, dir.path + "/sub/link.las");
  EXPECT_EQ(CacheName(dir.path + "/sub/link.las").file(""), CacheName(path).file(""));
}

TEST_F(TilingTest, ACacheFitsOnlyItsOwnSettings) {
  const std::string path = make("a.las", fly_line({}));
  par.xcls = {7, 18};
  ASSERT_TRUE(tile(path));
  ASSERT_TRUE(check_TidxHdr(CacheName(path), SwathId(0), par));
  const std::pair<const char*, std::function<void(TilingParam&)>> changes[] = {
      {"syn", [](TilingParam& p) { p.syn = true; }},
      {"all", [](TilingParam& p) { p.all = true; }},
      {"last", [](TilingParam& p) { p.last = false; }},
      {"large", [](TilingParam& p) { p.large = true; }},
      {"xlevel", [](TilingParam& p) { p.xlevel = 1; }},
      {"dev_max", [](TilingParam& p) { p.DTS = 0.3f; }},
      {"fewer classes", [](TilingParam& p) { p.xcls = {7}; }},
      {"other classes",
       [](TilingParam& p) {
         p.xcls = {7, 17};
       }},
      {"drop map", [](TilingParam& p) { p.TIO.nx = p.TIO.ny = 1; }},
  };
  for (const auto& [name, change] : changes) {
    TilingParam other = par;
    change(other);
    EXPECT_FALSE(check_TidxHdr(CacheName(path), SwathId(0), other)) << name;
  }
  DATAUNIT = DATAUNIT_Z = 0.3048;
  EXPECT_FALSE(check_TidxHdr(CacheName(path), SwathId(0), par));
  DATAUNIT = DATAUNIT_Z = 1.0;
  DT_RANGE++;
  EXPECT_FALSE(check_TidxHdr(CacheName(path), SwathId(0), par));
  TilingParam notime = par;
  notime.tproc = false;
  EXPECT_TRUE(check_TidxHdr(CacheName(path), SwathId(0), notime)) << "times that are not wanted do no harm";
  DT_RANGE--;
  ASSERT_TRUE(tile(path));
  par.tproc = false;
  ASSERT_TRUE(tile(path));
  par.tproc = true;
  EXPECT_FALSE(check_TidxHdr(CacheName(path), SwathId(0), par)) << "but missing ones cannot be had";
}

TEST_F(TilingTest, TheSourcesTimeCountsUnlessItIsNotLookedAt) {
  const std::string path = make("a.las", fly_line({}));
  ASSERT_TRUE(tile(path));
  std::filesystem::last_write_time(path, std::filesystem::last_write_time(path) + std::chrono::seconds(5));
  for (const bool tproc : {true, false}) {  // references are tiled without times
    par.tproc = tproc;
    EXPECT_FALSE(check_TidxHdr(CacheName(path), SwathId(0), par)) << tproc;
  }
  CHECK_SW_TSTAMP = false;
  EXPECT_TRUE(check_TidxHdr(CacheName(path), SwathId(0), par));
}

TEST_F(TilingTest, ReservedBytesAreNotLookedAtAndMissingFilesAre) {
  const std::string path = make("a.las", fly_line({}));
  ASSERT_TRUE(tile(path));
  poke(CacheName(path).file(EXT_TIDX), 32, "abcd");
  EXPECT_TRUE(check_TidxHdr(CacheName(path), SwathId(0), par));
  remove_file(CacheName(path).file(EXT_MTXYZ));
  EXPECT_FALSE(check_TidxHdr(CacheName(path), SwathId(0), par));
  par.grid_ok = [](const CacheName&, SwathId) { return true; };
  EXPECT_TRUE(check_TidxHdr(CacheName(path), SwathId(0), par)) << "a valid grid stands for the points";
  for (const char* e : {EXT_MTDT, EXT_MTZM, EXT_MTIDX, EXT_TIDX}) {
    remove_file(CacheName(path).file(e));
    EXPECT_FALSE(check_TidxHdr(CacheName(path), SwathId(0), par)) << e;
    ASSERT_TRUE(tile(path));
  }
}

// Another run may tile a swath with other options while this one works with it.
TEST_F(TilingTest, ACacheThatAnotherRunReplacesIsRefusedFromThenOn) {
  const std::string path = make("a.las", fly_line({}));
  const CacheName swath(path);
  const char* const suffixes[] = {EXT_TIDX, EXT_MTIDX, EXT_MTZM, EXT_MTDT, EXT_MTXYZ, EXT_MTSUM};
  const auto family = [&] {
    std::vector<std::string> files;
    for (const char* const suffix : suffixes) files.push_back(read_text(swath.file(suffix)));
    return files;
  };
  const auto put = [&](const std::vector<std::string>& files) {
    for (size_t i = 0; i < files.size(); i++) write_text(swath.file(suffixes[i]), files[i]);
  };
  par.xlevel = 1;
  ASSERT_TRUE(tile(path));
  const std::vector<std::string> other = family();
  par.xlevel = 0;
  ASSERT_TRUE(tile(path));
  const std::vector<std::string> own = family();
  put(own);  // made again, with the same bytes
  SwTiles sw;
  EXPECT_TRUE(read_SwTiles(swath, sw));
  put(other);
  EXPECT_FALSE(read_SwTiles(swath, sw));
  par.xlevel = 1;
  ASSERT_TRUE(tile(path, true));
  EXPECT_FALSE(res.done);
  EXPECT_TRUE(read_SwTiles(swath, sw)) << "what this run asks for now";
}

TEST_F(TilingTest, TruncatedCachesAreRefusedAtEachField) {
  const std::string path = make("a.las", fly_line({.length = 150, .width = 60}));
  par.xcls = {7};
  ASSERT_TRUE(tile(path));
  ASSERT_TRUE(read_all(path));
  const size_t idx_fields[] = {0,  4,  8,  12, 16,  24,  36,  44,  47,  48,  49, 57,
                               61, 69, 70, 94, 118, 166, 214, 238, 301, 302, 313};
  for (const char* e : {EXT_TIDX, EXT_MTIDX, EXT_MTZM, EXT_MTDT, EXT_MTXYZ}) {
    const std::string name = CacheName(path).file(e), whole = read_text(name);
    std::vector<size_t> cuts = {whole.size() - 1, whole.size() / 2, 0};
    if (std::string(e) == EXT_TIDX) cuts.insert(cuts.end(), std::begin(idx_fields), std::end(idx_fields));
    for (const size_t cut : cuts) {
      write_text(name, whole.substr(0, cut));
      EXPECT_FALSE(read_all(path)) << e << " cut at " << cut;
    }
    write_text(name, whole);
  }
  EXPECT_TRUE(read_all(path));
}

TEST_F(TilingTest, LyingHeadersAreRefused) {
  const std::string path = make("a.las", fly_line({.length = 150, .width = 60}));
  ASSERT_TRUE(tile(path));
  const std::string name = CacheName(path).file(EXT_TIDX), whole = read_text(name);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::pair<size_t, std::string> lies[] = {
      {0, bytes_of(0u)},                  // magic
      {12, bytes_of(0x3ADDFu)},           // version
      {44, bytes_of(uint8_t{6})},         // microtile level
      {45, bytes_of(uint8_t{200})},       // classes
      {46, bytes_of(uint8_t{90})},        // xlevel
      {48, bytes_of(uint64_t{1} << 62)},  // points
      {48 + 8, bytes_of(0u)},             // tiles
      {48 + 8, bytes_of(0xFFFFFFFFu)},
      {48 + 21, bytes_of(nan)},               // t0
      {48 + 45, bytes_of(0u)},                // XImin: an extent too wide
      {48 + 57, bytes_of(0xFFFFFFFFu)},       // XImax
      {48 + 253, bytes_of(0u)},               // a tile outside the extent
      {48 + 253 + 8, bytes_of(0xFFFFFFF0u)},  // a tile's count
  };
  for (const auto& [at, bytes] : lies) {
    write_text(name, whole);
    poke(name, at, bytes);
    EXPECT_FALSE(read_all(path)) << "byte " << at;
  }
  write_text(name, whole);
  poke(CacheName(path).file(EXT_MTIDX), 4 * 500, bytes_of(0xFFFFFFFFu));
  EXPECT_FALSE(read_all(path)) << "a microtile's count";
}

TEST_F(TilingTest, DeletingRemovesTheFamilyAndNothingElse) {
  const std::string path = make("a.las", fly_line({})), other = make("b.las", fly_line({}));
  ASSERT_TRUE(tile(path) && tile(other));
  write_text(CacheName(path).file(EXT_GMTIDX), "grid");
  write_text(tile_tmp_name(CacheName(path), 1, 2), "points");
  uint64_t nfiles = 0, nbytes = 0;
  EXPECT_TRUE(delete_LmT_tile(CacheName(path), nfiles, nbytes));
  EXPECT_EQ(nfiles, 7u);
  EXPECT_GT(nbytes, 100000u);
  EXPECT_TRUE(exists(CacheName(path).file(EXT_GMTIDX)));
  EXPECT_TRUE(delete_LmT_grid(CacheName(path), nfiles, nbytes));
  EXPECT_FALSE(exists(CacheName(path).file(EXT_GMTIDX)));
  EXPECT_TRUE(exists(path));
  EXPECT_TRUE(read_all(other));
}
}  // namespace veld

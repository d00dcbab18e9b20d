#include "prj/LiDAR/veldrunner2/tag_tree.h"

#include "lib/optparser/opttags.h"
#include "tests/prj/LiDAR/veldrunner2/read_support.h"
#include "tests/support/temp_dir.h"

namespace {
struct TagTreeTest : testing::Test {
  TempDir dir;
  InputArgs in;
  Options o;
  bool ok = false;
  TagTreeTest() {
    for (const char* const name : {"/a.las", "/b.las", "/c.las", "/r.las", "/t.out", "/u.out"})
      write_text(dir.path + name, "x");
    in.rules.idir = dir.path;
  }
  // Reads the text as a tagged file, then its tree.
  std::string read(const std::string& text) {
    write_text(dir.path + "/f.xml", text);
    OptParser p;
    std::vector<std::string> tokens;
    EXPECT_TRUE(AddFileOpt(p, dir.path + "/f.xml", {"map", "bore", "input", "po", "ref"}, tokens));
    testing::internal::CaptureStdout();
    const std::string errors = errors_of([&] { ok = get_tag_tree_input(p.taglist, in, o); });
    EXPECT_NE(testing::internal::GetCapturedStdout().find("Parsing tagged input parameter file, "),
              std::string::npos);
    return errors;
  }
};
}  // namespace

TEST_F(TagTreeTest, FlightsBecomeGroups) {
  EXPECT_EQ(
      read("<FLIGHT>\n"
           "<Input CH=\"0\" bore=\"0.1 0.2 0.3\">a.las</Input>\n"
           "<input ch=\"1\">\nb.las\n</input>\n"
           "<po time=\"7\" geo='1' gps_date=\"2025-03-23\" imu=\"180 0 90\">t.out</po>\n"
           "</FLIGHT>\n"
           "<flight>\n<input>c.las</input>\n<po gps_date=2025-03-24 parse=txyzwpk>t.out</po>\n</flight>\n"),
      "");
  ASSERT_TRUE(ok);
  ASSERT_EQ(in.mobile.size(), 3u);
  EXPECT_EQ(in.mobile[1].args, std::vector<std::string>{"b.las"});
  EXPECT_EQ(o.chgrp, (std::vector<int>{0, 1, 0}));
  EXPECT_EQ(o.po_time, (std::vector<int>{7, 7, 0}));
  EXPECT_EQ(o.po_geo, (std::vector<int>{1, 1, 0}));
  EXPECT_EQ(o.po_parse, (std::vector<std::string>{"", "", "txyzwpk"}));
  EXPECT_EQ(o.gps_date, (std::vector<std::string>{"2025-03-23", "2025-03-23", "2025-03-24"}));
  EXPECT_EQ(o.bore, (std::vector<double>{0.1, 0.2, 0.3, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(o.imu, (std::vector<double>{180, 0, 90, 180, 0, 90, 0, 0, 0}));
  Project prj;
  EXPECT_TRUE(get_PO_files(in, true, prj)) << "flights may share a trajectory";
  ASSERT_EQ(prj.pofiles.size(), 3u);
  EXPECT_EQ(prj.pofiles[2].group, 3);
}

TEST_F(TagTreeTest, FaultsAreNamed) {
  const std::string in_flight = "<flight>\n<input>a.las</input>\n";
  const struct {
    std::string text, message;
  } cases[] = {
      {"<input>a.las</input>\n", "<input> must be defined inside <flight>, input/channel #1"},
      {"<flight>\n</flight>\n", "empty flight #1"},
      {"<flight>\n<input ch=1>a.las</input>\n</flight>\n",
       "channel and 'ch' attribute mismatch, input/channel #1"},
      {"<flight>\n<input>x.las</input>\n</flight>\n",
       "could not find file " + dir.path + "/x.las\nERROR: failed to add files to input/channel #1"},
      {in_flight + "<po>x.out</po>\n</flight>\n",
       "could not find file " + dir.path + "/x.out\nERROR: failed to add PO files to flight #1"},
      {in_flight + "<po>t.out</po>\n<po>u.out</po>\n</flight>\n",
       "<flight> and <po> mismatch, input/channel #1"},
      {in_flight + "<po time=11>t.out</po>\n</flight>\n",
       "attribute time '11' out of range [0,10], flight #1"},
      {in_flight + "</flight>\n<ref>r.las</ref>\n<ref>b.las</ref>\n", "multiple <ref> detected"},
      {in_flight + "</flight>\n<ref>a.las</ref>\n", "duplicate files, some references are also inputs"},
      {"<flight>\n<input>\na.las\n<map>\n0 1\n</map>\n</input>\n</flight>\n",
       "<map> must be defined inside split <input>, flight #1"},
      {"<bore>\n1 2 3\n</bore>\n", "<bore> must be defined inside split <input>, flight #0"},
      {"<flight>\n<input split=\"angle\">a.las</input>\n</flight>\n",
       "split <input> is not available yet, input/channel #1"},
      {"<flights>\n</flights>\n", "unknown tag <flights>"},
      {in_flight + "<po gps_date=2025-03-23>t.out</po>\n</flight>\n<flight>\n<input>b.las</input>\n"
                   "<po>u.out</po>\n</flight>\n",
       "attribute gps_date missing, it is required in all <po> or none"},
      {in_flight + "<po>t.out</po>\n</flight>\n<flight>\n<input>b.las</input>\n</flight>\n",
       "<flight> and <po> mismatch, input/channel #2"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(read(c.text), "ERROR: " + c.message + "\n");
    EXPECT_FALSE(ok);
  }
}

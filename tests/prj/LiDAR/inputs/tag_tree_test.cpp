#include "prj/LiDAR/inputs/tag_tree.h"

#include "lib/optparser/opttags.h"
#include "tests/prj/LiDAR/options/read_support.h"
#include "tests/support/temp_dir.h"

namespace veld {
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
    EXPECT_TRUE(holds(testing::internal::GetCapturedStdout(), "Parsing tagged input parameter file, "));
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

// What the tree does not say is left as the command line has it; what it says is reported.
TEST_F(TagTreeTest, AnglesOfTheCommandLineStayWithoutAttributes) {
  const std::string head = "<flight>\n<input", tail = ">a.las</input>\n<po>t.out</po>\n</flight>\n";
  o.bore = {1, 2, 3};
  o.imu = {180, 0, 90};
  EXPECT_EQ(read(head + tail), "");
  EXPECT_EQ(o.bore, (std::vector<double>{1, 2, 3}));
  EXPECT_EQ(o.imu, (std::vector<double>{180, 0, 90}));
  EXPECT_EQ(read(head + " bore=\"4 5 6\"" + tail),
            "WARNING: tagged option file overrides option -bore (attributes bore)\n");
  EXPECT_EQ(o.bore, (std::vector<double>{4, 5, 6}));
  EXPECT_EQ(o.imu, (std::vector<double>{180, 0, 90}));
}

TEST_F(TagTreeTest, FaultsAreNamed) {
  const std::string in_flight = "<flight>\n<input>a.las</input>\n";
  const struct {
    std::string text, message;
  } cases[] = {
      {in_flight + "<po time=11>t.out</po>\n</flight>\n",
       "attribute time '11' out of range [0,10], flight #1"},
      {"<flight>\n<input split=\"angle\">a.las</input>\n</flight>\n",
       "split argument error, argument must be in {sd,ch,sa,ud,id,cl,bi}, input/channel #1"},
      {"<flight>\n<input split=ud n=33>a.las</input>\n</flight>\n",
       "attribute n '33' out of range [2,32], input/channel #1"},
      {in_flight + "<po>x.out</po>\n</flight>\n<flight>\n<input>y.las</input>\n</flight>\n",
       "could not find file " + dir.path +
           "/x.out\nERROR: failed to add PO files to flight #1\nERROR: "
           "could not find file " +
           dir.path + "/y.las\nERROR: failed to add files to input/channel #2"},
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

TEST_F(TagTreeTest, SplitInputsBringBoresightsAndChannels) {
  write_text(dir.path + "/bore.txt", "1 2 3\n\n4,5,6\n");
  EXPECT_EQ(read("<flight>\n<input split=\"ud\" n=\"2\" bore=\"7 8 9\">\na.las\n"
                 "<map>\n5 1\n4 2\n1 2\n0 1\n3 9\n</map>\n</input>\n"
                 "<input ch=\"2\" split=\"sa\">\nb.las\n<bore file=\"bore.txt\">\n</bore>\n</input>\n"
                 "<input ch=\"4\">c.las</input>\n</flight>\n"),
            "");
  ASSERT_TRUE(ok);
  EXPECT_EQ(o.chgrp, (std::vector<int>{0, 2, 4}));
  ASSERT_EQ(in.split.size(), 2u);
  EXPECT_EQ(in.split[0].split.type, SplitType::user_data);
  ASSERT_EQ(in.split[0].bore.size(), 2u);
  EXPECT_EQ(in.split[0].bore[1].z, 9);
  const std::vector<int> first(in.split[0].map.begin(), in.split[0].map.begin() + 6);
  EXPECT_EQ(first, (std::vector<int>{1, 2, 0, 0, 2, 1}));
  EXPECT_EQ(in.split[1].group, 2);
  ASSERT_EQ(in.split[1].bore.size(), 2u);
  EXPECT_EQ(in.split[1].bore[1].x, 4);
}

TEST_F(TagTreeTest, FaultsOfListsAreNamed) {
  const std::string where = " for split input/channel #1";
  write_text(dir.path + "/empty.txt", "\n");
  const struct {
    std::string text, message;
  } cases[] = {
      {"<map>\n1\n</map>\n", "missing lines, need at least 2 lines in <map> list" + where},
      {"<map>\n9 1\n8 2\n</map>\n", "missing lines, need at least 9 lines in <map> list" + where},
      {"<map>\n1\nx\n</map>\n", "could not parse line 2 of channel map file <map>"},
      {"<map>\n256 1\n</map>\n", "could not parse line 1 of channel map file <map>"},
      {"<map file=empty.txt>\n</map>\n", "empty channel map file " + dir.path + "/empty.txt"},
      {"<map>\n1\n2\n</map>\n<MAP>\n", "only one <map> file allowed" + where},
      {"<bore>\n1 2 3\n</bore>\n", "missing lines, need 2 lines for <bore> list" + where},
      {"<bore>\n1 2 3\n1 2 3\n1 2 3\n</bore>\n", "too many lines, need 2 lines for bore file <bore>"},
      {"<bore>\n1 2\n</bore>\n", "could not parse line 1 of bore file <bore>"},
      {"<bore file=empty.txt></bore>\n", "empty bore file " + dir.path + "/empty.txt"},
      {"<bore file=none.txt></bore>\n", "could not find file " + dir.path + "/none.txt"},
  };
  for (const auto& c : cases) {
    std::string text = "<flight>\n<input split=ch n=2>\na.las\n" + c.text;
    if (c.message.rfind("only", 0) == 0) text += "</MAP>\n";
    EXPECT_EQ(read(text + "</input>\n</flight>\n"), "ERROR: " + c.message + "\n");
    EXPECT_FALSE(ok);
  }
  EXPECT_EQ(read("<flight>\n<input split=ch n=2 bore='1 2 3'>\na.las\n<bore>\n1 2 3\n4 5 6\n</bore>\n"
                 "</input>\n</flight>\n"),
            "WARNING: <bore> tag overrides 'bore' attribute for split input/channel #1 of flight #1\n");
  EXPECT_TRUE(ok);
}
}  // namespace veld

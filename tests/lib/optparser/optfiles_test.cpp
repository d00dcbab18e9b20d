#include "lib/optparser/opttags.h"
#include "tests/lib/optparser/opt_support.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
bool init(OptParser& p, std::vector<std::string> args, const std::string& base) {
  args.insert(args.begin(), "prog");
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  return InitGetOptAll(p, static_cast<int>(argv.size()), argv.data(), base, {"map"});
}

std::string joined(const OptParser& p) {
  std::string text;
  for (const OptToken& token : p.args)
    if (!token.used) text += token.text + "|";
  return text;
}
}  // namespace

TEST(OptFiles, SourcesAreMergedSoThatTheCommandLineWins) {
  TempDir dir;
  write_text(dir.path + "/prog.opt.txt", "# comment\n\n/ too\n[so]\n  mem\t=2048\nname 'a b' \"c=d\"\n");
  write_text(dir.path + "/f.xml", "<opt soft=\"x\">\n<!-- say -->\nmem\t3000\nx\n</opt>\n");
  OptParser p;
  ASSERT_TRUE(
      init(p, {"-mem=5000", "-opt", dir.path + "/f.xml", "-$", dir.path, "-mul"}, dir.path + "/prog"));
  EXPECT_EQ(joined(p), "-mem|2048|-name|a b|c=d|-mem|3000|-x|-mem=5000|");
  EXPECT_EQ(p.refdir, dir.path);
  EXPECT_TRUE(p.mul);
  int64_t mem = 0;
  GetOptInt(p, mem, "mem", "", 1024, 262144);
  EXPECT_EQ(mem, 5000);
}

TEST(OptFiles, SavedOptionsReadAgainGiveTheSame) {
  TempDir dir;
  write_text(dir.path + "/prog.opt.txt", "nthreads 3\nquiet 1\n");
  write_text(dir.path + "/f.xml",
             "<flight>\n<input ch=\"0\">a b*.las</input>\n<map>\n0 1\n</map>\n</flight>\nsub 2\n");
  OptParser p;
  ASSERT_TRUE(init(p, {"-opt", dir.path + "/f.xml", "-quiet=0", "-o", "*_c x.las", "-shift", "-1", "0", "2"},
                   dir.path + "/prog"));
  testing::internal::CaptureStdout();
  SaveOptionFile(p, dir.path + "/s.xml", "SOFT 1", "/here/");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Saving command line and other options to file " + dir.path + "/s.xml\n");
  EXPECT_EQ(
      read_text(dir.path + "/s.xml"),
      "<opt soft=\"SOFT 1\">\n<!-- Input Tree -->\n<flight>\n  <input ch=\"0\">a b*.las</input>\n  <map>\n"
      "    0 1\n  </map>\n</flight>\n<!-- Global Options -->\n[dir=/here/]\nsub 2\nquiet 0\n"
      "o \"*_c x.las\"\nshift -1 0 2\n<!-- Persistent Options -->\nnthreads 3\n</opt>\n");
  OptParser q;
  ASSERT_TRUE(init(q, {"-opt", dir.path + "/s.xml"}, dir.path + "/none"));
  EXPECT_EQ(joined(q), "-sub|2|-quiet|0|-o|*_c x.las|-shift|-1|0|2|-nthreads|3|");
  EXPECT_EQ(q.taglist, p.taglist);
  OptParser r;  // beside the persistent file it came from: what it brings along does not come twice
  ASSERT_TRUE(init(r, {"-opt", dir.path + "/s.xml"}, dir.path + "/prog"));
  EXPECT_EQ(joined(r), "-quiet|1|-sub|2|-quiet|0|-o|*_c x.las|-shift|-1|0|2|-nthreads|3|");
  EXPECT_EQ(p.taglist, (std::vector<std::string>{"<flight>", "<input ch=\"0\">", "a b*.las", "</input>",
                                                 "<map>", "0 1", "</map>", "</flight>"}));
  StdErr err;
  testing::internal::CaptureStdout();
  SaveOptionFile(p, dir.path + "/absent/s.xml", "", "");
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(err.text(), "WARNING: failed to save option file " + dir.path + "/absent/s.xml\n");
}

TEST(OptFiles, HugeFilesEndInAMessage) {
  TempDir dir;
  std::string text;
  for (int i = 0; i < 3000; i++) text += "x\n";
  write_text(dir.path + "/f", text);
  OptParser p;
  StdErr err;
  EXPECT_FALSE(init(p, {"-opt", dir.path + "/f"}, dir.path + "/none"));
  EXPECT_TRUE(holds(err.text(), "more than 2048 words at line 2049"));
}

TEST(TagLine, PartsOfATag) {
  const struct {
    const char *line, *result;  // name, / when closing, then the attributes; or the message
  } cases[] = {
      {"<po>", "po"},
      {"</PO>", "PO/"},
      {"<po time=\"3\" parse='t x'>", "po time:3 parse:t x"},
      {"<po  a = 1  b=2 >", "po a:1 b:2"},
      {"<po =1>", "!missing attribute for tag <po>"},
      {"<po a=>", "!missing value for attribute a for tag <po>"},
      {"<po a=\"\">", "!missing value for attribute a for tag <po>"},
      {"<po a=1 A=2>", "!multiple attribute A for tag <po>"},
      {"<po a>", "!attribute syntax error for tag <po>"},
      {"<po a=\"1>", "!attribute syntax error for tag <po>"},
      {"<po a b=1>", "!attribute syntax error for tag <po>"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    TagLine tag;
    StdErr err;
    if (ParseTagLine(c.line, tag)) {
      std::string text = tag.name + (tag.closing ? "/" : "");
      for (const auto& [name, value] : tag.attr) text += " " + name + ":" + value;
      EXPECT_EQ(text, c.result);
      EXPECT_EQ(err.text(), "");
    } else {
      EXPECT_EQ(err.text(), std::string("ERROR: ") + (c.result + 1) + "\nERROR: Line: " + c.line + "\n");
    }
  }
}
}  // namespace veld

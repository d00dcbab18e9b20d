#include "lib/optparser/opttags.h"
#include "tests/lib/optparser/opt_support.h"
#include "tests/support/temp_dir.h"

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

TEST(OptFiles, FaultsOfATaggedFile) {
  const struct {
    const char *text, *message;
  } cases[] = {
      {"x 1\ry 2\n", "invalid mix of \\r and \\n delimiters at line 1"},
      {"x 1\ny 2\r\n", "invalid mix of \\r and \\n delimiters at line 2"},
      {"a <b>\n", "extra text before tag delimiter < at line 1"},
      {"\n<b> a\n", "extra text after tag delimiter > at line 2"},
      {"<a<b>\n", "mismatched tag delimiters at line 1"},
      {"<a\n", "missing tag delimiter at line 1"},
      {"<a><b><c>\n", "too many tags (maximum two per line) at line 1"},
      {"<a x=\"1>\n", "missing quotes at line 1"},
      {"<>\n", "empty tag at line 1"},
      {"</a>\n", "extra closing tag </a> at line 1"},
      {"<a>\n</b>\n", "mismatched tags <a>  and </b> at line 2"},
      {"<a>\n<b>\n<A>\n", "nested tag <A> detected at line 3"},
      {"name 'x\n", "missing quotes at line 1"},
      {"1 2\n", "invalid option: -1 at line 1"},
  };
  TempDir dir;
  const std::string path = dir.path + "/f";
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    write_text(path, c.text);
    OptParser p;
    StdErr err;
    EXPECT_FALSE(init(p, {"-opt", path}, dir.path + "/none"));
    EXPECT_EQ(err.text(), std::string("ERROR: ") + c.message + " of option file '" + path + "'\n");
  }
  write_text(path, "<a>\n<b>\n");
  OptParser p;
  StdErr err;
  EXPECT_FALSE(init(p, {"-opt", path}, dir.path + "/none"));
  EXPECT_FALSE(init(p, {"-opt"}, dir.path + "/none"));
  EXPECT_FALSE(init(p, {"-opt", dir.path}, dir.path + "/none"));
  EXPECT_FALSE(init(p, {"-$", dir.path + "/absent"}, dir.path + "/none"));
  EXPECT_EQ(err.text(),
            "ERROR: extra tags 2 (closing tags missing) in option file " + path +
                "\nERROR: option -opt needs one argument (option file)\nERROR: could not read option file " +
                dir.path + "\nERROR: unable to resolve path " + dir.path + "/absent\n");
}

TEST(OptFiles, FaultsOfThePersistentFileAndNoArguments) {
  TempDir dir;
  write_text(dir.path + "/prog.opt.txt", "mem 2048\n12 3\nname 'x\n");
  OptParser p;
  StdErr err;
  EXPECT_TRUE(init(p, {"-x"}, dir.path + "/prog"));
  EXPECT_TRUE(p.error);
  testing::internal::CaptureStdout();
  EXPECT_FALSE(init(p, {}, dir.path + "/prog"));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "(this is a command line tool, it runs in a terminal, not by clicking the icon)\n");
  const std::string where = " of persistent option file " + dir.path + "/prog.opt.txt\n";
  EXPECT_EQ(err.text(), "ERROR: invalid option: -12 at line 2" + where +
                            "ERROR: invalid option: -name at line 3" + where +
                            "ERROR: this program requires arguments\n");
}

TEST(OptFiles, HugeFilesEndInAMessage) {
  TempDir dir;
  std::string text;
  for (int i = 0; i < 3000; i++) text += "x\n";
  write_text(dir.path + "/f", text);
  OptParser p;
  StdErr err;
  EXPECT_FALSE(init(p, {"-opt", dir.path + "/f"}, dir.path + "/none"));
  EXPECT_NE(err.text().find("more than 2048 words at line 2049"), std::string::npos);
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

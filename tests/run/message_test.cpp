// What the program says about mistakes in command lines and option files, by theme.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/run/program.h"

namespace veld {
namespace {
struct Mistake {
  Args args;
  std::vector<std::string> lines;  // of standard error, whole, in this order; without the last line
  const char* file = nullptr;      // text of "f.xml" in the current directory, given by -opt
};

// A directory with files of each kind; names that stand in messages are relative to it.
struct Messages : testing::Test {
  Program program;
  std::string path(const std::string& name) const { return program.work.path + "/" + name; }
  Messages() {
    for (const char* const name : {"a.las", "b.las", "r.las", "t.out", "u.out"}) write_text(path(name), "x");
    write_text(path("two.txt"), "1 2\n");
    write_text(path("three.txt"), "1 2 3\n");
    write_text(path("six.txt"), "1 2 3 4 5 6\n");
    write_text(path("lost.lst"), "a.las\nx.las\n");
    write_text(path("twice.lst"), "a.las\n./a.las\n");
    write_text(path("A.las"), "x");
    write_text(path("other.prj"), "PROJCS[\"x\",PROJECTION[\"Mollweide\"]]");
    write_text(path("empty.prj"), " \n");
  }
  // Every run fails with these lines, one after the other, and closes its log.
  void expect(const std::vector<Mistake>& mistakes) const {
    for (const Mistake& m : mistakes) {
      Args args = m.args;
      if (m.file) {
        write_text(path("f.xml"), m.file);
        args.insert(args.begin(), {"-opt", "f.xml"});
      }
      SCOPED_TRACE(testing::PrintToString(args) + (m.file ? m.file : ""));
      const RunOutput r = program.run(args);
      EXPECT_EQ(r.code, 1);
      size_t at = 0;
      for (const std::string& line : m.lines) {
        const size_t found = r.err.find(line + "\n", at);
        EXPECT_NE(found, std::string::npos) << "'" << line << "' is missing in:\n" << r.err;
        if (found != std::string::npos) at = found + line.size();
      }
      EXPECT_TRUE(holds(r.err, "EXIT_FAILURE\r\n"));
      EXPECT_FALSE(exists(program.base + ".lock"));
      EXPECT_TRUE(holds(program.log(), "EXIT=FAIL\n"));
    }
  }
};

const char ARGS_STOP[] = "ERROR: stopping due to option argument errors: use -h for help";
const char OPTS_STOP[] = "ERROR: stopping due to unknown options or syntax errors: use -h for help";
const char INPUTS_STOP[] = "ERROR: missing or duplicate input files, cannot proceed";
const char PO_STOP[] = "ERROR: could not find all specified trajectory files, cannot proceed";
}  // namespace

TEST_F(Messages, ValuesOfOptions) {
  expect({
      {"-nthreads 4 -N 2 -zz",
       {"WARNING: option -nthreads used, short option N ignored", "ERROR: unknown options: -zz ", OPTS_STOP}},
      {"-xlevel 1 -xlevel=2 zz",
       {"WARNING: option -xlevel found 2 times, last valid occurrence overrides previous ones",
        "ERROR: extra arguments: zz ", OPTS_STOP}},
      {"-corr a b", {"ERROR: option -corr takes maximum 1 argument, found 2, discarding last 1"}},
      {"-$ /no/where", {"ERROR: unable to resolve path /no/where"}},
  });
}

TEST_F(Messages, AllMistakesInOneRun) {
  expect({
      {"-mem 1 -utm 99 -zzz -smap -zmap -cal Q -drift abc -dpoc Q -out *.txt -i a -r b -i c",
       {"ERROR: option -mem: value 1 out of range [1024,262144], keeping default value 4096",
        "ERROR: option -utm: value 99 out of range [-60,60], keeping default value 0",
        "ERROR: unknown options: -zzz ", "ERROR: inputs must always precede references in the command line",
        "ERROR: options {-smap -zmap} are mutually exclusive",
        "ERROR: option -cal: could not parse argument 'Q', expecting {0LBIxyzwpk1234567}",
        "ERROR: option -drift: invalid argument abc - expecting 'con' or nonzero time interval",
        "ERROR: option -dpoc: could not parse argument 'Q', expecting {0TAxyzwpk}",
        "ERROR: output format extension not supported", ARGS_STOP, OPTS_STOP}},
      {"-align -i x.las -i y*.las -po z.out -mount m.txt -oa -oi -drift -1 -out plain.las -wkt other.prj "
       "-drop_class 2 -keep_class 3",
       {"ERROR: unsupported projection, WKT file other.prj (not understood)",
        "ERROR: options {-oa -oi} are mutually exclusive", "ERROR: could not find file z.out", PO_STOP,
        "ERROR: could not find file x.las", "ERROR: no match for y*.las in directory ./", INPUTS_STOP,
        "ERROR: could not find file m.txt", "ERROR: missing mount files, cannot proceed",
        "ERROR: options -keep_class and -drop_class are exclusive"}},
  });
}

TEST_F(Messages, CommandsAndExclusions) {
  expect({
      {"-reg", {"ERROR: missing input files, cannot proceed"}},
      {"-corr x -reg -i a.las",
       {"ERROR: commands {-reg -corr -align -calib -scan -fastqc} are mutually exclusive"}},
      {"-feet -metre -i a.las", {"ERROR: only one unit option can be used"}},
      {"-opls -oplz -i a.las", {"ERROR: -opls and -oplz are mutually exclusive"}},
      {"-dz_range 5 -dz16_range 2 -i a.las", {"ERROR: DZ_range>DZ16_range not allowed"}},
      {"-align2 -odir_1 /tmp -dz_range_1 5 -dz16_range_1 2 -i a.las -po t.out",
       {"ERROR: DZ_range_1>DZ16_range_1 not allowed"}},
      {"-corr -i a.las -po t.out",
       {"ERROR: option -corr requires DUT files, manual corrections (-shift_corr, -calib_corr, -shift, -gcp) "
        "or "
        "time/angle update"}},
      {"-corr x -i a.las -po t.out -utm 33 -odir /tmp", {"ERROR: could not find file x_idx.log"}},
      {"-undo -i a.las -r r.las",
       {"WARNING: ignoring fixed swaths for undo command",
        "ERROR: missing point correction file a_p2p_corr.laz"}},
      {"-cut -i a.las -po t.out u.out", {"ERROR: commands -cut and -plot_po require a single PO file input"}},
      {"-cut -i a.las -r r.las -po t.out", {"WARNING: ignoring fixed swaths for cut command"}},
      {"-plot_po", {"ERROR: commands -cut and -plot_po require a single PO file input"}},
      {"-split zz -i a.las", {"ERROR: split argument error, argument must be in {sd,ch,sa,ud,id,cl,bi}"}},
      {"-split ch 33 -i a.las",
       {"ERROR: split argument error, argument 2 (number of channels) out of range [2,32]"}},
      {"-split sd 3 -i a.las", {"ERROR: n=2 required for split type sd"}},
      {"-split ud -i a.las", {"ERROR: attribute 'n' required for split type ud"}},
      {"-split sd 2 m.txt -i a.las",
       {"WARNING: map file argument ignored for scan direction split",
        "ERROR: option -split is not available yet: swaths are not split into channels or beams"}},
      {"-drift -1 -i a.las", {"ERROR: option -drift: time interval must be >=0"}},
      {"-reg -i a.las -gcp none.txt -tile2",
       {"ERROR: option -tile2 is not available yet: references are always tiled after the mobile swaths",
        "ERROR: could not find file none.txt"}},
      {{"-reg", "-i", "a.las", "-name", std::string(240, 'n')},
       {"ERROR: name too long for the results, use a shorter -name: ./" + std::string(240, 'n') +
        "_DXYZcorr_stat.log.part"}},
      {"-las_read_check none.las", {"ERROR: could not find file none.las"}},
  });
}

TEST_F(Messages, Directories) {
  std::filesystem::create_directory(path("o"));
  expect({
      {"-align2 -i a.las",
       {"ERROR: not a valid output directory, write permission required: option -align2 needs -odir_1"}},
      {"-align2 -odir o -odir_1 ./o/ -i a.las", {"ERROR: -odir and -odir_1 are the same directory: o/"}},
  });
}

TEST_F(Messages, CoordinateSystem) {
  expect({
      {"-wkt empty.prj -i x", {"ERROR: empty WKT file empty.prj"}},
      {"-wkt none.prj -i x", {"ERROR: could not find file none.prj"}},
      {"-wkt a.las -i x", {"ERROR: WKT not found in LAS file a.las"}},
  });
}

TEST_F(Messages, SwathsAndChannels) {
  expect({
      {"-i x.las", {"ERROR: could not find file x.las", INPUTS_STOP}},
      {"-i a.las -r ./a.las", {"ERROR: duplicate file ./a.las", INPUTS_STOP}},
      {"-i a.las -e x*",
       {"ERROR: no match for x* in directory ./",
        "ERROR: missing or duplicate excluded files, cannot proceed"}},
      {"-i a.las -exclude_list x.lst",
       {"ERROR: could not find list of files x.lst",
        "ERROR: missing or duplicate excluded files, cannot proceed"}},
      {"-l twice.lst", {"ERROR: duplicate file ./a.las", INPUTS_STOP}},
      {"-i a.las -ref_list lost.lst",
       {"ERROR: duplicate file a.las", "ERROR: could not find file x.las", INPUTS_STOP}},
      {"-i a.las -chgrp 0 1", {"ERROR: 2 channel numbers provided, expected 1 (1 per mobile group)"}},
      {"-i a.las -i b.las -chgrp 1 0", {"ERROR: syntax error in option -chgrp, group 0 must be 0"}},
      {"-i a.las -i b.las -chgrp 1 2", {"ERROR: channel 0 (first channel) is missing from option -chgrp"}},
      {"-i a.las -i b.las -chgrp 0 2", {"ERROR: syntax error in option -chgrp, check groups 0,1"}},
      {"-align -i a.las -po t.out -out *",
       {"ERROR: output file ./a.las would overwrite an input file, use -out or -odir"}},
  });
}

TEST_F(Messages, TrajectoriesAndMounts) {
  const Args align = "-align -i a.las -out *_c.las";
  const auto with = [&align](const Args& more) { return align + more; };
  const auto two = [&with](const Args& more) { return with(Args("-i b.las -po t.out -po u.out") + more); };
  expect({
      {with({}), {"ERROR: PO files required for correction: give the trajectories (-po)"}},
      {with("-po t.out t.out"), {"ERROR: duplicate file t.out", PO_STOP}},
      {with("-po_list x.lst"), {"ERROR: could not find list of files x.lst", PO_STOP}},
      {with("-po t.out -po u.out"), {"ERROR: group size mismatch, 2 PO groups and 1 mobile swaths groups"}},
      {with("-po t.out -po_geo 1 0 -po_time 1 2 -po_rad 0 0 -po_parse t x -po_att 0 1"),
       {"ERROR: 2 po_geo flags provided, expected 1 or 1 (1 per group)",
        "ERROR: 2 po_time flags provided, expected 1 or 1 (1 per group)",
        "ERROR: 2 po_rad flags provided, expected 1 or 1 (1 per group)",
        "ERROR: 2 po_parse strings provided, expected 1 or 1 (1 per group)",
        "ERROR: 2 po_att flags provided, expected 1 or 1 (1 per group)"}},
      {two("-po_time 0 6"), {"ERROR: PO time format 6 for group 2 requires option -gps_date for conversion"}},
      {two({"-gps_date", "2025/02/30 ", "-po", "x"}), {"ERROR: could not find file x", PO_STOP}},
      {two("-gps_date 2025-13-01"),
       {"WARNING: using GPS date 2025-13-01 for all groups", "ERROR: date '2025-13-01' out of range"}},
      {two("-gps_date May 9999-01-01"),
       {"ERROR: invalid date 'May', ISO 8601 format required (YYYY-MM-DD)",
        "ERROR: date '9999-01-01' out of range"}},
      {two("-gps_date 2025-01-01 2025-01-02 2025-01-03"),
       {"ERROR: 3 GPS dates provided, expected 1 or 2 (1 per group)"}},
      {two("-mount six.txt -bore 1 2 3"),
       {"ERROR: option -mount cannot be used together with -bore or -imu"}},
      {two("-imu 1 2 3 4 -bore 1 2 3 4 5"),
       {"ERROR: option -imu has 4 arguments, multiple of 3 required",
        "ERROR: option -bore has 5 arguments, multiple of 3 required"}},
      {two("-mount two.txt"),
       {"WARNING: using mount file two.txt for all groups",
        "ERROR: no BODY/IMU rotation angles found in mount file two.txt",
        "ERROR: missing mount files, cannot proceed"}},
      {two("-mount three.txt -po x"), {"WARNING: no boresight angle found in mount file three.txt"}},
  });
}

TEST_F(Messages, FilesOfManualCorrections) {
  const Args corr = "-corr -i a.las -i b.las -po t.out -po u.out -out *_c.las";
  const auto with = [&corr](const Args& more) { return corr + more; };
  expect({
      {with("-shift_corr two.txt"),
       {"WARNING: using shift file two.txt for all groups", "ERROR: no 3D shift vector found in file two.txt",
        "ERROR: missing shift files, cannot proceed"}},
      {with("-shift_corr three.txt three.txt three.txt"),
       {"ERROR: group size mismatch, 3 shift files and 2 groups"}},
      {with("-calib_corr three.txt"),
       {"WARNING: using calibration file three.txt for all groups",
        "ERROR: no calibration corrections (3 lever, 3 bore) found in file three.txt",
        "ERROR: missing calibration files, cannot proceed"}},
      {with("-calib_corr six.txt x.txt"),
       {"WARNING: not all 7 internal corrections found in file six.txt", "ERROR: could not find file x.txt",
        "ERROR: missing calibration files, cannot proceed"}},
      {with("-calib_corr six.txt six.txt six.txt"),
       {"ERROR: group size mismatch, 3 calibration files and 2 groups"}},
  });
}

TEST_F(Messages, FaultsOfOptionFiles) {
  const auto fault = [](const char* text, const std::string& message) {
    return Mistake{"-i a.las", {"ERROR: " + message + " of option file 'f.xml'"}, text};
  };
  expect({
      {"-opt", {"ERROR: option -opt needs one argument (option file)"}},
      {"-opt no.xml", {"ERROR: could not read option file no.xml"}},
      fault("mem 2048\r\n", "invalid mix of \\r and \\n delimiters at line 1"),
      fault("mem 2048\n\nx <flight>\n", "extra text before tag delimiter < at line 3"),
      fault("<flight> x\n", "extra text after tag delimiter > at line 1"),
      fault("# remark\n<a<b>\n", "mismatched tag delimiters at line 2"),
      fault("<flight\n", "missing tag delimiter at line 1"),
      fault("<a><b><c>\n", "too many tags (maximum two per line) at line 1"),
      fault("<input ch=\"0>\n", "missing quotes at line 1"),
      fault("<>\n", "empty tag at line 1"),
      fault("</flight>\n", "extra closing tag </flight> at line 1"),
      fault("<a>\n</b>\n", "mismatched tags <a>  and </b> at line 2"),
      fault("<a>\n<b>\n<A>\n", "nested tag <A> detected at line 3"),
      fault("<opt>\nname \"x\n", "missing quotes at line 2"),
      fault("\n12 3\n", "invalid option: -12 at line 2"),
      {"-i a.las", {"ERROR: extra tags 2 (closing tags missing) in option file f.xml"}, "<a>\n<b>\n"},
      {"-i a.las", {"ERROR: unknown options: -zzz "}, "zzz\n"},
  });
  write_text(program.base + ".opt.txt", "mem 2048\n12 3\n\nname 'x\n");
  const std::string where = " of persistent option file " + program.base + ".opt.txt";
  expect({{"-i a.las",
           {"ERROR: invalid option: -12 at line 2" + where, "ERROR: invalid option: -name at line 4" + where,
            ARGS_STOP}}});
}

TEST_F(Messages, FaultsOfTheTaggedTree) {
  const auto fault = [](const char* text, const std::vector<std::string>& messages) {
    Mistake m{{}, {}, text};
    for (const std::string& message : messages) m.lines.push_back("ERROR: " + message);
    return m;
  };
  expect({
      fault("<po geo></po>\n", {"attribute syntax error for tag <po>", "Line: <po geo>"}),
      fault("<fly></fly>\n", {"unknown tag <fly>"}),
      fault("<input>a.las</input>\n", {"<input> must be defined inside <flight>, input/channel #1"}),
      fault("<flight></flight>\n", {"empty flight #1"}),
      fault("<flight>\n<input ch=1>a.las</input>\n</flight>\n",
            {"channel and 'ch' attribute mismatch, input/channel #1"}),
      fault("<flight>\n<input>x.las</input>\n<po>x.out</po>\n</flight>\n<ref>y.las</ref>\n",
            {"could not find file x.las", "failed to add files to input/channel #1",
             "could not find file x.out", "failed to add PO files to flight #1", "could not find file y.las",
             "failed to add reference files"}),
      fault("<ref>a.las</ref>\n<ref>b.las</ref>\n", {"multiple <ref> detected"}),
      fault("<flight>\n<input>a.las</input>\n</flight>\n<ref>a.las</ref>\n",
            {"duplicate files, some references are also inputs"}),
      fault("<flight>\n<input>\na.las\n<map>\n1\n</map>\n</input>\n</flight>\n",
            {"<map> must be defined inside split <input>, flight #1"}),
      fault("<bore>\n1 2 3\n</bore>\n", {"<bore> must be defined inside split <input>, flight #0"}),
      fault("<flight>\n<input split=sd n=4>a.las</input>\n</flight>\n",
            {"n=2 required for split type sd, input/channel #1"}),
      fault("<flight>\n<input split=ud>a.las</input>\n</flight>\n",
            {"attribute 'n' required for split type ud, input/channel #1"}),
      fault("<flight>\n<input split=ud n=2>a.las</input>\n</flight>\n",
            {"option -split is not available yet: swaths are not split into channels or beams"}),
  });
  const Mistake overridden = {
      "-i b.las -po t.out -G 1 -splitgrp 1",
      {"WARNING: tagged option file overrides LiDAR input options -i -l -r -ref_list -chgrp",
       "WARNING: tagged option file overrides PO input options -po -po_list",
       "WARNING: tagged option file overrides PO parameter options -po_parse -G -R -A "
       "-gps_date -attrec -mount",
       "WARNING: tagged option file overrides split options -split -splitgrp -split_mount"},
      "<flight>\n<input>x.las</input>\n</flight>\n"};
  expect({overridden});
}
}  // namespace veld

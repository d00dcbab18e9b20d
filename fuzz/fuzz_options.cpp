// fuzz/fuzz_options.cpp
// Option files: the first byte says whether the rest is a tagged file or a persistent one. What was read is
// saved and must read again to the same.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "fuzz/fuzz_file.h"
#include "lib/general/logfiles.h"
#include "lib/optparser/optparser.h"

namespace veld {
namespace {
const std::vector<std::string> LIST_TAGS = {"map", "bore", "input", "po", "ref"};

bool read(OptParser& p, const std::string& option_file, const std::string& base) {
  std::vector<std::string> args = {"prog", "-x", "1"};
  if (!option_file.empty()) args.insert(args.end(), {"-opt", option_file});
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  return InitGetOptAll(p, static_cast<int>(argv.size()), argv.data(), base, LIST_TAGS);
}

std::string unused(const OptParser& p) {
  std::string text;
  for (const OptToken& token : p.args)
    if (!token.used) text += token.text + '\n';
  return text;
}

// All questions of a program with a handful of options.
void ask(OptParser& p) {
  int64_t whole = 0;
  double real = 0;
  std::string text;
  std::vector<std::string> list;
  Vector<int> ints;
  Vector<double> reals{0, 0, 0};
  for (p.mode = 1; p.mode >= 0; p.mode--) {
    GetOptFlag(p, "flag", "f");
    GetOptInt(p, whole, "mem", "", 1024, 262144);
    GetOptInt(p, whole, "uav", "u", 0, 1);
    GetOptDouble(p, real, "ppp", "s", true, 1, 16);
    GetOptString(p, text, "cal", "C");
    GetOptFileName(p, text, "name", "");
    GetOptInts(p, ints, "chgrp", "g", 0, 31, 1, 32);
    GetOptDoubles(p, reals, "shift", "", {-10}, {10});
    GetOpt(p, list, "input", "i", 1, 256, true);
  }
  (void)CheckUnknownOpt(p);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t nbytes) {
  if (nbytes < 1) return 0;
  set_console(false);
  static const int home = open(".", O_RDONLY | O_DIRECTORY);
  const bool tagged = bytes[0] % 2 == 0;
  const std::string name = fuzz_file(bytes + 1, nbytes - 1, ".opt.txt");
  const std::string base = name.substr(0, name.size() - 8), saved = base + ".xml";
  OptParser p;
  if (read(p, tagged ? name : "", tagged ? "/nowhere" : base)) {
    if (tagged && !p.error) {
      SaveOptionFile(p, saved, "SOFT", "/dir/");
      OptParser q;
      if (!read(q, saved, "/nowhere")) std::abort();
      // The saved file holds "-x 1" of the command line, which comes once more.
      if (unused(q) != unused(p) + "-x\n1\n" || q.taglist != p.taglist) std::abort();
    }
    ask(p);
  }
  unlink(name.c_str());
  unlink(saved.c_str());
  if (fchdir(home) != 0)
    std::abort();  // an option file names the directory to work in; the corpus lies in ours
  return 0;
}
}  // namespace veld

// Every command that README, help and man page show runs as it is printed, through a shell, on a simulated project.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "las/las_access.h"
#include "prj/LiDAR/options/manual.h"
#include "tests/run/program.h"

namespace veld {
namespace {
namespace fs = std::filesystem;
const std::string CALL = "veldrunner ";

// Copies a swath, with the key of its coordinate system; unit: metres per unit of the copy.
bool convert(const std::string& from, const std::string& to, double unit) {
  const auto in = las_read_open(from, "xyzt", false);
  if (!in) return false;
  LASheader header = in->header;
  const uint16_t linear = unit == 1 ? 9001 : 9003, code = 32633;
  LASvlr keys;
  set_las_text(keys.user_id, "LASF_Projection");
  keys.record_id = 34735;
  for (const int v : {1, 1, 0, 3, 1024, 0, 1, 1, 3072, 0, 1, int{code}, 3076, 0, 1, int{linear}})
    for (const int byte : {v & 255, v >> 8}) keys.data.push_back(static_cast<uint8_t>(byte));
  header.vlrs.push_back(keys);
  for (double* const v : {&header.x_scale_factor, &header.y_scale_factor, &header.z_scale_factor,
                          &header.x_offset, &header.y_offset, &header.z_offset})
    *v /= unit;
  auto out = las_write_open(to, header, "xyzt");
  bool ok = out != nullptr;
  while (ok && in->read_point()) ok = out->write_point(in->point);
  return las_write_close(out) && ok;
}

std::vector<std::string> words_of(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> words;
  for (std::string word; in >> word;) {
    std::erase(word, '\'');
    words.push_back(word);
  }
  return words;
}

// What follows an option on the line, up to the next one.
std::vector<std::string> arguments(const std::string& line, const std::string& option) {
  std::vector<std::string> found;
  bool of_option = false;
  for (const std::string& word : words_of(line))
    if (word[0] == '-')
      of_option = word == option;
    else if (of_option)
      found.push_back(word);
  return found;
}

// Name of a file that a pattern matches: "old*.las" -> "old1.las", "*.out" -> "traj.out".
std::string file_of(const std::string& pattern, const std::string& stem) {
  std::string name = pattern;
  const size_t star = name.find('*');
  if (star != std::string::npos) name.replace(star, 1, star == 0 ? stem : "1");
  return name;
}

struct Examples : testing::Test {
  static TempDir* clean;  // the project: L01 to L03, REF01, trajectories
  static void SetUpTestSuite() {
    clean = new TempDir;
    for (const char* const rest :
         {"trj -pulse_rate 100", "pof -pulse_rate 100", "sbet"})  // the last has the swaths
      simulate(clean->path, std::string("-preset tiny -ref 1 -po_format ") + rest);
    std::string bytes = read_text(clean->path + "/traj.trj");  // to adjusted standard GPS time
    for (size_t at = 1376; at + 64 <= bytes.size(); at += 64) {
      double t = 0;
      std::memcpy(&t, bytes.data() + at, sizeof t);
      t += 2301 * 604800.0 - 1e9;
      std::memcpy(bytes.data() + at, &t, sizeof t);
    }
    write_text(clean->path + "/traj.trj", bytes);
  }
  static void TearDownTestSuite() { delete clean; }

  static void put_swath(const Program& p, const std::string& source, const std::string& name, double unit) {
    ASSERT_TRUE(convert(clean->path + "/" + source + ".las", p.work.path + "/" + name, unit)) << name;
  }
  // The files and directories that a command names.
  static void prepare(const Program& p, const std::string& line) {
    const std::string& dir = p.work.path;
    const double unit = line.find("-feet_us") == std::string::npos ? 1 : 1200.0 / 3937;
    std::vector<std::string> inputs = arguments(line, "-i");
    if (inputs.size() == 1 && inputs[0].find('*') != std::string::npos) {
      const std::string ext = fs::path(inputs[0]).extension();
      inputs = {"L01" + ext, "L02" + ext, "L03" + ext};
    }
    for (size_t i = 0; i < inputs.size(); i++) put_swath(p, "L0" + std::to_string(i + 1), inputs[i], unit);
    for (const std::string& name : arguments(line, "-r")) put_swath(p, "REF01", file_of(name, "R"), unit);
    for (const std::string& name : arguments(line, "-po")) {
      const std::string file = file_of(name, "traj");
      fs::copy_file(clean->path + "/traj" + fs::path(file).extension().string(), dir + "/" + file);
    }
    for (const char* const option : {"-odir", "-odir_1", "-tmpdir"})
      for (const std::string& name : arguments(line, option)) fs::create_directory(dir + "/" + name);
    for (const std::string& name : arguments(line, "-gcp"))
      write_text(dir + "/" + name, "G1 500000 5321000 500\n");
  }
  static RunOutput shell(const Program& p, const std::string& line) {
    const std::string out = p.home.path + "/out.txt", err = p.home.path + "/err.txt";
    write_text(p.home.path + "/example.sh",
               "PATH=" + p.home.path + ":$PATH\ncd " + p.work.path + "\n" + line + "\n");
    const int status = std::system(("sh " + p.home.path + "/example.sh >" + out + " 2>" + err).c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_text(out), read_text(err)};
  }
};
TempDir* Examples::clean = nullptr;

// Commands of README.md: code blocks and backticks. A name in capitals stands for any: the default one.
std::vector<std::string> readme_commands(const std::string& text) {
  std::vector<std::string> found;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("    " + CALL, 0) == 0) found.push_back(line.substr(4));
    for (size_t at = line.find("`" + CALL); at != std::string::npos; at = line.find("`" + CALL, at + 1))
      found.push_back(line.substr(at + 1, line.find('`', at + 1) - at - 1));
  }
  for (std::string& command : found)
    if (const size_t at = command.find("NAME"); at != std::string::npos) command.replace(at, 4, "project");
  return found;
}
const std::string& readme() {
  static const std::string text = read_text(SOURCE_PATH "/README.md");
  return text;
}
}  // namespace

TEST_F(Examples, OfTheReadmeRunAsPrinted) {
  const std::vector<std::string> commands = readme_commands(readme());
  ASSERT_GT(commands.size(), 8u);
  for (const std::string& command : commands) {
    SCOPED_TRACE(command);
    const Program p;
    prepare(p, command);
    std::string before;  // whose result the command needs
    if (command.find("-corr result") != std::string::npos) before = "veldrunner -reg -i '*.laz' -name result";
    if (command.find("-opt out/") != std::string::npos) before = commands[0];
    if (!before.empty()) {
      if (arguments(command, "-i").empty()) prepare(p, before);
      const RunOutput r = shell(p, before);
      ASSERT_EQ(r.code, 0) << r.err;
    }
    const RunOutput r = shell(p, command);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.err, "");
  }
}

TEST_F(Examples, OfHelpAndManPageRunAsPrinted) {
  const Program p0;
  const std::string help = shell(p0, "veldrunner -help").out, manual = man_page_text();
  std::istringstream lines(help.substr(0, help.find("OPTIONS AND ARGUMENTS")));
  int nexamples = 0;
  for (std::string line, meaning; std::getline(lines, line);) {
    if (line.rfind("  " + CALL, 0) != 0 || !std::getline(lines, meaning)) continue;
    SCOPED_TRACE(line);
    nexamples++;
    std::string roff;
    for (const char c : line.substr(2)) roff += c == '-' ? "\\-" : std::string(1, c);
    EXPECT_TRUE(holds(manual, "\n.B " + roff + "\n"));
    const Program p;
    prepare(p, line);
    if (holds(line, "-corr result")) {
      const std::string before = "veldrunner -reg -i *.laz -name result";
      prepare(p, before);
      ASSERT_EQ(shell(p, before).code, 0);
    }
    if (holds(line, "-undo")) {  // needs corrected files
      const std::string before = "veldrunner -align -utm 33 -i *.laz -po traj.out -oundo";
      prepare(p, before);
      ASSERT_EQ(shell(p, before).code, 0);
    }
    const RunOutput r = shell(p, line);
    const bool missing = holds(meaning, "(not available yet: ");
    EXPECT_EQ(r.code, missing ? 1 : 0) << r.err;
    EXPECT_EQ(holds(r.err, " is not available yet: "), missing) << r.err;
  }
  EXPECT_GE(nexamples, 9);
}

// The project file of README: two flights, the first with two channels and a text trajectory of day seconds.
TEST_F(Examples, TheProjectFileOfTheReadmeIsOne) {
  const Program p;
  const std::string& dir = p.work.path;
  const size_t first = readme().find("    <flight>"), end = readme().find("\n\n", first);
  std::string text, line;
  for (std::istringstream in(readme().substr(first, end - first)); std::getline(in, line);)
    text += line.substr(4) + "\n";
  write_text(dir + "/project.xml", text);

  const TempDir sim;
  const std::string flight =
      "-preset tiny -lines 3 -ref 1 -channels 2 -tilt1 0 -roll1 0 -pitch1 0.3 -yaw1 0.1 -po_geo 0";
  ASSERT_TRUE(simulate(sim.path, flight + " -pulse_rate 100 -po_parse txyzwpk") &&
              simulate(sim.path, flight + " -pulse_rate 3000"));
  const struct {
    const char *from, *to;
  } files[] = {{"L01_c0", "f1_c0_1.laz"}, {"L02_c0", "f1_c0_2.laz"}, {"L01_c1", "f1_c1_1.laz"},
               {"L02_c1", "f1_c1_2.laz"}, {"L03_c0", "f2_3.laz"},    {"L04_c0", "f2_4.laz"},
               {"REF01", "ground1.las"}};
  for (const auto& f : files)
    ASSERT_TRUE(convert(sim.path + "/" + f.from + ".las", dir + "/" + f.to, 1)) << f.from;
  fs::copy_file(sim.path + "/traj.out", dir + "/f2.out");
  std::istringstream in(read_text(sim.path + "/traj.txt"));
  std::ostringstream seconds;  // of the day, UTC
  seconds.precision(12);
  while (std::getline(in, line)) {
    const size_t blank = line.find(' ');
    seconds << std::fmod(std::stod(line.substr(0, blank)) + 1e9 - 18, 86400) << line.substr(blank) << '\n';
  }
  write_text(dir + "/f1.txt", seconds.str());
  const RunOutput r = shell(p, "veldrunner -opt project.xml");
  EXPECT_EQ(r.code, 0) << r.err;
  EXPECT_FALSE(holds(r.err, "WARNING"))
      << r.err;  // three calibrations of four lines are correlated: an ERROR line
  for (const char* const name : {"/f1_c0_1_c.laz", "/f1_c1_2_c.laz", "/f2_4_c.laz"})
    EXPECT_TRUE(exists(dir + name));
}
}  // namespace veld

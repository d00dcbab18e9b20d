// torture SECONDS [series...]: series of hostile runs of the program for so long, with figures; ends with 1 when
// one of them did harm. Series: faults kills signals flips pairs disks; default all.
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>

#include "tests/run/hostile_runs.h"

namespace veld {
namespace {
using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

struct Series {  // what a series works with until its time is over
  const HostileProject& project;
  std::mt19937_64 random;
  Clock::time_point end;
  double run_seconds;  // of an undisturbed run
  bool goes_on() const { return Clock::now() < end; }
  long below(long n) { return static_cast<long>(random() % static_cast<uint64_t>(n)); }
};

void pause_seconds(double s) { usleep(static_cast<useconds_t>(s * 1e6)); }

// Every kind of call in turn, at places that halve the gaps between those tried before.
void faults(Series& s, Tally& tally) {
  std::vector<FaultKind> kinds = count_calls(s.project);
  for (long round = 0; s.goes_on(); round++)
    for (const FaultKind& kind : kinds) {
      if (!s.goes_on()) return;
      const bool io = kind.name == "read" || kind.name == "write";
      const char* const how = !io || round % 3 == 0 ? "fail" : round % 3 == 1 ? "short" : "eintr";
      if (round < 2 * kind.calls) inject_fault(s.project, kind.name, 1 + s.below(kind.calls), how, tally);
    }
}

// Several kills one after the other on the same directories, then a run to the end.
void kills(Series& s, Tally& tally) {
  while (s.goes_on()) {
    if (s.below(3) == 0) s.project.clear();
    const long n = 1 + s.below(6);
    for (long i = 0; i < n; i++) {
      const pid_t pid = s.project.program.start(s.project.args(1, 1 + static_cast<int>(s.below(2))));
      pause_seconds(s.run_seconds * static_cast<double>(s.below(1000)) / 1000);
      kill(pid, SIGKILL);
      const RunOutput r = s.project.program.finish(pid);
      tally.tried++;
      (r.code == -1 ? tally.ended : tally.went_on)++;
      if (r.code != -1 && r.code != 0)
        tally.crashed++, tally.notes += "kill: code " + std::to_string(r.code) + r.err;
    }
    undisturbed_run(s.project, "kill", tally);
  }
}

// Signals within the first 100 ms. A run that has not begun dies by them, one that has ends in order.
void signals(Series& s, Tally& tally) {
  const int numbers[] = {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGALRM};
  while (s.goes_on()) {
    s.project.clear();
    for (int i = 0; i < 50 && s.goes_on(); i++) {
      const int number = numbers[s.below(5)];
      Args args = s.project.args(1);
      args.erase(args.begin());  // -mul: the lock of the instance takes part
      const pid_t pid = s.project.program.start(args);
      pause_seconds(static_cast<double>(s.below(1000)) / 10000);
      kill(pid, number);
      const RunOutput r = s.project.program.finish(pid);
      tally.tried++;
      const bool own = r.code == -1 || (r.code > 128 && r.code <= 160);
      (own ? tally.ended : tally.went_on)++;
      if (!own && r.code != 0)
        tally.crashed++, tally.notes += "signal: code " + std::to_string(r.code) + r.err;
      if (exists(s.project.program.base + ".lock") && r.code != -1) {
        tally.locks++;
        tally.notes += "signal: the lock of the instance is left, code " + std::to_string(r.code) + "\n";
      }
      std::filesystem::remove(s.project.program.base + ".lock");
      const std::string log = s.project.program.log();
      if (r.code != -1 && !log.empty() && !holds(log, "\nLog ended: "))
        tally.partial++, tally.notes += "signal: open log, code " + std::to_string(r.code) + "\n";
    }
    undisturbed_run(s.project, "signal", tally);
  }
}

// A few bits of the caches flipped between two runs.
void flips(Series& s, Tally& tally) {
  s.project.clear();
  undisturbed_run(s.project, "flip", tally);
  while (s.goes_on()) {
    std::vector<std::string> caches = s.project.caches();
    std::string what = "flip";
    for (int i = 0; i < 3 && !caches.empty(); i++) {
      const std::string path = caches[static_cast<size_t>(s.below(static_cast<long>(caches.size())))];
      std::string bytes = read_text(path);
      if (bytes.empty()) continue;
      const long bit = s.below(static_cast<long>(bytes.size()) * 8);
      bytes[static_cast<size_t>(bit / 8)] =
          static_cast<char>(bytes[static_cast<size_t>(bit / 8)] ^ (1 << bit % 8));
      write_text(path, bytes);
      what += " " + path.substr(path.rfind('/') + 1) + " bit " + std::to_string(bit);
      tally.tried++;
    }
    // Now and then grids have to be made again, for which the points are read.
    if (s.below(4) == 0)
      for (const std::string& path : caches)
        if (path.ends_with(".gmT.idx")) std::filesystem::remove(path);
    const int before = tally.bad();
    undisturbed_run(s.project, what, tally);
    tally.went_on += tally.bad() == before;
  }
}

// Two to four runs at a time, from nothing or from what is there; sometimes one is killed.
void pairs(Series& s, Tally& tally) {
  std::vector<std::unique_ptr<Program>> programs;
  for (int n = 2; n <= 4; n++) programs.push_back(std::make_unique<Program>());
  const auto program = [&](int n) -> const Program& {
    return n == 1 ? s.project.program : *programs[static_cast<size_t>(n - 2)];
  };
  while (s.goes_on()) {
    if (s.below(4) > 0) s.project.clear();
    for (int n = 1; n <= 4; n++) s.project.clear_results(n);
    const int nruns = 2 + static_cast<int>(s.below(10) > 6) + static_cast<int>(s.below(10) > 8);
    const int killed = s.below(5) == 0 ? 1 + static_cast<int>(s.below(nruns)) : 0;
    std::vector<pid_t> pids;
    for (int n = 1; n <= nruns; n++) {
      pids.push_back(program(n).start(s.project.args(n, 1 + static_cast<int>(s.below(2))),
                                      [&] { (void)!chdir(s.project.dir.c_str()); }));
      if (s.below(2)) pause_seconds(s.run_seconds * static_cast<double>(s.below(1000)) / 2000);
    }
    if (killed > 0) kill(pids[static_cast<size_t>(killed - 1)], SIGKILL);
    tally.tried++;
    for (int n = 1; n <= nruns; n++) {
      const RunOutput r = program(n).finish(pids[static_cast<size_t>(n - 1)]);
      if (n == killed) continue;
      const std::string what = "pair of " + std::to_string(nruns) + ", run " + std::to_string(n);
      const std::string differences = s.project.differences(n);
      if (r.code == 0 && differences.empty()) tally.went_on++;
      if (r.code == 0 && !differences.empty()) tally.silent++, tally.notes += what + ": " + differences;
      if (r.code != 0) tally.crashed++, tally.notes += what + ": " + std::to_string(r.code) + " " + r.err;
    }
    for (const std::string& name : s.project.caches())
      if (killed == 0 && (name.ends_with(".lock") || name.ends_with(".part") || name.ends_with(".poc")))
        tally.locks++, tally.notes += "pair: left " + name + "\n";
    for (int n = 2; n <= 4; n++)
      for (const auto& entry : std::filesystem::directory_iterator(program(n).home.path))
        if (entry.path().extension() == ".log") std::filesystem::remove(entry.path());
    if (killed > 0) undisturbed_run(s.project, "pair", tally);
  }
}

// Temporary directories of a few hundred KB to some MB.
void disks(Series& s, Tally& tally) {
  while (s.goes_on()) {
    s.project.clear();
    const Args args = s.project.args(1);
    const std::string dir = s.project.dir + "/t", size = "size=" + std::to_string(200 + s.below(4000)) + "k";
    if (mount("tmpfs", dir.c_str(), "tmpfs", 0, size.c_str()) != 0) {
      std::printf("disks: skipped, no tmpfs can be mounted here\n");
      return;
    }
    const RunOutput r = s.project.program.run(args);
    tally.tried++;
    if (r.code == 0 && s.project.differences().empty()) tally.went_on++;
    if (r.code == 0 && !s.project.differences().empty())
      tally.silent++, tally.notes += "disk " + size + s.project.differences();
    if (r.code == 1 && holds(r.err, "No space left on device")) tally.ended++;
    if (r.code == 1 && !holds(r.err, "No space left on device"))
      tally.wordless++, tally.notes += "disk " + size + r.err;
    if (r.code != 0 && r.code != 1) tally.crashed++, tally.notes += "disk " + size + r.err;
    if (r.code != 0 && !s.project.partial_results().empty())
      tally.partial++, tally.notes += "disk " + size + s.project.partial_results();
    mount("tmpfs", dir.c_str(), "tmpfs", MS_REMOUNT, "size=64m");  // room is made
    undisturbed_run(s.project, "disk " + size, tally);
    umount(dir.c_str());
  }
}

struct Row {
  const char* name;
  void (*run)(Series&, Tally&);
  double share;  // of the time
};
const Row ROWS[] = {{"faults", faults, 4}, {"kills", kills, 3}, {"signals", signals, 2},
                    {"flips", flips, 4},   {"pairs", pairs, 4}, {"disks", disks, 1}};

bool chosen(const char* name, int argc, char** argv) {
  for (int i = 2; i < argc; i++)
    if (std::strcmp(argv[i], name) == 0) return true;
  return argc <= 2;
}
}  // namespace
}  // namespace veld

int main(int argc, char** argv) {
  using namespace veld;
  const double seconds = argc > 1 ? std::atof(argv[1]) : 120;
  const Clock::time_point start = Clock::now();
  const HostileProject project;
  if (project.good.empty()) {
    std::printf("the undisturbed run failed\n");
    return 1;
  }
  double run_seconds = 1e9;  // the shortest of some: other work on the machine must not count
  for (int i = 0; i < 4; i++) {
    project.clear();
    const Clock::time_point timed = Clock::now();
    project.align();
    run_seconds = std::min(run_seconds, seconds_since(timed));
  }
  project.clear();
  std::printf("an undisturbed run takes %.2f s; %zu results are compared\n", run_seconds,
              project.good.size());
  double shares = 0;
  for (const Row& row : ROWS) shares += chosen(row.name, argc, argv) ? row.share : 0;
  int nbad = 0;
  const unsigned seed = std::random_device{}();
  std::printf("seed %u\n%-8s %6s %6s %6s %6s %8s %7s %7s %6s %6s\n", seed, "series", "tried", "ended",
              "goes on", "silent", "wordless", "crashed", "partial", "rerun", "left");
  for (const Row& row : ROWS) {
    if (!chosen(row.name, argc, argv)) continue;
    const auto span = std::chrono::duration<double>(seconds * row.share / shares);
    Series s{project, std::mt19937_64(seed), Clock::now() + std::chrono::duration_cast<Clock::duration>(span),
             run_seconds};
    Tally t;
    row.run(s, t);
    std::printf("%-8s %6d %6d %7d %6d %8d %7d %7d %6d %6d\n%s", row.name, t.tried, t.ended, t.went_on,
                t.silent, t.wordless, t.crashed, t.partial, t.bad_rerun, t.locks, t.notes.c_str());
    std::fflush(stdout);
    nbad += t.bad();
  }
  std::printf("%d of them did harm, %.0f s\n", nbad, seconds_since(start));
  return nbad > 0;
}

// Single calls of the C library fail in a whole run: it ends with its message or goes on rightly, nothing partial
// has a final name, and the next run gives the undisturbed bytes. A sample; "make torture" does many more.
#include <gtest/gtest.h>

#include "tests/run/hostile_runs.h"

#ifndef VELD_SANITIZED  // sanitizers come with a library of their own to preload
namespace veld {
TEST(Faults, ASampleOfEachKindEndsInOrderOrDoesNoHarm) {
  const HostileProject& project = hostile_project();
  ASSERT_FALSE(project.good.empty());
  Tally all;
  bool late = false;
  for (const FaultKind& kind : count_calls(project)) {
    ASSERT_GT(kind.calls, 0) << kind.name;
    const bool io = kind.name == "read" || kind.name == "write";
    late = !late;
    for (const double place : {0.2, 0.7})  // reads and writes fail at both, the others early or late
      if (io || (place > 0.5) == late)
        inject_fault(project, kind.name, 1 + static_cast<long>(place * static_cast<double>(kind.calls)),
                     "fail", all);
    for (const char* const how : {"short", "eintr"})
      if (io) inject_fault(project, kind.name, kind.calls / 3, how, all);
  }
  EXPECT_GT(all.ended, 3);
  EXPECT_EQ(all.bad(), 0) << all.notes;
}

// Without the first thread nothing reports signals: a run does not begin. All others are helpers.
TEST(Faults, WorkIsDoneByTheThreadsThatThereAre) {
  const HostileProject& project = hostile_project();
  ASSERT_FALSE(project.good.empty());
  Tally all;
  for (const long n : {2L, 3L, 9L}) inject_fault(project, "thread", n, "from", all, 3);
  EXPECT_EQ(all.went_on, 3) << all.notes;
  EXPECT_EQ(all.bad(), 0) << all.notes;
}
}  // namespace veld
#endif

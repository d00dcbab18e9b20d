// Locks that are files: who gets them, from whom they are taken over, and that they hold.
#include "lib/general/file_lock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <filesystem>
#include <functional>

#include "lib/general/logfiles.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
pid_t in_child(const std::function<void()>& work) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  work();
  _exit(0);
}

pid_t ended_process() {
  const pid_t pid = in_child([] {});
  waitpid(pid, nullptr, 0);
  return pid;
}

void set_age(const std::string& path, time_t seconds) {
  const timespec then = {time(nullptr) - seconds, 0}, times[2] = {then, then};
  utimensat(AT_FDCWD, path.c_str(), times, 0);
}
}  // namespace

TEST(FileLock, IsTakenOverFromThoseWhoAreGoneAndFromNobodyElse) {
  const TempDir dir;
  const std::string path = dir.path + "/x.lock", here = own_host();
  const struct {
    const char* what;
    std::string content;
    time_t age;
    LockState state;
  } cases[] = {
      {"ended process", std::to_string(ended_process()) + " 5 " + here + "\n", 0, LockState::held},
      {"number used again", std::to_string(getpid()) + " 5 " + here + "\n", 0, LockState::held},
      {"running process", std::to_string(getppid()) + " - " + here + "\n", 10 * LOCK_STALE_S,
       LockState::busy},
      {"another host", "5 5 elsewhere\n", LOCK_STALE_S / 2, LockState::busy},
      {"another host, not refreshed", "5 5 elsewhere\n", 2 * LOCK_STALE_S, LockState::held},
      {"another container", std::to_string(ended_process()) + " 5 " + here + "+1\n", 0, LockState::busy},
      {"not yet written", "", 0, LockState::busy},
      {"never written", "", 2 * LOCK_STALE_S, LockState::held},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    write_text(path, c.content);
    set_age(path, c.age);
    {
      FileLock lock;
      EXPECT_EQ(lock.take(path, "x"), c.state);
      EXPECT_EQ(lock.held(), c.state == LockState::held);
      FileLock second;
      EXPECT_EQ(second.take(path, "x"), LockState::busy);
    }
    EXPECT_EQ(exists(path), c.state == LockState::busy);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path), {}), exists(path));
    std::filesystem::remove(path);
  }
  FileLock lock;
  EXPECT_EQ(lock.take(dir.path + "/none/x.lock", "x"), LockState::failed);
}

TEST(FileLock, ALostLockIsNotRemovedFromItsNewOwner) {
  const TempDir dir;
  const std::string path = dir.path + "/x.lock";
  {
    FileLock lock;
    ASSERT_EQ(lock.take(path, "x"), LockState::held);
    std::filesystem::remove(path);
    write_text(path, "5 5 elsewhere\n");
  }
  EXPECT_EQ(read_text(path), "5 5 elsewhere\n");
}

// Processes that add one to a number in a file, some of which are killed while they hold the lock.
TEST(FileLock, HoldsBetweenProcessesSomeOfWhichAreKilled) {
  const TempDir dir;
  const std::string path = dir.path + "/x.lock", file = dir.path + "/number";
  constexpr int PROCESSES = 6, ROUNDS = 40;
  write_text(file, "0");
  std::vector<pid_t> children;
  for (int p = 0; p < PROCESSES; p++)
    children.push_back(in_child([&, p] {
      for (int i = 0; i < ROUNDS; i++) {
        FileLock lock;
        if (!lock.wait(path, "the number")) _exit(1);
        const int number = std::stoi(read_text(file));
        usleep(200);
        write_text(file + own_tag(), std::to_string(number + 1));
        std::filesystem::rename(file + own_tag(), file);
        if (i == ROUNDS / 2 && p % 2 == 0) raise(SIGKILL);
      }
    }));
  int nkilled = 0;
  for (const pid_t pid : children) {
    int status = 0;
    waitpid(pid, &status, 0);
    nkilled += WIFSIGNALED(status);
    EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0);
  }
  EXPECT_EQ(nkilled, PROCESSES / 2);
  EXPECT_EQ(std::stoi(read_text(file)), PROCESSES / 2 * ROUNDS + PROCESSES / 2 * (ROUNDS / 2 + 1));
}

TEST(FileLock, WhatEndedRunsLeftIsRemoved) {
  const TempDir dir;
  const std::string dead = own_host() + "-" + std::to_string(ended_process());
  const std::string left[] = {"a.mT.XYZ." + dead + ".part", "a." + dead + ".poc",
                              "a.lock." + dead + "-3.gone"};
  const std::string kept[] = {"a.mT.XYZ." + own_tag() + ".part", "a.mT.XYZ", "a.elsewhere-5.part", "b.lock",
                              "a." + dead + "x.poc"};
  for (const std::string& name : left) write_text(dir.path + "/" + name, "x");
  for (const std::string& name : kept) write_text(dir.path + "/" + name, "5 5 elsewhere");
  write_text(dir.path + "/c.lock", std::to_string(ended_process()) + " 5 " + own_host());
  remove_orphans(dir.path + "/");
  for (const std::string& name : kept) EXPECT_TRUE(exists(dir.path + "/" + name)) << name;
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path), {}), 5);
}
}  // namespace veld

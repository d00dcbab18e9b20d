// lib/threads/pool.h
// Start-and-join worker pools. Work is cut into numbered units by the data, never by the schedule; each unit
// writes its own slot, and the caller adds the slots up in number order. So results do not depend on nthreads.
#pragma once
#include <atomic>
#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

namespace veld {
// Starts one more thread. False, after a line in the log, when the system gives none: the work is then done by
// those that there are.
bool add_thread(std::vector<std::thread>& threads, std::function<void()> work);

// Runs task(unit, thread) for unit = 0..nunits-1 on at most nthreads threads (the calling thread is one of
// them; with one thread no other is started). Units are handed out in order. A task that returns false stops
// the handing out; the result is the lowest failed unit, or -1 when all succeeded.
int64_t run_units(int64_t nunits, int nthreads, const std::function<bool(int64_t unit, int thread)>& task);
}  // namespace veld

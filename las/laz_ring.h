// las/laz_ring.h
// Chunks of one file on their way through coders on several threads: the owner queues them and takes them
// back in the same order; workers, and the owner while it waits, code those that are queued. Threads: the
// owner's calls come from one thread at a time. A slot belongs to the owner until it is queued and after it
// is taken; in between to the thread that codes it.
#pragma once
#include <algorithm>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "las/las_context.h"
#include "lib/threads/pool.h"

namespace veld {
template <typename Slot>
class ChunkRing {
 public:
  // `code` codes a slot on the thread of this number: 0 the owner, 1.. workers.
  using Code = std::function<void(Slot& slot, int thread)>;

  explicit ChunkRing(Code code, bool threaded = true)
      : code_(std::move(code)), caller_(std::this_thread::get_id()) {
    las_context().codecs.add_caller(caller_);
    nworkers_ = threaded ? std::clamp(las_context().codecs.threads() - 1, 0, MAX_WORKERS) : 0;
    slots_.resize(static_cast<size_t>(nworkers_ > 0 ? 2 * (nworkers_ + 1) : 1));
  }
  ~ChunkRing() {
    las_context().codecs.stop_waiting(stop_budget_);
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      stop_ = true;
    }
    change_.notify_all();
    for (std::thread& worker : workers_) worker.join();
    las_context().codecs.drop_caller(caller_);
  }
  ChunkRing(const ChunkRing&) = delete;
  ChunkRing& operator=(const ChunkRing&) = delete;

  int nthreads() const { return nworkers_ + 1; }
  // Chunks that are queued and not yet released.
  uint64_t pending() const { return tail_ - head_; }
  // May another chunk be queued? Fewer are held while other files share the threads.
  bool has_room() const {
    const int spare = nworkers_ > 0 ? las_context().codecs.spare() : 0;
    return pending() <
           std::min<uint64_t>(slots_.size(), spare > 0 ? 2 * static_cast<uint64_t>(spare + 1) : 1);
  }
  // The slot that is queued next, for the owner to fill.
  Slot& fill() { return slots_[tail_ % slots_.size()].slot; }
  void queue() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      slots_[tail_ % slots_.size()].state = State::queued;
      tail_++;
    }
    if (nworkers_ > 0 && pending() > 1) {  // a lone chunk is coded by the owner when it takes it
      while (workers_.size() < static_cast<size_t>(nworkers_))
        if (!add_thread(workers_, [this, thread = static_cast<int>(workers_.size()) + 1] { work(thread); }))
          nworkers_ =
              static_cast<int>(workers_.size());  // those that there are, or the owner alone, do the work
      change_.notify_all();
    }
  }
  // The oldest chunk, coded. It stays the owner's until release().
  Slot& take() {
    std::unique_lock<std::mutex> lock(mutex_);
    Held& oldest = slots_[head_ % slots_.size()];
    while (oldest.state != State::done) {
      if (Held* next = next_queued()) {
        code_unlocked(*next, 0, lock);
      } else {
        change_.wait(lock);
      }
    }
    return oldest.slot;
  }
  void release() {
    const std::lock_guard<std::mutex> lock(mutex_);
    slots_[head_ % slots_.size()].state = State::empty;
    head_++;
  }
  // Gives up all chunks; waits for those that are being coded.
  void clear() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (uint64_t i = head_; i < tail_; i++) {
      Held& held = slots_[i % slots_.size()];
      while (held.state == State::busy) change_.wait(lock);
      held.state = State::empty;
    }
    head_ = tail_;
  }

 private:
  static constexpr int MAX_WORKERS = 31;
  enum class State { empty, queued, busy, done };
  struct Held {
    Slot slot;
    State state = State::empty;
  };

  Held* next_queued() {
    for (uint64_t i = head_; i < tail_; i++)
      if (slots_[i % slots_.size()].state == State::queued) return &slots_[i % slots_.size()];
    return nullptr;
  }
  void code_unlocked(Held& held, int thread, std::unique_lock<std::mutex>& lock) {
    held.state = State::busy;
    lock.unlock();
    code_(held.slot, thread);
    lock.lock();
    held.state = State::done;
    change_.notify_all();
  }
  void work(int thread) {
    for (;;) {
      {
        std::unique_lock<std::mutex> lock(mutex_);
        change_.wait(lock, [this] { return stop_ || next_queued(); });
        if (stop_) return;
      }
      if (!las_context().codecs.acquire(stop_budget_)) return;
      {
        std::unique_lock<std::mutex> lock(mutex_);
        if (Held* next = stop_ ? nullptr : next_queued()) code_unlocked(*next, thread, lock);
      }
      las_context().codecs.release();
    }
  }

  Code code_;
  std::thread::id caller_;
  int nworkers_ = 0;
  std::vector<Held> slots_;
  uint64_t head_ = 0, tail_ = 0;  // written by the owner, under the lock
  std::mutex mutex_;
  std::condition_variable change_;
  bool stop_ = false;         // under mutex_
  bool stop_budget_ = false;  // under the budget's lock
  std::vector<std::thread> workers_;
};
}  // namespace veld

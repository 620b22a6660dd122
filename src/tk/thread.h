// Worker threads: tk_thread owns one operating-system thread that runs a
// tk_thread_functor.
//
// The functor's operator() loops: while is_finished() is false (and no stop
// was requested) it calls step(); at the end finish(), whose result is the
// functor's. The base answers false, waits 100 ms and does nothing, so a plain
// functor idles until it is asked to stop; a real one overrides the slots, or
// operator() itself as the converter does.
//
// Stopping. A thread is never killed. The destructor of tk_thread (and
// stop()) asks the functor to stop through request_stop(), which sets the
// functor's stop flag and, for a converter, its cancel flag (b_cancel); the
// conversion tests that flag between entries and between records. It then
// waits for the thread to end, at most stop_timeout() (3 s unless set). A
// functor that ignores the request is left running: the thread is detached,
// which is logged at level 3, and a functor the tk_thread owned is deleted
// by the thread itself when it ends. A detached functor that the tk_thread did
// not own must stay alive, as the converter does until the end of the process.
//
// Ownership: tk_thread deletes the functor at clean() when it owns it (the
// base create_functor makes one it owns; subclasses pass ownership through
// adopt()). A functor returned without adopt() belongs to its creator.
//
// Thread-safety: one owner thread calls start, is_running, clean, stop and the
// destructor. request_stop and stop_requested may be called from any thread.
// The functor's own members are used by the worker thread while it runs.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

namespace qb {

class tk_thread_functor {
 public:
  tk_thread_functor() = default;
  virtual ~tk_thread_functor() = default;
  tk_thread_functor(const tk_thread_functor&) = delete;
  tk_thread_functor& operator=(const tk_thread_functor&) = delete;

  // While is_finished() is false and no stop was requested, step(); then
  // finish(), whose result is returned.
  virtual int operator()();
  // The base answers false.
  virtual bool is_finished();
  // The base waits 100 ms (less when a stop is requested meanwhile).
  virtual void step();
  // The base does nothing and gives 0.
  virtual int finish();

  // Asks the functor to stop as soon as it can. Overrides must call the base.
  virtual void request_stop();
  [[nodiscard]] bool stop_requested() const { return stop_.load(std::memory_order_acquire); }

 protected:
  // Waits up to the given time; returns early, with true, when a stop is
  // requested.
  bool wait_for_stop(std::chrono::milliseconds timeout);

 private:
  std::atomic<bool> stop_{false};
  std::mutex stop_mutex_;
  std::condition_variable stop_signal_;
};

class tk_thread {
 public:
  static constexpr std::chrono::milliseconds default_stop_timeout{3000};

  // No thread and no functor yet. b_owner: the functor is deleted at clean().
  explicit tk_thread(bool b_owner = true);
  // Stops a running thread as described above, then cleans up. Quiet: never
  // throws.
  virtual ~tk_thread();
  tk_thread(const tk_thread&) = delete;
  tk_thread& operator=(const tk_thread&) = delete;

  // Starts a new thread on a new functor (create_functor). A running thread
  // is an internal error (source "tk_threa"); an ended one is cleaned first.
  void start();
  // True while the thread runs: there is one, and waiting 10 ms for its end
  // times out.
  [[nodiscard]] bool is_running() const;
  // Releases an ended thread and, when owned, deletes its functor. A running
  // thread is an internal error.
  void clean();
  // Asks the functor to stop and waits for the thread, at most the stop
  // timeout; a thread that does not end is detached. A subclass that owns
  // what its functor uses calls this in its own destructor.
  void stop() noexcept;

  void set_stop_timeout(std::chrono::milliseconds timeout) { stop_timeout_ = timeout; }
  [[nodiscard]] std::chrono::milliseconds stop_timeout() const { return stop_timeout_; }
  [[nodiscard]] bool owner() const { return b_owner_; }
  // The functor of the current or last run; null after clean().
  [[nodiscard]] tk_thread_functor* functor() const { return functor_; }

 protected:
  // Gives the functor that start() runs. The base makes a plain
  // tk_thread_functor that the thread owns.
  virtual tk_thread_functor* create_functor();
  // Takes ownership of a functor made by create_functor and returns it.
  tk_thread_functor* adopt(std::unique_ptr<tk_thread_functor> functor);

 private:
  // Shared between the owner and the worker, so that a detached worker can
  // finish safely.
  struct run_state {
    std::mutex mutex;
    std::condition_variable ended;
    bool done = false;
    std::unique_ptr<tk_thread_functor> orphan;  // deleted by a detached worker
  };
  static void entry(tk_thread_functor* functor, const std::shared_ptr<run_state>& state);
  bool wait_for_end(std::chrono::milliseconds timeout) const;

  std::thread handle_;
  std::shared_ptr<run_state> state_;
  bool b_owner_;
  tk_thread_functor* functor_ = nullptr;
  std::unique_ptr<tk_thread_functor> owned_;
  std::chrono::milliseconds stop_timeout_ = default_stop_timeout;
};

}  // namespace qb

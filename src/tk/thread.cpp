#include "tk/thread.h"

#include "tk/exception.h"
#include "tk/log.h"

namespace qb {

// --- tk_thread_functor ---------------------------------------------------------------

int tk_thread_functor::operator()() {
  while (!is_finished() && !stop_requested()) step();
  return finish();
}

bool tk_thread_functor::is_finished() { return false; }

void tk_thread_functor::step() { wait_for_stop(std::chrono::milliseconds(100)); }

int tk_thread_functor::finish() { return 0; }

void tk_thread_functor::request_stop() {
  {
    std::lock_guard lock(stop_mutex_);
    stop_.store(true, std::memory_order_release);
  }
  stop_signal_.notify_all();
}

bool tk_thread_functor::wait_for_stop(std::chrono::milliseconds timeout) {
  std::unique_lock lock(stop_mutex_);
  return stop_signal_.wait_for(lock, timeout, [this] { return stop_.load(std::memory_order_acquire); });
}

// --- tk_thread -----------------------------------------------------------------------

tk_thread::tk_thread(bool b_owner) : b_owner_(b_owner) {}

tk_thread::~tk_thread() {
  stop();
  try {
    clean();
  } catch (...) {
    // stop() leaves no running thread behind; nothing can be left to report.
  }
}

tk_thread_functor* tk_thread::create_functor() { return adopt(std::make_unique<tk_thread_functor>()); }

tk_thread_functor* tk_thread::adopt(std::unique_ptr<tk_thread_functor> functor) {
  b_owner_ = true;
  owned_ = std::move(functor);
  return owned_.get();
}

void tk_thread::entry(tk_thread_functor* functor, const std::shared_ptr<run_state>& state) {
  // start() never passes a null functor. The functor catches what it throws:
  // an exception that leaves it ends the process, as for any thread.
  (*functor)();
  std::unique_ptr<tk_thread_functor> orphan;
  {
    std::lock_guard lock(state->mutex);
    state->done = true;
    orphan = std::move(state->orphan);
  }
  state->ended.notify_all();
  // orphan, when set, is the functor of a detached thread: deleted here, on
  // the worker, after its last use.
}

bool tk_thread::wait_for_end(std::chrono::milliseconds timeout) const {
  if (!state_) return true;
  std::unique_lock lock(state_->mutex);
  return state_->ended.wait_for(lock, timeout, [this] { return state_->done; });
}

bool tk_thread::is_running() const { return handle_.joinable() && !wait_for_end(std::chrono::milliseconds(10)); }

void tk_thread::start() {
  LOG(2, "tk_thread::start");
  if (is_running()) throw tk_mail_assertion("tk_threa", 54);
  clean();
  if (functor_ != nullptr) throw tk_mail_assertion("tk_threa", 57);
  functor_ = create_functor();
  if (functor_ == nullptr) throw tk_mail_assertion("tk_threa", 60);
  state_ = std::make_shared<run_state>();
  handle_ = std::thread(&tk_thread::entry, functor_, state_);
}

void tk_thread::clean() {
  if (is_running()) throw tk_mail_assertion("tk_threa", 77);
  if (handle_.joinable()) handle_.join();
  state_.reset();
  if (b_owner_) owned_.reset();
  functor_ = nullptr;
}

void tk_thread::stop() noexcept {
  if (!handle_.joinable()) return;
  if (wait_for_end(std::chrono::milliseconds(0))) return;
  LOG(2, "tk_thread::stop - asking the worker to stop");
  functor_->request_stop();
  if (wait_for_end(stop_timeout_)) {
    LOG(2, "tk_thread::stop - the worker has stopped");
    return;
  }
  {
    std::lock_guard lock(state_->mutex);
    if (!state_->done) {
      if (b_owner_) state_->orphan = std::move(owned_);
      handle_.detach();
      functor_ = nullptr;
    }
  }
  if (!handle_.joinable()) {
    LOG(3, "tk_thread::stop - the worker did not stop within %d ms and has been detached",
        static_cast<int>(stop_timeout_.count()));
  }
}

}  // namespace qb

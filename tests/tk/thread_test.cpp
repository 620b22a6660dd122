#include "tk/thread.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "tk/exception.h"

#include "support/log_lines.h"
#include "support/temp_dir.h"

namespace qb {
namespace {

using namespace std::chrono_literals;
using test::lines_in_order;
using test::log_capture;

// Waits for a condition that another thread makes true; gives up after a
// minute so that a broken build fails instead of hanging.
template <class Condition>
bool eventually(Condition condition) {
  const auto give_up = std::chrono::steady_clock::now() + 1min;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > give_up) return false;
    std::this_thread::sleep_for(1ms);
  }
  return true;
}

// What the functors of these tests report, shared with threads that may
// outlive the test's objects.
struct probe {
  std::atomic<int> created{0};
  std::atomic<int> ran{0};
  std::atomic<int> destroyed{0};
  std::atomic<bool> release{false};
};

// Runs until released; ignores stop requests when stubborn.
class gated_functor : public tk_thread_functor {
 public:
  gated_functor(std::shared_ptr<probe> p, bool stubborn) : probe_(std::move(p)), stubborn_(stubborn) {
    probe_->created.fetch_add(1);
  }
  ~gated_functor() override { probe_->destroyed.fetch_add(1); }
  int operator()() override {
    probe_->ran.fetch_add(1);
    while (!probe_->release.load() && (stubborn_ || !stop_requested())) std::this_thread::sleep_for(1ms);
    return 0;
  }

 private:
  std::shared_ptr<probe> probe_;
  bool stubborn_;
};

// A thread that makes a new owned gated functor for every start.
class gated_thread : public tk_thread {
 public:
  gated_thread(std::shared_ptr<probe> p, bool stubborn) : probe_(std::move(p)), stubborn_(stubborn) {}

 protected:
  tk_thread_functor* create_functor() override { return adopt(std::make_unique<gated_functor>(probe_, stubborn_)); }

 private:
  std::shared_ptr<probe> probe_;
  bool stubborn_;
};

TEST(ThreadFunctor, StepsUntilFinishedAndGivesTheResultOfFinish) {
  class three_steps : public tk_thread_functor {
   public:
    bool is_finished() override { return steps == 3; }
    void step() override { ++steps; }
    int finish() override { return 7; }
    int steps = 0;
  } functor;
  EXPECT_EQ(functor(), 7);
  EXPECT_EQ(functor.steps, 3);
}

TEST(ThreadFunctor, PlainFunctorIdlesUntilAStopIsRequested) {
  tk_thread_functor functor;
  EXPECT_FALSE(functor.is_finished());
  std::thread worker([&functor] { functor(); });
  functor.request_stop();
  worker.join();
  EXPECT_TRUE(functor.stop_requested());
}

TEST(Thread, StartOnARunningThreadIsAnInternalError) {
  auto p = std::make_shared<probe>();
  gated_thread thread(p, false);
  EXPECT_FALSE(thread.is_running());
  thread.start();
  EXPECT_TRUE(thread.is_running());
  try {
    thread.start();
    FAIL() << "no assertion";
  } catch (const tk_mail_assertion& e) {
    EXPECT_EQ(std::string(e.what()).rfind("Internal error: \ncode=746b5f7468726561", 0), 0U) << e.what();  // "tk_threa"
  }
  EXPECT_THROW(thread.clean(), tk_mail_assertion);
  EXPECT_EQ(p->created.load(), 1);
  p->release = true;
}

TEST(Thread, EndedThreadMayBeStartedAgainWithAFreshFunctor) {
  auto p = std::make_shared<probe>();
  p->release = true;  // every run ends at once
  gated_thread thread(p, false);
  thread.start();
  ASSERT_TRUE(eventually([&] { return !thread.is_running(); }));
  const tk_thread_functor* first = thread.functor();
  EXPECT_EQ(p->destroyed.load(), 0);

  thread.start();
  ASSERT_TRUE(eventually([&] { return !thread.is_running(); }));
  EXPECT_EQ(p->created.load(), 2);
  EXPECT_EQ(p->ran.load(), 2);
  EXPECT_EQ(p->destroyed.load(), 1) << "the first functor was not deleted when the thread started again";
  EXPECT_TRUE(thread.owner());
  (void)first;

  thread.clean();
  EXPECT_EQ(thread.functor(), nullptr);
  EXPECT_EQ(p->destroyed.load(), 2);
}

TEST(Thread, DestroyingARunningThreadAsksItsFunctorToStopAndWaits) {
  log_capture log;
  auto p = std::make_shared<probe>();
  {
    gated_thread thread(p, false);
    thread.start();
    ASSERT_TRUE(eventually([&] { return p->ran.load() == 1; }));
  }
  EXPECT_EQ(p->destroyed.load(), 1);
  EXPECT_TRUE(lines_in_order(log.text(), {"tk_thread::start", "tk_thread::stop - asking the worker to stop",
                                          "tk_thread::stop - the worker has stopped"}));
}

TEST(Thread, PlainFunctorOfTheBaseThreadEndsWithTheThread) {
  tk_thread thread(false);
  thread.start();
  EXPECT_TRUE(thread.is_running());
  EXPECT_TRUE(thread.owner()) << "the base functor belongs to the thread";
  thread.stop();
  EXPECT_FALSE(thread.is_running());
}

TEST(Thread, FunctorThatIgnoresTheStopIsDetachedAndDeletedWhenItEnds) {
  log_capture log;
  auto p = std::make_shared<probe>();
  {
    gated_thread thread(p, true);
    thread.set_stop_timeout(20ms);
    thread.start();
    ASSERT_TRUE(eventually([&] { return p->ran.load() == 1; }));
  }
  EXPECT_TRUE(log.has_line("tk_thread::stop - the worker did not stop within 20 ms and has been detached"));
  EXPECT_EQ(p->destroyed.load(), 0) << "the functor was deleted under the running worker";
  p->release = true;
  EXPECT_TRUE(eventually([&] { return p->destroyed.load() == 1; }));
}

}  // namespace
}  // namespace qb

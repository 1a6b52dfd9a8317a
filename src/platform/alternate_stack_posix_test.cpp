// Threads the system starts: an alternate signal stack, so that a stack
// overflow on them still reaches the crash report, given back at the end; a
// lower priority.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <thread>

#include "platform/env.h"

namespace PIM {
namespace {

bool hasAlternateStack() {
  stack_t current;
  return sigaltstack(nullptr, &current) == 0 && !(current.ss_flags & SS_DISABLE);
}

TEST(AlternateStackTest, APreparedThreadHasOneUntilTheScopeEnds) {
  std::thread worker([] {
    // Start from a thread without one, whatever the runtime set up.
    stack_t off = {};
    off.ss_flags = SS_DISABLE;
    ASSERT_EQ(sigaltstack(&off, nullptr), 0);
    ASSERT_FALSE(hasAlternateStack());

    auto scope = env()->prepareThreadForCrashes();
    ASSERT_NE(scope, nullptr);
    stack_t current;
    ASSERT_EQ(sigaltstack(nullptr, &current), 0);
    EXPECT_FALSE(current.ss_flags & SS_DISABLE);
    EXPECT_GE(current.ss_size, size_t(SIGSTKSZ));
    EXPECT_EQ(env()->prepareThreadForCrashes(), nullptr) << "one is enough";

    scope.reset();
    EXPECT_FALSE(hasAlternateStack());
  });
  worker.join();
}

TEST(ThreadPriorityTest, LoweringRaisesTheThreadsNiceValueOnly) {
  const id_t main = static_cast<id_t>(syscall(SYS_gettid));
  const int mainBefore = getpriority(PRIO_PROCESS, main);
  int before = 0;
  int after = 0;
  std::thread worker([&] {
    const id_t self = static_cast<id_t>(syscall(SYS_gettid));
    before = getpriority(PRIO_PROCESS, self);
    env()->lowerThreadPriority();
    after = getpriority(PRIO_PROCESS, self);
  });
  worker.join();
  if (before < 19) {
    EXPECT_EQ(after, before + 1);
  }
  EXPECT_EQ(getpriority(PRIO_PROCESS, main), mainBefore);
}

}  // namespace
}  // namespace PIM

// HrThisThreadAdviseSink on Windows: notifications raised on other threads
// reach the sink on the advising thread, when that thread pumps messages.
#include <windows.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "store/store_test_util.h"

namespace PIM::store::testing {
namespace {

using namespace std::chrono_literals;

// Delivers the calling thread's messages until `done` holds or time is up.
bool pumpUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&msg);
    if (done()) return true;
    if (std::chrono::steady_clock::now() > deadline) return false;
    MsgWaitForMultipleObjects(0, nullptr, FALSE, 10, QS_ALLINPUT);
  }
}

class ThreadSinkTest : public StoreTest {
 protected:
  Item note(const std::u16string& subject) {
    Item item;
    item.props.set(Prop::ofText(PR_MESSAGE_CLASS_W, u"IPM.Note"));
    item.props.set(Prop::ofText(PR_SUBJECT_W, subject));
    return item;
  }
  // Adds, changes and deletes one inbox item each, on a thread of its own.
  void changeInboxElsewhere() {
    std::thread([this] {
      profile_->addItem(profile_->byKey("inbox"), note(u"Fresh"));
      profile_->modifyItem(profile_->byKey("m1"), {Prop::ofText(PR_SUBJECT_W, u"Renamed")});
      profile_->deleteItem(profile_->byKey("m2"));
    }).join();
  }
};

TEST_F(ThreadSinkTest, ChangesOnAnotherThreadWaitForTheAdvisingThreadsLoopAndKeepTheirOrder) {
  RecordingSink sink;
  ComPtr<IMAPIAdviseSink> wrapper;
  ASSERT_EQ(HrThisThreadAdviseSink(&sink, wrapper.put()), S_OK);
  auto table = contents("inbox");
  setColumns(table.get(), {PR_SUBJECT_W});
  ULONG connection = 0;
  ASSERT_EQ(table->Advise(fnevTableModified, wrapper.get(), &connection), S_OK);

  changeInboxElsewhere();
  EXPECT_TRUE(sink.events.empty()) << "nothing before this thread pumps";
  ASSERT_TRUE(pumpUntil([&] { return sink.events.size() >= 3; }, 5s));
  ASSERT_EQ(sink.events.size(), 3u);
  EXPECT_EQ(sink.events[0].type, static_cast<ULONG>(TABLE_ROW_ADDED));
  EXPECT_EQ(sink.events[0].row, std::vector<std::string>{"Fresh"});
  EXPECT_EQ(sink.events[1].type, static_cast<ULONG>(TABLE_ROW_MODIFIED));
  EXPECT_EQ(sink.events[1].row, std::vector<std::string>{"Renamed"});
  EXPECT_EQ(sink.events[2].type, static_cast<ULONG>(TABLE_ROW_DELETED));
  EXPECT_FALSE(sink.events[2].index.empty()) << "the deleted row's instance key was copied";
  for (const auto& e : sink.events) EXPECT_EQ(e.thread, std::this_thread::get_id());

  // A change on this thread is still delivered at once.
  profile_->touchFolder(profile_->byKey("inbox"));
  EXPECT_EQ(sink.events.size(), 4u);
  EXPECT_EQ(table->Unadvise(connection), S_OK);
  wrapper.reset();
  EXPECT_EQ(sink.refs, 1u) << "the copies and the wrapper let go of the sink";
}

TEST_F(ThreadSinkTest, EachAdvisingThreadHearsOnItsOwnLoop) {
  RecordingSink mainSink, workerSink;
  ComPtr<IMAPIAdviseSink> mainWrapper;
  ASSERT_EQ(HrThisThreadAdviseSink(&mainSink, mainWrapper.put()), S_OK);
  auto table = contents("inbox");
  ULONG mainConnection = 0;
  ASSERT_EQ(table->Advise(fnevTableModified, mainWrapper.get(), &mainConnection), S_OK);

  std::thread::id workerId;
  std::atomic<bool> advised{false};
  std::thread worker([&] {
    workerId = std::this_thread::get_id();
    ComPtr<IMAPIAdviseSink> wrapper;
    ULONG connection = 0;
    if (SUCCEEDED(HrThisThreadAdviseSink(&workerSink, wrapper.put())) &&
        SUCCEEDED(table->Advise(fnevTableModified, wrapper.get(), &connection))) {
      advised = true;
      pumpUntil([&] { return !workerSink.events.empty(); }, 5s);
      table->Unadvise(connection);
    }
  });
  ASSERT_TRUE(pumpUntil([&] { return advised.load(); }, 5s));
  profile_->touchFolder(profile_->byKey("inbox"));  // raised here, on the main thread
  worker.join();
  ASSERT_EQ(workerSink.events.size(), 1u);
  EXPECT_EQ(workerSink.events[0].thread, workerId);
  EXPECT_EQ(mainSink.events.size(), 1u) << "the main thread's own sink hears at once";
  EXPECT_EQ(table->Unadvise(mainConnection), S_OK);
}

TEST_F(ThreadSinkTest, NotificationsForAThreadThatEndedAreDroppedAndFreed) {
  RecordingSink sink;
  auto table = contents("inbox");
  ComPtr<IMAPIAdviseSink> wrapper;
  ULONG connection = 0;
  // Advised on a thread that ends without pumping: the first change waits in
  // its queue when it ends, the later ones find it gone.
  std::promise<void> advised, raised;
  std::thread worker([&] {
    if (SUCCEEDED(HrThisThreadAdviseSink(&sink, wrapper.put())))
      table->Advise(fnevTableModified, wrapper.get(), &connection);
    advised.set_value();
    raised.get_future().wait();
  });
  advised.get_future().wait();
  profile_->touchFolder(profile_->byKey("inbox"));
  raised.set_value();
  worker.join();
  ASSERT_TRUE(wrapper);
  ASSERT_NE(connection, 0u);
  changeInboxElsewhere();
  profile_->touchFolder(profile_->byKey("inbox"));
  pumpUntil([] { return false; }, 50ms);
  EXPECT_TRUE(sink.events.empty());
  EXPECT_EQ(table->Unadvise(connection), S_OK);
  wrapper.reset();
  EXPECT_EQ(sink.refs, 1u) << "dropped copies let go of the sink";
  // StoreTest checks at the end that every copy's buffer was freed.
}

}  // namespace
}  // namespace PIM::store::testing

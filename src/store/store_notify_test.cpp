// Change notifications of the store's tables and the fault injector's busy
// and failure answers.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "store/store_test_util.h"

namespace PIM::store::testing {
namespace {

class NotifyTest : public StoreTest {
 protected:
  Item note(const std::u16string& subject, int32_t importance) {
    Item item;
    item.props.set(Prop::ofText(PR_MESSAGE_CLASS_W, u"IPM.Note"));
    item.props.set(Prop::ofText(PR_SUBJECT_W, subject));
    item.props.set(Prop::ofLong(PR_IMPORTANCE, importance));
    return item;
  }
};

TEST_F(NotifyTest, EveryChangeToTheFolderNotifiesItsAdvisedTables) {
  RecordingSink sink;
  auto table = contents("inbox");
  setColumns(table.get(), {PR_SUBJECT_W, PR_INSTANCE_KEY});
  ULONG connection = 0;
  ASSERT_EQ(table->Advise(fnevTableModified, &sink, &connection), S_OK);
  EXPECT_EQ(sink.refs, 2u) << "the table holds the sink";

  const Ref added = profile_->addItem(profile_->byKey("inbox"), note(u"Fresh", 1));
  ASSERT_EQ(sink.events.size(), 1u);
  EXPECT_EQ(sink.events[0].type, static_cast<ULONG>(TABLE_ROW_ADDED));
  EXPECT_EQ(sink.events[0].row, std::vector<std::string>({"Fresh"}));
  EXPECT_FALSE(sink.events[0].prior.empty()) << "added after the last row";

  profile_->modifyItem(added, {Prop::ofText(PR_SUBJECT_W, u"Fresher")});
  ASSERT_EQ(sink.events.size(), 2u);
  EXPECT_EQ(sink.events[1].type, static_cast<ULONG>(TABLE_ROW_MODIFIED));
  EXPECT_EQ(sink.events[1].row, std::vector<std::string>({"Fresher"}));
  EXPECT_EQ(sink.events[1].index, sink.events[0].index);

  profile_->deleteItem(added);
  ASSERT_EQ(sink.events.size(), 3u);
  EXPECT_EQ(sink.events[2].type, static_cast<ULONG>(TABLE_ROW_DELETED));
  EXPECT_EQ(sink.events[2].index, sink.events[0].index);

  profile_->touchFolder(profile_->byKey("inbox"));
  ASSERT_EQ(sink.events.size(), 4u);
  EXPECT_EQ(sink.events[3].type, static_cast<ULONG>(TABLE_CHANGED));

  // Other folders' changes are not this table's.
  profile_->addItem(profile_->byKey("reports"), note(u"Elsewhere", 1));
  EXPECT_EQ(sink.events.size(), 4u);

  ASSERT_EQ(table->Unadvise(connection), S_OK);
  EXPECT_EQ(sink.refs, 1u);
  profile_->addItem(profile_->byKey("inbox"), note(u"Unheard", 1));
  EXPECT_EQ(sink.events.size(), 4u);
  EXPECT_EQ(table->Unadvise(connection), MAPI_E_NOT_FOUND);
}

TEST_F(NotifyTest, ARestrictedTableHearsOnlyOfRowsItShows) {
  RecordingSink sink;
  auto table = contents("inbox");
  setColumns(table.get(), {PR_SUBJECT_W});
  SPropValue two{};
  two.ulPropTag = PR_IMPORTANCE;
  two.Value.l = 2;
  SRestriction high{};
  high.rt = RES_PROPERTY;
  high.res.resProperty = {RELOP_EQ, PR_IMPORTANCE, &two};
  ASSERT_EQ(table->Restrict(&high, 0), S_OK);
  ULONG connection = 0;
  ASSERT_EQ(table->Advise(fnevTableModified, &sink, &connection), S_OK);

  const Ref low = profile_->addItem(profile_->byKey("inbox"), note(u"Low", 0));
  EXPECT_TRUE(sink.events.empty());
  profile_->modifyItem(low, {Prop::ofLong(PR_IMPORTANCE, 2)});
  ASSERT_EQ(sink.events.size(), 1u);
  EXPECT_EQ(sink.events[0].type, static_cast<ULONG>(TABLE_ROW_ADDED)) << "it now shows the row";
  profile_->modifyItem(low, {Prop::ofLong(PR_IMPORTANCE, 0)});
  ASSERT_EQ(sink.events.size(), 2u);
  EXPECT_EQ(sink.events[1].type, static_cast<ULONG>(TABLE_ROW_DELETED));
  EXPECT_EQ(table->Unadvise(connection), S_OK);
}

TEST_F(NotifyTest, TheCursorStaysOnItsRowWhenRowsComeAndGo) {
  auto table = contents("inbox");
  setColumns(table.get(), {PR_SUBJECT_W});
  RowSet rows;
  ASSERT_EQ(table->QueryRows(2, 0, rows.put()), S_OK);  // next: "Café ÉTÉ"
  profile_->deleteItem(profile_->byKey("m1"));
  profile_->addItem(profile_->byKey("inbox"), note(u"Late", 1));
  EXPECT_EQ(firstColumn(table.get()), std::vector<std::string>({"Café ÉTÉ", "-", "Late"}));
  ULONG count = 0;
  ASSERT_EQ(table->GetRowCount(0, &count), S_OK);
  EXPECT_EQ(count, 4u);
}

TEST_F(NotifyTest, ThreadAdviseSinkWrapsAndForwards) {
  RecordingSink sink;
  ComPtr<IMAPIAdviseSink> wrapper;
  ASSERT_EQ(HrThisThreadAdviseSink(&sink, wrapper.put()), S_OK);
  EXPECT_NE(wrapper.get(), &sink) << "a wrapper of its own";
  auto table = contents("inbox");
  ULONG connection = 0;
  ASSERT_EQ(table->Advise(fnevTableModified, wrapper.get(), &connection), S_OK);
  profile_->touchFolder(profile_->byKey("inbox"));
  EXPECT_EQ(sink.events.size(), 1u);
  EXPECT_EQ(table->Unadvise(connection), S_OK);
  wrapper.reset();
  EXPECT_EQ(sink.refs, 1u) << "the wrapper let go of the sink";
}

TEST_F(NotifyTest, FaultsAnswerTheNthCallOrEveryCall) {
  ScopedFaults faults;
  auto table = contents("inbox");
  faults->failCall("IMAPITable::Restrict", MAPI_E_BUSY);
  SRestriction all{};
  all.rt = RES_AND;
  EXPECT_EQ(table->Restrict(&all, 0), MAPI_E_BUSY);
  EXPECT_EQ(table->Restrict(&all, 0), S_OK) << "once only";

  faults->failCall("QueryRows", MAPI_E_BUSY, 2, 0);
  RowSet rows;
  EXPECT_EQ(table->QueryRows(1, 0, rows.put()), S_OK);
  EXPECT_EQ(table->QueryRows(1, 0, rows.put()), MAPI_E_BUSY);
  EXPECT_EQ(table->QueryRows(1, 0, rows.put()), MAPI_E_BUSY);
  EXPECT_EQ(faults->callCount("IMAPITable::QueryRows"), 3u);
  EXPECT_EQ(faults->callCount("QueryRows"), 3u);

  faults->failAlways("IMAPIFolder::GetContentsTable", MAPI_E_NO_ACCESS);
  ComPtr<IMAPITable> none;
  EXPECT_EQ(folder("inbox")->GetContentsTable(0, none.put()), MAPI_E_NO_ACCESS);
  faults->failCall("OpenEntry", MAPI_E_CALL_FAILED);
  auto store = openStore(0);
  ComPtr<IUnknown> root;
  ULONG type = 0;
  EXPECT_EQ(store->OpenEntry(0, nullptr, nullptr, 0, &type, root.put()), MAPI_E_CALL_FAILED);
  EXPECT_EQ(faults->callCount("IMAPITable::WaitForCompletion"), 0u);
  EXPECT_EQ(table->WaitForCompletion(0, 500, nullptr), S_OK);
  EXPECT_EQ(faults->callCount("IMAPITable::WaitForCompletion"), 1u);

  faults->failCall("MAPIAllocateMore", MAPI_E_NOT_ENOUGH_MEMORY, 2);
  void* root2 = nullptr;
  ASSERT_EQ(MAPIAllocateBuffer(8, &root2), S_OK);
  void* more = nullptr;
  EXPECT_EQ(MAPIAllocateMore(8, root2, &more), S_OK);
  EXPECT_EQ(MAPIAllocateMore(8, root2, &more), MAPI_E_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(more, nullptr);
  EXPECT_EQ(MAPIFreeBuffer(root2), 0u);

  faults->failCall("IMAPIFolder::QueryInterface", E_NOINTERFACE);
  auto inbox = folder("inbox");
  ComPtr<IMAPIProp> asProp;
  EXPECT_EQ(inbox.queryInterface(IID_IMAPIProp, asProp), E_NOINTERFACE);
  EXPECT_EQ(inbox.queryInterface(IID_IMAPIProp, asProp), S_OK);

  faults->clear();
  EXPECT_EQ(faults->callCount("QueryRows"), 0u);
  EXPECT_EQ(table->QueryRows(1, 0, rows.put()), S_OK);
}

TEST_F(NotifyTest, ChangesFromAnotherThreadWhileTablesAreRead) {
  RecordingSink sink;  // called on the writer thread only
  auto advised = contents("inbox");
  ULONG connection = 0;
  ASSERT_EQ(advised->Advise(fnevTableModified, &sink, &connection), S_OK);
  const Ref inbox = profile_->byKey("inbox");
  std::thread writer([&] {
    for (int i = 0; i < 50; ++i) {
      const Ref r = profile_->addItem(inbox, note(u"Busy", i % 3));
      profile_->modifyItem(r, {Prop::ofLong(PR_IMPORTANCE, 2)});
      if (i % 2) profile_->deleteItem(r);
    }
  });
  for (int i = 0; i < 50; ++i) {
    auto table = contents("inbox");
    setColumns(table.get(), {PR_SUBJECT_W, PR_IMPORTANCE});
    ULONG count = 0;
    ASSERT_EQ(table->GetRowCount(0, &count), S_OK);
    EXPECT_GE(count, 4u);
    EXPECT_GE(firstColumn(table.get()).size(), 4u);
  }
  writer.join();
  EXPECT_EQ(sink.events.size(), 50u * 2 + 25u);
  ULONG count = 0;
  ASSERT_EQ(advised->GetRowCount(0, &count), S_OK);
  EXPECT_EQ(count, 4u + 25u);
  EXPECT_EQ(advised->Unadvise(connection), S_OK);
}

// Instance keys of every row, read from the start; the cursor is put back.
std::vector<Bytes> allKeys(IMAPITable* table) {
  ULONG row = 0, numerator = 0, denominator = 0;
  EXPECT_EQ(table->QueryPosition(&row, &numerator, &denominator), S_OK);
  EXPECT_EQ(table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr), S_OK);
  std::vector<Bytes> out;
  for (;;) {
    RowSet rows;
    if (FAILED(table->QueryRows(7, 0, rows.put())) || rows.size() == 0) break;
    for (ULONG i = 0; i < rows->cRows; ++i)
      out.push_back(bytesOf(rows->aRow[i].lpProps[0].Value.bin));
  }
  EXPECT_EQ(table->SeekRow(BOOKMARK_BEGINNING, static_cast<LONG>(row), nullptr), S_OK);
  return out;
}

TEST_F(NotifyTest, ATableFollowingChangesAgreesWithAFreshOneAndItsNotifications) {
  SPropValue one{};
  one.ulPropTag = PR_IMPORTANCE;
  one.Value.l = 1;
  SRestriction atLeastOne{};
  atLeastOne.rt = RES_PROPERTY;
  atLeastOne.res.resProperty = {RELOP_GE, PR_IMPORTANCE, &one};
  struct Case {
    const char* name;
    SRestriction* restriction;
    std::vector<SSortOrder> sort;
  };
  const Case cases[] = {
      {"folder order", nullptr, {}},
      {"restricted", &atLeastOne, {}},
      {"importance, many ties", nullptr, {{PR_IMPORTANCE, TABLE_SORT_ASCEND}}},
      {"importance down, subject",
       nullptr,
       {{PR_IMPORTANCE, TABLE_SORT_DESCEND}, {PR_SUBJECT_W, TABLE_SORT_ASCEND}}},
      {"restricted, subject down", &atLeastOne, {{PR_SUBJECT_W, TABLE_SORT_DESCEND}}},
  };
  const Ref inbox = profile_->byKey("inbox");
  uint32_t seed = 7;
  auto next = [&seed](uint32_t bound) {
    seed = seed * 1103515245u + 12345u;
    return (seed >> 16) % bound;
  };
  auto open = [&](const Case& c) {
    auto table = contents("inbox");
    setColumns(table.get(), {PR_INSTANCE_KEY, PR_SUBJECT_W});
    if (c.restriction) {
      EXPECT_EQ(table->Restrict(c.restriction, 0), S_OK);
    }
    if (!c.sort.empty()) {
      std::vector<ULONG> buffer(3 + 2 * c.sort.size());
      auto* set = reinterpret_cast<SSortOrderSet*>(buffer.data());
      set->cSorts = static_cast<ULONG>(c.sort.size());
      for (size_t i = 0; i < c.sort.size(); ++i) set->aSort[i] = c.sort[i];
      EXPECT_EQ(table->SortTable(set, 0), S_OK);
    }
    return table;
  };
  std::vector<Ref> items;
  for (const char* key : {"m1", "m2", "m3", "m4"}) items.push_back(profile_->byKey(key));
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    RecordingSink sink;
    auto live = open(c);
    ULONG connection = 0;
    ASSERT_EQ(live->Advise(fnevTableModified, &sink, &connection), S_OK);
    std::vector<Bytes> mirror = allKeys(live.get());
    for (int step = 0; step < 120; ++step) {
      const std::vector<Bytes> old = allKeys(live.get());
      const size_t cursor = next(static_cast<uint32_t>(old.size() + 1));
      ASSERT_EQ(live->SeekRow(BOOKMARK_BEGINNING, static_cast<LONG>(cursor), nullptr), S_OK);
      const size_t events = sink.events.size();
      const std::u16string subject = u"s" + fromUtf8(std::to_string(next(5)));
      const int32_t importance = static_cast<int32_t>(next(3));
      switch (next(items.size() < 3 ? 1 : 4)) {
        case 0: {
          Item item = note(subject, importance);
          item.associated = next(6) == 0;  // never in a contents table
          items.push_back(profile_->insertItem(inbox, std::move(item), next(12)));
          break;
        }
        case 1:
          profile_->modifyItem(
              items[next(static_cast<uint32_t>(items.size()))],
              {Prop::ofText(PR_SUBJECT_W, subject), Prop::ofLong(PR_IMPORTANCE, importance)});
          break;
        case 2:
          profile_->replaceItem(items[next(static_cast<uint32_t>(items.size()))],
                                note(subject, importance), next(12));
          break;
        default: {
          const size_t at = next(static_cast<uint32_t>(items.size()));
          profile_->deleteItem(items[at]);
          items.erase(items.begin() + static_cast<ptrdiff_t>(at));
        }
      }
      const std::vector<Bytes> now = allKeys(live.get());
      EXPECT_EQ(now, allKeys(open(c).get())) << "step " << step;
      // The notifications bring a copy of the rows along.
      ASSERT_LE(sink.events.size(), events + 1);
      for (size_t e = events; e < sink.events.size(); ++e) {
        const RecordingSink::Event& ev = sink.events[e];
        auto at = std::find(mirror.begin(), mirror.end(), ev.index);
        if (ev.type != TABLE_ROW_ADDED) {
          ASSERT_NE(at, mirror.end());
          mirror.erase(at);
        } else {
          EXPECT_EQ(at, mirror.end());
        }
        if (ev.type != TABLE_ROW_DELETED) {
          auto prior = ev.prior.empty() ? mirror.begin()
                                        : std::find(mirror.begin(), mirror.end(), ev.prior) + 1;
          mirror.insert(prior, ev.index);
        }
      }
      EXPECT_EQ(mirror, now) << "step " << step;
      // The cursor stays on the first row at or after it that is still shown.
      size_t expected = std::min(cursor, now.size());
      if (cursor < old.size()) {
        expected = now.size();
        for (size_t i = cursor; i < old.size() && expected == now.size(); ++i) {
          if (auto at = std::find(now.begin(), now.end(), old[i]); at != now.end())
            expected = static_cast<size_t>(at - now.begin());
        }
      }
      ULONG row = 0, numerator = 0, denominator = 0;
      ASSERT_EQ(live->QueryPosition(&row, &numerator, &denominator), S_OK);
      EXPECT_EQ(row, expected) << "step " << step;
    }
    EXPECT_EQ(live->Unadvise(connection), S_OK);
  }
}

TEST(MapiBuffersTest, MoreBlocksGoWithTheirRootAndBadFreesAreRefused) {
  const int64_t before = liveMapiBuffers();
  void* root = nullptr;
  ASSERT_EQ(MAPIAllocateBuffer(16, &root), S_OK);
  EXPECT_EQ(liveMapiBuffers(), before + 1);
  void* more = nullptr;
  ASSERT_EQ(MAPIAllocateMore(32, root, &more), S_OK);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(more) % 16, 0u) << "blocks are aligned";
  void* nested = nullptr;
  EXPECT_EQ(MAPIAllocateMore(4, more, &nested), MAPI_E_INVALID_PARAMETER)
      << "blocks hang off a root only";
  EXPECT_EQ(MAPIFreeBuffer(more), static_cast<ULONG>(MAPI_E_INVALID_PARAMETER));
  EXPECT_EQ(MAPIFreeBuffer(root), 0u);
  EXPECT_EQ(liveMapiBuffers(), before);
  EXPECT_EQ(MAPIFreeBuffer(nullptr), 0u);
  FreeProws(nullptr);
}

}  // namespace
}  // namespace PIM::store::testing

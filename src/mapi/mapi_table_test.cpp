#include "mapi/mapi_table.h"

#include <gtest/gtest.h>

#include "mapi/com_error.h"
#include "mapi/mapi_test_util.h"
#include "testing/test_support.h"

namespace PIM {
namespace {

using store::Item;
using store::Prop;
using store::ScopedFaults;
using testing::WrapperTest;

class TableTest : public WrapperTest {
 protected:
  ComPtr<IMAPITable> contentsOf(const std::string& key) { return contents(key); }

  void fillCalendar(int count) {
    for (int i = 0; i < count; ++i) {
      Item item;
      item.props.set(Prop::ofLong(PR_IMPORTANCE, i));
      profile_->addItem(profile_->byKey("calendar"), std::move(item));
    }
  }

  // Every row's importance, read to the end.
  static std::vector<LONG> importances(MAPITable& table) {
    std::vector<LONG> out;
    while (MAPIProperties* row = table.getNextRow()) {
      LONG value = -1;  // no importance
      (void)row->getLong(PR_IMPORTANCE, value);
      out.push_back(value);
    }
    return out;
  }

  SRestriction importanceIs(LONG value) {
    importance_.ulPropTag = PR_IMPORTANCE;
    importance_.Value.l = value;
    SRestriction r{};
    r.rt = RES_PROPERTY;
    r.res.resProperty.relop = RELOP_EQ;
    r.res.resProperty.ulPropTag = PR_IMPORTANCE;
    r.res.resProperty.lpProp = &importance_;
    return r;
  }

  SPropValue importance_{};
};

TEST_F(TableTest, RowsComeInBatchesOfAHundredUntilAnEmptyOne) {
  ScopedFaults faults;
  {
    MAPITable empty(contentsOf("calendar").get());
    EXPECT_EQ(empty.getRowCount(), 0u);
    ASSERT_EQ(empty.setColumns({PR_IMPORTANCE}), S_OK);
    EXPECT_EQ(empty.getNextRow(), nullptr);
  }
  fillCalendar(100);
  faults->clear();
  {
    MAPITable table(contentsOf("calendar").get());
    EXPECT_EQ(table.getRowCount(), 100u);
    ASSERT_EQ(table.setColumns({PR_IMPORTANCE}), S_OK);
    for (LONG i = 0; i < 100; ++i) {
      MAPIProperties* row = table.getNextRow();
      ASSERT_NE(row, nullptr) << i;
      LONG value = -1;
      EXPECT_EQ(row->getLong(PR_IMPORTANCE, value), S_OK);
      EXPECT_EQ(value, i);
    }
    EXPECT_EQ(faults->callCount("QueryRows"), 1u) << "the first hundred are one batch";
    EXPECT_EQ(table.getNextRow(), nullptr);
    EXPECT_EQ(faults->callCount("QueryRows"), 2u) << "the 101st call fetches an empty batch";
  }

  fillCalendar(150);
  faults->clear();
  MAPITable bigger(contentsOf("calendar").get());
  EXPECT_EQ(bigger.getRowCount(), 250u);
  ASSERT_EQ(bigger.setColumns({PR_IMPORTANCE}), S_OK);
  fillCalendar(1);
  EXPECT_EQ(bigger.getRowCount(), 250u) << "counted once, at construction";
  EXPECT_EQ(importances(bigger).size(), 251u);
  EXPECT_EQ(faults->callCount("QueryRows"), 4u);
  EXPECT_EQ(bigger.reset(), S_OK);
  EXPECT_EQ(importances(bigger).size(), 251u);
}

TEST_F(TableTest, BusyStoreIsWaitedForAndAskedOnceMore) {
  ScopedFaults faults;
  MAPITable table(contentsOf("inbox").get());
  ASSERT_EQ(table.setColumns({PR_IMPORTANCE}), S_OK);
  SRestriction onlyOne = importanceIs(1);

  faults->failCall("IMAPITable::Restrict", MAPI_E_BUSY, 1, 2);
  EXPECT_EQ(table.restrict(&onlyOne, 0), E_FAIL);
  EXPECT_EQ(faults->callCount("WaitForCompletion"), 2u) << "a wait after each busy answer";

  faults->clear();
  faults->failCall("IMAPITable::Restrict", MAPI_E_BUSY);
  EXPECT_EQ(table.restrict(&onlyOne, 0), S_OK);
  EXPECT_EQ(faults->callCount("Restrict"), 2u);
  EXPECT_EQ(faults->callCount("WaitForCompletion"), 1u);

  faults->failCall("IMAPITable::Restrict", MAPI_E_TOO_COMPLEX);
  EXPECT_EQ(table.restrict(&onlyOne, 0), MAPI_E_TOO_COMPLEX) << "other failures are not retried";

  // A warning counts as success.
  faults->failCall("IMAPITable::SortTable", MAPI_W_ERRORS_RETURNED);
  SSortOrderSet byImportance{1, 0, 0, {{PR_IMPORTANCE, TABLE_SORT_DESCEND}}};
  EXPECT_EQ(table.sortTable(&byImportance, 0), S_OK);
  faults->failCall("IMAPITable::SortTable", MAPI_E_BUSY, 1, 2);
  EXPECT_EQ(table.sortTable(&byImportance, 0), E_FAIL);

  // A busy batch is fetched again after a wait; a failing wait is logged.
  testing::LogCapture log;
  faults->failCall("QueryRows", MAPI_E_BUSY);
  faults->failCall("WaitForCompletion", MAPI_E_CALL_FAILED);
  EXPECT_EQ(importances(table), std::vector<LONG>{1});
  EXPECT_EQ(log.messages(), std::vector<std::string>{"HR Error: 0x80004005"});
}

TEST_F(TableTest, FailuresEndTheRowsAndBrokenTablesDoNotCrash) {
  ScopedFaults faults;
  {
    MAPITable table(contentsOf("inbox").get());
    ASSERT_EQ(table.setColumns({PR_IMPORTANCE}), S_OK);
    faults->failAlways("QueryRows", MAPI_E_BUSY);
    EXPECT_EQ(table.getNextRow(), nullptr);
    EXPECT_EQ(faults->callCount("QueryRows"), 2u) << "two attempts in all";
    faults->clear();
    faults->failCall("QueryRows", MAPI_E_CALL_FAILED);
    EXPECT_EQ(table.getNextRow(), nullptr);
    EXPECT_EQ(faults->callCount("QueryRows"), 1u) << "other failures end at once";
    EXPECT_EQ(importances(table), (std::vector<LONG>{0, -1, 1})) << "the table itself is intact";
  }

  faults->failCall("GetRowCount", MAPI_E_CALL_FAILED);
  auto hrOf = [this](const std::string& key) {
    try {
      MAPITable table(contentsOf(key).get());
    } catch (const ComError& error) {
      return error.hr();
    }
    return S_OK;
  };
  EXPECT_EQ(hrOf("inbox"), MAPI_E_CALL_FAILED);
  faults->failCall("SeekRow", MAPI_E_INVALID_BOOKMARK);
  EXPECT_EQ(hrOf("inbox"), MAPI_E_INVALID_BOOKMARK);

  testing::LogCapture log;
  MAPITable none(nullptr);
  EXPECT_EQ(none.getRowCount(), 0u);
  EXPECT_EQ(none.setColumns({PR_IMPORTANCE}), E_INVALIDARG);
  SRestriction r = importanceIs(1);
  EXPECT_EQ(none.restrict(&r, 0), E_INVALIDARG);
  EXPECT_EQ(none.sortTable(nullptr, 0), E_INVALIDARG);
  EXPECT_EQ(none.reset(), E_INVALIDARG);
  EXPECT_EQ(none.getNextRow(), nullptr);
  EXPECT_EQ(log.messages(), std::vector<std::string>(6, "Assertion failed"));
}

}  // namespace
}  // namespace PIM

// Tables of the reference store: restrictions of every kind and relation,
// sorts, batches and cursor moves, the 255-character cut.
#include <gtest/gtest.h>

#include "store/store_test_util.h"

namespace PIM::store::testing {
namespace {

using Rows = std::vector<std::string>;

SPropValue longValue(ULONG tag, LONG v) {
  SPropValue p{};
  p.ulPropTag = tag;
  p.Value.l = v;
  return p;
}
SPropValue textValue(ULONG tag, const std::u16string& text) {
  SPropValue p{};
  p.ulPropTag = tag;
  p.Value.lpszW = const_cast<LPWSTR>(asWchar(text.c_str()));
  return p;
}

SRestriction propertyRes(ULONG relop, ULONG tag, SPropValue* value) {
  SRestriction r{};
  r.rt = RES_PROPERTY;
  r.res.resProperty = {relop, tag, value};
  return r;
}
SRestriction contentRes(ULONG fuzzy, ULONG tag, SPropValue* value) {
  SRestriction r{};
  r.rt = RES_CONTENT;
  r.res.resContent = {fuzzy, tag, value};
  return r;
}
SRestriction existRes(ULONG tag) {
  SRestriction r{};
  r.rt = RES_EXIST;
  r.res.resExist = {0, tag, 0};
  return r;
}

class TableTest : public StoreTest {
 protected:
  // Subjects ("-" when absent) of the inbox rows matching `r`, in order.
  Rows restricted(SRestriction* r) {
    auto table = contents("inbox");
    setColumns(table.get(), {PR_SUBJECT_W, PR_IMPORTANCE});
    EXPECT_EQ(table->Restrict(r, 0), S_OK);
    return firstColumn(table.get());
  }
  Rows sorted(std::vector<SSortOrder> keys) {
    auto table = contents("inbox");
    setColumns(table.get(), {PR_SUBJECT_W});
    std::vector<ULONG> buffer(3 + 2 * keys.size());
    auto* set = reinterpret_cast<SSortOrderSet*>(buffer.data());
    set->cSorts = static_cast<ULONG>(keys.size());
    for (size_t i = 0; i < keys.size(); ++i) set->aSort[i] = keys[i];
    EXPECT_EQ(table->SortTable(set, 0), S_OK);
    return firstColumn(table.get());
  }
};

// Importance: Budget 2, apples 0, Café ÉTÉ 1, (no subject) 1.
TEST_F(TableTest, PropertyRestrictionAppliesEveryRelation) {
  SPropValue one = longValue(PR_IMPORTANCE, 1);
  const std::vector<std::pair<ULONG, Rows>> cases = {
      {RELOP_LT, {"apples"}},        {RELOP_LE, {"apples", "Café ÉTÉ", "-"}},
      {RELOP_GT, {"Budget"}},        {RELOP_GE, {"Budget", "Café ÉTÉ", "-"}},
      {RELOP_EQ, {"Café ÉTÉ", "-"}}, {RELOP_NE, {"Budget", "apples"}},
  };
  for (const auto& [relop, expected] : cases) {
    SRestriction r = propertyRes(relop, PR_IMPORTANCE, &one);
    EXPECT_EQ(restricted(&r), expected) << "relop " << relop;
  }
}

TEST_F(TableTest, TextComparesIgnoreCaseAndMissingPropertiesNeverMatch) {
  std::u16string upper = u"BUDGET", b = u"b";
  SPropValue budget = textValue(PR_SUBJECT_W, upper);
  SRestriction eq = propertyRes(RELOP_EQ, PR_SUBJECT_W, &budget);
  EXPECT_EQ(restricted(&eq), Rows({"Budget"}));
  SRestriction ne = propertyRes(RELOP_NE, PR_SUBJECT_W, &budget);
  EXPECT_EQ(restricted(&ne), Rows({"apples", "Café ÉTÉ"})) << "no subject: not NE either";
  SPropValue bValue = textValue(PR_SUBJECT_W, b);
  SRestriction gt = propertyRes(RELOP_GT, PR_SUBJECT_W, &bValue);
  EXPECT_EQ(restricted(&gt), Rows({"Budget", "Café ÉTÉ"}));

  // An 8-bit value against the Unicode property.
  SPropValue apples{};
  apples.ulPropTag = PR_SUBJECT_A;
  apples.Value.lpszA = const_cast<char*>("APPLES");
  SRestriction eight = propertyRes(RELOP_EQ, PR_SUBJECT_A, &apples);
  EXPECT_EQ(restricted(&eight), Rows({"apples"}));
}

TEST_F(TableTest, RegularExpressionRelationAndItsFailure) {
  std::u16string pattern = u"^Ca", broken = u"(";
  SPropValue v = textValue(PR_SUBJECT_W, pattern);
  SRestriction re = propertyRes(RELOP_RE, PR_SUBJECT_W, &v);
  EXPECT_EQ(restricted(&re), Rows({"Café ÉTÉ"}));
  SPropValue bad = textValue(PR_SUBJECT_W, broken);
  SRestriction wrong = propertyRes(RELOP_RE, PR_SUBJECT_W, &bad);
  auto table = contents("inbox");
  EXPECT_EQ(table->Restrict(&wrong, 0), MAPI_E_TOO_COMPLEX);
}

TEST_F(TableTest, ContentRestrictionFuzzyLevels) {
  struct Case {
    ULONG fuzzy;
    std::u16string needle;
    Rows expected;
  };
  const std::vector<Case> cases = {
      {FL_SUBSTRING | FL_IGNORECASE, u"PP", {"apples"}},
      {FL_SUBSTRING, u"PP", {}},
      {FL_FULLSTRING, u"apples", {"apples"}},
      {FL_FULLSTRING, u"apple", {}},
      {FL_PREFIX, u"Bud", {"Budget"}},
      {FL_PREFIX, u"udg", {}},
      {FL_FULLSTRING | FL_IGNORECASE | FL_IGNORENONSPACE, u"cafe ete", {"Café ÉTÉ"}},
      {FL_FULLSTRING | FL_LOOSE, u"CAFE ete", {"Café ÉTÉ"}},
      {FL_SUBSTRING | FL_IGNORECASE, u"cafe", {}},
  };
  for (const Case& c : cases) {
    SPropValue v = textValue(PR_SUBJECT_W, c.needle);
    SRestriction r = contentRes(c.fuzzy, PR_SUBJECT_W, &v);
    EXPECT_EQ(restricted(&r), c.expected) << toUtf8(c.needle) << " fuzzy " << c.fuzzy;
  }
}

TEST_F(TableTest, BitmaskSizeExistAndCompareProps) {
  SRestriction nez{};
  nez.rt = RES_BITMASK;
  nez.res.resBitMask = {BMR_NEZ, PR_IMPORTANCE, 2};
  EXPECT_EQ(restricted(&nez), Rows({"Budget"}));
  nez.res.resBitMask.relBMR = BMR_EQZ;
  EXPECT_EQ(restricted(&nez), Rows({"apples", "Café ÉTÉ", "-"}));

  // Unicode sizes count the terminator: "Budget" 14 bytes, "Café ÉTÉ" 18.
  SRestriction size{};
  size.rt = RES_SIZE;
  size.res.resSize = {RELOP_LT, PR_SUBJECT_W, 15};
  EXPECT_EQ(restricted(&size), Rows({"Budget", "apples"}));
  size.res.resSize = {RELOP_EQ, PR_SUBJECT_W, 18};
  EXPECT_EQ(restricted(&size), Rows({"Café ÉTÉ"}));

  SRestriction exist = existRes(PR_SUBJECT_W);
  EXPECT_EQ(restricted(&exist), Rows({"Budget", "apples", "Café ÉTÉ"}));
  SRestriction notExist{};
  notExist.rt = RES_NOT;
  notExist.res.resNot = {0, &exist};
  EXPECT_EQ(restricted(&notExist), Rows({"-"}));

  // Message flags: 0x11 for the one with attachments, 0x01 for the others.
  SRestriction compare{};
  compare.rt = RES_COMPAREPROPS;
  compare.res.resCompareProps = {RELOP_EQ, PR_IMPORTANCE, PR_MESSAGE_FLAGS};
  EXPECT_EQ(restricted(&compare), Rows({"Café ÉTÉ", "-"}));
  compare.res.resCompareProps.relop = RELOP_LT;
  EXPECT_EQ(restricted(&compare), Rows({"Budget", "apples"}));
}

TEST_F(TableTest, SubRestrictionsLookIntoRecipientsAndAttachments) {
  std::u16string name = u"олег", pdf = u".PDF";
  SPropValue n = textValue(PR_DISPLAY_NAME_W, name);
  SRestriction inner = propertyRes(RELOP_EQ, PR_DISPLAY_NAME_W, &n);
  SRestriction sub{};
  sub.rt = RES_SUBRESTRICTION;
  sub.res.resSub = {PR_MESSAGE_RECIPIENTS, &inner};
  EXPECT_EQ(restricted(&sub), Rows({"Budget"})) << "Cyrillic compares without case";

  SPropValue f = textValue(PR_ATTACH_LONG_FILENAME_W, pdf);
  SRestriction file = contentRes(FL_SUBSTRING | FL_IGNORECASE, PR_ATTACH_LONG_FILENAME_W, &f);
  sub.res.resSub = {PR_MESSAGE_ATTACHMENTS, &file};
  EXPECT_EQ(restricted(&sub), Rows({"Budget"}));
}

TEST_F(TableTest, AndOrNotAndCommentCombine) {
  SPropValue one = longValue(PR_IMPORTANCE, 1);
  SRestriction parts[2] = {existRes(PR_SUBJECT_W), propertyRes(RELOP_EQ, PR_IMPORTANCE, &one)};
  SRestriction both{};
  both.rt = RES_AND;
  both.res.resAnd = {2, parts};
  EXPECT_EQ(restricted(&both), Rows({"Café ÉTÉ"}));
  SRestriction either{};
  either.rt = RES_OR;
  either.res.resOr = {2, parts};
  EXPECT_EQ(restricted(&either), Rows({"Budget", "apples", "Café ÉTÉ", "-"}));
  SRestriction noneOf{};
  noneOf.rt = RES_NOT;
  noneOf.res.resNot = {0, &either};
  EXPECT_EQ(restricted(&noneOf), Rows({}));
  SRestriction emptyAnd{};
  emptyAnd.rt = RES_AND;
  EXPECT_EQ(restricted(&emptyAnd).size(), 4u);
  SRestriction emptyOr{};
  emptyOr.rt = RES_OR;
  EXPECT_EQ(restricted(&emptyOr), Rows({}));
  SRestriction comment{};
  comment.rt = RES_COMMENT;
  comment.res.resComment = {0, &both, nullptr};
  EXPECT_EQ(restricted(&comment), Rows({"Café ÉTÉ"}));
}

TEST_F(TableTest, MultiValuedPropertiesMatchOnAnyValue) {
  profile_->modifyItem(profile_->byKey("m2"),
                       {Prop::ofMvText(PROP_TAG(PT_MV_UNICODE, 0x8123), {u"red", u"green"})});
  std::u16string green = u"GREEN";
  SPropValue v = textValue(PROP_TAG(PT_UNICODE, 0x8123), green);
  SRestriction r = propertyRes(RELOP_EQ, PROP_TAG(PT_MV_UNICODE, 0x8123), &v);
  EXPECT_EQ(restricted(&r), Rows({"apples"}));
  SRestriction c = contentRes(FL_PREFIX, PROP_TAG(PT_MV_UNICODE, 0x8123), &v);
  EXPECT_EQ(restricted(&c), Rows({})) << "content is case-sensitive without FL_IGNORECASE";
}

TEST_F(TableTest, TheTaskRestrictionKeepsItemsWithoutStatusAndOpenOnes) {
  // OR(NOT EXIST(T), AND(EXIST(T), T != 2)) with T = PR_IMPORTANCE.
  SPropValue two = longValue(PR_IMPORTANCE, 2);
  profile_->modifyItem(profile_->byKey("m4"), {}, {PROP_ID(PR_IMPORTANCE)});
  SRestriction exist = existRes(PR_IMPORTANCE);
  SRestriction notExist{};
  notExist.rt = RES_NOT;
  notExist.res.resNot = {0, &exist};
  SRestriction pair[2] = {exist, propertyRes(RELOP_NE, PR_IMPORTANCE, &two)};
  SRestriction open{};
  open.rt = RES_AND;
  open.res.resAnd = {2, pair};
  SRestriction top[2] = {notExist, open};
  SRestriction r{};
  r.rt = RES_OR;
  r.res.resOr = {2, top};
  EXPECT_EQ(restricted(&r), Rows({"apples", "Café ÉTÉ", "-"}));
}

TEST_F(TableTest, SortsAscendingAndDescendingWithMissingValuesLast) {
  EXPECT_EQ(sorted({{PR_CLIENT_SUBMIT_TIME, TABLE_SORT_ASCEND}}),
            Rows({"Budget", "Café ÉTÉ", "apples", "-"}));
  EXPECT_EQ(sorted({{PR_CLIENT_SUBMIT_TIME, TABLE_SORT_DESCEND}}),
            Rows({"-", "apples", "Café ÉTÉ", "Budget"}));
  EXPECT_EQ(sorted({{PR_SUBJECT_W, TABLE_SORT_ASCEND}}),
            Rows({"apples", "Budget", "Café ÉTÉ", "-"}))
      << "text sorts without case";
  EXPECT_EQ(sorted({{PR_IMPORTANCE, TABLE_SORT_DESCEND}, {PR_SUBJECT_W, TABLE_SORT_ASCEND}}),
            Rows({"Budget", "Café ÉTÉ", "-", "apples"}));
  EXPECT_EQ(sorted({{PR_IMPORTANCE, TABLE_SORT_ASCEND}}),
            Rows({"apples", "Café ÉTÉ", "-", "Budget"}))
      << "equal keys keep the folder's order";

  auto table = contents("inbox");
  SizedSSortOrderSet(1, categorized) = {1, 1, 0, {{PR_IMPORTANCE, TABLE_SORT_ASCEND}}};
  EXPECT_EQ(table->SortTable(reinterpret_cast<LPSSortOrderSet>(&categorized), 0),
            MAPI_E_TOO_COMPLEX);
}

TEST_F(TableTest, QueryRowsInBatchesSeekRowAndRowCount) {
  auto table = contents("inbox");
  setColumns(table.get(), {PR_SUBJECT_W});
  ULONG count = 0;
  ASSERT_EQ(table->GetRowCount(0, &count), S_OK);
  EXPECT_EQ(count, 4u);

  RowSet rows;
  ASSERT_EQ(table->QueryRows(3, 0, rows.put()), S_OK);
  EXPECT_EQ(rows.size(), 3u);
  ASSERT_EQ(table->QueryRows(3, 0, rows.put()), S_OK);
  EXPECT_EQ(rows.size(), 1u);
  ASSERT_EQ(table->QueryRows(3, 0, rows.put()), S_OK);
  EXPECT_EQ(rows.size(), 0u) << "an empty batch at the end";

  LONG sought = 0;
  ASSERT_EQ(table->SeekRow(BOOKMARK_BEGINNING, 2, &sought), S_OK);
  EXPECT_EQ(sought, 2);
  EXPECT_EQ(firstColumn(table.get()), Rows({"Café ÉTÉ", "-"}));
  ASSERT_EQ(table->SeekRow(BOOKMARK_CURRENT, -10, &sought), S_OK);
  EXPECT_EQ(sought, -4) << "seeking stops at the beginning";

  ASSERT_EQ(table->QueryRows(1, TBL_NOADVANCE, rows.put()), S_OK);
  ASSERT_EQ(table->QueryRows(1, 0, rows.put()), S_OK);
  EXPECT_EQ(textOf(rows->aRow[0].lpProps[0]), "Budget") << "TBL_NOADVANCE left the cursor";

  BOOKMARK mark = 0;
  ASSERT_EQ(table->CreateBookmark(&mark), S_OK);
  ASSERT_EQ(table->SeekRow(BOOKMARK_END, 0, nullptr), S_OK);
  ASSERT_EQ(table->QueryRows(-2, 0, rows.put()), S_OK);
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(textOf(rows->aRow[0].lpProps[0]), "Café ÉTÉ") << "backward reads keep row order";
  ASSERT_EQ(table->SeekRow(mark, 0, &sought), S_OK);
  EXPECT_EQ(firstColumn(table.get()), Rows({"apples", "Café ÉTÉ", "-"}));
  EXPECT_EQ(table->FreeBookmark(mark), S_OK);
  EXPECT_EQ(table->SeekRow(mark, 0, &sought), MAPI_E_INVALID_BOOKMARK);

  SRestriction exist = existRes(PR_SUBJECT_W);
  ASSERT_EQ(table->Restrict(&exist, 0), S_OK);
  ASSERT_EQ(table->GetRowCount(0, &count), S_OK);
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(table->Restrict(nullptr, 0), S_OK);
  ASSERT_EQ(table->GetRowCount(0, &count), S_OK);
  EXPECT_EQ(count, 4u) << "a null restriction removes it";
}

TEST_F(TableTest, TableRowsCutStringsAt255CharactersAndGetPropsDoesNot) {
  std::u16string longSubject(300, u'x');
  longSubject[254] = u'Ж';
  std::u16string exact(255, u'y');
  profile_->modifyItem(profile_->byKey("m2"), {Prop::ofText(PR_SUBJECT_W, longSubject)});
  profile_->modifyItem(profile_->byKey("m3"), {Prop::ofText(PR_SUBJECT_W, exact)});

  auto table = contents("inbox");
  setColumns(table.get(), {PR_SUBJECT_W, PR_SUBJECT_A, PR_ENTRYID});
  RowSet rows;
  ASSERT_EQ(table->QueryRows(10, 0, rows.put()), S_OK);
  ASSERT_EQ(rows.size(), 4u);
  const SRow& row = rows->aRow[1];
  EXPECT_EQ(u16FromMapi(row.lpProps[0].Value.lpszW), longSubject.substr(0, 255));
  EXPECT_EQ(std::string(row.lpProps[1].Value.lpszA).size(), 255u) << "8-bit cut in bytes";
  EXPECT_EQ(u16FromMapi(rows->aRow[2].lpProps[0].Value.lpszW), exact);

  // The item itself has the whole text.
  auto store = openStore(0);
  auto message = open<IMessage>(store.get(), bytesOf(row.lpProps[2].Value.bin));
  ComPtr<IMAPIProp> prop;
  ASSERT_EQ(message.queryInterface(IID_IMAPIProp, prop), S_OK);
  MapiBuffer<SPropValue> value;
  ASSERT_EQ(HrGetOneProp(prop.get(), PR_SUBJECT_W, value.put()), S_OK);
  EXPECT_EQ(u16FromMapi(value->Value.lpszW), longSubject);
}

TEST_F(TableTest, QueryColumnsGivesTheSetColumnsOrEveryColumn) {
  auto table = contents("inbox");
  setColumns(table.get(), {PR_SUBJECT_W, PR_IMPORTANCE});
  MapiBuffer<SPropTagArray> tags;
  ASSERT_EQ(table->QueryColumns(0, tags.put()), S_OK);
  ASSERT_EQ(tags->cValues, 2u);
  EXPECT_EQ(tags->aulPropTag[1], static_cast<ULONG>(PR_IMPORTANCE));
  ASSERT_EQ(table->QueryColumns(TBL_ALL_COLUMNS, tags.put()), S_OK);
  std::vector<ULONG> all(tags->aulPropTag, tags->aulPropTag + tags->cValues);
  for (ULONG tag : {static_cast<ULONG>(PR_ENTRYID), static_cast<ULONG>(PR_CLIENT_SUBMIT_TIME),
                    static_cast<ULONG>(PR_SENDER_ENTRYID), static_cast<ULONG>(PR_BODY_W)})
    EXPECT_NE(std::find(all.begin(), all.end(), tag), all.end()) << std::hex << tag;
  // Setting them all back works, as change tracking does.
  EXPECT_EQ(table->SetColumns(tags.get(), 0), S_OK);
}

// Every-column queries list a row's tags without making its values; the
// list must be the one its values would give, in their order.
TEST_F(TableTest, ARowsTagsAreThoseOfItsValues) {
  std::lock_guard<std::recursive_mutex> lock(profile_->mutex());
  size_t rows = 0;
  for (const char* key : {"inbox", "calendar", "contacts", "tasks"}) {
    TableSource source;
    source.folder = profile_->byKey(key).id;
    for (const TableRow& row : profile_->rows(source)) {
      std::vector<ULONG> tags;
      profile_->rowPropTags(row, tags);
      std::vector<ULONG> expected;
      for (const Prop& p : profile_->rowProps(row).all()) expected.push_back(p.tag);
      EXPECT_EQ(tags, expected) << key;
      ++rows;
    }
  }
  EXPECT_GE(rows, 4u);
}

TEST_F(TableTest, HrQueryAllRowsFindsTheDefaultStore) {
  ComPtr<IMAPITable> stores;
  ASSERT_EQ(session_->GetMsgStoresTable(0, stores.put()), S_OK);
  SizedSPropTagArray(2, columns) = {2, {PR_ENTRYID, PR_DISPLAY_NAME_W}};
  SPropValue yes{};
  yes.ulPropTag = PR_DEFAULT_STORE;
  yes.Value.b = 1;
  SRestriction r = propertyRes(RELOP_EQ, PR_DEFAULT_STORE, &yes);
  RowSet rows;
  ASSERT_EQ(HrQueryAllRows(stores.get(), reinterpret_cast<LPSPropTagArray>(&columns), &r, nullptr,
                           0, rows.put()),
            S_OK);
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(textOf(rows->aRow[0].lpProps[1]), "Mailbox - Ana Núñez");
  EXPECT_EQ(bytesOf(rows->aRow[0].lpProps[0].Value.bin), profile_->entryId(profile_->storeRef(0)));
  ASSERT_EQ(HrQueryAllRows(stores.get(), nullptr, nullptr, nullptr, 0, rows.put()), S_OK);
  EXPECT_EQ(rows.size(), 1u) << "the restriction stays on the table";
  EXPECT_EQ(stores->Restrict(nullptr, 0), S_OK);
  EXPECT_EQ(HrQueryAllRows(stores.get(), nullptr, nullptr, nullptr, 1, rows.put()),
            MAPI_E_TABLE_TOO_BIG);
}

}  // namespace
}  // namespace PIM::store::testing

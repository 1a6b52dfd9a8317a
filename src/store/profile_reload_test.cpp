// Reloading an edited fixture into a live profile, and the file watcher.
#include "store/profile_reload.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <random>
#include <thread>

#include "store/props.h"
#include "store/store_test_util.h"
#include "testing/test_support.h"

namespace PIM::store::testing {
namespace {

// kProfileJson with a few more things to edit: keyless calendar items and a
// reports item pointing at m2 by long- and short-term entry id.
std::string baseJson() {
  std::string text = kProfileJson;
  auto replaceOnce = [&text](const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    if (at == std::string::npos) throw std::logic_error("no " + from);
    text.replace(at, from.size(), to);
  };
  replaceOnce(R"({"key": "calendar", "name": "Calendar", "class": "IPF.Appointment"})",
              R"({"key": "calendar", "name": "Calendar", "class": "IPF.Appointment", "items": [
                  {"class": "IPM.Appointment", "props": [{"tag": "PR_SUBJECT_W", "value": "Standup"}]},
                  {"class": "IPM.Appointment", "props": [{"tag": "PR_SUBJECT_W", "value": "Review"}]},
                  {"class": "IPM.Appointment", "props": [{"tag": "PR_SUBJECT_W", "value": "Retro"}]}]})");
  replaceOnce(R"({"key": "reports", "name": "Reports", "class": "IPF.Note"})",
              R"({"key": "reports", "name": "Reports", "class": "IPF.Note", "items": [
                  {"key": "r1", "class": "IPM.Note", "props": [
                    {"tag": "PR_SUBJECT_W", "value": "About apples"},
                    {"tag": "PR_SENDER_ENTRYID", "value": {"entryIdOf": "m2"}},
                    {"tag": "PR_SENT_REPRESENTING_ENTRYID", "value": {"shortTermEntryIdOf": "m2"}}]}]})");
  return text;
}

// `text` with each `from` (which must occur exactly once) replaced by `to`.
std::string edited(std::string text,
                   std::initializer_list<std::pair<std::string, std::string>> edits) {
  for (const auto& [from, to] : edits) {
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    EXPECT_EQ(text.find(from, at + 1), std::string::npos) << from << " occurs twice";
    if (at != std::string::npos) text.replace(at, from.size(), to);
  }
  return text;
}

const std::string kM3 = R"({"key": "m3", "class": "IPM.Note", "props": [
                  {"tag": "PR_SUBJECT_W", "value": "Café ÉTÉ"},
                  {"tag": "PR_IMPORTANCE", "value": 1},
                  {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2024-03-02T09:00:00Z"}]},
               )";
const std::string kM2Start = R"({"key": "m2", "class": "IPM.Note", "props": [)";
const std::string kNewNote = R"({"key": "m5", "class": "IPM.Note", "props": [
                  {"tag": "PR_SUBJECT_W", "value": "Fresh"}]},
               )";

std::string eventText(const RecordingSink::Event& e) {
  std::string out;
  switch (e.type) {
    case TABLE_ROW_ADDED:
      out = "added";
      break;
    case TABLE_ROW_MODIFIED:
      out = "modified";
      break;
    case TABLE_ROW_DELETED:
      out = "deleted";
      break;
    default:
      out = "table event " + std::to_string(e.type);
  }
  for (const std::string& column : e.row) out += " " + column;
  return out;
}

// The subjects of every keyed folder's contents table, as MAPI reads them.
std::map<std::string, std::vector<std::string>> allSubjects(Profile& profile) {
  ComPtr<IMAPISession> session;
  EXPECT_EQ(profile.logon(session.put()), S_OK);
  std::map<std::string, std::vector<std::string>> out;
  for (const auto& [key, ref] : profile.keys())
    if (ref.kind == Ref::Kind::Folder)
      out[key] = firstColumn(contentsOf(session.get(), profile, ref).get());
  return out;
}

class ReloadTest : public StoreTest {
 protected:
  const char* json() const override { return base_.c_str(); }

  // A contents table of each folder, advised.
  struct Advised {
    RecordingSink sink;  // outlives the table that holds it
    ComPtr<IMAPITable> table;
    ULONG connection = 0;
    ~Advised() {
      if (table) {
        EXPECT_EQ(table->Unadvise(connection), S_OK);
      }
    }
  };
  void SetUp() override {
    StoreTest::SetUp();
    for (const char* key :
         {"root", "ipm", "inbox", "reports", "calendar", "contacts", "tasks", "archive.ipm"}) {
      auto& a = advised_[key];
      a = std::make_unique<Advised>();
      a->table = contents(key);
      setColumns(a->table.get(), {PR_SUBJECT_W, PR_INSTANCE_KEY});
      ASSERT_EQ(a->table->Advise(fnevTableModified, &a->sink, &a->connection), S_OK);
    }
    idsBefore_ = entryIds();
  }
  void TearDown() override {
    advised_.clear();
    StoreTest::TearDown();
  }

  ReloadResult reload(const std::string& text) {
    auto fresh = loadFixtureText(text, "test.json");
    return reloadProfile(*profile_, *fresh);
  }
  // Each advised folder's events as text; folders without any are left out.
  std::map<std::string, std::vector<std::string>> events() {
    std::map<std::string, std::vector<std::string>> out;
    for (auto& [key, a] : advised_) {
      for (const auto& e : a->sink.events) out[key].push_back(eventText(e));
      a->sink.events.clear();
    }
    return out;
  }
  static std::vector<std::string> paths(const ReloadResult& r) {
    std::vector<std::string> out;
    for (const ChangedFolder& f : r.folders) out.push_back(toUtf8(f.path));
    return out;
  }
  // The long-term entry id of every keyed object.
  std::map<std::string, Bytes> entryIds() {
    std::map<std::string, Bytes> out;
    for (const auto& [key, ref] : profile_->keys()) out[key] = profile_->entryId(ref);
    return out;
  }
  // Subject -> PR_INSTANCE_KEY of a folder's contents rows.
  std::map<std::string, Bytes> instanceKeys(const std::string& folderKey) {
    auto table = contents(folderKey);
    setColumns(table.get(), {PR_SUBJECT_W, PR_INSTANCE_KEY});
    RowSet rows;
    EXPECT_EQ(table->QueryRows(100, 0, rows.put()), S_OK);
    std::map<std::string, Bytes> out;
    for (ULONG i = 0; i < rows->cRows; ++i) {
      const SPropValue* v = rows->aRow[i].lpProps;
      if (PROP_TYPE(v[0].ulPropTag) == PT_UNICODE) out[textOf(v[0])] = bytesOf(v[1].Value.bin);
    }
    return out;
  }
  // The live profile now reads as a fresh load of `text` does, and taking in
  // that text again changes nothing.
  void expectLiveIs(const std::string& text) {
    auto fresh = loadFixtureText(text, "test.json");
    EXPECT_EQ(allSubjects(*profile_), allSubjects(*fresh));
    const ReloadResult again = reloadProfile(*profile_, *fresh);
    EXPECT_EQ(again.status, ReloadResult::Status::Unchanged) << again.error;
    EXPECT_TRUE(events().empty());
  }

  std::string base_ = baseJson();
  std::map<std::string, std::unique_ptr<Advised>> advised_;
  std::map<std::string, Bytes> idsBefore_;
};

using Status = ReloadResult::Status;
using Events = std::map<std::string, std::vector<std::string>>;

TEST_F(ReloadTest, AnEditedSubjectNotifiesOnlyItsFolderAndKeepsEntryIds) {
  const auto keysBefore = instanceKeys("inbox");
  const std::string text = edited(base_, {{R"("value": "apples")", R"("value": "pears")"}});
  const ReloadResult r = reload(text);
  EXPECT_EQ(r.status, Status::Applied) << r.error;
  EXPECT_EQ(paths(r), std::vector<std::string>({"Top of Information Store/Inbox"}));
  EXPECT_EQ(r.folders.at(0).folder, profile_->byKey("inbox"));
  auto& inbox = advised_["inbox"]->sink.events;
  ASSERT_EQ(inbox.size(), 1u);
  EXPECT_EQ(inbox[0].index, keysBefore.at("apples")) << "the same row";
  EXPECT_EQ(events(), (Events{{"inbox", {"modified pears"}}}));
  EXPECT_EQ(entryIds(), idsBefore_);
  expectLiveIs(text);
}

TEST_F(ReloadTest, UnchangedOrOnlyReformattedFilesNotifyNothing) {
  for (const std::string& text : {base_, edited(base_, {{R"("key": "m1", )", R"("key":"m1",)"}})}) {
    const ReloadResult r = reload(text);
    EXPECT_EQ(r.status, Status::Unchanged) << r.error;
    EXPECT_TRUE(r.folders.empty());
    EXPECT_TRUE(events().empty());
    EXPECT_EQ(entryIds(), idsBefore_);
  }
}

TEST_F(ReloadTest, ItemsAddedAndRemovedInTheirPlaces) {
  const std::string text = edited(
      base_,
      {{kM3, ""},
       {kM2Start, kNewNote + kM2Start},
       {R"({"class": "IPM.Appointment", "props": [{"tag": "PR_SUBJECT_W", "value": "Retro"}]})",
        R"({"class": "IPM.Appointment", "props": [{"tag": "PR_SUBJECT_W", "value": "Retro"}]},
                         {"class": "IPM.Appointment", "props": [{"tag": "PR_SUBJECT_W", "value": "Planning"}]})"}});
  const auto keysBefore = instanceKeys("inbox");
  const ReloadResult r = reload(text);
  EXPECT_EQ(r.status, Status::Applied) << r.error;
  EXPECT_EQ(paths(r), std::vector<std::string>(
                          {"Top of Information Store/Inbox", "Top of Information Store/Calendar"}));
  EXPECT_EQ(advised_["inbox"]->sink.events.at(1).prior, keysBefore.at("Budget"))
      << "the new row comes after m1's";
  EXPECT_EQ(events(),
            (Events{{"inbox", {"deleted", "added Fresh"}}, {"calendar", {"added Planning"}}}));
  EXPECT_FALSE(profile_->byKey("m3").valid());
  ASSERT_TRUE(profile_->byKey("m5").valid());
  EXPECT_EQ(PIM::store::textOf(
                *profile_->itemCopy(profile_->byKey("m5"))->props.find(PROP_ID(PR_SUBJECT_W))),
            u"Fresh");
  auto ids = entryIds();
  EXPECT_EQ(ids.erase("m5"), 1u);
  idsBefore_.erase("m3");
  EXPECT_EQ(ids, idsBefore_);
  expectLiveIs(text);
  EXPECT_EQ(reload(base_).status, Status::Applied) << "and back";
  EXPECT_EQ(events(),
            (Events{{"inbox", {"deleted", "added Café ÉTÉ"}}, {"calendar", {"deleted"}}}));
  expectLiveIs(base_);
}

TEST_F(ReloadTest, RecipientsAttachmentsAndKindAreContentToo) {
  const std::string text =
      edited(base_, {{R"("value": "Олег")", R"("value": "Oleg")"},
                     {R"({"text": "%PDF-1.4 tiny"})", R"({"text": "%PDF-1.5 tiny"})"},
                     {R"("value": "Inner")", R"("value": "Inner, again")"},
                     {R"({"key": "m4", "class": "IPM.Note.Report", )",
                      R"({"key": "m4", "class": "IPM.Note.Report", "associated": true, )"}});
  const ReloadResult r = reload(text);
  EXPECT_EQ(r.status, Status::Applied) << r.error;
  EXPECT_EQ(paths(r), std::vector<std::string>({"Top of Information Store/Inbox"}));
  // m4 leaves the contents table for the associated one.
  EXPECT_EQ(events(), (Events{{"inbox", {"modified Budget", "deleted"}}}));
  auto m1 = profile_->itemCopy(profile_->byKey("m1"));
  ASSERT_TRUE(m1);
  EXPECT_EQ(PIM::store::textOf(*m1->recipients.at(1).props.find(PROP_ID(PR_DISPLAY_NAME))),
            u"Oleg");
  EXPECT_EQ(std::string(m1->attachments.at(0).data.begin(), m1->attachments.at(0).data.end()),
            "%PDF-1.5 tiny");
  EXPECT_EQ(PIM::store::textOf(*m1->attachments.at(1).embedded->props.find(PROP_ID(PR_SUBJECT_W))),
            u"Inner, again");
  EXPECT_EQ(m1->attachments.at(1).num, 1u);
  EXPECT_TRUE(profile_->itemCopy(profile_->byKey("m4"))->associated);
  EXPECT_EQ(entryIds(), idsBefore_);
  expectLiveIs(text);
}

TEST_F(ReloadTest, ReorderedItemsMoveWithTheirEntryIds) {
  // m3 before m2: one row moves (m2, after m3); the others stay where they are.
  const std::string text = edited(base_, {{kM3, ""}, {kM2Start, kM3 + kM2Start}});
  const ReloadResult r = reload(text);
  EXPECT_EQ(r.status, Status::Applied) << r.error;
  EXPECT_EQ(events(), (Events{{"inbox", {"modified apples"}}}));
  EXPECT_EQ(entryIds(), idsBefore_);
  expectLiveIs(text);
}

TEST_F(ReloadTest, KeylessItemsAreMatchedByPlace) {
  const auto before = instanceKeys("calendar");
  // The second one edited, the third one gone.
  const std::string text =
      edited(base_, {{R"("value": "Review"}]})", R"("value": "Design review"}]})"},
                     {R"(,
                  {"class": "IPM.Appointment", "props": [{"tag": "PR_SUBJECT_W", "value": "Retro"}]})",
                      ""}});
  const ReloadResult r = reload(text);
  EXPECT_EQ(r.status, Status::Applied) << r.error;
  auto& calendar = advised_["calendar"]->sink.events;
  ASSERT_EQ(calendar.size(), 2u);
  EXPECT_EQ(calendar[0].index, before.at("Retro"));
  EXPECT_EQ(calendar[1].index, before.at("Review")) << "the same row, edited";
  EXPECT_EQ(events(), (Events{{"calendar", {"deleted", "modified Design review"}}}));
  expectLiveIs(text);
}

TEST_F(ReloadTest, EntryIdsInValuesFollowTheirItems) {
  // A new first item shifts every later item's number in the new load, and
  // short-term ids name the load's own session: r1 still points at the same
  // m2 and must not count as changed.
  const std::string text = edited(base_, {{R"({"key": "m1", )", kNewNote + R"({"key": "m1", )"}});
  const ReloadResult r = reload(text);
  EXPECT_EQ(r.status, Status::Applied) << r.error;
  EXPECT_EQ(events(), (Events{{"inbox", {"added Fresh"}}}));
  const Bytes m2 = profile_->entryId(profile_->byKey("m2"));
  auto r1 = profile_->itemCopy(profile_->byKey("r1"));
  EXPECT_EQ(r1->props.find(PROP_ID(PR_SENDER_ENTRYID))->bin(), m2);
  EXPECT_EQ(r1->props.find(PROP_ID(PR_SENT_REPRESENTING_ENTRYID))->bin(),
            profile_->shortTermEntryId(profile_->byKey("m2")));
  expectLiveIs(text);

  // m2 moved to another folder gets a new entry id, and r1 the new one.
  const std::string moved = edited(text, {{R"({"key": "m2", "class": "IPM.Note", "props": [
                  {"tag": "PR_SUBJECT_W", "value": "apples"},
                  {"tag": "PR_IMPORTANCE", "value": 0},
                  {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2024-03-03T09:00:00Z"}]},)",
                                           ""},
                                          {R"("items": [
                  {"key": "r1")",
                                           R"("items": [
                  {"key": "m2", "class": "IPM.Note", "props": [
                    {"tag": "PR_SUBJECT_W", "value": "apples"},
                    {"tag": "PR_IMPORTANCE", "value": 0},
                    {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2024-03-03T09:00:00Z"}]},
                  {"key": "r1")"}});
  EXPECT_EQ(reload(moved).status, Status::Applied);
  EXPECT_EQ(events(), (Events{{"inbox", {"deleted"}},
                              {"reports", {"added apples", "modified About apples"}}}));
  EXPECT_NE(profile_->entryId(profile_->byKey("m2")), m2);
  EXPECT_EQ(
      profile_->itemCopy(profile_->byKey("r1"))->props.find(PROP_ID(PR_SENDER_ENTRYID))->bin(),
      profile_->entryId(profile_->byKey("m2")));
  expectLiveIs(moved);
}

TEST_F(ReloadTest, TheSameEntryIdBytesCanNameAnotherItem) {
  // m1 and m2 trade places and r1 now names m1: numbered by the new load,
  // r1's value has the bytes it had, yet it names the other item.
  const std::string m2 = R"({"key": "m2", "class": "IPM.Note", "props": [
                  {"tag": "PR_SUBJECT_W", "value": "apples"},
                  {"tag": "PR_IMPORTANCE", "value": 0},
                  {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2024-03-03T09:00:00Z"}]},)";
  const std::string text =
      edited(base_, {{m2, ""},
                     {R"({"key": "m1", )", m2 + R"({"key": "m1", )"},
                     {R"({"tag": "PR_SENDER_ENTRYID", "value": {"entryIdOf": "m2"}})",
                      R"({"tag": "PR_SENDER_ENTRYID", "value": {"entryIdOf": "m1"}})"}});
  EXPECT_EQ(reload(text).status, Status::Applied);
  const Events seen = events();
  ASSERT_TRUE(seen.count("reports"));
  EXPECT_EQ(seen.at("reports"), std::vector<std::string>{"modified About apples"});
  EXPECT_EQ(
      profile_->itemCopy(profile_->byKey("r1"))->props.find(PROP_ID(PR_SENDER_ENTRYID))->bin(),
      profile_->entryId(profile_->byKey("m1")));
  expectLiveIs(text);
}

TEST_F(ReloadTest, ChangesBeyondItemsNeedARestartAndChangeNothing) {
  const std::string subject = R"("value": "apples")";
  const std::string pears = R"("value": "pears")";
  const std::string restart = "the store cannot follow this change without a restart: ";
  const struct {
    std::string from, to, error;
  } cases[] = {
      {R"({"key": "calendar", "name": "Calendar", "class": "IPF.Appointment", )",
       R"({"key": "calendar", "name": "Calendar", "class": "IPF.Appointment", "folders": [{"name": "Holidays"}], )",
       "folder \"Top of Information Store/Calendar\" of store \"Mailbox - Ana Núñez\": subfolders "
       "were added or removed"},
      {R"("name": "Tasks")", R"("name": "To do")",
       "folder \"Top of Information Store/Tasks\" of store \"Mailbox - Ana Núñez\": its name, "
       "class or properties changed"},
      {R"("class": "IPF.Contact")", R"("class": "IPF.Note")",
       "folder \"Top of Information Store/Contacts\" of store \"Mailbox - Ana Núñez\": its name, "
       "class or properties changed"},
      {R"({"tag": "PR_IPM_CONTACT_ENTRYID", "value": {"entryIdOf": "contacts"}})",
       R"({"tag": "PR_IPM_CONTACT_ENTRYID", "value": {"entryIdOf": "tasks"}})",
       "the root folder of store \"Mailbox - Ana Núñez\": its name, class or properties changed"},
      {R"({"set": "PSETID_Task", "id": "0x8105"}
      ],)",
       R"({"set": "PSETID_Task", "id": "0x8105"}, {"set": "PSETID_Common", "id": "0x8506"}
      ],)",
       "store \"Mailbox - Ana Núñez\": its named properties changed"},
      {R"("options": {"unicode": false, )", R"("options": {"unicode": true, )",
       "store \"Archive\": its name, default flag or options changed"},
      {R"("receiveFolder": "inbox")", R"("receiveFolder": "reports")",
       "store \"Mailbox - Ana Núñez\": its properties, IPM subtree or receive folders changed"},
      {R"("bob@example.com")", R"("bob@example.org")", "the address book changed"},
      {R"("key": "archive", "name": "Archive",)", R"("key": "archive", "name": "Old mail",)",
       "store \"Archive\": its name, default flag or options changed"},
      {R"("addressBook": [)",
       R"("addressBook": [)",  // with a store added below
       "stores were added or removed"},
  };
  for (const auto& c : cases) {
    std::string text = edited(base_, {{subject, pears}, {c.from, c.to}});
    if (c.error == "stores were added or removed")
      text = edited(text, {{R"(  ],
  "addressBook")",
                            R"(  , {"name": "Third", "root": {}}],
  "addressBook")"}});
    const ReloadResult r = reload(text);
    EXPECT_EQ(r.status, Status::RestartNeeded) << c.to;
    EXPECT_EQ(r.error, restart + c.error);
    EXPECT_TRUE(r.folders.empty());
    EXPECT_TRUE(events().empty()) << c.to;
    EXPECT_EQ(entryIds(), idsBefore_);
  }
  EXPECT_EQ(instanceKeys("inbox").count("apples"), 1u) << "nothing was applied";
  expectLiveIs(base_);
}

TEST_F(ReloadTest, AFileThatDoesNotLoadChangesNothingAndALaterGoodOneApplies) {
  PIM::testing::TempDir dir;
  const std::u16string path = dir.file(u"box.json");
  const std::string broken = edited(base_, {{R"("value": "apples")", R"("value": "pears)"}});
  PIM::testing::writeFileBytes(path, broken);
  std::string loaderText;
  try {
    loadFixtureText(broken, toUtf8(path));
  } catch (const FixtureError& e) {
    loaderText = e.what();
  }
  ASSERT_NE(loaderText, "");
  ReloadResult r = reloadFixtureFile(*profile_, path);
  EXPECT_EQ(r.status, Status::LoadFailed);
  EXPECT_EQ(r.error, loaderText);
  EXPECT_TRUE(events().empty());
  r = reloadFixtureFile(*profile_, dir.file(u"missing.json"));
  EXPECT_EQ(r.status, Status::LoadFailed);
  EXPECT_EQ(r.error, toUtf8(dir.file(u"missing.json")) + ": cannot be opened");
  EXPECT_EQ(entryIds(), idsBefore_);
  expectLiveIs(base_);

  const std::string good = edited(base_, {{R"("value": "apples")", R"("value": "pears")"}});
  PIM::testing::writeFileBytes(path, good);
  r = reloadFixtureFile(*profile_, path);
  EXPECT_EQ(r.status, Status::Applied) << r.error;
  EXPECT_EQ(events(), (Events{{"inbox", {"modified pears"}}}));
}

// Random edits of two folders' items, each reload checked against a fresh
// load, the folders reported, the entry ids kept and a copy of each table
// kept up to date from its notifications alone.
TEST(ReloadRandomEditsTest, LiveProfileFollowsEveryEdit) {
  const int64_t buffersBefore = liveMapiBuffers();
  struct Entry {
    std::string key;  // empty: keyless
    std::string subject;
    bool operator==(const Entry&) const = default;
  };
  using Folders = std::array<std::vector<Entry>, 2>;
  auto jsonOf = [](const Folders& folders) {
    std::string out = R"({"stores": [{"name": "S", "root": {"folders": [)";
    for (size_t f = 0; f < 2; ++f) {
      out += std::string(f ? "," : "") + R"({"key": "F)" + std::to_string(f) + R"(", "name": "F)" +
             std::to_string(f) + R"(", "items": [)";
      for (size_t i = 0; i < folders[f].size(); ++i) {
        const Entry& e = folders[f][i];
        out += std::string(i ? "," : "") + "{" +
               (e.key.empty() ? "" : R"("key": ")" + e.key + R"(", )") +
               R"("props": [{"tag": "PR_SUBJECT_W", "value": ")" + e.subject + R"("}]})";
      }
      out += "]}";
    }
    return out + "]}}]}";
  };
  std::mt19937 random(5);
  auto below = [&random](size_t n) { return static_cast<size_t>(random() % n); };
  int counter = 0;
  auto fresh = [&]() {
    return Entry{below(3) ? "k" + std::to_string(counter) : "", "s" + std::to_string(counter++)};
  };
  Folders state;
  for (auto& folder : state)
    for (int i = 0; i < 6; ++i) folder.push_back(fresh());

  auto live = loadFixtureText(jsonOf(state), "random.json");
  ComPtr<IMAPISession> session;
  ASSERT_EQ(live->logon(session.put()), S_OK);
  struct Mirror {
    RecordingSink sink;
    ComPtr<IMAPITable> table;
    ULONG connection = 0;
    std::vector<std::pair<Bytes, std::string>> rows;  // (instance key, subject)
  };
  std::array<Mirror, 2> mirrors;
  for (size_t f = 0; f < 2; ++f) {
    Mirror& m = mirrors[f];
    m.table = contentsOf(session.get(), *live, live->byKey("F" + std::to_string(f)));
    RowSet rows;
    ASSERT_EQ(m.table->QueryRows(100, 0, rows.put()), S_OK);
    for (ULONG i = 0; i < rows->cRows; ++i)
      m.rows.emplace_back(bytesOf(rows->aRow[i].lpProps[1].Value.bin),
                          textOf(rows->aRow[i].lpProps[0]));
    ASSERT_EQ(m.table->Advise(fnevTableModified, &m.sink, &m.connection), S_OK);
  }

  for (int round = 0; round < 60; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    Folders next = state;
    for (auto& folder : next) {
      if (!folder.empty() && below(3) == 0) folder.erase(folder.begin() + below(folder.size()));
      if (!folder.empty() && below(3) == 0)
        folder[below(folder.size())].subject = "e" + std::to_string(counter++);
      if (below(3) == 0) folder.insert(folder.begin() + below(folder.size() + 1), fresh());
      if (folder.size() > 1 && below(3) == 0)
        std::swap(folder[below(folder.size())], folder[below(folder.size())]);
    }
    if (!next[0].empty() && below(4) == 0) {
      const size_t from = below(next[0].size());
      next[1].insert(next[1].begin() + below(next[1].size() + 1), next[0][from]);
      next[0].erase(next[0].begin() + from);
    }
    const auto before = live->keys();
    std::map<std::string, Bytes> idsBefore;
    for (const auto& [key, ref] : before) idsBefore[key] = live->entryId(ref);

    const std::string text = jsonOf(next);
    auto load = loadFixtureText(text, "random.json");
    const ReloadResult r = reloadProfile(*live, *load);
    std::vector<std::string> expected;
    for (size_t f = 0; f < 2; ++f)
      if (!(next[f] == state[f])) expected.push_back("F" + std::to_string(f));
    std::vector<std::string> reported;
    for (const ChangedFolder& c : r.folders) reported.push_back(toUtf8(c.path));
    EXPECT_EQ(reported, expected);
    EXPECT_EQ(r.status,
              expected.empty() ? ReloadResult::Status::Unchanged : ReloadResult::Status::Applied)
        << r.error;
    EXPECT_EQ(allSubjects(*live), allSubjects(*load));

    for (size_t f = 0; f < 2; ++f) {
      Mirror& m = mirrors[f];
      EXPECT_EQ(m.sink.events.empty(), next[f] == state[f]);
      for (const auto& e : m.sink.events) {
        auto at = [&m](const Bytes& key) {
          return std::find_if(m.rows.begin(), m.rows.end(),
                              [&](const auto& row) { return row.first == key; });
        };
        if (e.type != TABLE_ROW_ADDED) {
          ASSERT_NE(at(e.index), m.rows.end());
          m.rows.erase(at(e.index));
        }
        if (e.type == TABLE_ROW_DELETED) continue;
        auto where = e.prior.empty() ? m.rows.begin() : at(e.prior) + 1;
        m.rows.insert(where, {e.index, e.row.at(0)});
      }
      m.sink.events.clear();
      std::vector<std::string> mirrored;
      for (const auto& row : m.rows) mirrored.push_back(row.second);
      std::vector<std::string> wanted;
      for (const Entry& e : next[f]) wanted.push_back(e.subject);
      EXPECT_EQ(mirrored, wanted);
      for (const Entry& e : next[f])
        if (!e.key.empty() && before.count(e.key) &&
            std::find_if(state[f].begin(), state[f].end(),
                         [&](const Entry& old) { return old.key == e.key; }) != state[f].end()) {
          EXPECT_EQ(live->entryId(live->byKey(e.key)), idsBefore[e.key]) << e.key;
        }
    }
    state = next;
  }
  for (Mirror& m : mirrors) EXPECT_EQ(m.table->Unadvise(m.connection), S_OK);
  for (Mirror& m : mirrors) m.table.reset();
  session.reset();
  EXPECT_EQ(liveMapiBuffers(), buffersBefore);
}

// ---- The watcher ---------------------------------------------------------------------
class WatcherTest : public ReloadTest {
 protected:
  void SetUp() override {
    // Not ASCII, so that the path's conversion on Windows is tried too.
    path_ = dir_.file(u"Núñez \u2713 box.json");
    save(base_);
    ReloadTest::SetUp();  // the live profile: the same text
    watcher_ = std::make_unique<FixtureWatcher>(profile_, path_);
  }
  // An editor's save: new content and a modification time of its own.
  void save(const std::string& text) {
    PIM::testing::writeFileBytes(path_, text);
    stampSeconds_ += 10;
    std::filesystem::last_write_time(nativePath(path_),
                                     start_ + std::chrono::seconds(stampSeconds_));
  }
  std::string loaderError(const std::string& text) {
    try {
      loadFixtureText(text, toUtf8(path_));
    } catch (const FixtureError& e) {
      return e.what();
    }
    return "";
  }

  PIM::testing::TempDir dir_;
  std::u16string path_;
  std::unique_ptr<FixtureWatcher> watcher_;
  const std::filesystem::file_time_type start_ = std::filesystem::file_time_type::clock::now();
  int stampSeconds_ = 0;
};

TEST_F(WatcherTest, AppliesEachSavedVersionOnce) {
  EXPECT_EQ(watcher_->check().status, Status::Unchanged);
  const std::string pears = edited(base_, {{R"("value": "apples")", R"("value": "pears")"}});
  save(pears);
  ReloadResult r = watcher_->check();
  EXPECT_EQ(r.status, Status::Applied) << r.error;
  EXPECT_EQ(paths(r), std::vector<std::string>({"Top of Information Store/Inbox"}));
  EXPECT_EQ(events(), (Events{{"inbox", {"modified pears"}}}));
  EXPECT_EQ(watcher_->check().status, Status::Unchanged);

  save(pears);  // saved again as it was
  EXPECT_EQ(watcher_->check().status, Status::Unchanged);
  EXPECT_TRUE(events().empty());

  save(edited(pears, {{R"("name": "Tasks")", R"("name": "To do")"}}));
  r = watcher_->check();
  EXPECT_EQ(r.status, Status::RestartNeeded);
  EXPECT_NE(r.error.find("without a restart"), std::string::npos) << r.error;
  EXPECT_EQ(watcher_->check().status, Status::Unchanged) << "told once";

  save(base_);
  EXPECT_EQ(watcher_->check().status, Status::Applied);
  EXPECT_EQ(events(), (Events{{"inbox", {"modified apples"}}}));
  expectLiveIs(base_);
}

TEST_F(WatcherTest, AHalfWrittenFileIsTriedAgainThenReportedOnce) {
  const std::string half = base_.substr(0, base_.size() / 2);
  save(half);
  ReloadResult r = watcher_->check();
  EXPECT_EQ(r.status, Status::Pending);
  r = watcher_->check();
  EXPECT_EQ(r.status, Status::LoadFailed);
  EXPECT_EQ(r.error, loaderError(half));
  EXPECT_EQ(watcher_->check().status, Status::Unchanged) << "told once";
  EXPECT_EQ(watcher_->check().status, Status::Unchanged);

  // Caught between two writes of one save.
  const std::string pears = edited(base_, {{R"("value": "apples")", R"("value": "pears")"}});
  save(pears.substr(0, 100));
  EXPECT_EQ(watcher_->check().status, Status::Pending);
  save(pears);
  EXPECT_EQ(watcher_->check().status, Status::Applied);
  EXPECT_EQ(events(), (Events{{"inbox", {"modified pears"}}}));

  // Replaced through a rename: gone for a moment.
  ASSERT_TRUE(std::filesystem::remove(nativePath(path_)));
  EXPECT_EQ(watcher_->check().status, Status::Pending);
  r = watcher_->check();
  EXPECT_EQ(r.status, Status::LoadFailed);
  EXPECT_EQ(r.error, toUtf8(path_) + ": cannot be opened");
  save(base_);
  EXPECT_EQ(watcher_->check().status, Status::Applied);
  EXPECT_EQ(events(), (Events{{"inbox", {"modified apples"}}}));
  expectLiveIs(base_);
}

TEST_F(WatcherTest, NotificationsArriveOnTheCheckingThread) {
  save(edited(base_, {{R"("value": "apples")", R"("value": "pears")"}, {kM3, ""}}));
  ReloadResult r;
  std::thread checker([&] { r = watcher_->check(); });
  const std::thread::id checkerId = checker.get_id();
  for (int i = 0; i < 20; ++i) {
    auto table = contents("inbox");
    setColumns(table.get(), {PR_SUBJECT_W});
    const auto rows = firstColumn(table.get());
    EXPECT_TRUE(rows.size() == 3u || rows.size() == 4u) << rows.size();
  }
  checker.join();
  EXPECT_EQ(r.status, Status::Applied) << r.error;
  const auto& inbox = advised_["inbox"]->sink.events;
  ASSERT_EQ(inbox.size(), 2u);
  for (const auto& e : inbox) EXPECT_EQ(e.thread, checkerId);
}

}  // namespace
}  // namespace PIM::store::testing

// Reloading a fixture file builds only the items whose text changed, and ends
// exactly where taking in a whole fresh load ends: the same store, the same
// notifications, the same result.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "store/fixture.h"
#include "store/profile_reload.h"
#include "store/props.h"
#include "store/store_test_util.h"
#include "testing/test_support.h"

namespace PIM::store::testing {
namespace {

// Item texts by name; a name with a suffix is an edited version.
const std::map<std::string, std::string> kItems = {
    {"a1", R"({"key": "a1", "class": "IPM.Note", "props": [{"tag": "PR_SUBJECT_W", "value": "one"},
      {"named": {"set": "PS_PUBLIC_STRINGS", "name": "Colour"}, "type": "PT_UNICODE", "value": "red"}]})"},
    {"a1 spaced",
     R"({"key":"a1","class":"IPM.Note","props":[{"tag":"PR_SUBJECT_W","value":"one"},
      {"named":{"set":"PS_PUBLIC_STRINGS","name":"Colour"},"type":"PT_UNICODE","value":"red"}]})"},
    {"a2", R"({"key": "a2", "class": "IPM.Note", "props": [{"tag": "PR_SUBJECT_W", "value": "two"},
      {"named": {"set": "PS_PUBLIC_STRINGS", "name": "Shape"}, "type": "PT_UNICODE", "value": "round"}]})"},
    {"a2 edited",
     R"({"key": "a2", "class": "IPM.Note", "props": [{"tag": "PR_SUBJECT_W", "value": "deux"},
      {"named": {"set": "PS_PUBLIC_STRINGS", "name": "Shape"}, "type": "PT_UNICODE", "value": "round"}]})"},
    {"a3",
     R"({"key": "a3", "class": "IPM.Note", "props": [{"tag": "PR_SUBJECT_W", "value": "three"}],
      "recipients": [{"props": [{"tag": "PR_DISPLAY_NAME_W", "value": "Ann"}]}],
      "attachments": [{"props": [{"tag": "PR_ATTACH_LONG_FILENAME_W", "value": "x.txt"}], "data": "414243"},
                      {"embedded": {"class": "IPM.Note", "props": [{"tag": "PR_SUBJECT_W", "value": "inner"},
      {"named": {"set": "PS_PUBLIC_STRINGS", "name": "Depth"}, "type": "PT_LONG", "value": 2}]}}]})"},
    {"a4",
     R"({"key": "a4", "class": "IPM.Note", "props": [{"tag": "PR_SUBJECT_W", "value": "four"}]})"},
    {"a4 named",
     R"({"key": "a4", "class": "IPM.Note", "props": [{"tag": "PR_SUBJECT_W", "value": "four"},
      {"named": {"set": "PS_PUBLIC_STRINGS", "name": "Size"}, "type": "PT_LONG", "value": 9}]})"},
    {"a5",
     R"({"key": "a5", "class": "IPM.Note", "props": [{"tag": "PR_SUBJECT_W", "value": "five"}]})"},
    {"keyless", R"({"class": "IPM.Note", "props": [{"tag": "PR_SUBJECT_W", "value": "keyless"}]})"},
    {"r1", R"({"key": "r1", "class": "IPM.Note", "props": [{"tag": "PR_SUBJECT_W", "value": "ref"},
      {"tag": "PR_SENDER_ENTRYID", "value": {"entryIdOf": "a2"}}]})"},
    {"f1",
     R"({"key": "f1", "class": "IPM.Note", "props": [{"tag": "PR_SUBJECT_W", "value": "filed"},
      {"tag": "PR_SENDER_ENTRYID", "value": {"entryIdOf": "archive"}}]})"},
    {"b1",
     R"({"key": "b1", "class": "IPM.Note", "props": [{"tag": "PR_SUBJECT_W", "value": "old"}]})"},
};

struct Box {
  std::vector<std::string> inbox;
  std::vector<std::string> archive;
  std::string archiveProps;  // the archive folder's "props" member, if any
  bool swapFolderKeys = false;
};

std::string boxText(const Box& box) {
  auto items = [](const std::vector<std::string>& names) {
    std::string out;
    for (const std::string& n : names) out += (out.empty() ? "\n  " : ",\n  ") + kItems.at(n);
    return out;
  };
  const std::string inboxKey = box.swapFolderKeys ? "archive" : "inbox";
  const std::string archiveKey = box.swapFolderKeys ? "inbox" : "archive";
  return R"({"stores": [{"key": "s", "name": "Box", "default": true, "root": {"folders": [
 {"key": ")" +
         inboxKey + R"(", "name": "Inbox", "class": "IPF.Note", "items": [)" + items(box.inbox) +
         R"(]},
 {"key": ")" +
         archiveKey + R"(", "name": "Archive", "class": "IPF.Note", )" + box.archiveProps +
         R"("items": [)" + items(box.archive) + "]}]}}]}";
}

const Box kBase{{"a1", "a2", "a3", "a4", "keyless", "r1"}, {"b1"}, ""};

// Everything a reload can change, of every item in the keyed folders.
struct ItemDump {
  std::string folder;
  uint32_t nid;
  bool associated;
  std::vector<Prop> props;
  std::vector<std::vector<Prop>> recipients;
  std::vector<std::vector<Prop>> attachmentProps;
  std::vector<Bytes> attachmentData;
  std::vector<std::vector<Prop>> embeddedProps;
  bool operator==(const ItemDump&) const = default;
};

std::vector<ItemDump> dump(Profile& profile) {
  std::lock_guard<std::recursive_mutex> guard(profile.mutex());
  std::vector<ItemDump> out;
  for (const auto& [key, ref] : profile.keys()) {
    if (ref.kind != Ref::Kind::Folder) continue;
    for (const auto& item : profile.folder(ref.store, ref.id)->items) {
      ItemDump d{key, item->nid, item->associated, item->props.all(), {}, {}, {}, {}};
      for (const Recipient& r : item->recipients) d.recipients.push_back(r.props.all());
      for (const Attachment& a : item->attachments) {
        d.attachmentProps.push_back(a.props.all());
        d.attachmentData.push_back(a.data);
        if (a.embedded) d.embeddedProps.push_back(a.embedded->props.all());
      }
      out.push_back(std::move(d));
    }
  }
  return out;
}

// A live profile with an advised contents table on each folder.
struct Live {
  explicit Live(std::shared_ptr<Profile> p) : profile(std::move(p)) {
    EXPECT_EQ(profile->logon(session.put()), S_OK);
    for (const char* key : {"inbox", "archive"}) {
      auto& w = watched[key];
      w = std::make_unique<Watched>();
      w->table = contentsOf(session.get(), *profile, profile->byKey(key));
      EXPECT_EQ(w->table->Advise(fnevTableModified, &w->sink, &w->connection), S_OK);
    }
  }
  ~Live() {
    for (auto& [key, w] : watched) EXPECT_EQ(w->table->Unadvise(w->connection), S_OK);
    watched.clear();
  }
  // Each folder's notifications: kind, subject and row instance key.
  std::map<std::string, std::vector<std::string>> events() {
    std::map<std::string, std::vector<std::string>> out;
    for (auto& [key, w] : watched) {
      for (const auto& e : w->sink.events) {
        std::string t = std::to_string(e.type) + " " + hexText(e.index);
        for (const std::string& column : e.row) t += " " + column;
        out[key].push_back(t);
      }
      w->sink.events.clear();
    }
    return out;
  }
  static std::string hexText(const Bytes& b) {
    static const char* digits = "0123456789ABCDEF";
    std::string out;
    for (uint8_t c : b) out += {digits[c >> 4], digits[c & 15]};
    return out;
  }

  struct Watched {
    RecordingSink sink;
    ComPtr<IMAPITable> table;
    ULONG connection = 0;
  };
  std::shared_ptr<Profile> profile;
  ComPtr<IMAPISession> session;
  std::map<std::string, std::unique_ptr<Watched>> watched;
};

using Status = ReloadResult::Status;

struct Case {
  const char* what;
  Box edited;
  Status status;
  size_t built;  // items built by the file reload
};

class RehashTest : public ::testing::Test {
 protected:
  void SetUp() override { buffersBefore_ = liveMapiBuffers(); }
  void TearDown() override { EXPECT_EQ(liveMapiBuffers(), buffersBefore_); }

  // Reloads `text` both ways into lives loaded from `base` and checks they end alike.
  void expectSameBothWays(const Box& base, const Case& c) {
    SCOPED_TRACE(c.what);
    PIM::testing::TempDir dir;
    const std::u16string path = dir.file(u"box.json");
    PIM::testing::writeFileBytes(path, boxText(base));
    Live byFile(loadFixtureFile(path));
    Live whole(loadFixtureText(boxText(base), toUtf8(path)));

    const std::string text = boxText(c.edited);
    PIM::testing::writeFileBytes(path, text);
    const ReloadResult r = reloadFixtureFile(*byFile.profile, path);
    const ReloadResult expected =
        reloadProfile(*whole.profile, *loadFixtureText(text, toUtf8(path)));

    EXPECT_EQ(r.status, c.status) << r.error;
    EXPECT_EQ(r.status, expected.status);
    EXPECT_EQ(r.error, expected.error);
    EXPECT_EQ(r.itemsBuilt, c.built);
    ASSERT_EQ(r.folders.size(), expected.folders.size());
    for (size_t i = 0; i < r.folders.size(); ++i) {
      EXPECT_EQ(r.folders[i].path, expected.folders[i].path);
      EXPECT_EQ(r.folders[i].folder, expected.folders[i].folder);
    }
    EXPECT_EQ(byFile.events(), whole.events());
    EXPECT_TRUE(dump(*byFile.profile) == dump(*whole.profile));
    EXPECT_EQ(byFile.profile->keys(), whole.profile->keys());
  }

  size_t buffersBefore_ = 0;
};

TEST_F(RehashTest, OnlyChangedItemsAreBuiltAndTheOutcomeIsTheWholeLoads) {
  // The keyless item and r1 (which names a2) are built every time.
  const Case cases[] = {
      {"unchanged", kBase, Status::Unchanged, 2},
      {"edit", {{"a1", "a2 edited", "a3", "a4", "keyless", "r1"}, {"b1"}, ""}, Status::Applied, 3},
      {"add", {{"a1", "a2", "a3", "a4", "a5", "keyless", "r1"}, {"b1"}, ""}, Status::Applied, 3},
      {"delete", {{"a1", "a2", "a4", "keyless", "r1"}, {"b1"}, ""}, Status::Applied, 2},
      {"move between folders",
       {{"a1", "a2", "a4", "keyless", "r1"}, {"b1", "a3"}, ""},
       Status::Applied,
       2},
      {"move and edit",
       {{"a1", "a2 edited", "a3", "keyless", "r1"}, {"a4", "b1"}, ""},
       Status::Applied,
       3},
      {"reorder", {{"a1", "a2", "a4", "a3", "keyless", "r1"}, {"b1"}, ""}, Status::Applied, 2},
      {"reformatted",
       {{"a1 spaced", "a2", "a3", "a4", "keyless", "r1"}, {"b1"}, ""},
       Status::Unchanged,
       3},
      // Named properties are numbered in the order the file first uses them.
      {"named properties reordered",
       {{"a2", "a1", "a3", "a4", "keyless", "r1"}, {"b1"}, ""},
       Status::RestartNeeded,
       2},
      {"a named property added",
       {{"a1", "a2", "a3", "a4 named", "keyless", "r1"}, {"b1"}, ""},
       Status::RestartNeeded,
       3},
      {"a folder property changed",
       {{"a1", "a2", "a3", "a4", "keyless", "r1"},
        {"b1"},
        R"("props": [{"tag": "PR_COMMENT_W", "value": "kept"}], )"},
       Status::RestartNeeded,
       2},
  };
  for (const Case& c : cases) expectSameBothWays(kBase, c);
}

TEST_F(RehashTest, EntryIdsOfFoldersAreVouchedForWhileTheirKeysStay) {
  const Box base{{"a1", "f1"}, {"b1"}, ""};
  const Case cases[] = {
      {"unchanged", base, Status::Unchanged, 0},
      // f1 now names the other folder: the file is loaded again, whole.
      {"folder keys swapped", {{"a1", "f1"}, {"b1"}, "", true}, Status::Applied, 3},
  };
  for (const Case& c : cases) expectSameBothWays(base, c);
}

TEST_F(RehashTest, ItemsChangedSinceTheLoadAreBuiltAgain) {
  PIM::testing::TempDir dir;
  const std::u16string path = dir.file(u"box.json");
  PIM::testing::writeFileBytes(path, boxText(kBase));
  Live live(loadFixtureFile(path));
  const Ref a1 = live.profile->byKey("a1");
  ASSERT_TRUE(live.profile->modifyItem(a1, {Prop::ofText(PR_SUBJECT_W, u"changed")}, {}));
  live.events();

  const ReloadResult r = reloadFixtureFile(*live.profile, path);
  EXPECT_EQ(r.status, Status::Applied) << r.error;
  EXPECT_EQ(r.itemsBuilt, 3u) << "a1, the keyless item and r1";
  const auto events = live.events();
  ASSERT_EQ(events.size(), 1u);
  ASSERT_EQ(events.at("inbox").size(), 1u);
  EXPECT_NE(events.at("inbox")[0].find(" one"), std::string::npos) << events.at("inbox")[0];
  // What the file says again, and vouched for again.
  EXPECT_EQ(reloadFixtureFile(*live.profile, path).itemsBuilt, 2u);
}

TEST_F(RehashTest, AnUnbuiltItemNoLongerVouchedForChangesNothing) {
  PIM::testing::TempDir dir;
  const std::u16string path = dir.file(u"box.json");
  PIM::testing::writeFileBytes(path, boxText(kBase));
  Live live(loadFixtureFile(path));
  const Ref a1 = live.profile->byKey("a1");
  KnownItems known{{"a1", live.profile->itemCopy(a1)->sourceHash}};
  ASSERT_NE(known["a1"], 0u);
  // The load is made while a1 is still as loaded, then a1 changes.
  LoadStats stats;
  auto fresh = loadFixtureFile(path, &known, &stats);
  EXPECT_EQ(stats.itemsBuilt, 6u);
  ASSERT_TRUE(live.profile->modifyItem(a1, {Prop::ofText(PR_SUBJECT_W, u"changed")}, {}));
  live.events();
  const auto before = dump(*live.profile);

  const ReloadResult r = reloadProfile(*live.profile, *fresh);
  EXPECT_EQ(r.status, Status::RestartNeeded);
  EXPECT_TRUE(live.events().empty());
  EXPECT_TRUE(dump(*live.profile) == before);
}

}  // namespace
}  // namespace PIM::store::testing

// The Folders page's tree: the default store's folders read through MAPI
// from the reference store, shown with the chosen ones ticked, and written
// back into the folder lists.
#include "ui/folder_tree.h"

#include <gtest/gtest.h>

#include "mapi/com_error.h"
#include "prefs/preferences.h"
#include "store/store_test_util.h"
#include "testing/test_support.h"
#include "ui/tree_recorder_testing.h"

namespace PIM {
namespace {

using testing::LogCapture;
using testing::TreeRecorder;

// The default store gives short-term identifiers in its tables, so that
// what the page keeps must be the long-term ones. Table order differs from
// name order on purpose; the Inbox's own class is not a mail class.
const char* kFoldersJson = R"json({
  "stores": [
    {
      "key": "main", "name": "Mailbox", "default": true,
      "options": {"shortTermIdsInTables": true},
      "ipmSubtree": "ipm", "receiveFolder": "inbox",
      "root": {
        "key": "root",
        "props": [
          {"tag": "PR_IPM_APPOINTMENT_ENTRYID", "value": {"entryIdOf": "calendar"}},
          {"tag": "PR_IPM_CONTACT_ENTRYID", "value": {"entryIdOf": "contacts"}}
        ],
        "folders": [
          {"key": "ipm", "name": "Top of Information Store", "folders": [
            {"key": "inbox", "name": "Inbox", "class": "IPF.Imap",
             "props": [{"tag": "PR_IPM_TASK_ENTRYID", "value": {"entryIdOf": "tasks"}}],
             "folders": [
               {"key": "lower", "name": "alpha"},
               {"key": "upper", "name": "Beta", "class": "IPF.Note", "folders": [
                 {"key": "deep", "name": "Deep", "class": "IPF.Appointment"}]},
               {"key": "journal", "name": "Journal", "class": "IPF.Journal"}]},
            {"key": "calendar", "name": "Calendar", "class": "IPF.Appointment", "folders": [
              {"key": "holidays", "name": "Holidays", "class": "IPF.Appointment"}]},
            {"key": "contacts", "name": "Contacts", "class": "IPF.Contact", "folders": [
              {"key": "notes", "name": "Notes", "class": "IPF.StickyNote", "folders": [
                {"key": "hidden", "name": "Hidden", "class": "IPF.Task"}]},
              {"key": "clients", "name": "Clients", "class": "IPF.Contact"},
              {"key": "mixed", "name": "Agenda", "class": "IPF.Task"}]},
            {"key": "tasks", "name": "Tasks", "class": "IPF.Task", "folders": [
              {"key": "sub", "name": "Sub", "class": "IPF.Task.Sub"},
              {"key": "errands", "name": "Errands", "class": "IPF.Task"}]}
          ]}
        ]
      }
    },
    {
      "key": "other", "name": "Archive",
      "ipmSubtree": "other.ipm",
      "root": {"folders": [{"key": "other.ipm", "name": "Top", "folders": [
        {"key": "other.cal", "name": "Old Calendar", "class": "IPF.Appointment"}]}]}
    }
  ]
})json";

// The tree as shown: every capturable folder, stores without a box, other
// folders and all below them left out. [state] image, "+" expanded.
std::string outline(const char* inbox, const char* deep, const char* holidays, const char* clients,
                    const char* errands) {
  return std::string("Mailbox [0] 6 +\n") + "  Inbox [" + inbox +
         "] 4 +\n"
         "    Beta [1] 4 +\n"
         "      Deep [" +
         deep +
         "] 2\n"
         "    alpha [1] 4\n"
         "  Calendar [1] 2 +\n"
         "    Holidays [" +
         holidays +
         "] 2\n"
         "  Contacts [1] 3 +\n"
         "    Agenda [1] 5\n"
         "    Clients [" +
         clients +
         "] 3\n"
         "  Tasks [1] 5 +\n"
         "    Errands [" +
         errands + "] 5\n";
}

class FolderTreeTest : public store::testing::StoreTest {
 protected:
  const char* json() const override { return kFoldersJson; }
  void SetUp() override {
    ResourceLoader::freeInstance();
    store::testing::StoreTest::SetUp();
  }

  OutlookFolder identity(const std::string& key) const {
    const store::Ref ref = profile_->byKey(key);
    return {EntryId(profile_->entryId(ref)),
            EntryId(profile_->entryId(profile_->storeRef(ref.store)))};
  }

  // Finds the store, loads the folders, and marks the load complete as the
  // page does when the thread's message arrives.
  void load(FolderTree& tree) {
    ASSERT_EQ(tree.findDefaultStore(session_.get()), S_OK);
    tree.buildFolderList(session_.get());
    tree.loaded = true;
  }

  // The names below `nodes`, depth first, as loaded (before buildTree).
  static void names(const std::vector<FolderNode>& nodes, std::vector<std::string>& out) {
    for (const FolderNode& node : nodes) {
      out.push_back(toUtf8(node.name));
      names(node.children, out);
    }
  }
};

TEST_F(FolderTreeTest, ShowsTheDefaultStoresFoldersWithTheChosenOnesTicked) {
  PreferenceValues values;
  values.calendar.folders = {identity("deep"), identity("holidays")};
  values.contacts.folders = {identity("clients")};
  // A folder kept in the list of another kind is not ticked by it.
  values.email.folders = {identity("inbox"), identity("errands")};
  FolderTree tree;
  load(tree);
  TreeRecorder shown;
  tree.buildTree(shown, nullptr, tree.roots, values);
  EXPECT_EQ(shown.outline(), outline("2", "2", "2", "2", "1"));
}

TEST_F(FolderTreeTest, NodesCarryTypesIdentitiesAndCapturableFlags) {
  FolderTree tree;
  load(tree);
  ASSERT_EQ(tree.roots.size(), 1u);
  const FolderNode& store = tree.roots[0];
  EXPECT_EQ(store.type, kNodeStore);
  EXPECT_EQ(store.storeId, identity("inbox").storeId);
  ASSERT_EQ(store.children.size(), 4u);
  struct Expect {
    const FolderNode* node;
    const char* key;
    uint32_t type;
    bool capturable;
  };
  const FolderNode& inbox = store.children[0];
  const FolderNode& contacts = store.children[2];
  ASSERT_EQ(inbox.children.size(), 3u);
  ASSERT_EQ(contacts.children.size(), 3u);
  const Expect expects[] = {
      // The Inbox's class is no mail class: e-mail only once shown.
      {&inbox, "inbox", kNodeOther, true},
      {&inbox.children[0], "upper", kNodeEmail, true},
      {&inbox.children[0].children[0], "deep", kNodeCalendar, true},
      {&inbox.children[1], "journal", kNodeOther, false},
      {&inbox.children[2], "lower", kNodeEmail, true},  // no class: e-mail
      {&store.children[1], "calendar", kNodeCalendar, true},
      {&contacts, "contacts", kNodeContacts, true},
      {&contacts.children[0], "mixed", kNodeTasks, true},
      {&contacts.children[2], "notes", kNodeOther, true},  // a task folder below it
      {&contacts.children[2].children[0], "hidden", kNodeTasks, true},
      {&store.children[3].children[1], "sub", kNodeOther, false},
  };
  for (const Expect& e : expects) {
    EXPECT_EQ(e.node->folderId, identity(e.key).folderId) << e.key << ": long-term identifier";
    EXPECT_EQ(e.node->storeId, identity(e.key).storeId) << e.key;
    EXPECT_EQ(e.node->type, e.type) << e.key;
    EXPECT_EQ(e.node->capturable, e.capturable) << e.key;
  }
  EXPECT_EQ(tree.inboxId, identity("inbox").folderId);
  EXPECT_EQ(tree.defaultStoreId, identity("inbox").storeId);
}

TEST_F(FolderTreeTest, AFolderWhoseSubfoldersCannotBeReadIsShownWithoutThem) {
  store::ScopedFaults faults;
  // Hierarchy tables are asked for Inbox, Beta, Calendar, ...: the third is
  // the Calendar's.
  faults->failCall("IMAPIFolder::GetHierarchyTable", MAPI_E_NO_ACCESS, 3);
  LogCapture log;
  FolderTree tree;
  load(tree);
  TreeRecorder shown;
  PreferenceValues values;
  tree.buildTree(shown, nullptr, tree.roots, values);
  std::string expected = outline("1", "1", "1", "1", "1");
  expected.erase(expected.find("    Holidays [1] 2\n"), 19);
  expected.replace(expected.find("  Calendar [1] 2 +"), 18, "  Calendar [1] 2");
  EXPECT_EQ(shown.outline(), expected);
  EXPECT_TRUE(
      log.contains("HR Error: " + hrText(MAPI_E_NO_ACCESS) + ": Failed to get folder table."))
      << ::testing::PrintToString(log.lines());
}

TEST_F(FolderTreeTest, TheStopFlagEndsTheLoadAtTheNextRow) {
  FolderTree tree;
  ASSERT_EQ(tree.findDefaultStore(session_.get()), S_OK);
  store::ScopedFaults faults;
  faults->recordCalls();
  tree.buildFolderList(session_.get());
  const std::vector<std::string> calls = faults->recordedCalls();
  const auto first = std::find(calls.begin(), calls.end(), "IMAPIFolder::GetHierarchyTable");
  ASSERT_NE(first, calls.end());

  // Stop as the Inbox's subfolders are first asked for.
  faults->clear();
  faults->atCall(unsigned(first - calls.begin()) + 1, [&tree] { tree.stop = true; });
  tree.buildFolderList(session_.get());
  EXPECT_EQ(faults->callCount("IMAPIFolder::GetHierarchyTable"), 1u) << "nothing read after";
  std::vector<std::string> loaded;
  names(tree.roots, loaded);
  EXPECT_EQ(loaded, std::vector<std::string>({"Mailbox", "Inbox"}));
}

TEST_F(FolderTreeTest, OkKeepsExactlyTheTickedFoldersOnceLoaded) {
  PreferenceValues values;
  values.calendar.folders = {identity("calendar"), identity("other.cal")};
  values.tasks.folders = {identity("tasks")};
  FolderTree tree;
  load(tree);
  TreeRecorder shown;
  tree.buildTree(shown, nullptr, tree.roots, values);
  shown.find(u"Calendar")->state = 1;
  shown.find(u"Deep")->state = 2;
  shown.find(u"Inbox")->state = 2;
  shown.find(u"Agenda")->state = 2;
  shown.find(u"Clients")->state = 2;
  tree.applyTo(shown, values);
  // Lists hold what is ticked, in tree order; a folder the tree does not
  // offer (another store's) is dropped.
  EXPECT_EQ(values.calendar.folders, std::vector<OutlookFolder>({identity("deep")}));
  EXPECT_EQ(values.email.folders, std::vector<OutlookFolder>({identity("inbox")}));
  EXPECT_EQ(values.contacts.folders, std::vector<OutlookFolder>({identity("clients")}));
  EXPECT_EQ(values.tasks.folders,
            std::vector<OutlookFolder>({identity("mixed"), identity("tasks")}));
}

TEST_F(FolderTreeTest, OkBeforeTheLoadHasCompletedChangesNoList) {
  PreferenceValues values;
  values.calendar.folders = {identity("other.cal")};
  FolderTree tree;
  ASSERT_EQ(tree.findDefaultStore(session_.get()), S_OK);
  tree.buildFolderList(session_.get());  // finished, but its message not yet seen
  TreeRecorder shown;
  LogCapture log;
  tree.applyTo(shown, values);
  EXPECT_EQ(values.calendar.folders, std::vector<OutlookFolder>({identity("other.cal")}));
  EXPECT_TRUE(values.email.folders.empty());
  // Asked directly, saving says why it should not have been.
  tree.saveEntries(shown, {}, values);
  EXPECT_TRUE(log.contains("Attempt to save data before the data is loaded."));
}

TEST_F(FolderTreeTest, WithoutADefaultStoreNothingLoads) {
  LogCapture log;
  FolderTree tree;
  EXPECT_NE(tree.findDefaultStore(nullptr), S_OK);
  tree.buildFolderList(nullptr);
  EXPECT_TRUE(tree.roots.empty());
  EXPECT_TRUE(log.contains("Could not get message stores table."));
}

TEST(FolderNodeTest, StoresFirstThenNamesByCodeUnits) {
  auto node = [](const char16_t* name, uint32_t type) {
    FolderNode n;
    n.name = name;
    n.type = type;
    return n;
  };
  struct Case {
    FolderNode a, b;
    bool less;
  };
  const Case cases[] = {
      {node(u"Beta", kNodeEmail), node(u"alpha", kNodeEmail), true},
      {node(u"alpha", kNodeEmail), node(u"Beta", kNodeEmail), false},
      {node(u"Zed", kNodeStore), node(u"Alpha", kNodeEmail), true},
      {node(u"Alpha", kNodeEmail), node(u"Zed", kNodeStore), false},
      {node(u"B", kNodeStore), node(u"A", kNodeStore), false},
      {node(u"A", kNodeStore), node(u"B", kNodeStore), false},
      {node(u"Same", kNodeCalendar), node(u"Same", kNodeTasks), false},
      {node(u"Z", kNodeOther), node(u"\u00c4", kNodeCalendar), true},  // U+00C4 after 'Z'
      {node(u"\U0001F600", kNodeOther), node(u"\uff21", kNodeOther),
       true},  // units, not code points
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.a < c.b, c.less) << toUtf8(c.a.name) << " < " << toUtf8(c.b.name);
  }
}

}  // namespace
}  // namespace PIM

// The Data page's tree: every field under its kind, fixed fields always
// checked, each toggle bound to its own preference switch.
#include "ui/data_fields.h"

#include <gtest/gtest.h>

#include "ui/tree_recorder_testing.h"

namespace PIM {
namespace {

using testing::TreeRecorder;

// Every toggle of the page with the switch it must reach, written out
// independently of the page's table.
struct Toggle {
  const char16_t* key;
  Setting<bool>& (*flag)(PreferenceValues&);
};
#define FLAG(path) [](PreferenceValues& v) -> Setting<bool>& { return v.path; }
const Toggle kToggles[] = {
    {u"PREFERENCES_DATA_CALENDAR_ORGANIZER", FLAG(calendar.captureOrganizer)},
    {u"PREFERENCES_DATA_CALENDAR_REQUIREDATTENDEES", FLAG(calendar.captureRequiredAttendees)},
    {u"PREFERENCES_DATA_CALENDAR_OPTIONALATTENDEES", FLAG(calendar.captureOptionalAttendees)},
    {u"PREFERENCES_DATA_CALENDAR_BUSYSTATUS", FLAG(calendar.captureBusyStatus)},
    {u"PREFERENCES_DATA_CALENDAR_BODY", FLAG(calendar.captureBody)},
    {u"PREFERENCES_DATA_CALENDAR_PRIORITY", FLAG(calendar.capturePriority)},
    {u"PREFERENCES_DATA_CONTACTS_MOBILENUMBER", FLAG(contacts.captureCellularNumber)},
    {u"PREFERENCES_DATA_CONTACTS_PAGERNUMBER", FLAG(contacts.capturePagerNumber)},
    {u"PREFERENCES_DATA_CONTACTS_HOMENUMBER", FLAG(contacts.captureHomeNumber)},
    {u"PREFERENCES_DATA_CONTACTS_COMPANYNAME", FLAG(contacts.captureCompanyName)},
    {u"PREFERENCES_DATA_CONTACTS_BUSINESSADDRESS", FLAG(contacts.captureBusinessAddress)},
    {u"PREFERENCES_DATA_CONTACTS_BUSINESSFAX", FLAG(contacts.captureBusinessFax)},
    {u"PREFERENCES_DATA_CONTACTS_HOMEADDRESS", FLAG(contacts.captureHomeAddress)},
    {u"PREFERENCES_DATA_CONTACTS_HOMEFAX", FLAG(contacts.captureHomeFax)},
    {u"PREFERENCES_DATA_CONTACTS_NOTES", FLAG(contacts.captureNotes)},
    {u"PREFERENCES_DATA_CONTACTS_TITLE", FLAG(contacts.captureTitle)},
    {u"PREFERENCES_DATA_EMAILS_IMPORTANCE", FLAG(email.captureImportance)},
    {u"PREFERENCES_DATA_EMAILS_FLAG", FLAG(email.captureFlagStatus)},
    {u"PREFERENCES_DATA_EMAILS_FOLLOWUP", FLAG(email.captureFlagRequest)},
    {u"PREFERENCES_DATA_EMAILS_SENSITIVITY", FLAG(email.captureSensitivity)},
    {u"PREFERENCES_DATA_EMAILS_ATTACHMENTS", FLAG(email.captureAttachments)},
    {u"PREFERENCES_DATA_TASKS_STATUS", FLAG(tasks.captureStatus)},
    {u"PREFERENCES_DATA_TASKS_PRIORITY", FLAG(tasks.capturePriority)},
    {u"PREFERENCES_DATA_TASKS_BODY", FLAG(tasks.captureBody)},
};
#undef FLAG

void setAll(PreferenceValues& values, bool on) {
  for (const Toggle& t : kToggles) t.flag(values) = on;
}

// The whole tree as the page shows it with the language keys as texts:
// roots without a box and expanded, fixed fields [3] image 1, toggles
// [1]/[2] image 0.
std::string expectedOutline(bool on) {
  const std::string t = on ? " [2] 0\n" : " [1] 0\n";
  const std::string f = " [3] 1\n";
  return "PREFERENCES_DATA_CALENDAR [0] 2 +\n"
         "  PREFERENCES_DATA_CALENDAR_START" +
         f + "  PREFERENCES_DATA_CALENDAR_SUBJECT" + f + "  PREFERENCES_DATA_CALENDAR_LOCATION" +
         f + "  PREFERENCES_DATA_CALENDAR_END" + f + "  PREFERENCES_DATA_CALENDAR_RECURRING" + f +
         "  PREFERENCES_DATA_CALENDAR_ORGANIZER" + t +
         "  PREFERENCES_DATA_CALENDAR_REQUIREDATTENDEES" + t +
         "  PREFERENCES_DATA_CALENDAR_OPTIONALATTENDEES" + t +
         "  PREFERENCES_DATA_CALENDAR_BUSYSTATUS" + t + "  PREFERENCES_DATA_CALENDAR_BODY" + t +
         "  PREFERENCES_DATA_CALENDAR_PRIORITY" + t +
         "PREFERENCES_DATA_CONTACTS [0] 3 +\n"
         "  PREFERENCES_DATA_CONTACTS_FULLNAME" +
         f + "  PREFERENCES_DATA_CONTACTS_BUSINESSNUMBER" + f +
         "  PREFERENCES_DATA_CONTACTS_EMAIL" + f + "  PREFERENCES_DATA_CONTACTS_MOBILENUMBER" + t +
         "  PREFERENCES_DATA_CONTACTS_PAGERNUMBER" + t + "  PREFERENCES_DATA_CONTACTS_HOMENUMBER" +
         t + "  PREFERENCES_DATA_CONTACTS_COMPANYNAME" + t +
         "  PREFERENCES_DATA_CONTACTS_BUSINESSADDRESS" + t +
         "  PREFERENCES_DATA_CONTACTS_BUSINESSFAX" + t + "  PREFERENCES_DATA_CONTACTS_HOMEADDRESS" +
         t + "  PREFERENCES_DATA_CONTACTS_HOMEFAX" + t + "  PREFERENCES_DATA_CONTACTS_NOTES" + t +
         "  PREFERENCES_DATA_CONTACTS_TITLE" + t +
         "PREFERENCES_DATA_EMAILS [0] 4 +\n"
         "  PREFERENCES_DATA_EMAILS_FROM" +
         f + "  PREFERENCES_DATA_EMAILS_TO" + f + "  PREFERENCES_DATA_EMAILS_CC" + f +
         "  PREFERENCES_DATA_EMAILS_BCC" + f + "  PREFERENCES_DATA_EMAILS_SUBJECT" + f +
         "  PREFERENCES_DATA_EMAILS_DATE" + f + "  PREFERENCES_DATA_EMAILS_BODY" + f +
         "  PREFERENCES_DATA_EMAILS_IMPORTANCE" + t + "  PREFERENCES_DATA_EMAILS_FLAG" + t +
         "  PREFERENCES_DATA_EMAILS_FOLLOWUP" + t + "  PREFERENCES_DATA_EMAILS_SENSITIVITY" + t +
         "  PREFERENCES_DATA_EMAILS_ATTACHMENTS" + t +
         "PREFERENCES_DATA_TASKS [0] 5 +\n"
         "  PREFERENCES_DATA_TASKS_SUBJECT" +
         f + "  PREFERENCES_DATA_TASKS_DUEDATE" + f + "  PREFERENCES_DATA_TASKS_STATUS" + t +
         "  PREFERENCES_DATA_TASKS_PRIORITY" + t + "  PREFERENCES_DATA_TASKS_BODY" + t;
}

class DataFieldsTest : public ::testing::Test {
 protected:
  // Texts are the keys themselves: no language loaded.
  void SetUp() override { ResourceLoader::freeInstance(); }
};

TEST_F(DataFieldsTest, TogglesFollowTheirSwitchesAndFixedFieldsAreAlwaysChecked) {
  for (const bool on : {false, true}) {
    PreferenceValues values;
    setAll(values, on);
    TreeRecorder tree;
    fillDataTree(tree, values);
    EXPECT_EQ(tree.outline(), expectedOutline(on)) << "switches " << on;
  }
}

TEST_F(DataFieldsTest, OkWritesExactlyTheCheckedToggles) {
  PreferenceValues values;
  setAll(values, true);
  TreeRecorder tree;
  const DataTreeItems items = fillDataTree(tree, values);
  ASSERT_EQ(items.toggles.size(), std::size(kToggles));
  // Untick every other toggle; the rest stay checked.
  for (size_t i = 0; i < std::size(kToggles); i += 2) tree.find(kToggles[i].key)->state = 1;
  PreferenceValues read;
  setAll(read, false);
  readDataTree(tree, items, read);
  for (size_t i = 0; i < std::size(kToggles); ++i) {
    EXPECT_EQ(kToggles[i].flag(read).get(), i % 2 == 1) << toUtf8(kToggles[i].key);
  }
}

TEST_F(DataFieldsTest, EachToggleReachesItsOwnSwitchOnly) {
  for (const Toggle& toggle : kToggles) {
    PreferenceValues values;
    setAll(values, false);
    TreeRecorder tree;
    const DataTreeItems items = fillDataTree(tree, values);
    TreeRecorder::Node* node = tree.find(toggle.key);
    ASSERT_NE(node, nullptr) << toUtf8(toggle.key);
    EXPECT_EQ(node->state, 1);
    node->state = 2;
    readDataTree(tree, items, values);
    for (const Toggle& other : kToggles) {
      EXPECT_EQ(other.flag(values).get(), &other == &toggle)
          << "clicked " << toUtf8(toggle.key) << ", read " << toUtf8(other.key);
    }
  }
}

TEST_F(DataFieldsTest, FixedFieldsAreNeverRead) {
  PreferenceValues values;
  setAll(values, true);
  TreeRecorder tree;
  const DataTreeItems items = fillDataTree(tree, values);
  // A fixed field somehow unticked changes no switch.
  tree.find(u"PREFERENCES_DATA_TASKS_SUBJECT")->state = 1;
  tree.find(u"PREFERENCES_DATA_CONTACTS_EMAIL")->state = 0;
  readDataTree(tree, items, values);
  for (const Toggle& t : kToggles) EXPECT_TRUE(t.flag(values).get()) << toUtf8(t.key);
}

}  // namespace
}  // namespace PIM

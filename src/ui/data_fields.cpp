#include "ui/data_fields.h"

#include "core/stack_logger.h"

namespace PIM {

namespace {

constexpr int kFixedImage = 1;
constexpr int kToggleImage = 0;

#define PIM_FLAG(path) [](PreferenceValues& v) -> Setting<bool>& { return v.path; }

}  // namespace

const std::array<DataRoot, 4>& dataFieldTree() {
  // The business fax comes after the business address here while the
  // preferences keep them the other way round: each field names its own
  // switch.
  static const std::array<DataRoot, 4> tree = {{
      {u"PREFERENCES_DATA_CALENDAR",
       2,
       {{u"PREFERENCES_DATA_CALENDAR_START", nullptr},
        {u"PREFERENCES_DATA_CALENDAR_SUBJECT", nullptr},
        {u"PREFERENCES_DATA_CALENDAR_LOCATION", nullptr},
        {u"PREFERENCES_DATA_CALENDAR_END", nullptr},
        {u"PREFERENCES_DATA_CALENDAR_RECURRING", nullptr},
        {u"PREFERENCES_DATA_CALENDAR_ORGANIZER", PIM_FLAG(calendar.captureOrganizer)},
        {u"PREFERENCES_DATA_CALENDAR_REQUIREDATTENDEES",
         PIM_FLAG(calendar.captureRequiredAttendees)},
        {u"PREFERENCES_DATA_CALENDAR_OPTIONALATTENDEES",
         PIM_FLAG(calendar.captureOptionalAttendees)},
        {u"PREFERENCES_DATA_CALENDAR_BUSYSTATUS", PIM_FLAG(calendar.captureBusyStatus)},
        {u"PREFERENCES_DATA_CALENDAR_BODY", PIM_FLAG(calendar.captureBody)},
        {u"PREFERENCES_DATA_CALENDAR_PRIORITY", PIM_FLAG(calendar.capturePriority)}}},
      {u"PREFERENCES_DATA_CONTACTS",
       3,
       {{u"PREFERENCES_DATA_CONTACTS_FULLNAME", nullptr},
        {u"PREFERENCES_DATA_CONTACTS_BUSINESSNUMBER", nullptr},
        {u"PREFERENCES_DATA_CONTACTS_EMAIL", nullptr},
        {u"PREFERENCES_DATA_CONTACTS_MOBILENUMBER", PIM_FLAG(contacts.captureCellularNumber)},
        {u"PREFERENCES_DATA_CONTACTS_PAGERNUMBER", PIM_FLAG(contacts.capturePagerNumber)},
        {u"PREFERENCES_DATA_CONTACTS_HOMENUMBER", PIM_FLAG(contacts.captureHomeNumber)},
        {u"PREFERENCES_DATA_CONTACTS_COMPANYNAME", PIM_FLAG(contacts.captureCompanyName)},
        {u"PREFERENCES_DATA_CONTACTS_BUSINESSADDRESS", PIM_FLAG(contacts.captureBusinessAddress)},
        {u"PREFERENCES_DATA_CONTACTS_BUSINESSFAX", PIM_FLAG(contacts.captureBusinessFax)},
        {u"PREFERENCES_DATA_CONTACTS_HOMEADDRESS", PIM_FLAG(contacts.captureHomeAddress)},
        {u"PREFERENCES_DATA_CONTACTS_HOMEFAX", PIM_FLAG(contacts.captureHomeFax)},
        {u"PREFERENCES_DATA_CONTACTS_NOTES", PIM_FLAG(contacts.captureNotes)},
        {u"PREFERENCES_DATA_CONTACTS_TITLE", PIM_FLAG(contacts.captureTitle)}}},
      {u"PREFERENCES_DATA_EMAILS",
       4,
       {{u"PREFERENCES_DATA_EMAILS_FROM", nullptr},
        {u"PREFERENCES_DATA_EMAILS_TO", nullptr},
        {u"PREFERENCES_DATA_EMAILS_CC", nullptr},
        {u"PREFERENCES_DATA_EMAILS_BCC", nullptr},
        {u"PREFERENCES_DATA_EMAILS_SUBJECT", nullptr},
        {u"PREFERENCES_DATA_EMAILS_DATE", nullptr},
        {u"PREFERENCES_DATA_EMAILS_BODY", nullptr},
        {u"PREFERENCES_DATA_EMAILS_IMPORTANCE", PIM_FLAG(email.captureImportance)},
        {u"PREFERENCES_DATA_EMAILS_FLAG", PIM_FLAG(email.captureFlagStatus)},
        {u"PREFERENCES_DATA_EMAILS_FOLLOWUP", PIM_FLAG(email.captureFlagRequest)},
        {u"PREFERENCES_DATA_EMAILS_SENSITIVITY", PIM_FLAG(email.captureSensitivity)},
        {u"PREFERENCES_DATA_EMAILS_ATTACHMENTS", PIM_FLAG(email.captureAttachments)}}},
      {u"PREFERENCES_DATA_TASKS",
       5,
       {{u"PREFERENCES_DATA_TASKS_SUBJECT", nullptr},
        {u"PREFERENCES_DATA_TASKS_DUEDATE", nullptr},
        {u"PREFERENCES_DATA_TASKS_STATUS", PIM_FLAG(tasks.captureStatus)},
        {u"PREFERENCES_DATA_TASKS_PRIORITY", PIM_FLAG(tasks.capturePriority)},
        {u"PREFERENCES_DATA_TASKS_BODY", PIM_FLAG(tasks.captureBody)}}},
  }};
  return tree;
}

#undef PIM_FLAG

DataTreeItems fillDataTree(CheckTreeSink& tree, PreferenceValues& values) {
  PIM_ENTRY("PIM::DataPage::fillDataTree");
  DataTreeItems items;
  const auto& roots = dataFieldTree();
  for (size_t r = 0; r < roots.size(); ++r) {
    const DataRoot& root = roots[r];
    items.roots[r] = tree.insertItem(root.key, kCheckNone, nullptr, root.image);
    for (const DataField& field : root.fields) {
      if (!field.flag) {
        tree.insertItem(field.key, kCheckFixed, items.roots[r], kFixedImage);
        continue;
      }
      const bool on = field.flag(values).get();
      items.toggles.emplace_back(
          tree.insertItem(field.key, on ? kChecked : kUnchecked, items.roots[r], kToggleImage),
          field.flag);
    }
  }
  for (CheckTreeSink::Item root : items.roots) tree.expand(root);
  return items;
}

void readDataTree(const CheckTreeSink& tree, const DataTreeItems& items, PreferenceValues& values) {
  PIM_ENTRY("PIM::DataPage::readDataTree");
  for (const auto& [item, flag] : items.toggles)
    flag(values) = tree.getCheckState(item) == kChecked;
}

}  // namespace PIM

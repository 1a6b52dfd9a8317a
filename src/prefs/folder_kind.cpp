#include "prefs/folder_kind.h"

namespace PIM {

FolderNodeType folderNodeType(const std::u16string& containerClass, bool isDefaultInbox) {
  if (isDefaultInbox) return kNodeEmail;
  if (containerClass == u"IPF.Appointment") return kNodeCalendar;
  if (containerClass == u"IPF.Contact") return kNodeContacts;
  if (containerClass.empty() || containerClass == u"IPF.Note") return kNodeEmail;
  if (containerClass == u"IPF.Task") return kNodeTasks;
  return kNodeOther;
}

const char* folderNodeTypeName(FolderNodeType type) {
  switch (type) {
    case kNodeCalendar:
      return "calendar";
    case kNodeContacts:
      return "contacts";
    case kNodeEmail:
      return "email";
    case kNodeTasks:
      return "tasks";
    default:
      return "other";
  }
}

}  // namespace PIM

// Which kind of items a folder is chosen for, by its container class: the
// rule of the folder tree, shared by every place that lets the user choose
// folders to capture.
#pragma once

#include <cstdint>
#include <string>

namespace PIM {

// Numbered as the capture numbers its kinds; the folder tree adds its own
// types above them (message store 5).
enum FolderNodeType : uint32_t {
  kNodeCalendar = 0,
  kNodeContacts = 1,
  kNodeEmail = 2,
  kNodeTasks = 3,
  kNodeStore = 5,
  kNodeOther = 6,  // not captured
};

// "IPF.Appointment" calendar, "IPF.Contact" contacts, "IPF.Note" or no class
// (empty) e-mail, "IPF.Task" tasks, compared whole and with case; any other
// class is another folder. The default store's Inbox is e-mail whatever its
// class.
FolderNodeType folderNodeType(const std::u16string& containerClass, bool isDefaultInbox);

// "calendar", "contacts", "email", "tasks", or "other".
const char* folderNodeTypeName(FolderNodeType type);

}  // namespace PIM

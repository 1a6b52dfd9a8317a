#include "prefs/folder_kind.h"

#include <gtest/gtest.h>

namespace PIM {
namespace {

TEST(FolderKind, TheContainerClassChoosesTheKindAndTheInboxIsAlwaysMail) {
  const struct {
    const char16_t* containerClass;
    bool inbox;
    FolderNodeType type;
  } cases[] = {
      {u"IPF.Appointment", false, kNodeCalendar},
      {u"IPF.Contact", false, kNodeContacts},
      {u"IPF.Note", false, kNodeEmail},
      {u"", false, kNodeEmail},  // no class at all
      {u"IPF.Task", false, kNodeTasks},
      // Compared whole and with case: sub-classes and other spellings are
      // other folders.
      {u"IPF.Appointment.Birthday", false, kNodeOther},
      {u"IPF.Note.OutlookHomepage", false, kNodeOther},
      {u"ipf.task", false, kNodeOther},
      {u"IPF.Contact ", false, kNodeOther},
      {u"IPF.StickyNote", false, kNodeOther},
      {u"IPF", false, kNodeOther},
      // The Inbox is offered for mail whatever its class.
      {u"IPF.StickyNote", true, kNodeEmail},
      {u"IPF.Task", true, kNodeEmail},
      {u"", true, kNodeEmail},
  };
  for (const auto& c : cases) {
    std::u16string containerClass = c.containerClass;
    EXPECT_EQ(folderNodeType(containerClass, c.inbox), c.type)
        << std::string(containerClass.begin(), containerClass.end()) << (c.inbox ? " inbox" : "");
  }
}

}  // namespace
}  // namespace PIM

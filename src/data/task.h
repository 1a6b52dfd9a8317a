// A task of a captured task folder and its <task> element. Only tasks that
// are not complete are captured, earliest due date first, at most
// maxTaskCapture of them per folder.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "data/record.h"
#include "mapi/entry_id.h"
#include "mapi/mapi_properties.h"
#include "mapi/outlook_utils.h"

namespace PIM {

class Task {
 public:
  // One more than the store's task status (0..4).
  enum TaskStatus : int32_t {
    StatusUnknown = 0,
    NotStarted = 1,
    InProgress = 2,
    Completed = 3,
    Waiting = 4,
    Deferred = 5
  };
  // Indexes into getNameIdPairs().
  enum { kDueDate = 0, kStatus = 1 };

  EntryId entryId;
  std::u16string subject;
  std::u16string body;
  uint64_t dueDate = 0;  // UTC file time, 0 = none
  TaskStatus status = StatusUnknown;
  Priority priority = PriorityUnknown;

  static std::vector<NameIdPair> getNameIdPairs();
  static PropTagArray getPropIds(const std::vector<NameIdPair>& pairs);
  static HRESULT getRestriction(RecordQuery& query, const std::vector<NameIdPair>& pairs);
  static HRESULT makeDataRow(const std::vector<NameIdPair>& pairs, const MAPIProperties& row,
                             IUnknown* source, Task& task);
  void writeXML(XmlOut& out) const;
  std::u16string toXMLString() const;

  static std::u16string statusToStr(TaskStatus status);
  static std::u16string priorityToStr(Priority priority);
};

}  // namespace PIM

#include "data/task.h"

#include "core/debug_logger.h"
#include "core/utils.h"
#include "prefs/preferences.h"

namespace PIM {

namespace {

// The store's value for a completed task.
constexpr LONG kStoreStatusComplete = 2;

const TaskSettings& settings() { return Preferences::instance().tasks; }

}  // namespace

std::vector<NameIdPair> Task::getNameIdPairs() {
  PIM_ENTRY("PIM::Task::getNameIdPairs");
  return {{&PSETID_Task, MNID_ID, 0x8105, PT_SYSTIME, kDueDate},
          {&PSETID_Task, MNID_ID, 0x8101, PT_LONG, kStatus}};
}

PropTagArray Task::getPropIds(const std::vector<NameIdPair>& pairs) {
  PIM_ENTRY("PIM::Task::getPropIds");
  std::vector<ULONG> tags = {PR_ENTRYID, PR_SUBJECT_W, pairs[kDueDate].tag};
  if (settings().captureStatus) tags.push_back(pairs[kStatus].tag);
  if (settings().capturePriority) tags.push_back(PR_PRIORITY);
  if (settings().captureBody) tags.push_back(PR_BODY_W);
  return PropTagArray(tags);
}

HRESULT Task::getRestriction(RecordQuery& query, const std::vector<NameIdPair>& pairs) {
  PIM_ENTRY("PIM::Task::getRestriction");
  SSortOrderSet* sort = nullptr;
  if (FAILED(MAPIAllocateBuffer(CbNewSSortOrderSet(1), reinterpret_cast<void**>(&sort)))) {
    PIM_LOG_ERR("Failed to MAPI allocate buffer for sort order set.");
    return E_FAIL;
  }
  query.sortOrder.reset(sort);
  sort->cSorts = 1;
  sort->cCategories = 0;
  sort->cExpanded = 0;
  sort->aSort[0].ulPropTag = pairs[kDueDate].tag;
  sort->aSort[0].ulOrder = TABLE_SORT_ASCEND;

  // No status at all, or a status other than complete.
  const ULONG status = pairs[kStatus].tag;
  SRestriction* root = nullptr;
  if (FAILED(MAPIAllocateBuffer(sizeof(SRestriction), reinterpret_cast<void**>(&root)))) {
    PIM_LOG_ERR("Failed to MAPI allocate buffer for restriction.");
    return E_FAIL;
  }
  query.restriction.reset(root);
  SRestriction* either = nullptr;
  SRestriction* notExists = nullptr;
  SRestriction* both = nullptr;
  SPropValue* complete = nullptr;
  if (FAILED(MAPIAllocateMore(2 * sizeof(SRestriction), root, reinterpret_cast<void**>(&either))) ||
      FAILED(MAPIAllocateMore(sizeof(SRestriction), root, reinterpret_cast<void**>(&notExists))) ||
      FAILED(MAPIAllocateMore(2 * sizeof(SRestriction), root, reinterpret_cast<void**>(&both))) ||
      FAILED(MAPIAllocateMore(sizeof(SPropValue), root, reinterpret_cast<void**>(&complete)))) {
    PIM_LOG_ERR("Failed to MAPI allocate buffer for restriction.");
    return E_FAIL;
  }
  *root = {};
  root->rt = RES_OR;
  root->res.resOr.cRes = 2;
  root->res.resOr.lpRes = either;

  either[0] = {};
  either[0].rt = RES_NOT;
  either[0].res.resNot.lpRes = notExists;
  *notExists = {};
  notExists->rt = RES_EXIST;
  notExists->res.resExist.ulPropTag = status;

  either[1] = {};
  either[1].rt = RES_AND;
  either[1].res.resAnd.cRes = 2;
  either[1].res.resAnd.lpRes = both;
  both[0] = {};
  both[0].rt = RES_EXIST;
  both[0].res.resExist.ulPropTag = status;
  both[1] = {};
  both[1].rt = RES_PROPERTY;
  both[1].res.resProperty.relop = RELOP_NE;
  both[1].res.resProperty.ulPropTag = status;
  both[1].res.resProperty.lpProp = complete;
  *complete = {};
  complete->ulPropTag = status;
  complete->Value.l = kStoreStatusComplete;

  query.rowLimit = settings().maxTaskCapture;
  return S_OK;
}

HRESULT Task::makeDataRow(const std::vector<NameIdPair>& pairs, const MAPIProperties& row,
                          IUnknown* source, Task& task) {
  PIM_ENTRY("PIM::Task::makeDataRow");
  if (row.getEntryId(PR_ENTRYID, task.entryId) != S_OK) PIM_LOG_ERR("Failed to retrieve entry id");
  row.getWstring(PR_SUBJECT_W, task.subject, source);
  if (row.getSystime(pairs[kDueDate].tag, task.dueDate) == S_OK && task.dueDate != 0)
    task.dueDate = timeToGMT(task.dueDate);
  if (settings().captureBody) row.getWstring(PR_BODY_W, task.body, source);
  LONG value = 0;
  if (settings().capturePriority && row.getLong(PR_PRIORITY, value) == S_OK)
    task.priority = priorityFromStore(PIM_LOG_SITE, value);
  if (settings().captureStatus && row.getLong(pairs[kStatus].tag, value) == S_OK) {
    if (value >= 0 && value <= 4) {
      task.status = static_cast<TaskStatus>(value + 1);
    } else {
      task.status = StatusUnknown;
      PIM_LOG_ERR("Invalid status value.");
    }
  }
  return S_OK;
}

std::u16string Task::toXMLString() const { return xmlString(*this); }

void Task::writeXML(XmlOut& out) const {
  PIM_ENTRY("PIM::Task::toXMLString");
  out << u"<task";
  PIM_ASSERT(entryId.isValid());
  out.attribute(u"entryId", entryId.toWstring());
  if (!subject.empty()) out.attribute(u"subject", subject);
  if (dueDate != 0) out.attribute(u"dueDate", dueDate);
  if (settings().captureStatus && status != StatusUnknown)
    out.attribute(u"status", statusToStr(status));
  if (settings().capturePriority && priority != PriorityUnknown)
    out.attribute(u"priority", priorityToStr(priority));
  out << u">\r\n";
  if (settings().captureBody && !body.empty()) out.element(u"  ", u"body", body);
  out << u"</task>";
}

std::u16string Task::statusToStr(TaskStatus status) {
  PIM_ENTRY("PIM::Task::statusToStr");
  return enumText(
      PIM_LOG_SITE, status,
      {u"Unknown", u"Not started", u"In progress", u"Completed", u"Waiting", u"Deferred"});
}

std::u16string Task::priorityToStr(Priority priority) {
  PIM_ENTRY("PIM::Task::priorityToStr");
  return priorityText(PIM_LOG_SITE, priority);
}

}  // namespace PIM

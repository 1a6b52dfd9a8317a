// Property tag names of the fixture format, and the property-set names.
#include "store/tag_names.h"

#include <cstring>
#include <string_view>
#include <unordered_map>

namespace PIM::store {
namespace {

struct TagName {
  const char* name;
  ULONG tag;
};

#define PIM_TAG(name) \
  { #name, name }
const TagName kTags[] = {
    PIM_TAG(PR_ADDRTYPE),
    PIM_TAG(PR_ADDRTYPE_A),
    PIM_TAG(PR_ADDRTYPE_W),
    PIM_TAG(PR_ATTACH_DATA_BIN),
    PIM_TAG(PR_ATTACH_DATA_OBJ),
    PIM_TAG(PR_ATTACH_EXTENSION),
    PIM_TAG(PR_ATTACH_EXTENSION_A),
    PIM_TAG(PR_ATTACH_EXTENSION_W),
    PIM_TAG(PR_ATTACH_FILENAME),
    PIM_TAG(PR_ATTACH_FILENAME_A),
    PIM_TAG(PR_ATTACH_FILENAME_W),
    PIM_TAG(PR_ATTACH_LONG_FILENAME),
    PIM_TAG(PR_ATTACH_LONG_FILENAME_A),
    PIM_TAG(PR_ATTACH_LONG_FILENAME_W),
    PIM_TAG(PR_ATTACH_METHOD),
    PIM_TAG(PR_ATTACH_MIME_TAG),
    PIM_TAG(PR_ATTACH_MIME_TAG_A),
    PIM_TAG(PR_ATTACH_MIME_TAG_W),
    PIM_TAG(PR_ATTACH_NUM),
    PIM_TAG(PR_ATTACH_SIZE),
    PIM_TAG(PR_BODY),
    PIM_TAG(PR_BODY_A),
    PIM_TAG(PR_BODY_HTML),
    PIM_TAG(PR_BODY_HTML_A),
    PIM_TAG(PR_BODY_HTML_W),
    PIM_TAG(PR_BODY_W),
    PIM_TAG(PR_BUSINESS_FAX_NUMBER),
    PIM_TAG(PR_BUSINESS_FAX_NUMBER_A),
    PIM_TAG(PR_BUSINESS_FAX_NUMBER_W),
    PIM_TAG(PR_BUSINESS_TELEPHONE_NUMBER),
    PIM_TAG(PR_BUSINESS_TELEPHONE_NUMBER_A),
    PIM_TAG(PR_BUSINESS_TELEPHONE_NUMBER_W),
    PIM_TAG(PR_CLIENT_SUBMIT_TIME),
    PIM_TAG(PR_COMMENT),
    PIM_TAG(PR_COMMENT_A),
    PIM_TAG(PR_COMMENT_W),
    PIM_TAG(PR_COMPANY_NAME),
    PIM_TAG(PR_COMPANY_NAME_A),
    PIM_TAG(PR_COMPANY_NAME_W),
    PIM_TAG(PR_CONTAINER_CLASS),
    PIM_TAG(PR_CONTAINER_CLASS_A),
    PIM_TAG(PR_CONTAINER_CLASS_W),
    PIM_TAG(PR_CONTENT_COUNT),
    PIM_TAG(PR_CONTENT_UNREAD),
    PIM_TAG(PR_CONVERSATION_TOPIC),
    PIM_TAG(PR_CONVERSATION_TOPIC_A),
    PIM_TAG(PR_CONVERSATION_TOPIC_W),
    PIM_TAG(PR_CREATION_TIME),
    PIM_TAG(PR_DEFAULT_STORE),
    PIM_TAG(PR_DEPTH),
    PIM_TAG(PR_DISPLAY_BCC),
    PIM_TAG(PR_DISPLAY_BCC_A),
    PIM_TAG(PR_DISPLAY_BCC_W),
    PIM_TAG(PR_DISPLAY_CC),
    PIM_TAG(PR_DISPLAY_CC_A),
    PIM_TAG(PR_DISPLAY_CC_W),
    PIM_TAG(PR_DISPLAY_NAME),
    PIM_TAG(PR_DISPLAY_NAME_A),
    PIM_TAG(PR_DISPLAY_NAME_W),
    PIM_TAG(PR_DISPLAY_TO),
    PIM_TAG(PR_DISPLAY_TO_A),
    PIM_TAG(PR_DISPLAY_TO_W),
    PIM_TAG(PR_DISPLAY_TYPE),
    PIM_TAG(PR_EMAIL_ADDRESS),
    PIM_TAG(PR_EMAIL_ADDRESS_A),
    PIM_TAG(PR_EMAIL_ADDRESS_W),
    PIM_TAG(PR_END_DATE),
    PIM_TAG(PR_ENTRYID),
    PIM_TAG(PR_FLAG_STATUS),
    PIM_TAG(PR_FOLDER_TYPE),
    PIM_TAG(PR_GIVEN_NAME),
    PIM_TAG(PR_GIVEN_NAME_A),
    PIM_TAG(PR_GIVEN_NAME_W),
    PIM_TAG(PR_HASATTACH),
    PIM_TAG(PR_HOME_FAX_NUMBER),
    PIM_TAG(PR_HOME_FAX_NUMBER_A),
    PIM_TAG(PR_HOME_FAX_NUMBER_W),
    PIM_TAG(PR_HOME_TELEPHONE_NUMBER),
    PIM_TAG(PR_HOME_TELEPHONE_NUMBER_A),
    PIM_TAG(PR_HOME_TELEPHONE_NUMBER_W),
    PIM_TAG(PR_HTML),
    PIM_TAG(PR_IMPORTANCE),
    PIM_TAG(PR_INSTANCE_KEY),
    PIM_TAG(PR_INTERNET_CPID),
    PIM_TAG(PR_IPM_APPOINTMENT_ENTRYID),
    PIM_TAG(PR_IPM_CONTACT_ENTRYID),
    PIM_TAG(PR_IPM_DRAFTS_ENTRYID),
    PIM_TAG(PR_IPM_JOURNAL_ENTRYID),
    PIM_TAG(PR_IPM_NOTE_ENTRYID),
    PIM_TAG(PR_IPM_OUTBOX_ENTRYID),
    PIM_TAG(PR_IPM_SENTMAIL_ENTRYID),
    PIM_TAG(PR_IPM_SUBTREE_ENTRYID),
    PIM_TAG(PR_IPM_TASK_ENTRYID),
    PIM_TAG(PR_IPM_WASTEBASKET_ENTRYID),
    PIM_TAG(PR_LAST_MODIFICATION_TIME),
    PIM_TAG(PR_LONGTERM_ENTRYID_FROM_TABLE),
    PIM_TAG(PR_MDB_PROVIDER),
    PIM_TAG(PR_MESSAGE_ATTACHMENTS),
    PIM_TAG(PR_MESSAGE_CLASS),
    PIM_TAG(PR_MESSAGE_CLASS_A),
    PIM_TAG(PR_MESSAGE_CLASS_W),
    PIM_TAG(PR_MESSAGE_DELIVERY_TIME),
    PIM_TAG(PR_MESSAGE_FLAGS),
    PIM_TAG(PR_MESSAGE_RECIPIENTS),
    PIM_TAG(PR_MESSAGE_SIZE),
    PIM_TAG(PR_MOBILE_TELEPHONE_NUMBER),
    PIM_TAG(PR_MOBILE_TELEPHONE_NUMBER_A),
    PIM_TAG(PR_MOBILE_TELEPHONE_NUMBER_W),
    PIM_TAG(PR_NORMALIZED_SUBJECT),
    PIM_TAG(PR_NORMALIZED_SUBJECT_A),
    PIM_TAG(PR_NORMALIZED_SUBJECT_W),
    PIM_TAG(PR_OBJECT_TYPE),
    PIM_TAG(PR_PAGER_TELEPHONE_NUMBER),
    PIM_TAG(PR_PAGER_TELEPHONE_NUMBER_A),
    PIM_TAG(PR_PAGER_TELEPHONE_NUMBER_W),
    PIM_TAG(PR_PARENT_ENTRYID),
    PIM_TAG(PR_PRIORITY),
    PIM_TAG(PR_RECIPIENT_TYPE),
    PIM_TAG(PR_RECORD_KEY),
    PIM_TAG(PR_RENDERING_POSITION),
    PIM_TAG(PR_RESOURCE_FLAGS),
    PIM_TAG(PR_ROWID),
    PIM_TAG(PR_RTF_COMPRESSED),
    PIM_TAG(PR_SENDER_ADDRTYPE),
    PIM_TAG(PR_SENDER_ADDRTYPE_A),
    PIM_TAG(PR_SENDER_ADDRTYPE_W),
    PIM_TAG(PR_SENDER_EMAIL_ADDRESS),
    PIM_TAG(PR_SENDER_EMAIL_ADDRESS_A),
    PIM_TAG(PR_SENDER_EMAIL_ADDRESS_W),
    PIM_TAG(PR_SENDER_ENTRYID),
    PIM_TAG(PR_SENDER_NAME),
    PIM_TAG(PR_SENDER_NAME_A),
    PIM_TAG(PR_SENDER_NAME_W),
    PIM_TAG(PR_SENSITIVITY),
    PIM_TAG(PR_SENT_REPRESENTING_ENTRYID),
    PIM_TAG(PR_SENT_REPRESENTING_NAME),
    PIM_TAG(PR_SENT_REPRESENTING_NAME_A),
    PIM_TAG(PR_SENT_REPRESENTING_NAME_W),
    PIM_TAG(PR_SMTP_ADDRESS),
    PIM_TAG(PR_SMTP_ADDRESS_A),
    PIM_TAG(PR_SMTP_ADDRESS_W),
    PIM_TAG(PR_START_DATE),
    PIM_TAG(PR_STORE_ENTRYID),
    PIM_TAG(PR_STORE_RECORD_KEY),
    PIM_TAG(PR_STORE_SUPPORT_MASK),
    PIM_TAG(PR_SUBFOLDERS),
    PIM_TAG(PR_SUBJECT),
    PIM_TAG(PR_SUBJECT_A),
    PIM_TAG(PR_SUBJECT_W),
    PIM_TAG(PR_SURNAME),
    PIM_TAG(PR_SURNAME_A),
    PIM_TAG(PR_SURNAME_W),
    PIM_TAG(PR_TEST_LINE_SPEED),
    PIM_TAG(PR_TITLE),
    PIM_TAG(PR_TITLE_A),
    PIM_TAG(PR_TITLE_W),
    PIM_TAG(PR_VALID_FOLDER_MASK),
};
#undef PIM_TAG

struct TypeName {
  const char* name;
  ULONG type;
};
const TypeName kTypes[] = {
    {"PT_I2", PT_I2},
    {"PT_SHORT", PT_I2},
    {"PT_LONG", PT_LONG},
    {"PT_I4", PT_LONG},
    {"PT_R4", PT_R4},
    {"PT_FLOAT", PT_R4},
    {"PT_DOUBLE", PT_DOUBLE},
    {"PT_R8", PT_DOUBLE},
    {"PT_APPTIME", PT_APPTIME},
    {"PT_ERROR", PT_ERROR},
    {"PT_BOOLEAN", PT_BOOLEAN},
    {"PT_OBJECT", PT_OBJECT},
    {"PT_I8", PT_I8},
    {"PT_LONGLONG", PT_I8},
    {"PT_STRING8", PT_STRING8},
    {"PT_UNICODE", PT_UNICODE},
    {"PT_SYSTIME", PT_SYSTIME},
    {"PT_CLSID", PT_CLSID},
    {"PT_BINARY", PT_BINARY},
    {"PT_MV_I2", PT_MV_I2},
    {"PT_MV_LONG", PT_MV_LONG},
    {"PT_MV_I8", PT_MV_I8},
    {"PT_MV_STRING8", PT_MV_STRING8},
    {"PT_MV_UNICODE", PT_MV_UNICODE},
    {"PT_MV_SYSTIME", PT_MV_SYSTIME},
    {"PT_MV_CLSID", PT_MV_CLSID},
    {"PT_MV_BINARY", PT_MV_BINARY},
};

struct ErrorName {
  const char* name;
  SCODE code;
};
const ErrorName kErrors[] = {
    {"MAPI_E_NOT_FOUND", MAPI_E_NOT_FOUND},
    {"MAPI_E_NOT_ENOUGH_MEMORY", MAPI_E_NOT_ENOUGH_MEMORY},
    {"MAPI_E_NO_ACCESS", MAPI_E_NO_ACCESS},
    {"MAPI_E_CALL_FAILED", MAPI_E_CALL_FAILED},
    {"MAPI_E_CORRUPT_DATA", MAPI_E_CORRUPT_DATA},
    {"MAPI_E_NO_SUPPORT", MAPI_E_NO_SUPPORT},
    {"MAPI_E_BUSY", MAPI_E_BUSY},
    {"MAPI_E_COMPUTED", MAPI_E_COMPUTED},
};

}  // namespace

bool tagByName(const std::string& name, ULONG& tag) {
  // Fixtures name a tag for every value: a hashed lookup, made once.
  static const std::unordered_map<std::string_view, ULONG> byName = [] {
    std::unordered_map<std::string_view, ULONG> m;
    for (const TagName& t : kTags) m.emplace(t.name, t.tag);
    return m;
  }();
  const auto it = byName.find(name);
  if (it == byName.end()) return false;
  tag = it->second;
  return true;
}

bool typeByName(const std::string& name, ULONG& type) {
  static const std::unordered_map<std::string_view, ULONG> byName = [] {
    std::unordered_map<std::string_view, ULONG> m;
    for (const TypeName& t : kTypes) m.emplace(t.name, t.type);
    return m;
  }();
  const auto it = byName.find(name);
  if (it == byName.end()) return false;
  type = it->second;
  return true;
}

const char* typeName(ULONG type) {
  for (const TypeName& t : kTypes)
    if (t.type == type) return t.name;
  return nullptr;
}

bool errorByName(const std::string& name, SCODE& code) {
  for (const ErrorName& e : kErrors)
    if (name == e.name) {
      code = e.code;
      return true;
    }
  return false;
}

bool propSetByName(const std::string& name, GUID& set) {
  struct SetName {
    const char* name;
    const GUID* set;
  };
  const SetName sets[] = {
      {"PSETID_Appointment", &PSETID_Appointment}, {"PSETID_Task", &PSETID_Task},
      {"PSETID_Address", &PSETID_Address},         {"PSETID_Common", &PSETID_Common},
      {"PS_PUBLIC_STRINGS", &PS_PUBLIC_STRINGS},   {"PS_MAPI", &PS_MAPI},
  };
  for (const SetName& s : sets)
    if (name == s.name) {
      set = *s.set;
      return true;
    }
  return false;
}

}  // namespace PIM::store

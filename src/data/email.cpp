#include "data/email.h"

#include <exception>
#include <initializer_list>

#include "addin/outlook_app.h"
#include "core/debug_logger.h"
#include "core/utils.h"
#include "mapi/com_error.h"
#include "mapi/mapi_table.h"
#include "prefs/preferences.h"

namespace PIM {

namespace {

// A second sender-name text that some stores fill when PR_SENDER_NAME is
// missing; read only as a fallback.
constexpr ULONG kSenderNameFallback = PROP_TAG(PT_UNICODE, 0x6640);

// Bodies converted from plain text carry this comment; the font in front of
// it keeps their columns lined up.
constexpr char kConvertedComment[] = "<!-- Converted from text/plain format -->";
constexpr char kFixedFont[] = "<FONT face=\"Courier New\">";

const EmailSettings& settings() { return Preferences::instance().email; }

// byStoreValue[value] of the LONG under `tag`; 0 when the read fails or the
// value lies outside the table.
int32_t fromStore(const MAPIProperties& row, ULONG tag,
                  std::initializer_list<int32_t> byStoreValue) {
  LONG value = 0;
  if (row.getLong(tag, value) != S_OK || value < 0 ||
      static_cast<size_t>(value) >= byStoreValue.size())
    return 0;
  return byStoreValue.begin()[value];
}

// "name <address>", or the one of them that says everything.
std::u16string nameAndAddress(const std::u16string& name, const std::u16string& address) {
  if (address.empty()) return name;
  if (name.empty()) return address;
  if (name.find(address) != std::u16string::npos) return name;
  return name + u" <" + address + u">";
}

bool isSmtpType(const std::u16string& type) {
  static constexpr char16_t kSmtp[] = u"SMTP";
  if (type.size() != 4) return false;
  for (size_t i = 0; i < 4; ++i) {
    const char16_t c = type[i] >= u'a' && type[i] <= u'z' ? type[i] - (u'a' - u'A') : type[i];
    if (c != kSmtp[i]) return false;
  }
  return true;
}

// The message of `id`: the source itself when it is a message, else opened
// through the source folder.
HRESULT openMessage(IUnknown* source, const EntryId& id, ComPtr<IMessage>& message) {
  PIM_ENTRY("PIM::Email::openMessage");
  message.reset();
  if (!source) return E_INVALIDARG;
  if (SUCCEEDED(source->QueryInterface(IID_IMessage, message.putVoid()))) return S_OK;
  ComPtr<IMAPIFolder> folder;
  HRESULT hr = source->QueryInterface(IID_IMAPIFolder, folder.putVoid());
  if (FAILED(hr)) return hr;
  ComPtr<IUnknown> item;
  ULONG type = 0;
  hr = folder->OpenEntry(id.count(), id.asEntryId(), nullptr, MAPI_BEST_ACCESS, &type,
                         item.putUnknown());
  if (SUCCEEDED(hr)) hr = item.queryInterface(IID_IMessage, message);
  return hr;
}

// Tables of some stores give short-term identifiers, which are good for
// this session only.
void makeLongTerm(EntryId& id) {
  PIM_ENTRY("PIM::Email::makeLongTerm");
  ComPtr<IMsgStore> store;
  if (FAILED(OutlookUtils::getDefaultMsgStore(OutlookApp::instance()->getMapiSession(), store)))
    return;
  try {
    (void)id.convertToLongTerm(store.get());
  } catch (const std::exception&) {
    // convertToLongTerm has logged why.
  }
}

// The HTML body if it is usable, else the plain body as a page; empty when
// neither can be read.
std::string readBody(IMessage* message) {
  PIM_ENTRY("PIM::Email::readBody");
  std::string html;
  if (SUCCEEDED(OutlookUtils::getEntryStringProperty(message, PR_BODY_HTML_W, html)) &&
      !html.empty() && html[0] != '+') {
    const size_t at = html.find(kConvertedComment);
    if (at != std::string::npos) html.insert(at, kFixedFont);
    return html;
  }
  std::string plain;
  if (SUCCEEDED(OutlookUtils::getEntryStringProperty(message, PR_BODY_W, plain)))
    return Email::toHtmlString(plain);
  return std::string();
}

void appendList(XmlOut& out, const char16_t* list, const char16_t* item,
                const std::vector<std::u16string>& texts) {
  if (texts.empty()) return;
  out << u"  <" << list << u">\r\n";
  for (const std::u16string& text : texts) out.element(u"    ", item, text);
  out << u"  </" << list << u">\r\n";
}

}  // namespace

std::vector<NameIdPair> Email::getNameIdPairs() {
  PIM_ENTRY("PIM::Email::getNameIdPairs");
  return {{&PSETID_Common, MNID_ID, 0x8530, PT_UNICODE, kFlagRequest},
          {&PSETID_Common, MNID_ID, 0x8560, PT_SYSTIME, kFlagDueBy}};
}

PropTagArray Email::getPropIds(const std::vector<NameIdPair>& pairs) {
  PIM_ENTRY("PIM::Email::getPropIds");
  std::vector<ULONG> tags = {PR_ENTRYID,          PR_SENDER_ENTRYID, PR_SENDER_NAME_W,
                             kSenderNameFallback, PR_SUBJECT_W,      PR_CLIENT_SUBMIT_TIME};
  if (settings().captureImportance) tags.push_back(PR_IMPORTANCE);
  if (settings().captureFlagStatus) tags.push_back(PR_FLAG_STATUS);
  if (settings().captureSensitivity) tags.push_back(PR_SENSITIVITY);
  if (settings().captureFlagRequest) {
    if (pairs.size() > kFlagRequest) tags.push_back(pairs[kFlagRequest].tag);
    if (pairs.size() > kFlagDueBy) tags.push_back(pairs[kFlagDueBy].tag);
  }
  if (settings().captureAttachments) tags.push_back(PR_HASATTACH);
  return PropTagArray(tags);
}

HRESULT Email::getRestriction(RecordQuery& query, const std::vector<NameIdPair>&) {
  PIM_ENTRY("PIM::Email::getRestriction");
  if (FAILED(MAPIAllocateBuffer(CbNewSSortOrderSet(1), query.sortOrder.putVoid()))) {
    PIM_LOG_ERR("Failed to MAPI allocate buffer for sort order set.");
    return E_FAIL;
  }
  // Newest first, so that the row limit keeps the latest messages.
  SSortOrderSet& sort = *query.sortOrder;
  sort.cSorts = 1;
  sort.cCategories = 0;
  sort.cExpanded = 0;
  sort.aSort[0].ulPropTag = PR_CLIENT_SUBMIT_TIME;
  sort.aSort[0].ulOrder = TABLE_SORT_DESCEND;
  query.rowLimit = settings().captureEmailCount;
  return S_OK;
}

HRESULT Email::makeDataRow(const std::vector<NameIdPair>& pairs, const MAPIProperties& row,
                           IUnknown* source, Email& email) {
  PIM_ENTRY("PIM::Email::makeDataRow");
  // The row's identifier opens the message whatever becomes of the kept one.
  EntryId rowId;
  if (row.getEntryId(PR_ENTRYID, rowId) != S_OK) {
    PIM_LOG_ERR("Failed to retrieve entry id");
  } else {
    email.entryId = rowId;
    if (!email.entryId.isLongTerm()) makeLongTerm(email.entryId);
  }
  // Opened once for the recipients, the body and the attachments; when it
  // cannot be, each of them fails with the reason.
  ComPtr<IMessage> message;
  const HRESULT opened = openMessage(source, rowId, message);

  EntryId senderId;
  if (row.getEntryId(PR_SENDER_ENTRYID, senderId) == S_OK) email.from = getEmailAddress(senderId);
  if (email.from.empty() && row.getWstring(PR_SENDER_NAME_W, email.from, source) != S_OK &&
      row.getWstring(kSenderNameFallback, email.from, source) != S_OK) {
    PIM_LOG_ERR("Could not get the sender name for this email.");
  }

  std::vector<Recipient> recipients;
  (void)getRecipients(message.get(), recipients, opened);
  for (Recipient& recipient : recipients) {
    auto& list = recipient.kind == Recipient::Cc    ? email.cc
                 : recipient.kind == Recipient::Bcc ? email.bcc
                                                    : email.to;
    list.push_back(std::move(recipient.text));
  }

  row.getWstring(PR_SUBJECT_W, email.subject, source);
  row.getSystime(PR_CLIENT_SUBMIT_TIME, email.date);
  if (message) email.body = readBody(message.get());

  // The store's numbering against ours; "Low" is 0 in the store.
  if (settings().captureImportance) {
    email.importance = static_cast<Importance>(
        fromStore(row, PR_IMPORTANCE, {ImportanceLow, ImportanceNormal, ImportanceHigh}));
  }
  if (settings().captureFlagStatus) {
    email.flagStatus = static_cast<FlagStatus>(
        fromStore(row, PR_FLAG_STATUS, {FlagStatusNoFlag, FlagStatusCompleted, FlagStatusMarked}));
  }
  if (settings().captureSensitivity) {
    email.sensitivity = static_cast<Sensitivity>(fromStore(
        row, PR_SENSITIVITY,
        {SensitivityNormal, SensitivityPersonal, SensitivityPrivate, SensitivityConfidential}));
  }
  if (settings().captureFlagRequest) {
    if (pairs.size() > kFlagRequest)
      row.getWstring(pairs[kFlagRequest].tag, email.flagRequest, source);
    if (pairs.size() > kFlagDueBy) row.getSystime(pairs[kFlagDueBy].tag, email.flagDueBy);
  }
  bool hasAttachments = false;
  if (settings().captureAttachments && row.getBool(PR_HASATTACH, hasAttachments) == S_OK &&
      hasAttachments) {
    const HRESULT hr =
        message ? OutlookUtils::getAttachmentList(message.get(), email.attachments) : opened;
    // Unlike the other store errors, this line runs the code into its text.
    if (FAILED(hr)) PIM_LOG_ERR("HR Error: " << hrText(hr) << "Failed to get attachment list.");
  }
  return S_OK;
}

std::u16string Email::toXMLString() const { return xmlString(*this); }

void Email::writeXML(XmlOut& out) const {
  PIM_ENTRY("PIM::Email::toXMLString");
  out << u"<email";
  PIM_ASSERT(entryId.isValid());
  out.attribute(u"entryId", entryId.toWstring());
  if (!subject.empty()) out.attribute(u"subject", subject);
  if (!from.empty()) out.attribute(u"from", from);
  if (date != 0) out.attribute(u"date", date);
  if (settings().captureFlagRequest && !flagRequest.empty()) {
    out.attribute(u"flagRequest", flagRequest);
    if (flagDueBy != 0) out.attribute(u"flagDueBy", flagDueBy);
  }
  if (settings().captureFlagStatus && flagStatus != FlagStatusUnknown)
    out.attribute(u"flagStatus", flagStatusToStr(flagStatus));
  if (settings().captureImportance && importance != ImportanceUnknown)
    out.attribute(u"importance", importanceToStr(importance));
  if (settings().captureSensitivity && sensitivity != SensitivityUnknown)
    out.attribute(u"sensitivity", sensitivityToStr(sensitivity));
  if (settings().captureAttachments)
    out.attribute(u"hasAttachments", attachments.empty() ? u"false" : u"true");
  out << u">\r\n";
  // Base64 needs no escaping; its line breaks stay in the element.
  if (!body.empty()) out.ascii("  <body>").base64(body).ascii("</body>\r\n");
  appendList(out, u"to", u"address", to);
  appendList(out, u"cc", u"address", cc);
  appendList(out, u"bcc", u"address", bcc);
  if (settings().captureAttachments) appendList(out, u"attachments", u"attachment", attachments);
  out << u"</email>";
}

std::u16string Email::getEmailAddress(const EntryId& entryId) {
  PIM_ENTRY("PIM::Email::getEmailAddress");
  IMAPISession* session = OutlookApp::instance()->getMapiSession();
  if (!session) return std::u16string();
  ComPtr<IUnknown> entry;
  ULONG type = 0;
  if (FAILED(session->OpenEntry(entryId.count(), entryId.asEntryId(), nullptr, MAPI_BEST_ACCESS,
                                &type, entry.putUnknown()))) {
    PIM_LOG_ERR("Error retrieving the entry from the mail folder.");
    return std::u16string();
  }
  ComPtr<IMailUser> user;
  if (FAILED(entry.queryInterface(IID_IMailUser, user))) {
    PIM_LOG_ERR("Error retrieving the IMailUser interface.");
    return std::u16string();
  }
  try {
    MAPIProperties props(user.get(),
                         {PR_DISPLAY_NAME_W, PR_ADDRTYPE_W, PR_EMAIL_ADDRESS_W, PR_SMTP_ADDRESS_W});
    std::u16string name;
    if (props.getWstring(PR_DISPLAY_NAME_W, name) != S_OK || name.empty()) {
      PIM_LOG_ERR("Could not retrive a display name for this email user.");
      return std::u16string();
    }
    // An Exchange user's own address is a directory path, not one to show.
    std::u16string address;
    std::u16string addressType;
    if ((props.getWstring(PR_SMTP_ADDRESS_W, address) != S_OK || address.empty()) &&
        props.getWstring(PR_ADDRTYPE_W, addressType) == S_OK && isSmtpType(addressType)) {
      (void)props.getWstring(PR_EMAIL_ADDRESS_W, address);
    }
    return nameAndAddress(name, address);
  } catch (const ComError& error) {
    PIM_LOG_ERR("Error retrieving mail user properties:" << error.what());
  } catch (...) {
    PIM_LOG_ERR("Unknown error retrieving mail user properties.");
  }
  return std::u16string();
}

HRESULT Email::getRecipients(IUnknown* message, std::vector<Recipient>& recipients,
                             HRESULT unopened) {
  PIM_ENTRY("PIM::Email::getRecipients");
  recipients.clear();
  try {
    if (!message) throwComError(FAILED(unopened) ? unopened : E_INVALIDARG);
    ComPtr<IMessage> item;
    HRESULT hr = message->QueryInterface(IID_IMessage, item.putVoid());
    if (FAILED(hr)) throwComError(hr);
    ComPtr<IMAPITable> recipientTable;
    hr = item->GetRecipientTable(0, recipientTable.put());
    if (FAILED(hr)) throwComError(hr);
    MAPITable table(recipientTable.get());
    hr = table.setColumns({PR_ENTRYID, PR_SMTP_ADDRESS_A, PR_DISPLAY_NAME_W, PR_RECIPIENT_TYPE});
    if (FAILED(hr)) throwComError(hr);
    std::vector<Recipient> found;
    while (MAPIProperties* row = table.getNextRow()) {
      Recipient recipient;
      EntryId id;
      if (row->getEntryId(PR_ENTRYID, id) == S_OK) recipient.text = getEmailAddress(id);
      if (recipient.text.empty()) {
        std::u16string address;
        std::u16string name;
        (void)row->getWstring(PR_SMTP_ADDRESS_A, address);
        (void)row->getWstring(PR_DISPLAY_NAME_W, name);
        recipient.text = nameAndAddress(name, address);
      }
      LONG type = MAPI_TO;
      (void)row->getLong(PR_RECIPIENT_TYPE, type);
      recipient.kind = type == MAPI_CC    ? Recipient::Cc
                       : type == MAPI_BCC ? Recipient::Bcc
                                          : Recipient::To;
      found.push_back(std::move(recipient));
    }
    recipients = std::move(found);
    return S_OK;
  } catch (const ComError& error) {
    PIM_LOG_ERR("Failed to get recipients table:" << error.what());
    return error.hr();
  } catch (...) {
    PIM_LOG_ERR("Unknown error. Failed to get recipients table.");
    return E_FAIL;
  }
}

std::string Email::toHtmlString(const std::string& text) {
  PIM_ENTRY("PIM::Email::toHtmlString");
  // Keeps the text's line breaks and blanks and still wraps long lines, in
  // every browser the reader may use.
  static constexpr char kHead[] =
      "<html><body><pre style=\"{"
      "white-space: -moz-pre-wrap;  /* Mozilla, supported since 1999 */"
      "white-space: -pre-wrap;      /* Opera 4 - 6 */"
      "white-space: -o-pre-wrap;    /* Opera 7 */"
      "white-space: pre-wrap;       /* CSS3 Text module, Candidate Recommendation: "
      "http://www.w3.org/TR/css3-text/ */"
      "word-wrap: break-word;       /* IE 5.5+ */"
      "}\">";
  return kHead + text + "</pre></body></html>";
}

std::u16string Email::importanceToStr(Importance importance) {
  PIM_ENTRY("PIM::Email::importanceToStr");
  return enumText(PIM_LOG_SITE, importance, {u"Unknown", u"Normal", u"Low", u"High"});
}

std::u16string Email::sensitivityToStr(Sensitivity sensitivity) {
  PIM_ENTRY("PIM::Email::sensitivityToStr");
  return enumText(PIM_LOG_SITE, sensitivity,
                  {u"Unknown", u"Normal", u"Personal", u"Private", u"Confidential"});
}

std::u16string Email::flagStatusToStr(FlagStatus flagStatus) {
  PIM_ENTRY("PIM::Email::flagStatusToStr");
  return enumText(PIM_LOG_SITE, flagStatus, {u"Unknown", u"No flag", u"Completed", u"Marked"});
}

}  // namespace PIM

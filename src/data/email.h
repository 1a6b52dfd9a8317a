// A message of a captured mail folder and its <email> element. The newest
// captureEmailCount messages of a folder are captured, newest first. The
// body is kept as HTML in UTF-8 (a plain-text body is wrapped into a page)
// and written Base64-encoded; sender and recipients are looked up in the
// address book through the session that OutlookApp holds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "data/record.h"
#include "mapi/entry_id.h"
#include "mapi/mapi_properties.h"
#include "mapi/outlook_utils.h"

namespace PIM {

class Email {
 public:
  // The record's own numberings; 0 is "not set". "Low" comes after "Normal"
  // as in Priority.
  enum Importance : int32_t {
    ImportanceUnknown = 0,
    ImportanceNormal = 1,
    ImportanceLow = 2,
    ImportanceHigh = 3
  };
  enum Sensitivity : int32_t {
    SensitivityUnknown = 0,
    SensitivityNormal = 1,
    SensitivityPersonal = 2,
    SensitivityPrivate = 3,
    SensitivityConfidential = 4
  };
  enum FlagStatus : int32_t {
    FlagStatusUnknown = 0,
    FlagStatusNoFlag = 1,
    FlagStatusCompleted = 2,
    FlagStatusMarked = 3
  };
  // Indexes into getNameIdPairs().
  enum { kFlagRequest = 0, kFlagDueBy = 1 };

  // One row of a message's recipient table.
  struct Recipient {
    enum Kind { To, Cc, Bcc };
    std::u16string text;
    Kind kind = To;
  };

  EntryId entryId;
  std::u16string subject;
  std::u16string from;
  std::string body;  // HTML, UTF-8
  std::u16string flagRequest;
  uint64_t date = 0;       // submit time, file time as stored, 0 = none
  uint64_t flagDueBy = 0;  // file time as stored, 0 = none
  Importance importance = ImportanceUnknown;
  Sensitivity sensitivity = SensitivityUnknown;
  FlagStatus flagStatus = FlagStatusUnknown;
  std::vector<std::u16string> to;
  std::vector<std::u16string> cc;
  std::vector<std::u16string> bcc;
  std::vector<std::u16string> attachments;

  static std::vector<NameIdPair> getNameIdPairs();
  static PropTagArray getPropIds(const std::vector<NameIdPair>& pairs);
  static HRESULT getRestriction(RecordQuery& query, const std::vector<NameIdPair>& pairs);
  // `source` is the message itself or the folder it is opened from.
  static HRESULT makeDataRow(const std::vector<NameIdPair>& pairs, const MAPIProperties& row,
                             IUnknown* source, Email& email);
  void writeXML(XmlOut& out) const;
  std::u16string toXMLString() const;

  // The address-book entry (sender or recipient) as "name <address>", the
  // name alone when it holds the address or there is no SMTP address, or
  // empty text (logged) when it cannot be opened or has no display name.
  static std::u16string getEmailAddress(const EntryId& entryId);
  // Every row of the message's recipient table. On failure (logged) the list
  // is left empty; a null `message` fails with `unopened`, why it could not
  // be opened.
  static HRESULT getRecipients(IUnknown* message, std::vector<Recipient>& recipients,
                               HRESULT unopened = E_INVALIDARG);
  // Plain text as an HTML page that keeps its lines and wraps long ones; the
  // text goes in unchanged.
  static std::string toHtmlString(const std::string& text);

  static std::u16string importanceToStr(Importance importance);
  static std::u16string sensitivityToStr(Sensitivity sensitivity);
  static std::u16string flagStatusToStr(FlagStatus flagStatus);
};

}  // namespace PIM

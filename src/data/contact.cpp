#include "data/contact.h"

#include "core/debug_logger.h"
#include "core/utils.h"
#include "data/one_off_member.h"
#include "mapi/com_error.h"
#include "prefs/preferences.h"

namespace PIM {

namespace {

const ContactSettings& settings() { return Preferences::instance().contacts; }

// A field read only when the user's switch is on. `pair` names a named
// property (an index into getNameIdPairs()) in place of `tag`. Columns are
// asked for in this order, and the fields with an attribute name are written
// in it too.
struct OptionalField {
  ULONG tag;
  int pair;
  Setting<bool> ContactSettings::*flag;
  std::u16string Contact::*field;
  const char16_t* attribute;  // null: written as an element
};

constexpr int kNoPair = -1;

const OptionalField kOptionalFields[] = {
    {PR_MOBILE_TELEPHONE_NUMBER_W, kNoPair, &ContactSettings::captureCellularNumber,
     &Contact::mobileNumber, u"mobileNumber"},
    {PR_PAGER_TELEPHONE_NUMBER_W, kNoPair, &ContactSettings::capturePagerNumber,
     &Contact::pagerNumber, u"pagerNumber"},
    {PR_HOME_TELEPHONE_NUMBER_W, kNoPair, &ContactSettings::captureHomeNumber, &Contact::homeNumber,
     u"homeNumber"},
    {PR_COMPANY_NAME_W, kNoPair, &ContactSettings::captureCompanyName, &Contact::companyName,
     u"companyName"},
    {PR_BUSINESS_FAX_NUMBER_W, kNoPair, &ContactSettings::captureBusinessFax, &Contact::businessFax,
     u"businessFax"},
    {0, Contact::kWorkAddress, &ContactSettings::captureBusinessAddress, &Contact::businessAddress,
     nullptr},
    {0, Contact::kHomeAddress, &ContactSettings::captureHomeAddress, &Contact::homeAddress,
     nullptr},
    {PR_HOME_FAX_NUMBER_W, kNoPair, &ContactSettings::captureHomeFax, &Contact::homeFax,
     u"homeFax"},
    {PR_TITLE_W, kNoPair, &ContactSettings::captureTitle, &Contact::title, u"title"},
    {PR_BODY_W, kNoPair, &ContactSettings::captureNotes, &Contact::notes, nullptr},
};

ULONG tagOf(const OptionalField& field, const std::vector<NameIdPair>& pairs) {
  return field.pair == kNoPair ? field.tag : pairs[field.pair].tag;
}

bool isOn(const OptionalField& field) { return settings().*field.flag; }

// Whether the row holds the column only as the error a table gives for a
// value too large for it.
bool tooLargeForTable(const MAPIProperties& row, ULONG tag) {
  const SPropValue* error = row.getPropValue(PROP_TAG(PT_ERROR, PROP_ID(tag)));
  return error && error->Value.err == MAPI_E_NOT_ENOUGH_MEMORY;
}

// The members of a distribution list; a bad member is logged at `site`. A
// table cannot always carry a long member list and gives the column as an
// error then; the list is read from the item itself, which throws ComError
// when that fails.
void readMembers(const LogSite& site, const MAPIProperties& row, ULONG tag, IUnknown* source,
                 Contact& contact) {
  std::vector<std::vector<uint8_t>> values;
  if (row.getMvBinary(tag, values) != S_OK && source && contact.entryId.isValid() &&
      tooLargeForTable(row, tag)) {
    MAPIProperties item(source, contact.entryId, {tag});
    item.getMvBinary(tag, values);
  }
  for (const std::vector<uint8_t>& value : values) {
    std::u16string member;
    if (decodeOneOffMember(site, value, member)) contact.addresses.push_back(std::move(member));
  }
}

// The entryId attribute, written even when the identifier is not valid (the
// line logged at `site` says so).
void appendEntryId(const LogSite& site, XmlOut& out, const EntryId& entryId) {
  if (!entryId.isValid()) logErrorAt(site, "Invalid EntryID");
  out.attribute(u"entryId", entryId.toWstring());
}

void appendIfSet(XmlOut& out, const char16_t* name, const std::u16string& value) {
  if (!value.empty()) out.attribute(name, value);
}

}  // namespace

std::vector<NameIdPair> Contact::getNameIdPairs() {
  PIM_ENTRY("PIM::Contact::getNameIdPairs");
  return {{&PSETID_Address, MNID_ID, 0x8083, PT_UNICODE, kEmailAddress},
          {&PSETID_Address, MNID_ID, 0x8080, PT_UNICODE, kEmailDisplayName},
          {&PSETID_Address, MNID_ID, 0x8084, PT_UNICODE, kEmailOriginalDisplayName},
          {&PSETID_Address, MNID_ID, 0x8082, PT_UNICODE, kEmailAddressType},
          {&PSETID_Address, MNID_ID, 0x8005, PT_UNICODE, kFileUnder},
          {&PSETID_Address, MNID_ID, 0x801B, PT_UNICODE, kWorkAddress},
          {&PSETID_Address, MNID_ID, 0x801A, PT_UNICODE, kHomeAddress},
          {&PSETID_Address, MNID_ID, 0x8054, PT_MV_BINARY, kOneOffMembers}};
}

PropTagArray Contact::getPropIds(const std::vector<NameIdPair>& pairs) {
  PIM_ENTRY("PIM::Contact::getPropIds");
  std::vector<ULONG> tags = {PR_ENTRYID,
                             pairs[kFileUnder].tag,
                             PR_DISPLAY_NAME_W,
                             PR_BUSINESS_TELEPHONE_NUMBER_W,
                             pairs[kEmailAddress].tag,
                             pairs[kEmailDisplayName].tag,
                             pairs[kEmailOriginalDisplayName].tag,
                             pairs[kEmailAddressType].tag,
                             PR_MESSAGE_CLASS_W,
                             pairs[kOneOffMembers].tag};
  for (const OptionalField& field : kOptionalFields)
    if (isOn(field)) tags.push_back(tagOf(field, pairs));
  return PropTagArray(tags);
}

HRESULT Contact::getRestriction(RecordQuery& query, const std::vector<NameIdPair>& pairs) {
  PIM_ENTRY("PIM::Contact::getRestriction");
  // Every item of the folder, in the table's order.
  (void)query;
  (void)pairs;
  return S_OK;
}

HRESULT Contact::makeDataRow(const std::vector<NameIdPair>& pairs, const MAPIProperties& row,
                             IUnknown* source, Contact& contact) {
  PIM_ENTRY("PIM::Contact::makeDataRow");
  if (row.getEntryId(PR_ENTRYID, contact.entryId) != S_OK)
    PIM_LOG_ERR("Failed to retrieve entry id");
  row.getWstring(pairs[kFileUnder].tag, contact.name, source);
  row.getWstring(PR_DISPLAY_NAME_W, contact.fullname, source);
  row.getWstring(PR_BUSINESS_TELEPHONE_NUMBER_W, contact.businessNumber, source);

  // An Exchange address means nothing outside the organisation; the address
  // the user typed is kept as the original display name.
  std::u16string addressType;
  row.getWstring(pairs[kEmailAddressType].tag, addressType, source);
  const int emailPair = addressType == u"EX" ? kEmailOriginalDisplayName : kEmailAddress;
  row.getWstring(pairs[emailPair].tag, contact.email, source);

  std::u16string messageClass;
  if (row.getWstring(PR_MESSAGE_CLASS_W, messageClass) == S_OK && messageClass == u"IPM.DistList") {
    contact.isDistList = true;
    try {
      readMembers(PIM_LOG_SITE, row, pairs[kOneOffMembers].tag, source, contact);
    } catch (const ComError& error) {
      PIM_LOG_ERR("Error retrieving distribution list property:" << error.what());
    } catch (...) {
      PIM_LOG_ERR("Unknown error retrieving distribution list property.");
    }
  }

  for (const OptionalField& field : kOptionalFields)
    if (isOn(field)) row.getWstring(tagOf(field, pairs), contact.*field.field, source);
  return S_OK;
}

std::u16string Contact::toXMLString() const { return xmlString(*this); }

void Contact::writeXML(XmlOut& out) const {
  PIM_ENTRY("PIM::Contact::toXMLString");
  if (isDistList) return writeDistListXML(out);
  out << u"<contact";
  appendEntryId(PIM_LOG_SITE, out, entryId);
  appendIfSet(out, u"name", name);
  appendIfSet(out, u"fullname", fullname);
  appendIfSet(out, u"email", email);
  appendIfSet(out, u"businessNumber", businessNumber);
  for (const OptionalField& field : kOptionalFields)
    if (field.attribute && isOn(field)) appendIfSet(out, field.attribute, this->*field.field);
  out << u">\r\n";
  // The home address comes before the business address, against the order
  // of the switches; readers of the files expect it so.
  if (settings().captureNotes) out.element(u"  ", u"notes", notes);
  if (settings().captureHomeAddress) out.element(u"  ", u"homeAddress", homeAddress);
  if (settings().captureBusinessAddress) out.element(u"  ", u"businessAddress", businessAddress);
  out << u"</contact>";
}

std::u16string Contact::distListToXMLString() const {
  std::u16string text;
  XmlOut out(text);
  writeDistListXML(out);
  return text;
}

void Contact::writeDistListXML(XmlOut& out) const {
  PIM_ENTRY("PIM::Contact::distListToXMLString");
  out << u"<contact";
  appendEntryId(PIM_LOG_SITE, out, entryId);
  appendIfSet(out, u"name", name);
  out << u">\r\n";
  if (settings().captureNotes && !notes.empty()) out.element(u"  ", u"notes", notes);
  out << u"  <addresses>\r\n";
  for (const std::u16string& member : addresses) out.element(u"    ", u"address", member);
  out << u"  </addresses>\r\n";
  out << u"</contact>";
}

}  // namespace PIM

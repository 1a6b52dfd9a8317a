// A contact or distribution list of a captured contacts folder and its
// <contact> element. Every item of the folder is captured. A distribution
// list ("IPM.DistList") carries its members, decoded from their one-off
// entry identifiers, in an <addresses> list.
#pragma once

#include <string>
#include <vector>

#include "data/record.h"
#include "mapi/entry_id.h"
#include "mapi/mapi_properties.h"
#include "mapi/outlook_utils.h"

namespace PIM {

class Contact {
 public:
  // Indexes into getNameIdPairs().
  enum {
    kEmailAddress = 0,
    kEmailDisplayName = 1,
    kEmailOriginalDisplayName = 2,
    kEmailAddressType = 3,
    kFileUnder = 4,
    kWorkAddress = 5,
    kHomeAddress = 6,
    kOneOffMembers = 7
  };

  EntryId entryId;
  std::u16string name;  // "file under"
  std::u16string fullname;
  std::u16string email;
  std::u16string businessNumber;
  std::u16string mobileNumber;
  std::u16string pagerNumber;
  std::u16string homeNumber;
  std::u16string companyName;
  std::u16string businessFax;
  std::u16string homeFax;
  std::u16string businessAddress;
  std::u16string homeAddress;
  std::u16string notes;
  std::u16string title;
  std::vector<std::u16string> addresses;  // distribution-list members
  bool isDistList = false;

  static std::vector<NameIdPair> getNameIdPairs();
  static PropTagArray getPropIds(const std::vector<NameIdPair>& pairs);
  static HRESULT getRestriction(RecordQuery& query, const std::vector<NameIdPair>& pairs);
  static HRESULT makeDataRow(const std::vector<NameIdPair>& pairs, const MAPIProperties& row,
                             IUnknown* source, Contact& contact);
  void writeXML(XmlOut& out) const;
  std::u16string toXMLString() const;
  std::u16string distListToXMLString() const;
  void writeDistListXML(XmlOut& out) const;
};

}  // namespace PIM

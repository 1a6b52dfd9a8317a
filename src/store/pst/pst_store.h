// Outlook data files (.pst, .ost) as profiles of the reference store: the
// file's folders, items, recipients, attachments and embedded messages are
// read once through libpff into the store's model, so that tables,
// restrictions, named properties and notifications behave as for a fixture.
// The file is only read, never written.
//
//   if (PIM::store::isPstFile(path)) {
//     try {
//       auto profile = PIM::store::loadPstFile(path);
//     } catch (const PIM::store::PstError& e) {
//       // e.what(): "box.pst: not an Outlook data file (truncated?) ..."
//     }
//   }
//
// Items and folders carry the keys "pst:<node id>" (hex), so that a reload
// of an edited file matches them by the file's own node ids.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "store/one_off_entry_id.h"
#include "store/profile.h"

namespace PIM::store {

class PstError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// True when the file begins with the data file signature "!BDN".
bool isPstFile(const std::u16string& path);

// Loads the whole file. Throws PstError (one line naming the file) when the
// file cannot be read: missing, truncated, damaged, or encrypted in a way
// that cannot be read.
std::shared_ptr<Profile> loadPstFile(const std::u16string& path);

// A property value as the file stores it (`type` a PT_ type, `data` the raw
// bytes) as a model value: text of 8-bit strings through `codePage`,
// multi-valued values from their counts and offsets. False when the bytes do
// not hold a value of that type.
bool decodePstValue(ULONG tag, const uint8_t* data, size_t size, uint32_t codePage, Prop& out);

// The file's name-to-id map from its three streams (GUIDs, 8-byte entries,
// names): property id (0x8000 and up) -> name. Sets are told apart by all
// 16 bytes of their GUIDs; entries that name no set or a name past the
// stream's end are left out.
std::map<ULONG, PropName> decodePstNameMap(const Bytes& guids, const Bytes& entries,
                                           const Bytes& names);

// A distribution list's one-off members (`oneOffs`, kept in the order of the
// list's member ids `wrapped`) with the members that only a wrapped entry id
// names filled in: a wrapped id of a message of this file (store record key
// `recordKey`; any when empty) whose node id `contact` turns into the
// contact's name and address becomes a one-off entry of them, at its own
// place when the one-off list has a value there that is no one-off entry,
// else after the others. Members `contact` does not know are left out.
std::vector<Bytes> completeOneOffMembers(
    const std::vector<Bytes>& wrapped, std::vector<Bytes> oneOffs, const Bytes& recordKey,
    const std::function<bool(uint32_t nid, OneOffEntryId& member)>& contact);

// The subject as Outlook shows it: without the marker (U+0001 and a length)
// that files keep before the normalized subject.
std::u16string stripSubjectMarker(std::u16string subject);

}  // namespace PIM::store

// The reference store's data: property values, items, folders, stores and
// address-book entries, in plain C++. The MAPI objects (objects.h) are views
// of these; a Profile (profile.h) owns them and guards them with its lock.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "mapi/mapi.h"

namespace PIM::store {

using Bytes = std::vector<uint8_t>;

// One property value, kept small: the tag, one 8-byte scalar and one byte
// payload. The tag's type says what they hold:
//   num()     PT_I2, PT_LONG, PT_BOOLEAN, PT_I8, PT_SYSTIME (FILETIME ticks),
//             PT_ERROR (the SCODE)
//   real()    PT_R4, PT_DOUBLE, PT_APPTIME
//   text()    PT_UNICODE: kept in the encoding it arrived in (UTF-8 from a
//             fixture, UTF-16 from a caller) and converted when read
//   str()     PT_STRING8 (the bytes as stored)
//   bin()     PT_BINARY, PT_CLSID (16 bytes, GUID layout)
//   nums() texts() strs() bins()   the multi-valued types, packed in the
//             payload (8-byte numbers, or length-prefixed elements)
// PT_OBJECT values carry nothing: the object is reached by OpenProperty.
class Prop {
 public:
  ULONG tag = PR_NULL;

  ULONG type() const { return PROP_TYPE(tag); }
  ULONG id() const { return PROP_ID(tag); }
  bool operator==(const Prop& other) const;

  int64_t num() const { return scalar_.num; }
  double real() const { return scalar_.real; }
  std::u16string text() const;
  const std::string& str() const { return data_; }
  Bytes bin() const { return Bytes(data_.begin(), data_.end()); }
  // The payload of a PT_STRING8, PT_BINARY or PT_CLSID value, uncopied.
  std::string_view bytes() const { return data_; }
  // Text length in UTF-16 units, without converting.
  size_t textUnits() const;
  // Whether a PT_UNICODE value (or each PT_MV_UNICODE element) is UTF-8.
  bool utf8() const { return utf8_; }

  size_t count() const;  // elements of a multi-valued value
  std::vector<int64_t> nums() const;
  std::vector<std::u16string> texts() const;
  std::vector<std::string> strs() const;
  std::vector<Bytes> bins() const;
  // Element i of a multi-valued value as a single value of the base type.
  Prop element(size_t i) const;

  static Prop ofLong(ULONG tag, int32_t value);
  static Prop ofBool(ULONG tag, bool value);
  static Prop ofI8(ULONG tag, int64_t value);
  static Prop ofTime(ULONG tag, uint64_t fileTime);
  static Prop ofText(ULONG tag, std::u16string value);  // PT_UNICODE
  // PT_UNICODE from UTF-8 bytes; kept as they are when valid UTF-8.
  static Prop ofUtf8Text(ULONG tag, std::string utf8);
  static Prop ofString8(ULONG tag, std::string value);
  static Prop ofBinary(ULONG tag, Bytes value);
  static Prop ofBinary(ULONG tag, std::string_view value);
  static Prop ofError(ULONG propId, SCODE error);
  static Prop ofMvBinary(ULONG tag, std::vector<Bytes> values);
  static Prop ofMvText(ULONG tag, std::vector<std::u16string> values);
  static Prop ofI2(ULONG tag, int16_t value);
  static Prop ofClsid(ULONG tag, Bytes guid);
  // PT_MV_I2, PT_MV_LONG, PT_MV_I8 or PT_MV_SYSTIME, as the tag says (else
  // PT_MV_LONG).
  static Prop ofMvNum(ULONG tag, const std::vector<int64_t>& values);
  static Prop ofMvClsid(ULONG tag, std::vector<Bytes> guids);
  // Any type as given: the tag's own type is kept.
  static Prop ofNum(ULONG tag, int64_t value);
  // PT_R4, PT_DOUBLE or PT_APPTIME, as the tag says (else PT_DOUBLE).
  static Prop ofReal(ULONG tag, double value);
  static Prop ofBytes(ULONG tag, std::string value);  // PT_STRING8, PT_BINARY, PT_CLSID
  static Prop ofMvNums(ULONG tag, const std::vector<int64_t>& values);
  static Prop ofMvString8(ULONG tag, const std::vector<std::string>& values);
  // PT_MV_UNICODE from UTF-8 elements (kept as UTF-8 when all are valid).
  static Prop ofMvUtf8Text(ULONG tag, const std::vector<std::string>& values);

 private:
  bool utf8_ = false;
  union Scalar {
    int64_t num;
    double real;
  } scalar_{0};
  std::string data_;
};

// At most one value per property identifier, in the order they were set.
class PropList {
 public:
  // The value with this identifier, whatever its type; null when absent.
  const Prop* find(ULONG propId) const;
  Prop* find(ULONG propId);
  // Replaces the value with the same identifier, or appends.
  void set(Prop prop);
  // Sets only when no value with that identifier is present.
  void setDefault(Prop prop);
  bool erase(ULONG propId);
  // Room for n values in all, so a list built once holds no spare room.
  void reserve(size_t n) { props_.reserve(n); }
  const std::vector<Prop>& all() const { return props_; }
  bool empty() const { return props_.empty(); }

 private:
  std::vector<Prop> props_;
};

struct Item;

struct Recipient {
  PropList props;
};

struct Attachment {
  ULONG num = 0;  // PR_ATTACH_NUM, assigned by the store
  PropList props;
  Bytes data;                      // PR_ATTACH_DATA_BIN
  std::shared_ptr<Item> embedded;  // PR_ATTACH_DATA_OBJ (ATTACH_EMBEDDED_MSG)
};

struct Folder;

struct Item {
  PropList props;
  std::vector<Recipient> recipients;
  std::vector<Attachment> attachments;
  bool associated = false;  // folder-associated (hidden) contents
  // Set by the store: 0 for embedded messages, which have no entry id.
  uint32_t nid = 0;
  // A hash of the fixture text (and store) the item was built from, while it
  // still holds just that; 0 when unknown or changed since.
  uint64_t sourceHash = 0;
  // A reload's stand-in for an item whose text has not changed: nothing but
  // its key and sourceHash was read.
  bool unbuilt = false;
  Folder* parent = nullptr;
};

struct Folder {
  PropList props;  // PR_DISPLAY_NAME, PR_CONTAINER_CLASS, ...
  std::vector<std::shared_ptr<Folder>> folders;
  std::vector<std::shared_ptr<Item>> items;
  uint32_t nid = 0;
  Folder* parent = nullptr;
};

struct StoreOptions {
  // Stores without Unicode support answer PT_UNICODE requests with
  // MAPI_E_NOT_FOUND and deliver their text as 8-bit (UTF-8) strings.
  bool unicode = true;
  // Contents and hierarchy tables hand out short-term PR_ENTRYID values, as
  // some stores do (PR_LONGTERM_ENTRYID_FROM_TABLE is long-term always).
  bool shortTermIdsInTables = false;
  // Table rows cut strings to this many characters (bytes for 8-bit
  // strings), as real stores do; 0 = no cut.
  uint32_t tableStringLimit = 255;
  // Text streams from OpenProperty end with a terminating NUL.
  bool streamTerminator = false;
  // GetProps answers MAPI_E_NOT_ENOUGH_MEMORY (as an error value) for text
  // and binary values longer than this many bytes, so callers must use
  // OpenProperty; 0 = no limit.
  uint32_t getPropsByteLimit = 0;
};

// A named property: set GUID plus numeric id (MNID_ID) or name (MNID_STRING).
struct PropName {
  GUID set{};
  ULONG kind = MNID_ID;
  LONG id = 0;
  std::u16string name;
  bool operator<(const PropName& other) const;
};

struct Store {
  std::u16string name;
  bool isDefault = false;
  StoreOptions options;
  PropList props;  // extra store properties
  Bytes uid;       // 16 bytes, inside every entry id of the store
  std::shared_ptr<Folder> root;
  uint32_t ipmSubtree = 0;                         // nid of the IPM subtree, 0 = none
  uint32_t receiveFolder = 0;                      // nid of the default receive folder, 0 = none
  std::map<std::string, uint32_t> receiveFolders;  // message class -> nid
  std::map<PropName, ULONG> names;                 // named property -> id
  ULONG nextNamedId = 0x8000;
  uint32_t nextNid = 1;
  std::map<uint32_t, std::shared_ptr<Folder>> folderIndex;
  std::map<uint32_t, std::shared_ptr<Item>> itemIndex;
};

struct AbEntry {
  PropList props;  // PR_DISPLAY_NAME, PR_ADDRTYPE, PR_EMAIL_ADDRESS, ...
};

}  // namespace PIM::store

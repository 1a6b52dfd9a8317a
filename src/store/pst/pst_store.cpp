// First: its MAPI headers define WINAPI, which keeps libpff.h from asking
// for libbfio's headers, which Debian does not ship.
#include "store/pst/pst_store.h"

#include <libpff.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>

#include "core/debug_logger.h"
#include "core/utils.h"
#include "store/fixture.h"
#include "store/one_off_entry_id.h"
#include "store/pst/compressed_rtf.h"

namespace PIM::store {

namespace {

// ---- libpff owners -----------------------------------------------------------------------
struct ErrorOwner {
  libpff_error_t* e = nullptr;
  ~ErrorOwner() { reset(); }
  void reset() {
    if (e) libpff_error_free(&e);
    e = nullptr;
  }
  libpff_error_t** put() {
    reset();
    return &e;
  }
  // libpff's message without its call chain: the first line only.
  std::string text() const {
    if (!e) return "unknown error";
    char buffer[1024] = {};
    libpff_error_sprint(e, buffer, sizeof buffer);
    std::string s(buffer);
    const size_t eol = s.find_first_of("\r\n");
    if (eol != std::string::npos) s.resize(eol);
    return s;
  }
};

class ItemOwner {
 public:
  ItemOwner() = default;
  ~ItemOwner() { reset(); }
  ItemOwner(const ItemOwner&) = delete;
  ItemOwner& operator=(const ItemOwner&) = delete;
  void reset() {
    if (item_) libpff_item_free(&item_, nullptr);
    item_ = nullptr;
  }
  libpff_item_t** put() {
    reset();
    return &item_;
  }
  libpff_item_t* get() const { return item_; }
  explicit operator bool() const { return item_ != nullptr; }

 private:
  libpff_item_t* item_ = nullptr;
};

class RecordSetOwner {
 public:
  ~RecordSetOwner() {
    if (set_) libpff_record_set_free(&set_, nullptr);
  }
  libpff_record_set_t** put() { return &set_; }
  libpff_record_set_t* get() const { return set_; }

 private:
  libpff_record_set_t* set_ = nullptr;
};

class EntryOwner {
 public:
  ~EntryOwner() {
    if (entry_) libpff_record_entry_free(&entry_, nullptr);
  }
  libpff_record_entry_t** put() { return &entry_; }
  libpff_record_entry_t* get() const { return entry_; }

 private:
  libpff_record_entry_t* entry_ = nullptr;
};

class FileOwner {
 public:
  ~FileOwner() {
    if (file_) {
      if (open_) libpff_file_close(file_, nullptr);
      libpff_file_free(&file_, nullptr);
    }
  }
  libpff_file_t** put() { return &file_; }
  libpff_file_t* get() const { return file_; }
  void opened() { open_ = true; }

 private:
  libpff_file_t* file_ = nullptr;
  bool open_ = false;
};

// ---- Raw values --------------------------------------------------------------------------
uint16_t le16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
uint32_t le32(const uint8_t* p) {
  return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}
uint64_t le64(const uint8_t* p) { return uint64_t{le32(p)} | uint64_t{le32(p + 4)} << 32; }

std::u16string utf16le(const uint8_t* p, size_t size) {
  std::u16string s;
  s.reserve(size / 2);
  for (size_t i = 0; i + 1 < size; i += 2) s.push_back(static_cast<char16_t>(le16(p + i)));
  while (!s.empty() && s.back() == u'\0') s.pop_back();
  return s;
}

std::string bytes8(const uint8_t* p, size_t size) {
  std::string s(reinterpret_cast<const char*>(p), size);
  while (!s.empty() && s.back() == '\0') s.pop_back();
  return s;
}

// The parts of a variable-size multi-valued value: a count, an offset per
// value from the start, the values one after another.
bool splitMulti(const uint8_t* data, size_t size, std::vector<std::pair<size_t, size_t>>& parts) {
  if (size < 4) return size == 0;
  const uint32_t count = le32(data);
  if (count > (size - 4) / 4) return false;
  const size_t table = 4 + size_t{count} * 4;
  for (uint32_t i = 0; i < count; ++i) {
    const size_t begin = le32(data + 4 + i * 4);
    const size_t end = i + 1 < count ? le32(data + 8 + i * 4) : size;
    if (begin < table || begin > end || end > size) return false;
    parts.emplace_back(begin, end - begin);
  }
  return true;
}

// ---- The file's name-to-id map -------------------------------------------------------------
constexpr uint32_t kNameToIdMapNid = 0x61;
constexpr uint8_t kPsMapi[16] = {0x28, 0x03, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00,
                                 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46};
constexpr uint8_t kPsPublicStrings[16] = {0x29, 0x03, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00,
                                          0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46};

// A wrapped entry id: flags, the wrapping provider, a type byte, then the
// entry id of a message of a data file (flags, the store's record key, the
// node id).
constexpr size_t kWrappedHeader = 21;
constexpr size_t kMessageEntryId = 24;

// The node id of the message a wrapped entry id names in the store of
// `recordKey` (any store when empty); false when it names none.
bool wrappedNid(const Bytes& id, const Bytes& recordKey, uint32_t& nid) {
  static const uint8_t kWrappedUid[16] = {0xC0, 0x91, 0xAD, 0xD3, 0x51, 0x9D, 0xCF, 0x11,
                                          0xA4, 0xA9, 0x00, 0xAA, 0x00, 0x47, 0xFA, 0xA4};
  if (id.size() != kWrappedHeader + kMessageEntryId ||
      std::memcmp(id.data() + 4, kWrappedUid, 16) != 0)
    return false;
  const uint8_t* embedded = id.data() + kWrappedHeader;
  if (recordKey.size() == 16 && std::memcmp(recordKey.data(), embedded + 4, 16) != 0) return false;
  nid = le32(embedded + 20);
  return true;
}

// Code pages whose bytes below 0x80 are ASCII (not the 7-bit ones that
// shift with escapes, nor UTF-7 or UTF-16).
bool asciiCompatible(uint32_t cp) {
  return cp == 874 || cp == 932 || cp == 936 || cp == 949 || cp == 950 ||
         (cp >= 1250 && cp <= 1258) || cp == 20127 || cp == 20866 || cp == 21866 ||
         (cp >= 28591 && cp <= 28605) || cp == 51932 || cp == 51936 || cp == 51949 || cp == 54936 ||
         cp == 65001;
}

bool isAscii(const std::string& bytes) {
  for (char c : bytes)
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  return true;
}

}  // namespace

std::vector<Bytes> completeOneOffMembers(
    const std::vector<Bytes>& wrapped, std::vector<Bytes> oneOffs, const Bytes& recordKey,
    const std::function<bool(uint32_t nid, OneOffEntryId& member)>& contact) {
  std::vector<Bytes> later;
  for (size_t i = 0; i < wrapped.size(); ++i) {
    OneOffEntryId member;
    if (i < oneOffs.size() && decodeOneOffEntryId(oneOffs[i].data(), oneOffs[i].size(), member))
      continue;
    uint32_t nid = 0;
    member = OneOffEntryId();
    if (!wrappedNid(wrapped[i], recordKey, nid) || !contact(nid, member)) continue;
    Bytes entry = encodeOneOffEntryId(member);
    if (i < oneOffs.size())
      oneOffs[i] = std::move(entry);
    else
      later.push_back(std::move(entry));
  }
  for (Bytes& entry : later) oneOffs.push_back(std::move(entry));
  return oneOffs;
}

std::map<ULONG, PropName> decodePstNameMap(const Bytes& guids, const Bytes& entries,
                                           const Bytes& strings) {
  std::map<ULONG, PropName> out;
  for (size_t at = 0; at + 8 <= entries.size(); at += 8) {
    const uint32_t value = le32(&entries[at]);
    const uint16_t guidField = le16(&entries[at + 4]);
    const uint16_t index = le16(&entries[at + 6]);
    const bool isString = guidField & 1;
    const uint16_t guidIndex = guidField >> 1;
    PropName name;
    if (guidIndex == 1) {
      std::memcpy(&name.set, kPsMapi, 16);
    } else if (guidIndex == 2) {
      std::memcpy(&name.set, kPsPublicStrings, 16);
    } else if (guidIndex >= 3 && (size_t{guidIndex} - 3) * 16 + 16 <= guids.size()) {
      std::memcpy(&name.set, &guids[(size_t{guidIndex} - 3) * 16], 16);
    } else {
      continue;  // no set: the entry names nothing
    }
    if (isString) {
      if (size_t{value} + 4 > strings.size()) continue;
      const uint32_t length = le32(&strings[value]);
      if (length > strings.size() - value - 4) continue;
      name.kind = MNID_STRING;
      name.name = utf16le(&strings[value + 4], length);
    } else {
      name.kind = MNID_ID;
      name.id = static_cast<LONG>(value);
    }
    out[0x8000u + index] = std::move(name);
  }
  return out;
}

namespace {

// ---- Loading -------------------------------------------------------------------------------
constexpr int kMaxDepth = 32;
constexpr ULONG kSubjectId = PROP_ID(PR_SUBJECT_W);
constexpr ULONG kHtmlId = 0x1013;
constexpr ULONG kBodyId = PROP_ID(PR_BODY_W);
constexpr ULONG kRtfId = 0x1009;
constexpr ULONG kAttachDataId = 0x3701;
constexpr ULONG kMessageCodePageId = 0x3FFD;
constexpr ULONG kInternetCpidId = 0x3FDE;
constexpr uint32_t kDefaultCodePage = 1252;

struct RawProp {
  ULONG id;
  ULONG type;
  Bytes data;
};

class Loader {
 public:
  explicit Loader(const std::u16string& path) : path_(path), name_(toUtf8(path)) {}

  std::shared_ptr<Profile> run() {
    ErrorOwner error;
    if (libpff_file_initialize(file_.put(), error.put()) != 1) fail("libpff", error);
    if (libpff_file_open(file_.get(), name_.c_str(), libpff_get_access_flags_read(), error.put()) !=
        1)
      fail("cannot be read as an Outlook data file (damaged, truncated or not one)", error);
    file_.opened();
    // libpff reads what it needs and may not notice a file cut short.
    size64_t expected = 0;
    std::error_code sizeError;
    const uintmax_t actual = std::filesystem::file_size(nativePath(path_), sizeError);
    if (libpff_file_get_size(file_.get(), &expected, nullptr) == 1 && !sizeError &&
        actual < expected)
      fail("is truncated: " + std::to_string(actual) + " of its " + std::to_string(expected) +
               " bytes are there",
           nullptr);
    uint8_t encryption = 0;
    if (libpff_file_get_encryption_type(file_.get(), &encryption, error.put()) != 1)
      fail("cannot be read as an Outlook data file", error);
    if (encryption != LIBPFF_ENCRYPTION_TYPE_NONE &&
        encryption != LIBPFF_ENCRYPTION_TYPE_COMPRESSIBLE &&
        encryption != LIBPFF_ENCRYPTION_TYPE_HIGH)
      fail("is encrypted in a way that cannot be read", nullptr);

    readNameMap();
    profile_ = Profile::create();

    ItemOwner storeItem;
    std::vector<RawProp> storeProps;
    if (libpff_file_get_message_store(file_.get(), storeItem.put(), error.put()) == 1 && storeItem)
      storeProps = rawProps(storeItem.get(), 0);
    else
      fail("has no message store", error);
    storeItem.reset();  // its values are copied: libpff's copy need not last the load
    std::u16string storeName = textProp(storeProps, PROP_ID(PR_DISPLAY_NAME_W), kDefaultCodePage);
    if (storeName.empty()) {
      const size_t slash = path_.find_last_of(u"/\\");
      storeName = slash == std::u16string::npos ? path_ : path_.substr(slash + 1);
    }
    StoreOptions options;
    options.unicode = true;
    store_ = profile_->addStore(storeName, true, options);
    for (const RawProp& p : storeProps)
      if (p.id == PROP_ID(PR_RECORD_KEY) && p.data.size() == 16) recordKey_ = p.data;

    ItemOwner root;
    if (libpff_file_get_root_folder(file_.get(), root.put(), error.put()) != 1 || !root)
      fail("has no root folder", error);
    const Ref rootRef = profile_->rootFolder(store_);
    loadFolder(root.get(), rootRef, 0);
    findDefaultFolders(storeProps);
    translateListMembers();
    return profile_;
  }

 private:
  [[noreturn]] void fail(const std::string& what, const ErrorOwner& error) {
    fail(error.e ? what + ": " + error.text() : what + " (damaged or truncated)", nullptr);
  }
  [[noreturn]] void fail(const std::string& what, std::nullptr_t) {
    throw PstError(name_ + ": " + what);
  }

  void readNameMap() {
    ErrorOwner error;
    ItemOwner map;
    if (libpff_file_get_item_by_identifier(file_.get(), kNameToIdMapNid, map.put(), error.put()) !=
            1 ||
        !map) {
      PIM_ENTRY("PIM::store::loadPstFile");
      PIM_LOG_MSG(name_ << ": no name-to-id map (" << error.text() << ")");
      return;
    }
    Bytes guids, entries, strings;
    for (RawProp& p : rawProps(map.get(), 0)) {
      if (p.id == 0x0002) guids = std::move(p.data);
      if (p.id == 0x0003) entries = std::move(p.data);
      if (p.id == 0x0004) strings = std::move(p.data);
    }
    names_ = decodePstNameMap(guids, entries, strings);
  }

  // The properties of an item's record set as stored.
  std::vector<RawProp> rawProps(libpff_item_t* item, int setIndex) {
    std::vector<RawProp> out;
    RecordSetOwner set;
    if (libpff_item_get_record_set_by_index(item, setIndex, set.put(), nullptr) != 1) return out;
    int count = 0;
    if (libpff_record_set_get_number_of_entries(set.get(), &count, nullptr) != 1) return out;
    for (int i = 0; i < count; ++i) {
      EntryOwner entry;
      if (libpff_record_set_get_entry_by_index(set.get(), i, entry.put(), nullptr) != 1) continue;
      uint32_t id = 0, type = 0;
      if (libpff_record_entry_get_entry_type(entry.get(), &id, nullptr) != 1 ||
          libpff_record_entry_get_value_type(entry.get(), &type, nullptr) != 1)
        continue;
      size_t size = 0;
      Bytes data;
      if (libpff_record_entry_get_data_size(entry.get(), &size, nullptr) == 1 && size > 0) {
        data.resize(size);
        if (libpff_record_entry_get_data(entry.get(), data.data(), size, nullptr) != 1) continue;
      }
      out.push_back(RawProp{id & 0xFFFF, type & 0xFFFF, std::move(data)});
    }
    return out;
  }

  static const RawProp* findRaw(const std::vector<RawProp>& raw, ULONG id) {
    for (const RawProp& p : raw)
      if (p.id == id) return &p;
    return nullptr;
  }

  std::u16string textProp(const std::vector<RawProp>& raw, ULONG id, uint32_t codePage) {
    const RawProp* p = findRaw(raw, id);
    Prop value;
    if (!p ||
        !decodePstValue(PROP_TAG(p->type, id), p->data.data(), p->data.size(), codePage, value))
      return {};
    return value.type() == PT_UNICODE ? value.text() : std::u16string();
  }

  static uint32_t longProp(const std::vector<RawProp>& raw, ULONG id) {
    const RawProp* p = findRaw(raw, id);
    return p && p->type == PT_LONG && p->data.size() >= 4 ? le32(p->data.data()) : 0;
  }

  // The code page of an item's 8-bit strings: its own, then its Internet
  // one, then the default.
  static uint32_t codePageOf(const std::vector<RawProp>& raw) {
    for (ULONG id : {kMessageCodePageId, kInternetCpidId}) {
      const uint32_t cp = longProp(raw, id);
      if (cp != 0 && cp != 1200 && cp != 1201) return cp;
    }
    return kDefaultCodePage;
  }

  // The file's property id as this profile's: named ones through the map.
  ULONG mapId(ULONG id) {
    if (id < 0x8000) return id;
    auto known = idMap_.find(id);
    if (known != idMap_.end()) return known->second;
    auto name = names_.find(id);
    ULONG ours = 0;
    if (name != names_.end()) ours = profile_->namedPropId(store_, name->second);
    idMap_[id] = ours;
    return ours;
  }

  PropList props(const std::vector<RawProp>& raw, uint32_t codePage, bool isMessage) {
    PropList out;
    for (const RawProp& p : raw) {
      if (p.type == PT_OBJECT || (isMessage && p.id == kAttachDataId)) continue;
      const ULONG id = mapId(p.id);
      if (id == 0) continue;
      Prop value;
      if (!decodePstValue(PROP_TAG(p.type, id), p.data.data(), p.data.size(), codePage, value))
        continue;
      if (p.id == kSubjectId && value.type() == PT_UNICODE)
        value = Prop::ofText(value.tag, stripSubjectMarker(value.text()));
      out.set(std::move(value));
    }
    return out;
  }

  void loadFolder(libpff_item_t* folder, const Ref& ref, int depth) {
    uint32_t nid = 0;
    libpff_item_get_identifier(folder, &nid, nullptr);
    folderRefs_[nid] = ref;
    profile_->setKey(keyOf(nid), ref);
    const std::vector<RawProp> raw = rawProps(folder, 0);
    const uint32_t codePage = codePageOf(raw);
    const PropList own = props(raw, codePage, false);
    for (const Prop& p : own.all()) {
      // The store counts folders and items itself; the default folders' ids
      // are translated once every folder is known.
      const ULONG id = p.id();
      if (id == PROP_ID(PR_CONTENT_COUNT) || id == PROP_ID(PR_CONTENT_UNREAD) ||
          id == PROP_ID(PR_SUBFOLDERS) || id == 0x3617 /* PR_ASSOC_CONTENT_COUNT */)
        continue;
      if ((id >= 0x36D0 && id <= 0x36D7) || id == 0x36D8 || id == 0x36E4) {
        folderIds_.push_back({ref, p});
        continue;
      }
      profile_->setProp(ref, p);
    }
    int messages = 0;
    libpff_folder_get_number_of_sub_messages(folder, &messages, nullptr);
    for (int i = 0; i < messages; ++i) {
      ItemOwner message;
      if (libpff_folder_get_sub_message(folder, i, message.put(), nullptr) != 1 || !message) {
        logSkipped("an item", nid);
        continue;
      }
      addMessage(ref, message.get(), false);
    }
    int associated = 0;
    libpff_folder_get_number_of_sub_associated_contents(folder, &associated, nullptr);
    for (int i = 0; i < associated; ++i) {
      ItemOwner message;
      if (libpff_folder_get_sub_associated_content(folder, i, message.put(), nullptr) != 1 ||
          !message)
        continue;
      addMessage(ref, message.get(), true);
    }
    if (depth >= kMaxDepth) return;
    int folders = 0;
    libpff_folder_get_number_of_sub_folders(folder, &folders, nullptr);
    for (int i = 0; i < folders; ++i) {
      ItemOwner sub;
      if (libpff_folder_get_sub_folder(folder, i, sub.put(), nullptr) != 1 || !sub) {
        logSkipped("a folder", nid);
        continue;
      }
      const std::vector<RawProp> subRaw = rawProps(sub.get(), 0);
      const uint32_t cp = codePageOf(subRaw);
      std::u16string name = textProp(subRaw, PROP_ID(PR_DISPLAY_NAME_W), cp);
      // Folder paths are joined by '/'.
      for (char16_t& c : name)
        if (c == u'/') c = u'_';
      const std::u16string cls = textProp(subRaw, PROP_ID(PR_CONTAINER_CLASS_W), cp);
      loadFolder(sub.get(), profile_->addFolder(ref, name, cls), depth + 1);
    }
  }

  void logSkipped(const char* what, uint32_t folderNid) {
    PIM_ENTRY("PIM::store::loadPstFile");
    PIM_LOG_ERR(name_ << ": " << what << " of folder " << keyOf(folderNid)
                      << " could not be read and is left out");
  }

  static std::string keyOf(uint32_t nid) {
    char buffer[24];
    std::snprintf(buffer, sizeof buffer, "pst:%x", nid);
    return buffer;
  }

  void addMessage(const Ref& folder, libpff_item_t* message, bool associated) {
    uint32_t nid = 0;
    libpff_item_get_identifier(message, &nid, nullptr);
    Item item = readMessage(message, 0);
    item.associated = associated;
    const Prop* cls = item.props.find(PROP_ID(PR_MESSAGE_CLASS_W));
    const bool distList =
        cls && cls->type() == PT_UNICODE && cls->text().rfind(u"IPM.DistList", 0) == 0;
    const Ref ref = profile_->addItem(folder, std::move(item));
    profile_->setKey(keyOf(nid), ref);
    itemRefs_[nid] = ref;
    if (distList) distLists_.push_back(ref);
  }

  Item readMessage(libpff_item_t* message, int depth) {
    Item item;
    const std::vector<RawProp> raw = rawProps(message, 0);
    const uint32_t codePage = codePageOf(raw);
    item.props = props(raw, codePage, true);
    readBody(raw, codePage, item);
    senderAsOneOff(item.props);

    ItemOwner recipients;
    if (libpff_message_get_recipients(message, recipients.put(), nullptr) == 1 && recipients) {
      int sets = 0;
      libpff_item_get_number_of_record_sets(recipients.get(), &sets, nullptr);
      for (int i = 0; i < sets; ++i) {
        const std::vector<RawProp> r = rawProps(recipients.get(), i);
        if (r.empty()) continue;
        item.recipients.push_back(Recipient{props(r, codePage, false)});
      }
    }
    int attachments = 0;
    libpff_message_get_number_of_attachments(message, &attachments, nullptr);
    for (int i = 0; i < attachments; ++i) {
      ItemOwner attachment;
      if (libpff_message_get_attachment(message, i, attachment.put(), nullptr) != 1 || !attachment)
        continue;
      Attachment att;
      att.props = props(rawProps(attachment.get(), 0), codePage, true);
      int type = 0;
      libpff_attachment_get_type(attachment.get(), &type, nullptr);
      if (type == LIBPFF_ATTACHMENT_TYPE_DATA) {
        size64_t size = 0;
        if (libpff_attachment_get_data_size(attachment.get(), &size, nullptr) == 1 && size > 0 &&
            size < (size64_t{1} << 31)) {
          att.data.resize(static_cast<size_t>(size));
          // Data kept in several blocks comes a block per read.
          size_t done = 0;
          while (done < att.data.size()) {
            const ssize_t read = libpff_attachment_data_read_buffer(
                attachment.get(), att.data.data() + done, att.data.size() - done, nullptr);
            if (read <= 0) break;
            done += static_cast<size_t>(read);
          }
          att.data.resize(done);
        }
      } else if (type == LIBPFF_ATTACHMENT_TYPE_ITEM && depth < kMaxDepth) {
        ItemOwner embedded;
        if (libpff_attachment_get_item(attachment.get(), embedded.put(), nullptr) == 1 && embedded)
          att.embedded = std::make_shared<Item>(readMessage(embedded.get(), depth + 1));
      }
      item.attachments.push_back(std::move(att));
    }
    return item;
  }

  // A list's members that are wrapped entry ids of the file's contacts
  // and lists hold the file's own entry ids: they become this profile's,
  // so that opening a member opens the item. The capture reads members from
  // the one-off list, so a contact named only by its wrapped id gets a
  // one-off entry there too.
  void translateListMembers() {
    if (distLists_.empty()) return;
    const ULONG members = namedId(0x8055);
    const ULONG oneOffsId = namedId(0x8054);
    const ULONG emailName = namedId(0x8080), emailType = namedId(0x8082),
                emailAddress = namedId(0x8083);
    const auto contactOf = [&](uint32_t nid, OneOffEntryId& member) {
      auto target = itemRefs_.find(nid);
      if (target == itemRefs_.end()) return false;
      const std::shared_ptr<const Item> contact = profile_->itemCopy(target->second);
      if (!contact || text_(contact->props, PR_MESSAGE_CLASS_W).rfind(u"IPM.Contact", 0) != 0)
        return false;
      member.displayName = text_(contact->props, PR_DISPLAY_NAME_W);
      if (member.displayName.empty())
        member.displayName = text_(contact->props, PROP_TAG(PT_UNICODE, emailName));
      member.addressType = text_(contact->props, PROP_TAG(PT_UNICODE, emailType));
      member.address = text_(contact->props, PROP_TAG(PT_UNICODE, emailAddress));
      if (member.addressType.empty()) member.addressType = u"SMTP";
      return !member.displayName.empty() || !member.address.empty();
    };
    for (const Ref& list : distLists_) {
      const std::shared_ptr<const Item> item = profile_->itemCopy(list);
      const Prop* prop = item ? item->props.find(members) : nullptr;
      if (!prop || prop->type() != PT_MV_BINARY) continue;
      std::vector<Bytes> ids = prop->bins();
      std::vector<Prop> changes;
      const Prop* offProp = item->props.find(oneOffsId);
      std::vector<Bytes> oneOffs =
          offProp && offProp->type() == PT_MV_BINARY ? offProp->bins() : std::vector<Bytes>();
      std::vector<Bytes> completed = completeOneOffMembers(ids, oneOffs, recordKey_, contactOf);
      if (completed != oneOffs)
        changes.push_back(
            Prop::ofMvBinary(PROP_TAG(PT_MV_BINARY, oneOffsId), std::move(completed)));
      bool changed = false;
      for (Bytes& id : ids) {
        uint32_t nid = 0;
        if (!wrappedNid(id, recordKey_, nid)) continue;
        auto target = itemRefs_.find(nid);
        if (target == itemRefs_.end()) continue;
        const Bytes ours = profile_->entryId(target->second);
        id.resize(kWrappedHeader);
        id.insert(id.end(), ours.begin(), ours.end());
        changed = true;
      }
      if (changed) changes.push_back(Prop::ofMvBinary(prop->tag, std::move(ids)));
      if (!changes.empty()) profile_->modifyItem(list, changes);
    }
  }

  ULONG namedId(LONG lid) {
    PropName name;
    name.set = PSETID_Address;
    name.id = lid;
    return profile_->namedPropId(store_, name);
  }

  // The sender's entry id points into an address book the file does not
  // hold (Exchange's, or the sending profile's): it becomes a one-off entry
  // of the sender's name and address, which the session opens as a mail
  // user.
  static void senderAsOneOff(PropList& props) {
    static const uint8_t kOneOffUid[16] = {0x81, 0x2B, 0x1F, 0xA4, 0xBE, 0xA3, 0x10, 0x19,
                                           0x9D, 0x6E, 0x00, 0xDD, 0x01, 0x0F, 0x54, 0x02};
    const Prop* id = props.find(PROP_ID(PR_SENDER_ENTRYID));
    if (!id || id->type() != PT_BINARY) return;
    if (id->bin().size() >= 20 && std::memcmp(id->bin().data() + 4, kOneOffUid, 16) == 0) return;
    OneOffEntryId entry;
    entry.displayName = text_(props, PR_SENDER_NAME_W);
    const std::u16string smtp = text_(props, PROP_TAG(PT_UNICODE, 0x5D01));  // sender's SMTP
    entry.addressType = smtp.empty() ? text_(props, PR_SENDER_ADDRTYPE_W) : u"SMTP";
    entry.address = smtp.empty() ? text_(props, PR_SENDER_EMAIL_ADDRESS_W) : smtp;
    if (entry.displayName.empty() && entry.address.empty()) return;
    if (entry.addressType.empty()) entry.addressType = u"SMTP";
    props.set(Prop::ofBinary(PR_SENDER_ENTRYID, encodeOneOffEntryId(entry)));
  }

  // HTML as text in its code page. Without HTML, a body kept as compressed
  // RTF is read: its text becomes the plain body when the item has none.
  void readBody(const std::vector<RawProp>& raw, uint32_t codePage, Item& item) {
    const RawProp* html = findRaw(raw, kHtmlId);
    if (html && (html->type == PT_BINARY || html->type == PT_STRING8)) {
      uint32_t cp = longProp(raw, kInternetCpidId);
      if (cp == 0) cp = codePage;
      std::string bytes = bytes8(html->data.data(), html->data.size());
      // UTF-8, or ASCII in a code page that agrees with it, is kept as it
      // is: half the room of UTF-16 and no conversion (most HTML is ASCII).
      if (cp == 65001 || (asciiCompatible(cp) && isAscii(bytes)))
        item.props.set(Prop::ofUtf8Text(PR_BODY_HTML_W, std::move(bytes)));
      else
        item.props.set(Prop::ofText(PR_BODY_HTML_W, fromCodePage(cp, bytes)));
      return;
    }
    if (item.props.find(kHtmlId)) return;
    const RawProp* rtf = findRaw(raw, kRtfId);
    if (!rtf || rtf->type != PT_BINARY) return;
    std::string text, error;
    PIM_ENTRY("PIM::store::loadPstFile");
    if (!decompressRtf(rtf->data.data(), rtf->data.size(), text, error)) {
      PIM_LOG_ERR(name_ << ": a body kept as compressed RTF could not be read: " << error);
      return;
    }
    const bool hasPlain = item.props.find(kBodyId) != nullptr;
    PIM_LOG_MSG(name_ << ": \"" << toUtf8(text_(item.props, PR_SUBJECT_W))
                      << "\": the HTML part was not present; the body is the "
                      << (hasPlain ? "item's plain text" : "text of its compressed RTF"));
    if (!hasPlain) item.props.set(Prop::ofText(PR_BODY_W, rtfToText(text)));
  }

  static std::u16string text_(const PropList& props, ULONG tag) {
    const Prop* p = props.find(PROP_ID(tag));
    return p && p->type() == PT_UNICODE ? p->text() : std::u16string();
  }

  // A folder's entry id in the file: flags, the store's record key, the nid.
  Ref folderOfEntryId(const Bytes& id) const {
    if (id.size() != 24) return {};
    if (!recordKey_.empty() && !std::equal(recordKey_.begin(), recordKey_.end(), id.begin() + 4))
      return {};
    auto it = folderRefs_.find(le32(&id[20]));
    return it == folderRefs_.end() ? Ref{} : it->second;
  }

  Ref folderOf(const std::vector<RawProp>& raw, ULONG id) const {
    const RawProp* p = findRaw(raw, id);
    return p && p->type == PT_BINARY ? folderOfEntryId(p->data) : Ref{};
  }

  void findDefaultFolders(const std::vector<RawProp>& storeProps) {
    // The IPM subtree as the store names it; files that lose it keep it at
    // its usual node.
    Ref subtree = folderOf(storeProps, PROP_ID(PR_IPM_SUBTREE_ENTRYID));
    if (!subtree.valid()) {
      auto usual = folderRefs_.find(0x8022);
      if (usual != folderRefs_.end()) subtree = usual->second;
    }
    if (subtree.valid()) profile_->setIpmSubtree(subtree);
    const Ref inbox = findInbox(subtree);
    if (inbox.valid()) profile_->setReceiveFolder(inbox);
    // The default folders' ids, as this profile's entry ids.
    for (const auto& [folder, prop] : folderIds_) {
      if (prop.type() == PT_BINARY) {
        const Ref target = folderOfEntryId(prop.bin());
        if (target.valid())
          profile_->setProp(folder, Prop::ofBinary(prop.tag, profile_->entryId(target)));
      } else if (prop.type() == PT_MV_BINARY) {
        std::vector<Bytes> ids;
        for (const Bytes& b : prop.bins()) {
          const Ref target = folderOfEntryId(b);
          ids.push_back(target.valid() ? profile_->entryId(target) : Bytes{});
        }
        profile_->setProp(folder, Prop::ofMvBinary(prop.tag, std::move(ids)));
      }
    }
    // Files without the ids: the first folder of each class in the subtree.
    if (!subtree.valid()) return;
    const Ref root = profile_->rootFolder(store_);
    const auto has = [&](ULONG tag) {
      for (const auto& [folder, prop] : folderIds_)
        if (prop.id() == PROP_ID(tag) && folderOfEntryId(prop.bin()).valid() &&
            (folder == root || folder == inbox))
          return true;
      return false;
    };
    const struct {
      ULONG tag;
      const char16_t* cls;
    } kDefaults[] = {{PR_IPM_APPOINTMENT_ENTRYID, u"IPF.Appointment"},
                     {PR_IPM_CONTACT_ENTRYID, u"IPF.Contact"},
                     {PR_IPM_TASK_ENTRYID, u"IPF.Task"}};
    for (const auto& d : kDefaults) {
      if (has(d.tag)) continue;
      const Ref found = firstOfClass(subtree, d.cls);
      if (found.valid()) profile_->setProp(root, Prop::ofBinary(d.tag, profile_->entryId(found)));
    }
  }

  Ref firstOfClass(const Ref& top, const std::u16string& cls) {
    std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
    std::function<Ref(const Folder&)> walk = [&](const Folder& f) -> Ref {
      for (const auto& child : f.folders) {
        const Prop* c = child->props.find(PROP_ID(PR_CONTAINER_CLASS_W));
        if (c && c->type() == PT_UNICODE &&
            (c->text() == cls || c->text().rfind(cls + u".", 0) == 0))
          return Ref{Ref::Kind::Folder, store_, child->nid};
        const Ref below = walk(*child);
        if (below.valid()) return below;
      }
      return {};
    };
    auto folder = profile_->folder(top.store, top.id);
    return folder ? walk(*folder) : Ref{};
  }

  // The Inbox. libpff does not reach the file's receive folder table, so
  // the Inbox is the folder below the subtree on which Outlook keeps the
  // default folders' ids, else the one named "Inbox" there.
  Ref findInbox(const Ref& subtree) {
    if (!subtree.valid()) return {};
    for (const auto& [folder, prop] : folderIds_) {
      if (prop.id() != PROP_ID(PR_IPM_APPOINTMENT_ENTRYID)) continue;
      std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
      auto f = profile_->folder(folder.store, folder.id);
      if (f && f->parent && f->parent->nid == subtree.id) return folder;
    }
    std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
    auto top = profile_->folder(subtree.store, subtree.id);
    if (!top) return {};
    for (const auto& child : top->folders) {
      const Prop* name = child->props.find(PROP_ID(PR_DISPLAY_NAME_W));
      if (name && name->type() == PT_UNICODE && name->text() == u"Inbox")
        return Ref{Ref::Kind::Folder, store_, child->nid};
    }
    return {};
  }

  std::u16string path_;
  std::string name_;
  FileOwner file_;
  std::shared_ptr<Profile> profile_;
  size_t store_ = 0;
  Bytes recordKey_;
  std::map<ULONG, PropName> names_;
  std::map<ULONG, ULONG> idMap_;
  std::map<uint32_t, Ref> folderRefs_;
  std::vector<std::pair<Ref, Prop>> folderIds_;
  std::map<uint32_t, Ref> itemRefs_;  // top-level items by their node id
  std::vector<Ref> distLists_;
};

}  // namespace

bool isPstFile(const std::u16string& path) {
  std::ifstream in(nativePath(path), std::ios::binary);
  char signature[4] = {};
  return in.read(signature, 4) && std::memcmp(signature, "!BDN", 4) == 0;
}

std::shared_ptr<Profile> loadPstFile(const std::u16string& path) {
  if (!isPstFile(path)) throw PstError(toUtf8(path) + ": not an Outlook data file");
  return Loader(path).run();
}

std::u16string stripSubjectMarker(std::u16string subject) {
  if (subject.size() >= 2 && subject[0] == u'\x01') subject.erase(0, 2);
  return subject;
}

bool decodePstValue(ULONG tag, const uint8_t* data, size_t size, uint32_t codePage, Prop& out) {
  const ULONG type = PROP_TYPE(tag);
  const auto fixed = [&](size_t n) { return size >= n; };
  switch (type) {
    case PT_I2:
      if (!fixed(2)) return false;
      out = Prop::ofI2(tag, static_cast<int16_t>(le16(data)));
      return true;
    case PT_LONG:
      if (!fixed(4)) return false;
      out = Prop::ofLong(tag, static_cast<int32_t>(le32(data)));
      return true;
    case PT_ERROR:
      if (!fixed(4)) return false;
      out = Prop::ofError(PROP_ID(tag), static_cast<SCODE>(le32(data)));
      return true;
    case PT_BOOLEAN:
      if (!fixed(1)) return false;
      out = Prop::ofBool(tag, data[0] != 0);
      return true;
    case PT_R4: {
      if (!fixed(4)) return false;
      float f;
      const uint32_t bits = le32(data);
      std::memcpy(&f, &bits, 4);
      out = Prop::ofReal(tag, f);
      return true;
    }
    case PT_DOUBLE:
    case PT_APPTIME: {
      if (!fixed(8)) return false;
      double d;
      const uint64_t bits = le64(data);
      std::memcpy(&d, &bits, 8);
      out = Prop::ofReal(tag, d);
      return true;
    }
    case PT_I8:
    case PT_CURRENCY:
      if (!fixed(8)) return false;
      out = Prop::ofI8(tag, static_cast<int64_t>(le64(data)));
      return true;
    case PT_SYSTIME:
      if (!fixed(8)) return false;
      out = Prop::ofTime(tag, le64(data));
      return true;
    case PT_UNICODE:
      out = Prop::ofText(tag, utf16le(data, size));
      return true;
    case PT_STRING8:
      // 8-bit text is delivered as Unicode, read in the item's code page.
      out = Prop::ofText(CHANGE_PROP_TYPE(tag, PT_UNICODE),
                         fromCodePage(codePage, bytes8(data, size)));
      return true;
    case PT_BINARY:
      out = Prop::ofBinary(tag, Bytes(data, data + size));
      return true;
    case PT_CLSID:
      if (size != 16) return false;
      out = Prop::ofClsid(tag, Bytes(data, data + size));
      return true;
    case PT_MV_I2:
    case PT_MV_LONG:
    case PT_MV_I8:
    case PT_MV_SYSTIME:
    case PT_MV_CLSID: {
      const size_t width = type == PT_MV_I2      ? 2
                           : type == PT_MV_LONG  ? 4
                           : type == PT_MV_CLSID ? 16
                                                 : 8;
      if (size % width != 0) return false;
      if (type == PT_MV_CLSID) {
        std::vector<Bytes> guids;
        for (size_t at = 0; at < size; at += 16) guids.emplace_back(data + at, data + at + 16);
        out = Prop::ofMvClsid(tag, std::move(guids));
        return true;
      }
      std::vector<int64_t> values;
      for (size_t at = 0; at < size; at += width)
        values.push_back(width == 2   ? static_cast<int16_t>(le16(data + at))
                         : width == 4 ? static_cast<int32_t>(le32(data + at))
                                      : static_cast<int64_t>(le64(data + at)));
      out = Prop::ofMvNum(tag, std::move(values));
      return true;
    }
    case PT_MV_UNICODE:
    case PT_MV_STRING8:
    case PT_MV_BINARY: {
      std::vector<std::pair<size_t, size_t>> parts;
      if (!splitMulti(data, size, parts)) return false;
      if (type == PT_MV_BINARY) {
        std::vector<Bytes> values;
        for (auto [at, n] : parts) values.emplace_back(data + at, data + at + n);
        out = Prop::ofMvBinary(tag, std::move(values));
      } else {
        std::vector<std::u16string> values;
        for (auto [at, n] : parts)
          values.push_back(type == PT_MV_UNICODE ? utf16le(data + at, n)
                                                 : fromCodePage(codePage, bytes8(data + at, n)));
        out = Prop::ofMvText(CHANGE_PROP_TYPE(tag, PT_MV_UNICODE), std::move(values));
      }
      return true;
    }
    default:
      return false;
  }
}

}  // namespace PIM::store

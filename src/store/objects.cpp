#include "store/objects.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "core/debug_logger.h"
#include "core/utils.h"
#include "mapi/mapi_ptr.h"
#include "store/com_base.h"
#include "store/entry_ids.h"
#include "store/fault_injector.h"
#include "store/one_off_entry_id.h"
#include "store/props.h"
#include "store/table.h"

namespace PIM::store {
namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

// Every MAPI method records itself, then asks the fault injector.
#define PIM_FAULT(method)                                                                   \
  PIM_ENTRY("PIM::store::" method);                                                         \
  do {                                                                                      \
    if (HRESULT injected = FaultInjector::instance().check(name_, method)) return injected; \
  } while (0)

// ---- Streams over one property value --------------------------------------------
class PropStream final : public ComBase<IStream> {
 public:
  explicit PropStream(Bytes data) : data_(std::move(data)) {}

  HRESULT STDMETHODCALLTYPE Read(void* pv, ULONG cb, ULONG* pcbRead) override {
    if (HRESULT injected = FaultInjector::instance().check("IStream", "Read")) return injected;
    if (!pv && cb) return STG_E_INVALIDPOINTER;
    const size_t n = std::min<size_t>(cb, data_.size() - std::min(pos_, data_.size()));
    if (n) std::memcpy(pv, data_.data() + pos_, n);
    pos_ += n;
    if (pcbRead) *pcbRead = static_cast<ULONG>(n);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Write(const void*, ULONG, ULONG* written) override {
    if (written) *written = 0;
    return STG_E_ACCESSDENIED;
  }
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin,
                                 ULARGE_INTEGER* newPosition) override {
    if (HRESULT injected = FaultInjector::instance().check("IStream", "Seek")) return injected;
    int64_t base = 0;
    if (origin == STREAM_SEEK_CUR)
      base = static_cast<int64_t>(pos_);
    else if (origin == STREAM_SEEK_END)
      base = static_cast<int64_t>(data_.size());
    else if (origin != STREAM_SEEK_SET)
      return STG_E_INVALIDFUNCTION;
    const int64_t target = base + move.QuadPart;
    if (target < 0) return STG_E_INVALIDFUNCTION;
    pos_ = static_cast<size_t>(target);
    if (newPosition) newPosition->QuadPart = static_cast<ULONGLONG>(pos_);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER) override { return STG_E_ACCESSDENIED; }
  HRESULT STDMETHODCALLTYPE CopyTo(IStream* target, ULARGE_INTEGER cb, ULARGE_INTEGER* read,
                                   ULARGE_INTEGER* written) override {
    if (!target) return STG_E_INVALIDPOINTER;
    const size_t left = data_.size() - std::min(pos_, data_.size());
    const size_t n = static_cast<size_t>(std::min<ULONGLONG>(cb.QuadPart, left));
    ULONG done = 0;
    HRESULT hr = target->Write(data_.data() + pos_, static_cast<ULONG>(n), &done);
    pos_ += n;
    if (read) read->QuadPart = n;
    if (written) written->QuadPart = done;
    return hr;
  }
  HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE Revert() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
    return STG_E_INVALIDFUNCTION;
  }
  HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
    return STG_E_INVALIDFUNCTION;
  }
  HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD) override {
    if (HRESULT injected = FaultInjector::instance().check("IStream", "Stat")) return injected;
    if (!stat) return STG_E_INVALIDPOINTER;
    std::memset(stat, 0, sizeof(STATSTG));
    stat->type = STGTY_STREAM;
    stat->cbSize.QuadPart = data_.size();
    stat->grfMode = STGM_READ;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Clone(IStream** out) override {
    if (!out) return STG_E_INVALIDPOINTER;
    auto* copy = new PropStream(data_);
    copy->pos_ = pos_;
    *out = copy;
    return S_OK;
  }

 private:
  bool answers(REFIID iid) const override {
    return iid == IID_IStream || iid == IID_ISequentialStream;
  }
  const char* interfaceName() const override { return "IStream"; }
  Bytes data_;
  size_t pos_ = 0;
};

// The bytes a stream on `prop` opened as `type` reads: UTF-16LE text,
// 8-bit (UTF-8) text or raw binary.
Bytes streamBytes(const Prop& prop, ULONG type, bool terminator) {
  Bytes out;
  const ULONG have = prop.type();
  if (type == PT_UNICODE) {
    const std::u16string text = have == PT_BINARY ? fromUtf8(prop.str()) : textOf(prop);
    for (char16_t c : text) {
      out.push_back(static_cast<uint8_t>(c & 0xFF));
      out.push_back(static_cast<uint8_t>(c >> 8));
    }
    if (terminator) out.insert(out.end(), {0, 0});
    return out;
  }
  if (have == PT_BINARY) return prop.bin();
  const std::string text = have == PT_UNICODE ? utf8Of(prop) : prop.str();
  out.assign(text.begin(), text.end());
  if (terminator && type == PT_STRING8) out.push_back(0);
  return out;
}

// ---- IMAPIProp for every object --------------------------------------------------
template <class Iface>
class PropObject : public ComBase<Iface> {
 public:
  MAPIMETHOD(GetLastError)(HRESULT, ULONG, LPMAPIERROR* lppMAPIError) override {
    if (!lppMAPIError) return MAPI_E_INVALID_PARAMETER;
    *lppMAPIError = nullptr;
    return S_OK;
  }
  MAPIMETHOD(SaveChanges)(ULONG) override {
    PIM_FAULT("SaveChanges");
    return S_OK;
  }
  MAPIMETHOD(GetProps)
  (LPSPropTagArray lpPropTagArray, ULONG, ULONG* lpcValues, LPSPropValue* lppPropArray) override {
    PIM_FAULT("GetProps");
    if (!lpcValues || !lppPropArray) return MAPI_E_INVALID_PARAMETER;
    *lpcValues = 0;
    *lppPropArray = nullptr;
    Lock lock(profile_->mutex());
    const PropList all = props();
    std::vector<ULONG> tags;
    if (lpPropTagArray) {
      if (lpPropTagArray->cValues == 0) return MAPI_E_INVALID_PARAMETER;
      tags.assign(lpPropTagArray->aulPropTag, lpPropTagArray->aulPropTag + lpPropTagArray->cValues);
    } else {
      for (const Prop& p : all.all())
        if (p.type() != PT_OBJECT) tags.push_back(CHANGE_PROP_TYPE(p.tag, PT_UNSPECIFIED));
    }
    MapiBuffer<SPropValue> values;
    HRESULT hr = MAPIAllocateBuffer(
        static_cast<ULONG>(sizeof(SPropValue) * std::max<size_t>(1, tags.size())),
        values.putVoid());
    if (FAILED(hr)) return hr;
    const DeliverOptions options = deliverOptions();
    bool anyError = false;
    for (size_t i = 0; i < tags.size(); ++i) {
      bool isError = false;
      hr = deliver(all.find(PROP_ID(tags[i])), tags[i], values.get(), values.get()[i], options,
                   isError);
      if (FAILED(hr)) return hr;
      anyError = anyError || isError;
    }
    *lpcValues = static_cast<ULONG>(tags.size());
    *lppPropArray = values.detach();
    return anyError ? MAPI_W_ERRORS_RETURNED : S_OK;
  }
  MAPIMETHOD(GetPropList)(ULONG, LPSPropTagArray* lppPropTagArray) override {
    PIM_FAULT("GetPropList");
    if (!lppPropTagArray) return MAPI_E_INVALID_PARAMETER;
    Lock lock(profile_->mutex());
    const PropList all = props();
    MapiBuffer<SPropTagArray> tags;
    HRESULT hr = MAPIAllocateBuffer(static_cast<ULONG>(CbNewSPropTagArray(all.all().size())),
                                    tags.putVoid());
    if (FAILED(hr)) return hr;
    tags->cValues = 0;
    for (const Prop& p : all.all()) tags->aulPropTag[tags->cValues++] = p.tag;
    *lppPropTagArray = tags.detach();
    return S_OK;
  }
  MAPIMETHOD(OpenProperty)
  (ULONG ulPropTag, LPCIID lpiid, ULONG, ULONG, LPUNKNOWN* lppUnk) override {
    PIM_FAULT("OpenProperty");
    if (!lpiid || !lppUnk) return MAPI_E_INVALID_PARAMETER;
    *lppUnk = nullptr;
    if (PROP_TYPE(ulPropTag) == PT_OBJECT) return openObject(ulPropTag, *lpiid, lppUnk);
    if (*lpiid != IID_IStream && *lpiid != IID_ISequentialStream)
      return MAPI_E_INTERFACE_NOT_SUPPORTED;
    Lock lock(profile_->mutex());
    Bytes bytes;
    if (!streamFor(ulPropTag, bytes)) return MAPI_E_NOT_FOUND;
    *lppUnk = static_cast<IStream*>(new PropStream(std::move(bytes)));
    return S_OK;
  }
  MAPIMETHOD(SetProps)(ULONG, LPSPropValue, LPSPropProblemArray*) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(DeleteProps)(LPSPropTagArray, LPSPropProblemArray*) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(CopyTo)
  (ULONG, LPCIID, LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
   LPSPropProblemArray*) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(CopyProps)
  (LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG, LPSPropProblemArray*) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(GetNamesFromIDs)(LPSPropTagArray*, LPGUID, ULONG, ULONG*, LPMAPINAMEID**) override {
    return MAPI_E_NO_SUPPORT;
  }
  // Names are looked up in the object's store. Without MAPI_CREATE an
  // unknown name comes back as PROP_TAG(PT_ERROR, 0) and the call answers
  // MAPI_W_ERRORS_RETURNED; PS_MAPI ids are property ids themselves.
  MAPIMETHOD(GetIDsFromNames)
  (ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
   LPSPropTagArray* lppPropTags) override {
    PIM_FAULT("GetIDsFromNames");
    if (!lppPropTags) return MAPI_E_INVALID_PARAMETER;
    *lppPropTags = nullptr;
    if (store_ == kNoStore) return MAPI_E_NO_SUPPORT;
    if (cPropNames == 0 || !lppPropNames) return MAPI_E_INVALID_PARAMETER;
    Lock lock(profile_->mutex());
    Store* store = profile_->storeAt(store_);
    if (!store) return MAPI_E_CALL_FAILED;
    MapiBuffer<SPropTagArray> tags;
    HRESULT hr =
        MAPIAllocateBuffer(static_cast<ULONG>(CbNewSPropTagArray(cPropNames)), tags.putVoid());
    if (FAILED(hr)) return hr;
    tags->cValues = cPropNames;
    bool anyError = false;
    for (ULONG i = 0; i < cPropNames; ++i) {
      const MAPINAMEID* n = lppPropNames[i];
      ULONG id = 0;
      if (n && n->lpguid &&
          (n->ulKind == MNID_ID || (n->ulKind == MNID_STRING && n->Kind.lpwstrName))) {
        PropName name;
        name.set = *n->lpguid;
        name.kind = n->ulKind;
        if (n->ulKind == MNID_ID)
          name.id = n->Kind.lID;
        else
          name.name = u16FromMapi(n->Kind.lpwstrName);
        if (name.kind == MNID_ID && name.set == PS_MAPI) {
          id = static_cast<ULONG>(name.id) & 0xFFFF;
        } else if (auto it = store->names.find(name); it != store->names.end()) {
          id = it->second;
        } else if (ulFlags & MAPI_CREATE) {
          id = profile_->namedPropId(store_, name);
        }
      }
      tags->aulPropTag[i] = id ? PROP_TAG(PT_UNSPECIFIED, id) : PROP_TAG(PT_ERROR, 0);
      anyError = anyError || id == 0;
    }
    *lppPropTags = tags.detach();
    return anyError ? MAPI_W_ERRORS_RETURNED : S_OK;
  }

 protected:
  static constexpr size_t kNoStore = static_cast<size_t>(-1);
  PropObject(std::shared_ptr<Profile> profile, size_t store, const char* name)
      : profile_(std::move(profile)), store_(store), name_(name) {}

  const char* interfaceName() const override { return name_; }
  // The object's properties, computed under the profile's lock.
  virtual PropList props() = 0;
  virtual HRESULT openObject(ULONG, REFIID, LPUNKNOWN*) { return MAPI_E_NO_SUPPORT; }
  // The bytes of a property opened as a stream; false when absent.
  virtual bool streamFor(ULONG tag, Bytes& out) {
    const PropList all = props();
    const Prop* p = all.find(PROP_ID(tag));
    if (!p || p->type() == PT_ERROR) return false;
    const ULONG t = p->type();
    if (t != PT_UNICODE && t != PT_STRING8 && t != PT_BINARY) return false;
    Store* store = profile_->storeAt(store_);
    out = streamBytes(*p, PROP_TYPE(tag), store && store->options.streamTerminator);
    return true;
  }
  DeliverOptions deliverOptions() {
    DeliverOptions options;
    if (Store* store = profile_->storeAt(store_)) {
      options.unicode = store->options.unicode;
      options.byteLimit = store->options.getPropsByteLimit;
    }
    return options;
  }

  std::shared_ptr<Profile> profile_;
  size_t store_;
  const char* name_;
};

IMAPIFolder* newFolder(std::shared_ptr<Profile> profile, size_t store, std::shared_ptr<Folder> f);
IMessage* newMessage(std::shared_ptr<Profile> profile, size_t store, std::shared_ptr<Item> item);
IMsgStore* newMsgStore(std::shared_ptr<Profile> profile, size_t store);
IMailUser* newMailUser(std::shared_ptr<Profile> profile, uint32_t index);

// Opens an entry id of `store` (an empty id: the root folder). Under no lock.
HRESULT openInStore(const std::shared_ptr<Profile>& profile, size_t store, ULONG cbEntryID,
                    LPENTRYID lpEntryID, LPCIID lpInterface, ULONG* lpulObjType,
                    LPUNKNOWN* lppUnk) {
  if (!lppUnk || !lpulObjType) return MAPI_E_INVALID_PARAMETER;
  *lppUnk = nullptr;
  ComPtr<IUnknown> object;
  ULONG type = 0;
  {
    Lock lock(profile->mutex());
    Store* s = profile->storeAt(store);
    if (!s) return MAPI_E_CALL_FAILED;
    uint32_t nid = s->root->nid;
    if (cbEntryID) {
      if (!lpEntryID) return MAPI_E_INVALID_PARAMETER;
      const ParsedId id = parseEntryId(reinterpret_cast<const uint8_t*>(lpEntryID), cbEntryID);
      if (id.kind != IdKind::Object || id.storeUid != s->uid) return MAPI_E_INVALID_ENTRYID;
      if (id.shortTerm && id.session != profile->sessionNumber()) return MAPI_E_INVALID_ENTRYID;
      nid = id.nid;
    }
    if (auto f = profile->folder(store, nid)) {
      object.reset(newFolder(profile, store, f));
      type = MAPI_FOLDER;
    } else if (auto it = profile->item(store, nid)) {
      object.reset(newMessage(profile, store, it));
      type = MAPI_MESSAGE;
    } else {
      return MAPI_E_NOT_FOUND;
    }
  }
  if (lpInterface) {
    ComPtr<IUnknown> asked;
    if (FAILED(object->QueryInterface(*lpInterface, asked.putVoid())))
      return MAPI_E_INTERFACE_NOT_SUPPORTED;
    object = std::move(asked);
  }
  *lpulObjType = type;
  *lppUnk = object.detach();
  return S_OK;
}

HRESULT compareIds(ULONG cb1, LPENTRYID id1, ULONG cb2, LPENTRYID id2, ULONG* result) {
  if (!result || (cb1 && !id1) || (cb2 && !id2)) return MAPI_E_INVALID_PARAMETER;
  const ParsedId a = parseEntryId(reinterpret_cast<const uint8_t*>(id1), cb1);
  const ParsedId b = parseEntryId(reinterpret_cast<const uint8_t*>(id2), cb2);
  if (a.kind == IdKind::Invalid || b.kind == IdKind::Invalid) return MAPI_E_UNKNOWN_ENTRYID;
  *result = a.kind == b.kind && a.storeUid == b.storeUid && a.nid == b.nid && a.index == b.index;
  return S_OK;
}

// ---- Message store ------------------------------------------------------------------
class MsgStoreImpl final : public PropObject<IMsgStore> {
 public:
  MsgStoreImpl(std::shared_ptr<Profile> profile, size_t store)
      : PropObject(std::move(profile), store, "IMsgStore") {}

  MAPIMETHOD(Advise)(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG*) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(Unadvise)(ULONG) override { return MAPI_E_NO_SUPPORT; }
  MAPIMETHOD(CompareEntryIDs)
  (ULONG cb1, LPENTRYID id1, ULONG cb2, LPENTRYID id2, ULONG, ULONG* result) override {
    PIM_FAULT("CompareEntryIDs");
    return compareIds(cb1, id1, cb2, id2, result);
  }
  MAPIMETHOD(OpenEntry)
  (ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG, ULONG* lpulObjType,
   LPUNKNOWN* lppUnk) override {
    PIM_FAULT("OpenEntry");
    return openInStore(profile_, store_, cbEntryID, lpEntryID, lpInterface, lpulObjType, lppUnk);
  }
  MAPIMETHOD(SetReceiveFolder)(LPTSTR, ULONG, ULONG, LPENTRYID) override {
    return MAPI_E_NO_SUPPORT;
  }
  // The folder of the longest prefix of the message class that has one
  // ("IPM.Note.X" -> "IPM.Note" -> "IPM" -> the default).
  MAPIMETHOD(GetReceiveFolder)
  (LPTSTR lpszMessageClass, ULONG ulFlags, ULONG* lpcbEntryID, LPENTRYID* lppEntryID,
   LPTSTR* lppszExplicitClass) override {
    PIM_FAULT("GetReceiveFolder");
    if (!lpcbEntryID || !lppEntryID) return MAPI_E_INVALID_PARAMETER;
    *lpcbEntryID = 0;
    *lppEntryID = nullptr;
    if (lppszExplicitClass) *lppszExplicitClass = nullptr;
    std::string wanted;
    if (lpszMessageClass) {
      if (ulFlags & MAPI_UNICODE)
        wanted = toUtf8(u16FromMapi(reinterpret_cast<const WCHAR*>(lpszMessageClass)));
      else
        wanted = reinterpret_cast<const char*>(lpszMessageClass);
    }
    Lock lock(profile_->mutex());
    Store* s = profile_->storeAt(store_);
    if (!s) return MAPI_E_CALL_FAILED;
    uint32_t nid = 0;
    std::string found = wanted;
    while (!found.empty()) {
      auto it = s->receiveFolders.find(found);
      if (it != s->receiveFolders.end()) {
        nid = it->second;
        break;
      }
      const size_t dot = found.rfind('.');
      found = dot == std::string::npos ? std::string() : found.substr(0, dot);
    }
    if (!nid) nid = s->receiveFolder;
    if (!nid) return MAPI_E_NOT_FOUND;
    const Bytes id = objectEntryId(s->uid, nid);
    MapiBuffer<ENTRYID> out;
    HRESULT hr = MAPIAllocateBuffer(static_cast<ULONG>(id.size()), out.putVoid());
    if (FAILED(hr)) return hr;
    std::memcpy(out.get(), id.data(), id.size());
    if (lppszExplicitClass) {
      void* text = nullptr;
      if (ulFlags & MAPI_UNICODE) {
        const std::u16string wide = fromUtf8(found);
        if (FAILED(hr = MAPIAllocateBuffer(static_cast<ULONG>((wide.size() + 1) * sizeof(WCHAR)),
                                           &text)))
          return hr;
        auto* w = static_cast<WCHAR*>(text);
        for (size_t i = 0; i < wide.size(); ++i) w[i] = static_cast<WCHAR>(wide[i]);
        w[wide.size()] = 0;
      } else {
        if (FAILED(hr = MAPIAllocateBuffer(static_cast<ULONG>(found.size() + 1), &text))) return hr;
        std::memcpy(text, found.c_str(), found.size() + 1);
      }
      *lppszExplicitClass = static_cast<LPTSTR>(text);
    }
    *lpcbEntryID = static_cast<ULONG>(id.size());
    *lppEntryID = out.detach();
    return S_OK;
  }
  MAPIMETHOD(GetReceiveFolderTable)(ULONG, LPMAPITABLE*) override { return MAPI_E_NO_SUPPORT; }
  MAPIMETHOD(StoreLogoff)(ULONG*) override { return S_OK; }
  MAPIMETHOD(AbortSubmit)(ULONG, LPENTRYID, ULONG) override { return MAPI_E_NO_SUPPORT; }
  MAPIMETHOD(GetOutgoingQueue)(ULONG, LPMAPITABLE*) override { return MAPI_E_NO_SUPPORT; }
  MAPIMETHOD(SetLockState)(LPMESSAGE, ULONG) override { return MAPI_E_NO_SUPPORT; }
  MAPIMETHOD(FinishedMsg)(ULONG, ULONG, LPENTRYID) override { return MAPI_E_NO_SUPPORT; }
  MAPIMETHOD(NotifyNewMail)(LPNOTIFICATION) override { return MAPI_E_NO_SUPPORT; }

 private:
  bool answers(REFIID iid) const override { return anyOf(iid, {&IID_IMsgStore, &IID_IMAPIProp}); }
  PropList props() override { return profile_->storeProps(store_); }
};

// ---- Folder -----------------------------------------------------------------------------
class FolderImpl final : public PropObject<IMAPIFolder> {
 public:
  FolderImpl(std::shared_ptr<Profile> profile, size_t store, std::shared_ptr<Folder> f)
      : PropObject(std::move(profile), store, "IMAPIFolder"), folder_(std::move(f)) {}

  MAPIMETHOD(GetContentsTable)(ULONG ulFlags, LPMAPITABLE* lppTable) override {
    PIM_FAULT("GetContentsTable");
    if (!lppTable) return MAPI_E_INVALID_PARAMETER;
    TableSource source;
    source.kind =
        (ulFlags & MAPI_ASSOCIATED) ? TableSource::Kind::Associated : TableSource::Kind::Contents;
    source.store = store_;
    source.folder = folder_->nid;
    *lppTable = TableImpl::create(profile_, source);
    return S_OK;
  }
  MAPIMETHOD(GetHierarchyTable)(ULONG ulFlags, LPMAPITABLE* lppTable) override {
    PIM_FAULT("GetHierarchyTable");
    if (!lppTable) return MAPI_E_INVALID_PARAMETER;
    TableSource source;
    source.kind = (ulFlags & CONVENIENT_DEPTH) ? TableSource::Kind::DeepHierarchy
                                               : TableSource::Kind::Hierarchy;
    source.store = store_;
    source.folder = folder_->nid;
    *lppTable = TableImpl::create(profile_, source);
    return S_OK;
  }
  MAPIMETHOD(OpenEntry)
  (ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG, ULONG* lpulObjType,
   LPUNKNOWN* lppUnk) override {
    PIM_FAULT("OpenEntry");
    return openInStore(profile_, store_, cbEntryID, lpEntryID, lpInterface, lpulObjType, lppUnk);
  }
  MAPIMETHOD(SetSearchCriteria)(LPSRestriction, LPENTRYLIST, ULONG) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(GetSearchCriteria)(ULONG, LPSRestriction*, LPENTRYLIST*, ULONG*) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(CreateMessage)(LPCIID, ULONG, LPMESSAGE*) override { return MAPI_E_NO_SUPPORT; }
  MAPIMETHOD(CopyMessages)(LPENTRYLIST, LPCIID, LPVOID, ULONG, LPMAPIPROGRESS, ULONG) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(DeleteMessages)(LPENTRYLIST, ULONG, LPMAPIPROGRESS, ULONG) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(CreateFolder)(ULONG, LPTSTR, LPTSTR, LPCIID, ULONG, LPMAPIFOLDER*) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(CopyFolder)
  (ULONG, LPENTRYID, LPCIID, LPVOID, LPTSTR, ULONG, LPMAPIPROGRESS, ULONG) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(DeleteFolder)(ULONG, LPENTRYID, ULONG, LPMAPIPROGRESS, ULONG) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(SetReadFlags)(LPENTRYLIST, ULONG, LPMAPIPROGRESS, ULONG) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(GetMessageStatus)(ULONG, LPENTRYID, ULONG, ULONG*) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(SetMessageStatus)(ULONG, LPENTRYID, ULONG, ULONG, ULONG*) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(SaveContentsSort)(LPSSortOrderSet, ULONG) override { return MAPI_E_NO_SUPPORT; }
  MAPIMETHOD(EmptyFolder)(ULONG, LPMAPIPROGRESS, ULONG) override { return MAPI_E_NO_SUPPORT; }

 private:
  bool answers(REFIID iid) const override {
    return anyOf(iid, {&IID_IMAPIFolder, &IID_IMAPIContainer, &IID_IMAPIProp});
  }
  PropList props() override { return profile_->folderProps(store_, *folder_, false); }
  std::shared_ptr<Folder> folder_;
};

// ---- Attachment ---------------------------------------------------------------------
class AttachImpl final : public PropObject<IAttach> {
 public:
  AttachImpl(std::shared_ptr<Profile> profile, size_t store, std::shared_ptr<Item> owner, ULONG num)
      : PropObject(std::move(profile), store, "IAttach"), owner_(std::move(owner)), num_(num) {}

 private:
  bool answers(REFIID iid) const override { return anyOf(iid, {&IID_IAttachment, &IID_IMAPIProp}); }
  const Attachment* attachment() const {
    for (const Attachment& a : owner_->attachments)
      if (a.num == num_) return &a;
    return nullptr;
  }
  PropList props() override {
    const Attachment* a = attachment();
    return a ? profile_->attachmentProps(*a) : PropList();
  }
  bool streamFor(ULONG tag, Bytes& out) override {
    const Attachment* a = attachment();
    if (a && tag == PR_ATTACH_DATA_BIN && !a->embedded) {
      out = a->data;
      return true;
    }
    return PropObject::streamFor(tag, out);
  }
  HRESULT openObject(ULONG tag, REFIID iid, LPUNKNOWN* out) override {
    if (tag != PR_ATTACH_DATA_OBJ) return MAPI_E_NOT_FOUND;
    if (iid != IID_IMessage && iid != IID_IMAPIProp && iid != IID_IUnknown)
      return MAPI_E_INTERFACE_NOT_SUPPORTED;
    Lock lock(profile_->mutex());
    const Attachment* a = attachment();
    if (!a || !a->embedded) return MAPI_E_NOT_FOUND;
    *out = newMessage(profile_, store_, a->embedded);
    return S_OK;
  }
  std::shared_ptr<Item> owner_;
  ULONG num_;
};

// ---- Message ------------------------------------------------------------------------
class MessageImpl final : public PropObject<IMessage> {
 public:
  MessageImpl(std::shared_ptr<Profile> profile, size_t store, std::shared_ptr<Item> item)
      : PropObject(std::move(profile), store, "IMessage"), item_(std::move(item)) {}

  MAPIMETHOD(GetAttachmentTable)(ULONG, LPMAPITABLE* lppTable) override {
    PIM_FAULT("GetAttachmentTable");
    return table(TableSource::Kind::Attachments, lppTable);
  }
  MAPIMETHOD(OpenAttach)
  (ULONG ulAttachmentNum, LPCIID lpInterface, ULONG, LPATTACH* lppAttach) override {
    PIM_FAULT("OpenAttach");
    if (!lppAttach) return MAPI_E_INVALID_PARAMETER;
    *lppAttach = nullptr;
    if (lpInterface && *lpInterface != IID_IAttachment && *lpInterface != IID_IMAPIProp &&
        *lpInterface != IID_IUnknown)
      return MAPI_E_INTERFACE_NOT_SUPPORTED;
    Lock lock(profile_->mutex());
    for (const Attachment& a : item_->attachments) {
      if (a.num == ulAttachmentNum) {
        *lppAttach = new AttachImpl(profile_, store_, item_, a.num);
        return S_OK;
      }
    }
    return MAPI_E_NOT_FOUND;
  }
  MAPIMETHOD(CreateAttach)(LPCIID, ULONG, ULONG*, LPATTACH*) override { return MAPI_E_NO_SUPPORT; }
  MAPIMETHOD(DeleteAttach)(ULONG, ULONG, LPMAPIPROGRESS, ULONG) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(GetRecipientTable)(ULONG, LPMAPITABLE* lppTable) override {
    PIM_FAULT("GetRecipientTable");
    return table(TableSource::Kind::Recipients, lppTable);
  }
  MAPIMETHOD(ModifyRecipients)(ULONG, LPADRLIST) override { return MAPI_E_NO_SUPPORT; }
  MAPIMETHOD(SubmitMessage)(ULONG) override { return MAPI_E_NO_SUPPORT; }
  MAPIMETHOD(SetReadFlag)(ULONG) override { return S_OK; }

 private:
  bool answers(REFIID iid) const override { return anyOf(iid, {&IID_IMessage, &IID_IMAPIProp}); }
  PropList props() override { return profile_->itemProps(store_, *item_, false); }
  HRESULT table(TableSource::Kind kind, LPMAPITABLE* out) {
    if (!out) return MAPI_E_INVALID_PARAMETER;
    TableSource source;
    source.kind = kind;
    source.store = store_;
    source.item = item_;
    *out = TableImpl::create(profile_, source);
    return S_OK;
  }
  HRESULT openObject(ULONG tag, REFIID iid, LPUNKNOWN* out) override {
    if (tag != PR_MESSAGE_ATTACHMENTS && tag != PR_MESSAGE_RECIPIENTS) return MAPI_E_NOT_FOUND;
    if (iid != IID_IMAPITable) return MAPI_E_INTERFACE_NOT_SUPPORTED;
    LPMAPITABLE t = nullptr;
    HRESULT hr = table(tag == PR_MESSAGE_ATTACHMENTS ? TableSource::Kind::Attachments
                                                     : TableSource::Kind::Recipients,
                       &t);
    *out = t;
    return hr;
  }
  std::shared_ptr<Item> item_;
};

// ---- Mail user ---------------------------------------------------------------------
class MailUserImpl final : public PropObject<IMailUser> {
 public:
  // An address-book entry.
  MailUserImpl(std::shared_ptr<Profile> profile, uint32_t index)
      : PropObject(std::move(profile), kNoStore, "IMailUser"), index_(index) {}
  // A one-off recipient: everything it has is in its entry id.
  MailUserImpl(std::shared_ptr<Profile> profile, PropList fixed)
      : PropObject(std::move(profile), kNoStore, "IMailUser"), fixed_(std::move(fixed)) {}

 private:
  bool answers(REFIID iid) const override { return anyOf(iid, {&IID_IMailUser, &IID_IMAPIProp}); }
  PropList props() override { return index_ ? profile_->abProps(*index_) : fixed_; }
  std::optional<uint32_t> index_;
  PropList fixed_;
};

PropList oneOffProps(const Bytes& id, const OneOffEntryId& entry) {
  PropList props;
  props.set(Prop::ofBinary(PR_ENTRYID, id));
  props.set(Prop::ofLong(PR_OBJECT_TYPE, MAPI_MAILUSER));
  props.set(Prop::ofLong(PR_DISPLAY_TYPE, 0));
  props.set(Prop::ofText(PR_DISPLAY_NAME_W, entry.displayName));
  props.set(Prop::ofText(PR_ADDRTYPE_W, entry.addressType));
  props.set(Prop::ofText(PR_EMAIL_ADDRESS_W, entry.address));
  if (entry.addressType == u"SMTP") props.set(Prop::ofText(PR_SMTP_ADDRESS_W, entry.address));
  return props;
}

// ---- Session ---------------------------------------------------------------------------
class SessionImpl final : public ComBase<IMAPISession> {
 public:
  explicit SessionImpl(std::shared_ptr<Profile> profile) : profile_(std::move(profile)) {}

  MAPIMETHOD(GetLastError)(HRESULT, ULONG, LPMAPIERROR* lppMAPIError) override {
    if (!lppMAPIError) return MAPI_E_INVALID_PARAMETER;
    *lppMAPIError = nullptr;
    return S_OK;
  }
  MAPIMETHOD(GetMsgStoresTable)(ULONG, LPMAPITABLE* lppTable) override {
    PIM_FAULT("GetMsgStoresTable");
    if (!lppTable) return MAPI_E_INVALID_PARAMETER;
    TableSource source;
    source.kind = TableSource::Kind::Stores;
    *lppTable = TableImpl::create(profile_, source);
    return S_OK;
  }
  MAPIMETHOD(OpenMsgStore)
  (ULONG_PTR, ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG,
   LPMDB* lppMDB) override {
    PIM_FAULT("OpenMsgStore");
    if (!lppMDB || !lpEntryID) return MAPI_E_INVALID_PARAMETER;
    *lppMDB = nullptr;
    if (lpInterface && *lpInterface != IID_IMsgStore && *lpInterface != IID_IMAPIProp &&
        *lpInterface != IID_IUnknown)
      return MAPI_E_INTERFACE_NOT_SUPPORTED;
    const ParsedId id = parseEntryId(reinterpret_cast<const uint8_t*>(lpEntryID), cbEntryID);
    if (id.kind != IdKind::Store) return MAPI_E_INVALID_ENTRYID;
    Lock lock(profile_->mutex());
    size_t index = 0;
    if (!profile_->storeByUid(id.storeUid, &index)) return MAPI_E_NOT_FOUND;
    *lppMDB = newMsgStore(profile_, index);
    return S_OK;
  }
  MAPIMETHOD(OpenAddressBook)(ULONG_PTR, LPCIID, ULONG, LPADRBOOK*) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(OpenProfileSection)(LPMAPIUID, LPCIID, ULONG, LPPROFSECT*) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(GetStatusTable)(ULONG, LPMAPITABLE*) override { return MAPI_E_NO_SUPPORT; }
  // Address-book entries and one-off ids open as mail users; store objects
  // through their store.
  MAPIMETHOD(OpenEntry)
  (ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
   LPUNKNOWN* lppUnk) override {
    PIM_FAULT("OpenEntry");
    if (!lppUnk || !lpulObjType || !lpEntryID || !cbEntryID) return MAPI_E_INVALID_PARAMETER;
    *lppUnk = nullptr;
    const ParsedId id = parseEntryId(reinterpret_cast<const uint8_t*>(lpEntryID), cbEntryID);
    switch (id.kind) {
      case IdKind::AddressBook: {
        if (lpInterface && *lpInterface != IID_IMailUser && *lpInterface != IID_IMAPIProp &&
            *lpInterface != IID_IUnknown)
          return MAPI_E_INTERFACE_NOT_SUPPORTED;
        Lock lock(profile_->mutex());
        if (!profile_->abEntry(id.index)) return MAPI_E_NOT_FOUND;
        *lpulObjType = MAPI_MAILUSER;
        *lppUnk = newMailUser(profile_, id.index);
        return S_OK;
      }
      case IdKind::OneOff: {
        OneOffEntryId entry;
        const auto* bytes = reinterpret_cast<const uint8_t*>(lpEntryID);
        if (!decodeOneOffEntryId(bytes, cbEntryID, entry)) return MAPI_E_INVALID_ENTRYID;
        if (lpInterface && *lpInterface != IID_IMailUser && *lpInterface != IID_IMAPIProp &&
            *lpInterface != IID_IUnknown)
          return MAPI_E_INTERFACE_NOT_SUPPORTED;
        *lpulObjType = MAPI_MAILUSER;
        *lppUnk = new MailUserImpl(profile_, oneOffProps(Bytes(bytes, bytes + cbEntryID), entry));
        return S_OK;
      }
      case IdKind::Object: {
        size_t index = 0;
        {
          Lock lock(profile_->mutex());
          if (!profile_->storeByUid(id.storeUid, &index)) return MAPI_E_NOT_FOUND;
        }
        return openInStore(profile_, index, cbEntryID, lpEntryID, lpInterface, lpulObjType, lppUnk);
      }
      case IdKind::Store: {
        LPMDB store = nullptr;
        HRESULT hr = OpenMsgStore(0, cbEntryID, lpEntryID, lpInterface, ulFlags, &store);
        if (SUCCEEDED(hr)) {
          *lpulObjType = MAPI_STORE;
          *lppUnk = store;
        }
        return hr;
      }
      default:
        return MAPI_E_UNKNOWN_ENTRYID;
    }
  }
  MAPIMETHOD(CompareEntryIDs)
  (ULONG cb1, LPENTRYID id1, ULONG cb2, LPENTRYID id2, ULONG, ULONG* result) override {
    PIM_FAULT("CompareEntryIDs");
    return compareIds(cb1, id1, cb2, id2, result);
  }
  MAPIMETHOD(Advise)(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG*) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(Unadvise)(ULONG) override { return MAPI_E_NO_SUPPORT; }
  MAPIMETHOD(MessageOptions)(ULONG_PTR, ULONG, LPTSTR, LPMESSAGE) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(QueryDefaultMessageOpt)(LPTSTR, ULONG, ULONG*, LPSPropValue*) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(EnumAdrTypes)(ULONG, ULONG*, LPTSTR**) override { return MAPI_E_NO_SUPPORT; }
  MAPIMETHOD(QueryIdentity)(ULONG*, LPENTRYID*) override { return MAPI_E_NO_SUPPORT; }
  MAPIMETHOD(Logoff)(ULONG_PTR, ULONG, ULONG) override { return S_OK; }
  MAPIMETHOD(SetDefaultStore)(ULONG, ULONG, LPENTRYID) override { return MAPI_E_NO_SUPPORT; }
  MAPIMETHOD(AdminServices)(ULONG, LPSERVICEADMIN*) override { return MAPI_E_NO_SUPPORT; }
  MAPIMETHOD(ShowForm)
  (ULONG_PTR, LPMDB, LPMAPIFOLDER, LPCIID, ULONG, LPMESSAGE, ULONG, ULONG, ULONG, ULONG,
   LPSTR) override {
    return MAPI_E_NO_SUPPORT;
  }
  MAPIMETHOD(PrepareForm)(LPCIID, LPMESSAGE, ULONG*) override { return MAPI_E_NO_SUPPORT; }

 private:
  bool answers(REFIID iid) const override { return iid == IID_IMAPISession; }
  const char* interfaceName() const override { return name_; }
  std::shared_ptr<Profile> profile_;
  const char* name_ = "IMAPISession";
};

IMAPIFolder* newFolder(std::shared_ptr<Profile> profile, size_t store, std::shared_ptr<Folder> f) {
  return new FolderImpl(std::move(profile), store, std::move(f));
}
IMessage* newMessage(std::shared_ptr<Profile> profile, size_t store, std::shared_ptr<Item> item) {
  return new MessageImpl(std::move(profile), store, std::move(item));
}
IMsgStore* newMsgStore(std::shared_ptr<Profile> profile, size_t store) {
  return new MsgStoreImpl(std::move(profile), store);
}
IMailUser* newMailUser(std::shared_ptr<Profile> profile, uint32_t index) {
  return new MailUserImpl(std::move(profile), index);
}

}  // namespace

IMAPISession* newSession(std::shared_ptr<Profile> profile) {
  return new SessionImpl(std::move(profile));
}

}  // namespace PIM::store

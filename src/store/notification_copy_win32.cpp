#include "store/notification_copy.h"

#include <cstring>
#include <cwchar>

#include "mapi/mapi_ptr.h"

namespace PIM::store {
namespace {

// Hangs copies off one root buffer. The first failure sticks: later calls
// do nothing, and the caller checks `hr` once at the end.
class Copier {
 public:
  explicit Copier(void* root) : root_(root) {}

  HRESULT hr = S_OK;

  // `bytes` bytes of `from` (null stays null).
  template <class T>
  T* block(const void* from, size_t bytes) {
    if (!from || FAILED(hr)) return nullptr;
    void* to = nullptr;
    hr = MAPIAllocateMore(static_cast<ULONG>(bytes == 0 ? 1 : bytes), root_, &to);
    if (FAILED(hr)) return nullptr;
    if (bytes) std::memcpy(to, from, bytes);
    return static_cast<T*>(to);
  }
  template <class T>
  T* array(const T* from, ULONG count) {
    return block<T>(from, sizeof(T) * count);
  }
  LPSTR text(const char* from) { return from ? block<char>(from, std::strlen(from) + 1) : nullptr; }
  LPWSTR text(const wchar_t* from) {
    return from ? block<wchar_t>(from, sizeof(wchar_t) * (std::wcslen(from) + 1)) : nullptr;
  }
  LPENTRYID entryId(ULONG cb, const ENTRYID* from) { return block<ENTRYID>(from, cb); }
  LPSPropTagArray tags(const SPropTagArray* from) {
    return from ? block<SPropTagArray>(from, CbSPropTagArray(from)) : nullptr;
  }

  void value(SPropValue& v) {
    ULONG type = PROP_TYPE(v.ulPropTag);
    // A row of a table shown per value carries one value of the type.
    if (type & MV_INSTANCE) type &= ~(MV_INSTANCE | MV_FLAG);
    switch (type) {
      case PT_STRING8:
        v.Value.lpszA = text(v.Value.lpszA);
        break;
      case PT_UNICODE:
        v.Value.lpszW = text(v.Value.lpszW);
        break;
      case PT_BINARY:
        v.Value.bin.lpb = block<BYTE>(v.Value.bin.lpb, v.Value.bin.cb);
        break;
      case PT_CLSID:
        v.Value.lpguid = array(v.Value.lpguid, 1);
        break;
      case PT_MV_I2:
        v.Value.MVi.lpi = array(v.Value.MVi.lpi, v.Value.MVi.cValues);
        break;
      case PT_MV_LONG:
        v.Value.MVl.lpl = array(v.Value.MVl.lpl, v.Value.MVl.cValues);
        break;
      case PT_MV_R4:
        v.Value.MVflt.lpflt = array(v.Value.MVflt.lpflt, v.Value.MVflt.cValues);
        break;
      case PT_MV_DOUBLE:
        v.Value.MVdbl.lpdbl = array(v.Value.MVdbl.lpdbl, v.Value.MVdbl.cValues);
        break;
      case PT_MV_CURRENCY:
        v.Value.MVcur.lpcur = array(v.Value.MVcur.lpcur, v.Value.MVcur.cValues);
        break;
      case PT_MV_APPTIME:
        v.Value.MVat.lpat = array(v.Value.MVat.lpat, v.Value.MVat.cValues);
        break;
      case PT_MV_SYSTIME:
        v.Value.MVft.lpft = array(v.Value.MVft.lpft, v.Value.MVft.cValues);
        break;
      case PT_MV_I8:
        v.Value.MVli.lpli = array(v.Value.MVli.lpli, v.Value.MVli.cValues);
        break;
      case PT_MV_CLSID:
        v.Value.MVguid.lpguid = array(v.Value.MVguid.lpguid, v.Value.MVguid.cValues);
        break;
      case PT_MV_STRING8: {
        auto& mv = v.Value.MVszA;
        mv.lppszA = array(mv.lppszA, mv.cValues);
        for (ULONG i = 0; mv.lppszA && i < mv.cValues; ++i) mv.lppszA[i] = text(mv.lppszA[i]);
        break;
      }
      case PT_MV_UNICODE: {
        auto& mv = v.Value.MVszW;
        mv.lppszW = array(mv.lppszW, mv.cValues);
        for (ULONG i = 0; mv.lppszW && i < mv.cValues; ++i) mv.lppszW[i] = text(mv.lppszW[i]);
        break;
      }
      case PT_MV_BINARY: {
        auto& mv = v.Value.MVbin;
        mv.lpbin = array(mv.lpbin, mv.cValues);
        for (ULONG i = 0; mv.lpbin && i < mv.cValues; ++i)
          mv.lpbin[i].lpb = block<BYTE>(mv.lpbin[i].lpb, mv.lpbin[i].cb);
        break;
      }
      default:  // the value is held in the structure itself
        break;
    }
  }
  LPSPropValue values(const SPropValue* from, ULONG count) {
    LPSPropValue to = array(from, count);
    for (ULONG i = 0; to && i < count; ++i) value(to[i]);
    return to;
  }

  // `n` is already a shallow copy; its pointers still lead into the original.
  void notification(NOTIFICATION& n) {
    switch (n.ulEventType) {
      case fnevTableModified: {
        TABLE_NOTIFICATION& tab = n.info.tab;
        value(tab.propIndex);
        value(tab.propPrior);
        tab.row.lpProps = values(tab.row.lpProps, tab.row.cValues);
        break;
      }
      case fnevObjectCreated:
      case fnevObjectDeleted:
      case fnevObjectModified:
      case fnevObjectMoved:
      case fnevObjectCopied:
      case fnevSearchComplete: {
        OBJECT_NOTIFICATION& obj = n.info.obj;
        obj.lpEntryID = entryId(obj.cbEntryID, obj.lpEntryID);
        obj.lpParentID = entryId(obj.cbParentID, obj.lpParentID);
        obj.lpOldID = entryId(obj.cbOldID, obj.lpOldID);
        obj.lpOldParentID = entryId(obj.cbOldParentID, obj.lpOldParentID);
        obj.lpPropTagArray = tags(obj.lpPropTagArray);
        break;
      }
      case fnevNewMail: {
        NEWMAIL_NOTIFICATION& mail = n.info.newmail;
        mail.lpEntryID = entryId(mail.cbEntryID, mail.lpEntryID);
        mail.lpParentID = entryId(mail.cbParentID, mail.lpParentID);
        // The flags say which width the class name has.
        void* cls = mail.lpszMessageClass;
        if (mail.ulFlags & MAPI_UNICODE)
          cls = text(static_cast<const wchar_t*>(cls));
        else
          cls = text(static_cast<const char*>(cls));
        mail.lpszMessageClass = static_cast<LPTSTR>(cls);
        break;
      }
      case fnevCriticalError:
        n.info.err.lpEntryID = entryId(n.info.err.cbEntryID, n.info.err.lpEntryID);
        n.info.err.lpMAPIError = nullptr;
        break;
      case fnevExtended:
        n.info.ext.pbEventParameters = block<BYTE>(n.info.ext.pbEventParameters, n.info.ext.cb);
        break;
      case fnevStatusObjectModified: {
        auto& status = n.info.statobj;
        status.lpEntryID = entryId(status.cbEntryID, status.lpEntryID);
        status.lpPropVals = values(status.lpPropVals, status.cValues);
        break;
      }
      default:
        break;
    }
  }

 private:
  void* root_;
};

}  // namespace

HRESULT copyNotifications(ULONG count, const NOTIFICATION* from, LPNOTIFICATION* out) {
  if (!out || (count && !from)) return MAPI_E_INVALID_PARAMETER;
  *out = nullptr;
  MapiBuffer<NOTIFICATION> copy;
  const ULONG bytes = static_cast<ULONG>(sizeof(NOTIFICATION) * (count ? count : 1));
  HRESULT hr = MAPIAllocateBuffer(bytes, copy.putVoid());
  if (FAILED(hr)) return hr;
  if (count) std::memcpy(copy.get(), from, sizeof(NOTIFICATION) * count);
  Copier copier(copy.get());
  for (ULONG i = 0; i < count && SUCCEEDED(copier.hr); ++i) copier.notification(copy.get()[i]);
  if (FAILED(copier.hr)) return copier.hr;
  *out = copy.detach();
  return S_OK;
}

}  // namespace PIM::store

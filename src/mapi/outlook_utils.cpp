#include "mapi/outlook_utils.h"

#include <exception>
#include <new>

#include "core/debug_logger.h"
#include "core/utils.h"
#include "mapi/com_error.h"
#include "mapi/mapi_properties.h"
#include "mapi/mapi_table.h"

namespace PIM::OutlookUtils {

namespace {

// The identifier in long-term form, or empty when the store cannot convert
// it: a short-term identifier must never be kept.
EntryId longTerm(EntryId id, IMsgStore* store) {
  PIM_ENTRY("PIM::OutlookUtils::longTerm");
  if (!id.isValid()) return id;
  try {
    (void)id.convertToLongTerm(store);
    return id;
  } catch (const std::exception&) {
    // convertToLongTerm has logged the failure.
    return EntryId();
  }
}

HRESULT openRootFolder(IMsgStore* store, ComPtr<IUnknown>& root) {
  ULONG type = 0;
  return store->OpenEntry(0, nullptr, nullptr, MAPI_BEST_ACCESS, &type, root.putUnknown());
}

// Every byte of a property stream. On failure `failure` tells which step
// failed, for the caller's log line.
HRESULT readStream(IUnknown* object, ULONG tag, std::string& bytes, const char*& failure) {
  if (!object) {
    failure = "Invalid object.";
    return E_INVALIDARG;
  }
  ComPtr<IMessage> message;
  HRESULT hr = object->QueryInterface(IID_IMessage, message.putVoid());
  if (FAILED(hr)) {
    failure = "Failed to get the message interface.";
    return hr;
  }
  ComPtr<IStream> stream;
  hr = message->OpenProperty(tag, &IID_IStream, STGM_READ, 0, stream.putUnknown());
  if (FAILED(hr)) {
    failure = "Failed to open the property stream.";
    return hr;
  }
  bytes.clear();
  char buffer[4096];
  for (;;) {
    ULONG got = 0;
    hr = stream->Read(buffer, sizeof buffer, &got);
    if (FAILED(hr)) {
      failure = "Failed to read the property stream.";
      return hr;
    }
    if (got == 0) break;
    bytes.append(buffer, got);
  }
  return S_OK;
}

// Stream bytes as text: UTF-16LE for Unicode tags, UTF-8 for 8-bit ones.
// Some stores end the stream with a NUL; it is not part of the text.
std::u16string streamText(ULONG tag, const std::string& bytes) {
  std::u16string text;
  if (PROP_TYPE(tag) == PT_UNICODE) {
    text.reserve(bytes.size() / 2);
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
      text += static_cast<char16_t>(static_cast<uint8_t>(bytes[i]) |
                                    (static_cast<uint8_t>(bytes[i + 1]) << 8));
    }
  } else {
    text = fromUtf8(bytes);
  }
  while (!text.empty() && text.back() == u'\0') text.pop_back();
  return text;
}

}  // namespace

EntryId getDefaultMsgStoreId(IMAPISession* session) {
  PIM_ENTRY("PIM::OutlookUtils::getDefaultMsgStoreId");
  if (!session) {
    PIM_LOG_HR(E_INVALIDARG, "Invalid session.");
    return EntryId();
  }
  try {
    ComPtr<IMAPITable> table;
    HRESULT hr = session->GetMsgStoresTable(0, table.put());
    if (FAILED(hr)) {
      PIM_LOG_HR(hr, "Failed to get the message stores table.");
      return EntryId();
    }
    SPropValue isDefault{};
    isDefault.ulPropTag = PR_DEFAULT_STORE;
    isDefault.Value.b = 1;
    SRestriction onlyDefault{};
    onlyDefault.rt = RES_PROPERTY;
    onlyDefault.res.resProperty.relop = RELOP_EQ;
    onlyDefault.res.resProperty.ulPropTag = PR_DEFAULT_STORE;
    onlyDefault.res.resProperty.lpProp = &isDefault;
    PropTagArray columns({PR_ENTRYID});
    RowSet rows;
    hr = HrQueryAllRows(table.get(), columns.get(), &onlyDefault, nullptr, 0, rows.put());
    if (FAILED(hr)) {
      PIM_LOG_HR(hr, "Failed to query the message stores table.");
      return EntryId();
    }
    if (rows.size() == 0) return EntryId();
    PIM_ASSERT(rows.size() == 1);
    const SRow& first = rows->aRow[0];
    if (first.cValues == 0 || PROP_TYPE(first.lpProps[0].ulPropTag) != PT_BINARY) {
      return EntryId();
    }
    return EntryId(first.lpProps[0].Value.bin);
  } catch (const std::exception& error) {
    PIM_LOG_ERR("Failed to find the default message store:" << error.what());
    return EntryId();
  }
}

HRESULT getMsgStore(IMAPISession* session, const EntryId& storeId, ComPtr<IMsgStore>& store) {
  PIM_ENTRY("PIM::OutlookUtils::getMsgStore");
  store.reset();
  const HRESULT hr = session
                         ? session->OpenMsgStore(0, storeId.count(), storeId.asEntryId(), nullptr,
                                                 MDB_NO_DIALOG | MAPI_BEST_ACCESS, store.put())
                         : E_INVALIDARG;
  if (FAILED(hr)) {
    store.reset();
    PIM_LOG_HR(hr, "Failed to open the message store.");
  }
  return hr;
}

HRESULT getDefaultMsgStore(IMAPISession* session, ComPtr<IMsgStore>& store) {
  PIM_ENTRY("PIM::OutlookUtils::getDefaultMsgStore");
  return getMsgStore(session, getDefaultMsgStoreId(session), store);
}

HRESULT getMAPIInboxFolder(IMsgStore* store, ComPtr<IMAPIFolder>& folder) {
  PIM_ENTRY("PIM::OutlookUtils::getMAPIInboxFolder");
  folder.reset();
  if (!store) {
    PIM_LOG_HR(E_INVALIDARG, "Failed to open the root store item");
    return E_INVALIDARG;
  }
  ComPtr<IUnknown> root;
  HRESULT hr = openRootFolder(store, root);
  if (FAILED(hr)) {
    PIM_LOG_HR(hr, "Failed to open the root store item");
    return hr;
  }
  ULONG idSize = 0;
  MapiBuffer<ENTRYID> id;
  hr = store->GetReceiveFolder(nullptr, 0, &idSize, id.put(), nullptr);
  ComPtr<IUnknown> inbox;
  if (SUCCEEDED(hr)) {
    ULONG type = 0;
    hr = store->OpenEntry(idSize, id.get(), nullptr, MAPI_BEST_ACCESS, &type, inbox.putUnknown());
  }
  if (SUCCEEDED(hr)) hr = inbox.queryInterface(IID_IMAPIFolder, folder);
  if (FAILED(hr)) {
    folder.reset();
    PIM_LOG_HR(hr, "Failed to get the Inbox folder");
  }
  return hr;
}

EntryId getMAPIInboxFolderEntryId(IMsgStore* store) {
  PIM_ENTRY("PIM::OutlookUtils::getMAPIInboxFolderEntryId");
  ComPtr<IMAPIFolder> inbox;
  if (FAILED(getMAPIInboxFolder(store, inbox))) return EntryId();
  return longTerm(getEntryId(inbox.get(), PR_ENTRYID), store);
}

EntryId getMAPIDefaultFolderEntryId(IMsgStore* store, ULONG tag) {
  PIM_ENTRY("PIM::OutlookUtils::getMAPIDefaultFolderEntryId");
  if (!store) {
    PIM_LOG_HR(E_INVALIDARG, "Failed to open the root store item");
    return EntryId();
  }
  EntryId id;
  ComPtr<IUnknown> root;
  const HRESULT hr = openRootFolder(store, root);
  if (FAILED(hr)) {
    PIM_LOG_HR(hr, "Failed to open the root store item");
  } else {
    id = getEntryId(root.get(), tag);
  }
  // Some stores keep the default folders' identifiers on the inbox only.
  if (!id.isValid()) {
    ComPtr<IMAPIFolder> inbox;
    if (SUCCEEDED(getMAPIInboxFolder(store, inbox))) id = getEntryId(inbox.get(), tag);
  }
  return longTerm(std::move(id), store);
}

EntryId getMAPIDefaultCalendarFolderEntryId(IMsgStore* store) {
  return getMAPIDefaultFolderEntryId(store, PR_IPM_APPOINTMENT_ENTRYID);
}

EntryId getMAPIDefaultContactsFolderEntryId(IMsgStore* store) {
  return getMAPIDefaultFolderEntryId(store, PR_IPM_CONTACT_ENTRYID);
}

EntryId getMAPIDefaultTasksFolderEntryId(IMsgStore* store) {
  return getMAPIDefaultFolderEntryId(store, PR_IPM_TASK_ENTRYID);
}

HRESULT getMAPIFolderByEntryId(IMsgStore* store, const EntryId& folderId,
                               ComPtr<IMAPIFolder>& folder) {
  PIM_ENTRY("PIM::OutlookUtils::getMAPIFolderByEntryId");
  folder.reset();
  ComPtr<IUnknown> object;
  ULONG type = 0;
  HRESULT hr = store ? store->OpenEntry(folderId.count(), folderId.asEntryId(), nullptr,
                                        MAPI_BEST_ACCESS, &type, object.putUnknown())
                     : E_INVALIDARG;
  if (SUCCEEDED(hr)) hr = object.queryInterface(IID_IMAPIFolder, folder);
  if (FAILED(hr)) {
    folder.reset();
    PIM_LOG_HR(hr, "Failed to open the folder.");
  }
  return hr;
}

EntryId getEntryId(IUnknown* object, ULONG tag) {
  PIM_ENTRY("PIM::OutlookUtils::getEntryId");
  try {
    MAPIProperties props(object, {tag});
    EntryId id;
    (void)props.getEntryId(tag, id);
    return id;
  } catch (const ComError& error) {
    PIM_LOG_ERR("Error retrieving entry Id:" << error.what());
  } catch (...) {
    PIM_LOG_ERR("Unknown error retrieving entry Id.");
  }
  return EntryId();
}

HRESULT getNamedPropIds(IUnknown* sourceFolder, std::vector<NameIdPair>& pairs) {
  PIM_ENTRY("PIM::OutlookUtils::getNamedPropIds");
  if (pairs.empty()) return S_OK;
  if (!sourceFolder) {
    PIM_LOG_HR(E_INVALIDARG, "Invalid source folder.");
    return E_INVALIDARG;
  }
  ComPtr<IMAPIProp> prop;
  HRESULT hr = sourceFolder->QueryInterface(IID_IMAPIProp, prop.putVoid());
  if (FAILED(hr)) {
    PIM_LOG_HR(hr, "Failed to get MAPI Properties interface.");
    return hr;
  }
  std::vector<MAPINAMEID> names(pairs.size());
  std::vector<LPMAPINAMEID> namePtrs(pairs.size());
  for (size_t i = 0; i < pairs.size(); ++i) {
    // MAPI takes the set through a non-const pointer but only reads it.
    names[i].lpguid = const_cast<GUID*>(pairs[i].propSet);
    names[i].ulKind = pairs[i].kind;
    names[i].Kind.lID = pairs[i].dispId;
    namePtrs[i] = &names[i];
  }
  MapiBuffer<SPropTagArray> tags;
  // Flags 0: look the names up, never create them in the user's store.
  hr = prop->GetIDsFromNames(static_cast<ULONG>(pairs.size()), namePtrs.data(), 0, tags.put());
  if (FAILED(hr)) {
    PIM_LOG_HR(hr, "Failed to retrieve mapi names.");
    return hr;
  }
  if (!tags || tags->cValues != pairs.size()) {
    PIM_LOG_HR(E_FAIL, "Output from GetIDsFromNames is invalid.");
    return E_FAIL;
  }
  const ULONG* resolved = tags->aulPropTag;
  for (size_t i = 0; i < pairs.size(); ++i) {
    pairs[i].tag = (resolved[i] & 0xFFFF0000u) | pairs[i].propType;
  }
  return S_OK;
}

HRESULT getAttachmentList(IUnknown* message, std::vector<std::u16string>& names) {
  PIM_ENTRY("PIM::OutlookUtils::getAttachmentList");
  names.clear();
  try {
    if (!message) throwComError(E_INVALIDARG);
    ComPtr<IMessage> item;
    HRESULT hr = message->QueryInterface(IID_IMessage, item.putVoid());
    if (FAILED(hr)) throwComError(hr);
    ComPtr<IMAPITable> attachments;
    hr = item->GetAttachmentTable(0, attachments.put());
    if (FAILED(hr)) throwComError(hr);
    MAPITable table(attachments.get());
    hr = table.setColumns(
        {PR_DISPLAY_NAME_W, PR_ATTACH_LONG_FILENAME_W, PR_ATTACH_FILENAME_W, PR_ATTACH_SIZE});
    if (FAILED(hr)) throwComError(hr);
    while (MAPIProperties* row = table.getNextRow()) {
      std::u16string display, longName, shortName;
      // All three are read: the first name found need not be the one shown.
      const bool hasDisplay = row->getWstring(PR_DISPLAY_NAME_W, display) == S_OK;
      const bool hasLong = row->getWstring(PR_ATTACH_LONG_FILENAME_W, longName) == S_OK;
      const bool hasShort = row->getWstring(PR_ATTACH_FILENAME_W, shortName) == S_OK;
      const bool named = hasDisplay || hasLong || hasShort;
      if (!named) {
        PIM_LOG_HR(E_FAIL, "Could not add attachment entry.");
        continue;
      }
      std::u16string text = !display.empty() ? display : !longName.empty() ? longName : shortName;
      LONG size = 0;
      if (row->getLong(PR_ATTACH_SIZE, size) == S_OK) {
        text += u" (" + fromUtf8(std::to_string(size / 1024)) + u" kb)";
      }
      names.push_back(std::move(text));
    }
    return S_OK;
  } catch (const ComError& error) {
    PIM_LOG_ERR("Failed to get attachments:" << error.what());
    return error.hr();
  } catch (...) {
    PIM_LOG_ERR("Unknown error. Failed to get attachments.");
    return E_FAIL;
  }
}

HRESULT getEntryStringProperty(IUnknown* object, ULONG tag, std::u16string& text) {
  PIM_ENTRY("PIM::OutlookUtils::getEntryStringProperty");
  try {
    std::string bytes;
    const char* failure = "";
    const HRESULT hr = readStream(object, tag, bytes, failure);
    if (FAILED(hr)) {
      // A body or note the item does not have is an answer, not a fault:
      // most mail has no HTML body, and the caller falls back.
      if (hr != MAPI_E_NOT_FOUND) PIM_LOG_HR(hr, failure);
      return hr;
    }
    text = streamText(tag, bytes);
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

HRESULT getEntryStringProperty(IUnknown* object, ULONG tag, std::string& utf8) {
  PIM_ENTRY("PIM::OutlookUtils::getEntryStringProperty");
  std::u16string text;
  const HRESULT hr = getEntryStringProperty(object, tag, text);
  if (FAILED(hr)) return hr;
  try {
    utf8 = toUtf8(text);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  return S_OK;
}

HRESULT getEntryStringProperty(IUnknown* sourceFolder, const EntryId& itemId, ULONG tag,
                               std::string& utf8) {
  PIM_ENTRY("PIM::OutlookUtils::getEntryStringProperty");
  ComPtr<IMAPIFolder> folder;
  HRESULT hr =
      sourceFolder ? sourceFolder->QueryInterface(IID_IMAPIFolder, folder.putVoid()) : E_INVALIDARG;
  ComPtr<IUnknown> item;
  if (SUCCEEDED(hr)) {
    ULONG type = 0;
    hr = folder->OpenEntry(itemId.count(), itemId.asEntryId(), nullptr, MAPI_BEST_ACCESS, &type,
                           item.putUnknown());
  }
  if (FAILED(hr)) {
    PIM_LOG_HR(hr, "Failed to open the item.");
    return hr;
  }
  return getEntryStringProperty(item.get(), tag, utf8);
}

}  // namespace PIM::OutlookUtils

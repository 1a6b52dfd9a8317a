// Finding what a capture needs in the user's MAPI profile: stores, the inbox,
// the default folders, folders by identifier, named-property tags,
// attachment lists and long text properties.
//
// Every failure is logged (" ERR> HR Error: <code>: <context>") and returned
// as a code or an empty identifier; nothing throws. A null session, store,
// folder or object gives E_INVALIDARG. Identifiers of default folders come
// back in long-term form, ready to be kept.
#pragma once

#include <string>
#include <vector>

#include "mapi/entry_id.h"
#include "mapi/mapi.h"
#include "mapi/mapi_ptr.h"

namespace PIM {

// One named property a record reads: the property set, the kind of name
// (MNID_ID), the dispid, the type, and the tag slot that getNamedPropIds
// fills (it holds the pair's index until then).
struct NameIdPair {
  const GUID* propSet = nullptr;
  ULONG kind = MNID_ID;
  LONG dispId = 0;
  ULONG propType = 0;
  ULONG tag = 0;
};

namespace OutlookUtils {

// The store marked default in the stores table, as the table gives it (not
// converted); empty when there is none.
EntryId getDefaultMsgStoreId(IMAPISession* session);
HRESULT getMsgStore(IMAPISession* session, const EntryId& storeId, ComPtr<IMsgStore>& store);
HRESULT getDefaultMsgStore(IMAPISession* session, ComPtr<IMsgStore>& store);

// The receive folder of the default message class.
HRESULT getMAPIInboxFolder(IMsgStore* store, ComPtr<IMAPIFolder>& folder);
EntryId getMAPIInboxFolderEntryId(IMsgStore* store);
// The identifier held under `tag` on the root folder, else on the inbox.
EntryId getMAPIDefaultFolderEntryId(IMsgStore* store, ULONG tag);
EntryId getMAPIDefaultCalendarFolderEntryId(IMsgStore* store);
EntryId getMAPIDefaultContactsFolderEntryId(IMsgStore* store);
EntryId getMAPIDefaultTasksFolderEntryId(IMsgStore* store);
HRESULT getMAPIFolderByEntryId(IMsgStore* store, const EntryId& folderId,
                               ComPtr<IMAPIFolder>& folder);

// The identifier in the object's binary property `tag`, or empty.
EntryId getEntryId(IUnknown* object, ULONG tag);

// Looks the names up in the folder's store without creating them and writes
// each pair's tag (store id | pair type). A name the store does not know
// gets the id of the error answer (0).
HRESULT getNamedPropIds(IUnknown* sourceFolder, std::vector<NameIdPair>& pairs);

// "name (<size / 1024> kb)" per attachment: the display name, else the long
// file name, else the short one.
HRESULT getAttachmentList(IUnknown* message, std::vector<std::u16string>& names);

// A text property read whole through a stream (for bodies too long for
// GetProps): as UTF-16, as UTF-8, or of the item `itemId` opened through
// `sourceFolder`, as UTF-8.
HRESULT getEntryStringProperty(IUnknown* object, ULONG tag, std::u16string& text);
HRESULT getEntryStringProperty(IUnknown* object, ULONG tag, std::string& utf8);
HRESULT getEntryStringProperty(IUnknown* sourceFolder, const EntryId& itemId, ULONG tag,
                               std::string& utf8);

#ifdef _WIN32
// The command bars of the active explorer of Outlook's application (the one
// OutlookApp holds), with a reference for the caller. E_INVALIDARG while no
// application is held, E_POINTER when Outlook has no explorer open, else the
// failing call's code. Main thread only; nothing is logged here.
HRESULT getCommandBars(ComPtr<IDispatch>& commandBars);
#endif

}  // namespace OutlookUtils
}  // namespace PIM

#include "capture/monitored_folder.h"

#include "addin/outlook_app.h"
#include "mapi/com_error.h"
#include "mapi/outlook_utils.h"

namespace PIM {

MonitoredFolder::MonitoredFolder(const OutlookFolder& identity, uint32_t folderType)
    : folderId_(identity), folderType_(folderType) {}

MonitoredFolder::~MonitoredFolder() {
  PIM_ENTRY("PIM::MonitoredFolder::~MonitoredFolder");
  if (connection_ != 0 && table_) table_->Unadvise(connection_);
  threadSafeSink_.reset();
  store_.reset();
  folder_.reset();
  table_.reset();
}

FolderRef MonitoredFolder::open(const OutlookFolder& identity, uint32_t folderType) {
  PIM_ENTRY("PIM::MonitoredFolder::open");
  FolderRef folder(new MonitoredFolder(identity, folderType));
  // A throw lets the reference go, which also undoes a registration made
  // before the failing step.
  folder->connect();
  return folder;
}

void MonitoredFolder::connect() {
  PIM_ENTRY("PIM::MonitoredFolder::connect");
  IMAPISession* session = OutlookApp::instance()->getMapiSession();
  HRESULT hr = OutlookUtils::getMsgStore(session, folderId_.storeId, store_);
  if (FAILED(hr)) {
    PIM_LOG_ERR("Failed to get selected message store");
    throwComError(hr);
  }
  hr = OutlookUtils::getMAPIFolderByEntryId(store_.get(), folderId_.folderId, folder_);
  if (FAILED(hr)) {
    PIM_LOG_ERR("Failed to get folder");
    throwComError(hr);
  }
  hr = folder_->GetContentsTable(0, table_.put());
  if (FAILED(hr)) {
    PIM_LOG_ERR("Failed to get table");
    throwComError(hr);
  }

  // Notifications reach the sink on the thread that made the wrapper.
  hr = HrThisThreadAdviseSink(this, threadSafeSink_.put());
  if (FAILED(hr)) {
    threadSafeSink_.reset();
    PIM_LOG_ERR(
        "Non-fatal error - failed to create thread safe sink - this table will always be marked "
        "as modified.");
  } else {
    hr = table_->Advise(fnevTableModified, threadSafeSink_.get(), &connection_);
    if (FAILED(hr)) {
      connection_ = 0;
      PIM_LOG_ERR(
          "Non-fatal error - failed to advise table - this table will always be marked as "
          "modified.");
    }
    // The store is asked once for a property it may not know; any other
    // failure means the store is not usable.
    MapiBuffer<SPropValue> lineSpeed;
    hr = HrGetOneProp(store_.get(), PR_TEST_LINE_SPEED, lineSpeed.put());
    if (FAILED(hr) && hr != MAPI_E_NOT_FOUND) throwComError(hr);
  }

  // Tracking starts once the table has its columns, even when the
  // notifications could not be had: such a folder is read again only after
  // the folder list is rebuilt.
  MapiBuffer<SPropTagArray> columns;
  if (SUCCEEDED(table_->QueryColumns(TBL_ALL_COLUMNS, columns.put())) &&
      SUCCEEDED(table_->SetColumns(columns.get(), 0))) {
    trackingActive_ = true;
  }
}

void MonitoredFolder::stopNotifications() {
  PIM_ENTRY("PIM::MonitoredFolder::stopNotifications");
  if (connection_ != 0 && table_) table_->Unadvise(connection_);
  connection_ = 0;
  threadSafeSink_.reset();
  // The table holds the wrapper, which holds us: if the store refused the
  // Unadvise, only letting go of the table (kept for notifications alone)
  // breaks that circle, so that the folder and the store behind it are
  // freed whatever the store answered.
  table_.reset();
}

HRESULT STDMETHODCALLTYPE MonitoredFolder::QueryInterface(REFIID iid, void** out) {
  if (!out) return E_INVALIDARG;
  if (iid == IID_IUnknown || iid == IID_IMAPIAdviseSink) {
    *out = static_cast<IMAPIAdviseSink*>(this);
    AddRef();
    return S_OK;
  }
  *out = nullptr;
  return E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE MonitoredFolder::AddRef() {
  PIM_ENTRY("PIM::MonitoredFolder::AddRef");
  const LONG count = ++refCount_;
  PIM_ASSERT(count > 0);
  return static_cast<ULONG>(count);
}

ULONG STDMETHODCALLTYPE MonitoredFolder::Release() {
  const LONG count = --refCount_;
  if (count == 0) delete this;
  return static_cast<ULONG>(count);
}

ULONG STDMETHODCALLTYPE MonitoredFolder::OnNotify(ULONG /*count*/,
                                                  LPNOTIFICATION /*notifications*/) {
  PIM_ENTRY("PIM::MonitoredFolder::OnNotify");
  setIsModified();
  return 0;
}

std::u16string MonitoredFolder::getFileName() const {
  PIM_ENTRY("PIM::MonitoredFolder::getFileName");
  EntryGuard guard(&lock_);
  return fileName_;
}

void MonitoredFolder::setFileName(const std::u16string& name) {
  PIM_ENTRY("PIM::MonitoredFolder::setFileName");
  EntryGuard guard(&lock_);
  fileName_ = name;
}

void MonitoredFolder::setIsModified() {
  PIM_ENTRY("PIM::MonitoredFolder::setIsModified");
  EntryGuard guard(&lock_);
  isModified_ = true;
}

bool MonitoredFolder::takeModified() {
  PIM_ENTRY("PIM::MonitoredFolder::takeModified");
  EntryGuard guard(&lock_);
  return std::exchange(isModified_, false);
}

}  // namespace PIM

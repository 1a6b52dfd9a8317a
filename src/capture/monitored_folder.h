// One folder chosen for capture, kept open while it is monitored: its store,
// the folder, and a contents table whose change notifications mark the folder
// modified, so that a run reads only the folders that changed since the last.
//
//   FolderRef folder = MonitoredFolder::open(identity, kFolderTasks);  // throws ComError
//   std::vector<Task> tasks;
//   folder->captureFolder(dataFolder, tasks, cancelRequested);
//
// Threads: the object is made, and its notifications registered, on the
// thread that rebuilds the controller's folder list. Notifications arrive on
// whatever thread delivers them, and runs read the flag and the file name on
// the capture thread; both go through the folder's own lock, which is taken
// after the controller's folder-list lock, never before it, and held for one
// flag or string operation only. The reference count is interlocked because
// the store adds and drops references from its own threads.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "capture/data_list.h"
#include "core/debug_logger.h"
#include "core/utils.h"
#include "data/data_file.h"
#include "mapi/entry_id.h"
#include "mapi/mapi.h"
#include "mapi/mapi_ptr.h"
#include "platform/critical_section.h"
#include "platform/env.h"

namespace PIM {

// The capture's own numbering of folder kinds (the index numbers them
// differently, see DataDirectoryEntry).
enum FolderType : uint32_t {
  kFolderCalendar = 0,
  kFolderContacts = 1,
  kFolderEmail = 2,
  kFolderTasks = 3
};

class FolderRef;

// What one folder step did to the data folder, for the run's report.
struct FolderWrite {
  std::u16string path;  // the file made for the folder; empty when none was
  bool failed = false;  // no file could be made, or it was not written whole
};

class MonitoredFolder final : public IMAPIAdviseSink {
 public:
  // Opens the store and the folder of `identity` through the session of
  // OutlookApp, keeps the folder's contents table open and asks it for
  // change notifications. A store, folder or table that cannot be opened is
  // logged and thrown as ComError; notifications that cannot be had are only
  // logged. The result holds the one reference the caller owns.
  static FolderRef open(const OutlookFolder& identity, uint32_t folderType);

  MonitoredFolder(const MonitoredFolder&) = delete;
  MonitoredFolder& operator=(const MonitoredFolder&) = delete;

  // IUnknown and IMAPIAdviseSink.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  // Frees the object when the count reaches 0.
  ULONG STDMETHODCALLTYPE Release() override;
  // Any notification, whatever it says, marks the folder modified.
  ULONG STDMETHODCALLTYPE OnNotify(ULONG count, LPNOTIFICATION notifications) override;

  // The bare name of the folder's current data file; empty when it has none.
  std::u16string getFileName() const;
  void setFileName(const std::u16string& name);
  void setIsModified();
  // For a host that has found by other means that the folder is as its
  // file shows it: the next run leaves a tracked folder unread.
  void clearModified() { takeModified(); }
  // Whether notifications decide if a run reads the folder; without them
  // every run reads it.
  bool isTracking() const { return trackingActive_; }

  uint32_t getFolderType() const { return folderType_; }
  OutlookFolder getFolder() const { return folderId_; }
  IMAPIFolder* getMapiFolder() const { return folder_.get(); }

  // Reads the folder into `records` unless it is tracked and unchanged, and
  // makes the records its new data file in `dataFolder`: the file name
  // becomes the new file's, or empty when the folder had no records. The old
  // file is left for the run to delete. When the read fails or is cancelled
  // the folder keeps its previous file name. Returns the read's result, or
  // S_FALSE for a tracked folder left unread because it had not changed;
  // what became of the file goes to `write` when given. A file that could
  // not be written whole is still the folder's (the run only reports it).
  template <class Record>
  HRESULT captureFolder(const std::u16string& dataFolder, std::vector<Record>& records,
                        const CancelFlag& cancelRequested, FolderWrite* write = nullptr);

  // Gives the notification registration back and lets go of the table. The
  // store's wrapper holds a reference to this object, so until then the
  // object cannot be freed; FolderRef calls this when the controller lets a
  // folder go.
  void stopNotifications();

 private:
  MonitoredFolder(const OutlookFolder& identity, uint32_t folderType);
  ~MonitoredFolder();

  // The steps of open() after the object exists; throw ComError.
  void connect();
  // Reads and clears the modified flag.
  bool takeModified();

  // Guards fileName_ and isModified_.
  mutable CriticalSection lock_;
  std::u16string fileName_;
  bool isModified_ = true;
  // Set once while the object is made, before any run can see it.
  bool trackingActive_ = false;
  const OutlookFolder folderId_;
  std::atomic<LONG> refCount_{1};
  // The rest belongs to the thread that made the object and to the
  // destructor.
  ULONG connection_ = 0;
  const uint32_t folderType_;
  ComPtr<IMAPITable> table_;  // open for notifications only
  ComPtr<IMAPIFolder> folder_;
  ComPtr<IMsgStore> store_;
  ComPtr<IMAPIAdviseSink> threadSafeSink_;
};

// The controller's reference to a monitored folder. Letting it go also ends
// the folder's notifications, so that the store's wrapper lets go of the
// folder in turn and it is freed.
class FolderRef {
 public:
  FolderRef() = default;
  // Takes over a reference the caller holds.
  explicit FolderRef(MonitoredFolder* folder) : folder_(folder) {}
  FolderRef(FolderRef&& other) noexcept : folder_(std::exchange(other.folder_, nullptr)) {}
  FolderRef& operator=(FolderRef&& other) noexcept {
    if (this != &other) {
      reset();
      folder_ = std::exchange(other.folder_, nullptr);
    }
    return *this;
  }
  FolderRef(const FolderRef&) = delete;
  FolderRef& operator=(const FolderRef&) = delete;
  ~FolderRef() { reset(); }

  MonitoredFolder* get() const { return folder_; }
  MonitoredFolder* operator->() const { return folder_; }
  MonitoredFolder& operator*() const { return *folder_; }
  explicit operator bool() const { return folder_ != nullptr; }
  void reset() {
    if (MonitoredFolder* folder = std::exchange(folder_, nullptr)) {
      folder->stopNotifications();
      folder->Release();
    }
  }

 private:
  MonitoredFolder* folder_ = nullptr;
};

template <class Record>
HRESULT MonitoredFolder::captureFolder(const std::u16string& dataFolder,
                                       std::vector<Record>& records,
                                       const CancelFlag& cancelRequested, FolderWrite* write) {
  PIM_ENTRY("PIM::MonitoredFolder::captureFolder");
  // The flag is cleared before the read: a read that fails or is cancelled
  // is not repeated until the folder changes again.
  if (trackingActive_ && !takeModified()) return S_FALSE;
  FolderWrite ignored;
  if (!write) write = &ignored;
  try {
    const HRESULT hr = getDataList(folder_.get(), &records, cancelRequested);
    if (FAILED(hr)) return hr;

    std::u16string name;
    if (!createUniqueFileName(dataFolder, kDataFilePrefix, kDataFileExtension, name)) {
      PIM_LOG_ERR("Could not create file for exporting this data folder.");
      name.clear();
      write->failed = !records.empty();
    }
    if (!name.empty()) {
      const std::u16string path = dataFolder + kPathSeparator + name;
      if (records.empty()) {
        env()->removeFile(path);
      } else {
        write->path = path;
        write->failed = !writeToFile(path, records);
      }
    }
    setFileName(records.empty() ? std::u16string() : name);
    return hr;
  } catch (const std::exception& e) {
    // A failed table call (columns, restriction, sort) or memory running
    // out: the folder keeps its previous file.
    PIM_LOG_ERR("Failed to retrieve data from the data table: " << e.what());
    return E_FAIL;
  }
}

}  // namespace PIM

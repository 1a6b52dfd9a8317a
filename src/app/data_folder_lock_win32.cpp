#include <windows.h>

#include "app/data_folder_lock.h"
#include "platform/win32/win32_env.h"

namespace PIM {

// A lock on the file's first byte; the system drops it when the handle
// closes or the process ends.
struct DataFolderLock::Handle {
  HANDLE file;
};

void DataFolderLock::Closer::operator()(Handle* handle) const {
  CloseHandle(handle->file);
  delete handle;
}

DataFolderLock::Result DataFolderLock::tryAcquire(std::string& error) {
  if (handle_) return Result::Acquired;
  const HANDLE file = CreateFileW(wide(path_), GENERIC_READ | GENERIC_WRITE,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    error = "system error " + std::to_string(GetLastError());
    return Result::Failed;
  }
  std::unique_ptr<Handle, Closer> handle(new Handle{file});
  OVERLAPPED where = {};
  if (!LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &where)) {
    const DWORD code = GetLastError();
    if (code == ERROR_LOCK_VIOLATION || code == ERROR_IO_PENDING) return Result::Busy;
    error = "system error " + std::to_string(code);
    return Result::Failed;
  }
  handle_ = std::move(handle);
  return Result::Acquired;
}

}  // namespace PIM

// One ferrant at a time on a data folder: a run takes an exclusive lock on
// a file in the folder and keeps it until it has written the index. The
// system releases the lock when the holder ends, however it ends, so a
// killed run never blocks the next one.
//
//   DataFolderLock lock(folder);
//   std::string error;
//   switch (lock.tryAcquire(error)) { ... }   // Busy: someone else's run
//   ...                                       // the run
//   lock.release();                           // or let it go out of scope
#pragma once

#include <memory>
#include <string>

namespace PIM {

// The lock file's name: it starts with a dot and does not end in ".xml",
// so neither a folder listing by the user nor a run's clean-up touches it.
inline constexpr char16_t kDataFolderLockName[] = u".ferrant.lock";

class DataFolderLock {
 public:
  enum class Result { Acquired, Busy, Failed };

  explicit DataFolderLock(std::u16string folder);
  ~DataFolderLock();
  DataFolderLock(const DataFolderLock&) = delete;
  DataFolderLock& operator=(const DataFolderLock&) = delete;

  // Takes the lock if nobody holds it, without waiting; the lock file is
  // made if missing. Failed, with `error` saying why in a few words, when
  // the file cannot be made or opened. Acquired again when already held.
  Result tryAcquire(std::string& error);
  void release();
  bool held() const;
  const std::u16string& path() const { return path_; }

 private:
  // The open lock file, and how it is closed, per platform.
  struct Handle;
  struct Closer {
    void operator()(Handle* handle) const;
  };
  std::u16string path_;
  std::unique_ptr<Handle, Closer> handle_;
};

}  // namespace PIM

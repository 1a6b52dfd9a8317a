// The key store off Windows: the current user's keys and values in one text
// file (format in platform/key_store_file.h), with the registry's operations
// and failure codes.
//
// Never losing settings comes first:
// - Every change rewrites the whole file as "<file>.new" in the same folder,
//   syncs it to disk and renames it over the file, so a process killed or a
//   disk filling up mid-write leaves the previous contents whole.
// - Changes from several processes take turns on an advisory lock
//   ("<file>.lock") and read the file again under it before changing it.
//   Reads need no lock: the file is only ever replaced whole.
// - The file, its lock and its folder are created readable by the owner only.
// - A damaged file is kept as "<file>.damaged-<n>" and reported (see
//   takeDiagnostics); a file of a newer format is left alone and refused.
//
// Handles name a key by its path. A key deleted and made again by another
// process is therefore the same key to a handle still open, where the
// registry would answer kKeyDeleted.
//
// Thread safety: every method may be called from any thread.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/key_store.h"

namespace PIM {

namespace keyfile {
class KeyNode;
}

class FileKeyStore final : public KeyStore {
 public:
  // `path` is the file's native path; empty when the user has no home, in
  // which case every operation fails with kKeyAccessDenied.
  explicit FileKeyStore(std::string path);
  ~FileKeyStore() override;
  FileKeyStore(const FileKeyStore&) = delete;
  FileKeyStore& operator=(const FileKeyStore&) = delete;

  // $FERRANT_KEYSTORE when set, else "ferrant/keystore" in $XDG_CONFIG_HOME
  // or ~/.config; without $HOME the user database's home folder is used, as
  // for the data and logs folders.
  static std::string defaultPath();
  const std::string& path() const { return path_; }

  KeyHandle currentUserRoot() override;
  long createKey(KeyHandle parent, const std::u16string& name, KeyHandle* out) override;
  void closeKey(KeyHandle key) override;
  long queryValue(KeyHandle key, const std::u16string& name, ValueType* type, uint8_t* data,
                  uint32_t* size) override;
  long setValue(KeyHandle key, const std::u16string& name, ValueType type, const uint8_t* data,
                uint32_t size) override;
  long deleteTree(KeyHandle parent, const std::u16string& path) override;
  std::vector<std::string> takeDiagnostics() override;
  KeyStoreState checkState() override;
  long changeTogether(const std::function<long()>& body, std::string& why) override;

  // Tests: called while a change is written, after the first half of the new
  // text (PartWritten) and just before the rename (Written), so that a test
  // can end the process there.
  enum class SaveStage { PartWritten, Written };
  void setSaveHookForTesting(std::function<void(SaveStage)> hook);

 private:
  struct OpenKey {
    std::vector<std::u16string> path;  // below the root
  };
  using Change = std::function<long(keyfile::KeyNode& root, bool& changed)>;
  using Look = std::function<long(const keyfile::KeyNode& root)>;
  class FileLock;
  // A change under way: the file locked and its settings as read under the
  // lock, changed in memory and written once at the end.
  struct Held;

  const OpenKey* find(KeyHandle key) const;
  long read(const Look& look);
  long change(const Change& change);
  long hold(std::unique_ptr<Held>& held);
  long finish(Held& held);
  long load(keyfile::KeyNode& root, bool locked, bool& writable);
  long recover(const std::string& text, keyfile::KeyNode& root, bool& writable, size_t problems,
               size_t firstLine, const std::string& firstReason);
  long save(const keyfile::KeyNode& root);
  std::string targetPath() const;
  void note(const std::string& message);

  // mutex_ guards every member below and keeps this process's operations on
  // the file one at a time; the file lock orders them with other processes.
  // Always taken before the file lock. Recursive, as the body of
  // changeTogether calls the other methods.
  std::recursive_mutex mutex_;
  const std::string path_;
  OpenKey root_;
  std::map<const void*, std::unique_ptr<OpenKey>> open_;
  std::vector<std::string> diagnostics_;
  std::string lastNote_;
  std::string problem_;  // the last problem noted, for the caller's message
  std::string damage_;   // the last damage met, until the store is dropped
  std::unique_ptr<Held> held_;
  std::function<void(SaveStage)> saveHook_;
};

}  // namespace PIM

#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "platform/key_store_file.h"
#include "platform/posix/file_key_store.h"
#include "platform/posix/posix_env.h"

namespace PIM {

using keyfile::KeyNode;
using keyfile::KeyValue;

namespace {

// Far beyond any real settings; a bigger file is refused rather than read
// into memory, and never written.
constexpr size_t kMaxFileBytes = 64u << 20;
constexpr int kMaxDamagedCopies = 1000;
constexpr const char* kNoPlace =
    "No place for the settings file: neither FERRANT_KEYSTORE nor HOME is set, and the user "
    "database gives no home folder.";

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  explicit operator bool() const { return fd_ >= 0; }
  int get() const { return fd_; }
  // Closes now, for the callers that must see the result.
  int close() {
    int result = ::close(fd_);
    fd_ = -1;
    return result;
  }

 private:
  int fd_;
};

std::string describe(int error) { return std::generic_category().message(error); }

std::string folderOf(const std::string& path) {
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

long failureCode(int error) {
  switch (error) {
    case ENOSPC:
    case EDQUOT:
      return kKeyDiskFull;
    case EACCES:
    case EPERM:
    case EROFS:
      return kKeyAccessDenied;
    default:
      return kKeyWriteFault;
  }
}

// Creates the folder and any missing parents, for the owner only; errno
// tells why when it fails.
bool makeFolders(const std::string& folder) {
  struct stat st;
  if (stat(folder.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) return true;
    errno = ENOTDIR;
    return false;
  }
  for (size_t slash = folder.find('/', 1); slash != std::string::npos;
       slash = folder.find('/', slash + 1)) {
    mkdir(folder.substr(0, slash).c_str(), 0700);
  }
  return mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST;
}

bool writeAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    ssize_t n = ::write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= size_t(n);
  }
  return true;
}

// 0 with the file's bytes in `out`, else the errno (ENOENT: no file yet).
int readWhole(const std::string& path, std::string& out) {
  Descriptor fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) return errno;
  struct stat st;
  if (fstat(fd.get(), &st) != 0) return errno;
  if (S_ISDIR(st.st_mode)) return EISDIR;
  char buffer[65536];
  for (;;) {
    ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return errno;
    if (n == 0) return 0;
    if (out.size() + size_t(n) > kMaxFileBytes) return EFBIG;
    out.append(buffer, size_t(n));
  }
}

// Writes a file that must not exist yet, for the owner only, through to the
// disk; 0 or the errno.
int writeNewFile(const std::string& path, const std::string& bytes) {
  Descriptor fd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!fd) return errno;
  if (!writeAll(fd.get(), bytes.data(), bytes.size()) || fsync(fd.get()) != 0 || fd.close() != 0) {
    int error = errno;
    unlink(path.c_str());
    return error;
  }
  return 0;
}

// Makes the folder's entries (a rename) durable; best effort, as some file
// systems cannot sync a folder.
void syncFolder(const std::string& folder) {
  Descriptor fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd) fsync(fd.get());
}

// Splits at backslashes; an empty text is no level at all.
bool splitKeyPath(const std::u16string& text, std::vector<std::u16string>& names) {
  if (text.empty()) return true;
  size_t start = 0;
  for (;;) {
    size_t end = text.find(u'\\', start);
    names.push_back(text.substr(start, end == std::u16string::npos ? end : end - start));
    if (!keyfile::isValidKeyName(names.back())) return false;
    if (end == std::u16string::npos) return true;
    start = end + 1;
  }
}

std::string absolutePath(std::string path) {
  if (path.empty() || path[0] == '/') return path;
  char cwd[PATH_MAX];
  if (!getcwd(cwd, sizeof cwd)) return path;
  return std::string(cwd) + '/' + path;
}

}  // namespace

// Holds the advisory lock on "<file>.lock" while it lives.
class FileKeyStore::FileLock {
 public:
  explicit FileLock(const std::string& path)
      : fd_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)) {
    if (!fd_) {
      error_ = errno;
      return;
    }
    while (flock(fd_.get(), LOCK_EX) != 0) {
      if (errno != EINTR) {
        error_ = errno;
        return;
      }
    }
  }
  int error() const { return error_; }

 private:
  Descriptor fd_;  // closing it releases the lock
  int error_ = 0;
};

struct FileKeyStore::Held {
  explicit Held(const std::string& lockPath) : lock(lockPath) {}
  FileLock lock;
  KeyNode root;
  bool changed = false;
};

FileKeyStore::FileKeyStore(std::string path) : path_(absolutePath(std::move(path))) {}

FileKeyStore::~FileKeyStore() = default;

std::string FileKeyStore::defaultPath() {
  if (const char* own = std::getenv("FERRANT_KEYSTORE"); own && own[0]) return own;
  if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && xdg[0] == '/') {
    return std::string(xdg) + "/ferrant/keystore";
  }
  std::string home;
  if (const char* variable = std::getenv("HOME"); variable && variable[0]) {
    home = variable;
  } else {
    long hint = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(hint > 0 ? size_t(hint) : 4096);
    struct passwd entry;
    struct passwd* found = nullptr;
    int error;
    while ((error = getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found)) == ERANGE &&
           buffer.size() < (1u << 20)) {
      buffer.resize(buffer.size() * 2);
    }
    if (error == 0 && found && found->pw_dir && found->pw_dir[0] == '/') home = found->pw_dir;
  }
  return home.empty() ? std::string() : home + "/.config/ferrant/keystore";
}

KeyHandle FileKeyStore::currentUserRoot() { return &root_; }

const FileKeyStore::OpenKey* FileKeyStore::find(KeyHandle key) const {
  if (key == &root_) return &root_;
  auto it = open_.find(key);
  return it == open_.end() ? nullptr : it->second.get();
}

long FileKeyStore::createKey(KeyHandle parent, const std::u16string& name, KeyHandle* out) {
  if (!out) return kKeyInvalidParameter;
  *out = nullptr;
  std::lock_guard<std::recursive_mutex> guard(mutex_);
  const OpenKey* base = find(parent);
  if (!base) return kKeyInvalidHandle;
  std::vector<std::u16string> names;
  if (!splitKeyPath(name, names) || base->path.size() + names.size() > kMaxKeyDepth) {
    return kKeyInvalidParameter;
  }
  std::vector<std::u16string> path = base->path;
  path.insert(path.end(), names.begin(), names.end());

  // Keys are nearly always there already: look before taking the file lock.
  bool missing = false;
  long result = read([&](const KeyNode& root) {
    if (!findPath(root, base->path)) return kKeyDeleted;
    missing = findPath(root, path) == nullptr;
    return kKeyOk;
  });
  if (result == kKeyOk && missing) {
    result = change([&](KeyNode& root, bool& changed) {
      KeyNode* key = findPath(root, base->path);
      if (!key) return kKeyDeleted;
      for (const auto& level : names) {
        if (!key->findSubkey(level)) changed = true;
        key = &key->addSubkey(level);
      }
      return kKeyOk;
    });
  }
  if (result != kKeyOk) return result;
  auto opened = std::make_unique<OpenKey>(OpenKey{std::move(path)});
  *out = opened.get();
  open_.emplace(opened.get(), std::move(opened));
  return kKeyOk;
}

void FileKeyStore::closeKey(KeyHandle key) {
  std::lock_guard<std::recursive_mutex> guard(mutex_);
  open_.erase(key);  // the root and unknown handles are not in the map
}

long FileKeyStore::queryValue(KeyHandle key, const std::u16string& name, ValueType* type,
                              uint8_t* data, uint32_t* size) {
  if (data && !size) return kKeyInvalidParameter;
  std::lock_guard<std::recursive_mutex> guard(mutex_);
  const OpenKey* open = find(key);
  if (!open) return kKeyInvalidHandle;
  return read([&](const KeyNode& root) {
    const KeyNode* node = findPath(root, open->path);
    if (!node) return kKeyDeleted;
    const KeyValue* value = node->findValue(name);
    if (!value) return kKeyNotFound;
    if (type) *type = ValueType(value->type);
    auto needed = uint32_t(value->data.size());
    if (data) {
      if (*size < needed) {
        *size = needed;
        return kKeyMoreData;
      }
      std::memcpy(data, value->data.data(), needed);
    }
    if (size) *size = needed;
    return kKeyOk;
  });
}

long FileKeyStore::setValue(KeyHandle key, const std::u16string& name, ValueType type,
                            const uint8_t* data, uint32_t size) {
  if ((!data && size > 0) || name.size() > kMaxValueNameUnits) return kKeyInvalidParameter;
  std::lock_guard<std::recursive_mutex> guard(mutex_);
  const OpenKey* open = find(key);
  if (!open) return kKeyInvalidHandle;
  std::string bytes(reinterpret_cast<const char*>(data), size);
  return change([&](KeyNode& root, bool& changed) {
    KeyNode* node = findPath(root, open->path);
    if (!node) return kKeyDeleted;
    changed = node->setValue(name, uint32_t(type), bytes);
    return kKeyOk;
  });
}

long FileKeyStore::deleteTree(KeyHandle parent, const std::u16string& path) {
  std::lock_guard<std::recursive_mutex> guard(mutex_);
  const OpenKey* base = find(parent);
  if (!base) return kKeyInvalidHandle;
  std::vector<std::u16string> names;
  if (!splitKeyPath(path, names)) return kKeyInvalidParameter;
  return change([&](KeyNode& root, bool& changed) {
    KeyNode* key = findPath(root, base->path);
    if (!key) return kKeyDeleted;
    if (names.empty()) {
      // Like the registry: no path empties the key itself.
      changed = !key->values().empty() || key->subkeyCount() > 0;
      key->clear();
      return kKeyOk;
    }
    std::u16string last = names.back();
    names.pop_back();
    KeyNode* holder = findPath(*key, names);
    if (!holder || !holder->removeSubkey(last)) return kKeyNotFound;
    changed = true;
    return kKeyOk;
  });
}

std::vector<std::string> FileKeyStore::takeDiagnostics() {
  std::lock_guard<std::recursive_mutex> guard(mutex_);
  return std::exchange(diagnostics_, {});
}

void FileKeyStore::setSaveHookForTesting(std::function<void(SaveStage)> hook) {
  std::lock_guard<std::recursive_mutex> guard(mutex_);
  saveHook_ = std::move(hook);
}

void FileKeyStore::note(const std::string& message) {
  problem_ = message;
  // A problem that lasts (no home folder, a file of a newer format) is
  // reported once, not at every call.
  if (message == lastNote_) return;
  lastNote_ = message;
  if (diagnostics_.size() >= 64) diagnostics_.erase(diagnostics_.begin());
  diagnostics_.push_back(message);
}

std::string FileKeyStore::targetPath() const {
  // A settings file kept elsewhere through a symbolic link stays a link: the
  // new contents go where it points.
  std::string target = path_;
  for (int hops = 0; hops < 16; ++hops) {
    struct stat st;
    if (lstat(target.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) break;
    char link[PATH_MAX];
    ssize_t n = readlink(target.c_str(), link, sizeof link);
    if (n <= 0 || size_t(n) >= sizeof link) break;
    std::string next(link, size_t(n));
    target = next[0] == '/' ? next : folderOf(target) + '/' + next;
  }
  return target;
}

long FileKeyStore::read(const Look& look) {
  if (held_) return look(held_->root);
  KeyNode root;
  bool writable = true;
  long result = load(root, false, writable);
  return result == kKeyOk ? look(root) : result;
}

long FileKeyStore::change(const Change& apply) {
  if (held_) {
    bool changed = false;
    long result = apply(held_->root, changed);
    held_->changed |= changed;
    return result;
  }
  std::unique_ptr<Held> held;
  long result = hold(held);
  if (result != kKeyOk) return result;
  result = apply(held->root, held->changed);
  return result != kKeyOk ? result : finish(*held);
}

// Locks the file and reads it under the lock.
long FileKeyStore::hold(std::unique_ptr<Held>& held) {
  if (path_.empty()) {
    note(kNoPlace);
    return kKeyAccessDenied;
  }
  if (!makeFolders(folderOf(path_))) {
    int error = errno;
    note("Could not create the folder of the settings file " + path_ + ": " + describe(error));
    return failureCode(error);
  }
  held = std::make_unique<Held>(path_ + ".lock");
  if (int error = held->lock.error()) {
    note("Could not lock the settings file " + path_ + ": " + describe(error));
    return failureCode(error);
  }
  bool writable = true;
  long result = load(held->root, true, writable);
  if (result != kKeyOk) return result;
  return writable ? kKeyOk : kKeyAccessDenied;
}

long FileKeyStore::finish(Held& held) { return held.changed ? save(held.root) : kKeyOk; }

long FileKeyStore::changeTogether(const std::function<long()>& body, std::string& why) {
  std::lock_guard<std::recursive_mutex> guard(mutex_);
  if (held_) return body();  // already inside one
  problem_.clear();
  long result = hold(held_);
  if (result == kKeyOk) {
    // The lock is given back however the body ends.
    struct Release {
      std::unique_ptr<Held>& held;
      ~Release() { held.reset(); }
    } release{held_};
    result = body();
    if (result == kKeyOk) result = finish(*held_);
  } else {
    held_.reset();
  }
  if (result != kKeyOk) why = problem_;
  return result;
}

KeyStoreState FileKeyStore::checkState() {
  std::lock_guard<std::recursive_mutex> guard(mutex_);
  if (!held_) {
    KeyNode root;
    bool writable = true;
    problem_.clear();
    if (load(root, false, writable) != kKeyOk) {
      return {KeyStoreState::Unreadable, problem_};
    }
  }
  if (!damage_.empty()) return {KeyStoreState::Damaged, damage_};
  return {};
}

long FileKeyStore::load(KeyNode& root, bool locked, bool& writable) {
  writable = true;
  if (path_.empty()) {
    note(kNoPlace);
    return kKeyAccessDenied;
  }
  std::string text;
  if (int error = readWhole(path_, text); error == ENOENT) {
    return kKeyOk;  // nothing saved yet
  } else if (error) {
    note("Could not read the settings file " + path_ + ": " + describe(error));
    return kKeyAccessDenied;
  }
  keyfile::ParsedStore parsed = keyfile::parseStoreText(text);
  if (parsed.newerFormat) {
    // An older program must not rewrite what a newer one saved: it runs on
    // its defaults and leaves the file alone.
    note("The settings file " + path_ + " is of format " + std::to_string(parsed.version) +
         ", newer than this program reads; it is left as it is and no setting is saved.");
    return kKeyAccessDenied;
  }
  if (parsed.problems.empty()) {
    root = std::move(parsed.root);
    return kKeyOk;
  }
  int lockError = 0;
  if (!locked) {
    // Mending writes, so it happens under the lock, on the file as it is
    // then: another process may have mended it meanwhile.
    FileLock lock(path_ + ".lock");
    if (!lock.error()) return load(root, true, writable);
    lockError = lock.error();
  }

  // A damaged file is neither refused nor thrown away. Refusing it would
  // leave the program on its defaults until someone mends the file by hand;
  // starting empty would reset every setting without a word. Instead its
  // bytes are kept as "<file>.damaged-<n>", everything readable in it stays
  // in use, and the file is rewritten clean at once so that the damage is
  // reported once rather than at every start. When no copy can be kept the
  // file is left as it is and changes are refused.
  root = std::move(parsed.root);
  const keyfile::ParseProblem& first = parsed.problems.front();
  std::string damage = "The settings file " + path_ +
                       " is damaged: " + std::to_string(parsed.problems.size()) +
                       " unreadable line(s), the first " + "at line " + std::to_string(first.line) +
                       " (" + first.reason + ").";
  std::string target = targetPath();
  std::string copy;
  int error = locked ? EEXIST : lockError;
  for (int n = 1; n <= kMaxDamagedCopies && error == EEXIST; ++n) {
    copy = target + ".damaged-" + std::to_string(n);
    error = writeNewFile(copy, text);
  }
  if (error) {
    writable = false;
    damage_ = damage + " No copy of it could be kept (" + describe(error) +
              "), so it is left as it is and no setting is saved.";
    note(damage_);
    return kKeyOk;
  }
  long saved = save(root);
  damage_ = damage + " It was kept as " + copy + "; the readable settings were kept" +
            (saved == kKeyOk ? "." : ", but the file could not be rewritten.");
  note(damage_);
  return kKeyOk;
}

long FileKeyStore::save(const KeyNode& root) {
  std::string text = keyfile::storeText(root);
  std::string target = targetPath();
  if (text.size() > kMaxFileBytes) {
    note("The settings file " + target + " would grow beyond its limit; the change was refused.");
    return kKeyDiskFull;
  }
  std::string temp = target + ".new";
  auto failed = [&](const char* step, int error) {
    unlink(temp.c_str());
    note("Could not save the settings file " + target + " (" + step + "): " + describe(error));
    return failureCode(error);
  };
  // A leftover of a process that died while writing is of no use.
  if (unlink(temp.c_str()) != 0 && errno != ENOENT) return failed("clearing", errno);
  Descriptor fd(open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!fd) return failed("creating", errno);
  size_t half = text.size() / 2;
  if (!writeAll(fd.get(), text.data(), half)) return failed("writing", errno);
  if (saveHook_) saveHook_(SaveStage::PartWritten);
  if (!writeAll(fd.get(), text.data() + half, text.size() - half)) return failed("writing", errno);
  if (fsync(fd.get()) != 0) return failed("syncing", errno);
  if (fd.close() != 0) return failed("closing", errno);
  if (saveHook_) saveHook_(SaveStage::Written);
  if (rename(temp.c_str(), target.c_str()) != 0) return failed("renaming", errno);
  syncFolder(folderOf(target));
  return kKeyOk;
}

KeyStore& PosixEnv::keyStore() {
  static std::mutex creating;
  std::lock_guard<std::mutex> guard(creating);
  if (!keyStore_) keyStore_ = std::make_unique<FileKeyStore>(FileKeyStore::defaultPath());
  return *keyStore_;
}

}  // namespace PIM

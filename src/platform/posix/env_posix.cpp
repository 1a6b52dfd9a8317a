#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>

#include <climits>
#include <cstdlib>

#include "platform/posix/posix_env.h"
#include "platform/stdio_file.h"
#include "platform/thread_local_slot.h"

namespace PIM {

namespace {

// File names and environment values are UTF-8 bytes.
std::string narrow(const std::u16string& text) { return utf16ToUtf8(text.data(), text.size()); }

std::u16string widen(const std::string& bytes) { return utf8ToUtf16(bytes.data(), bytes.size()); }

SystemTime fromTm(const struct tm& tm, long nanoseconds) {
  SystemTime t;
  t.year = uint16_t(tm.tm_year + 1900);
  t.month = uint16_t(tm.tm_mon + 1);
  t.dayOfWeek = uint16_t(tm.tm_wday);
  t.day = uint16_t(tm.tm_mday);
  t.hour = uint16_t(tm.tm_hour);
  t.minute = uint16_t(tm.tm_min);
  t.second = uint16_t(tm.tm_sec);
  t.milliseconds = uint16_t(nanoseconds / 1000000);
  return t;
}

void moduleAnchor() {}

struct DirCloser {
  void operator()(DIR* dir) const { closedir(dir); }
};

}  // namespace

std::string nativePath(const std::u16string& path) { return narrow(path); }

Env* Env::platformDefault() {
  static PosixEnv* instance = new PosixEnv();  // never freed: used until exit
  return instance;
}

PosixEnv::PosixEnv() = default;
PosixEnv::~PosixEnv() = default;

SystemTime PosixEnv::systemTimeNow() {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  struct tm tm;
  gmtime_r(&now.tv_sec, &tm);
  return fromTm(tm, now.tv_nsec);
}

SystemTime PosixEnv::localTimeNow() {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  struct tm tm;
  localtime_r(&now.tv_sec, &tm);
  return fromTm(tm, now.tv_nsec);
}

TimeZoneInfo PosixEnv::timeZone() {
  // POSIX gives only the offset in force; report it whole as the bias.
  time_t now = time(nullptr);
  struct tm tm;
  localtime_r(&now, &tm);
  TimeZoneInfo info;
  info.bias = int32_t(-tm.tm_gmtoff / 60);
  info.state = tm.tm_isdst > 0 ? TimeZoneState::Daylight : TimeZoneState::Standard;
  return info;
}

uint32_t PosixEnv::tickCount() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return uint32_t(uint64_t(now.tv_sec) * 1000 + uint64_t(now.tv_nsec) / 1000000);
}

std::u16string PosixEnv::specialFolder(int csidl) {
  if (csidl != kCsidlLocalAppData) return {};
  std::string path;
  if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg && xdg[0] == '/') {
    path = xdg;
  } else {
    const std::string home = homeFolder();
    if (home.empty()) return {};
    path = home + "/.local/share";
  }
  // Made on first use, as the desktop makes its own, so that the folders
  // below it can be made one at a time.
  for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    mkdir(path.substr(0, slash).c_str(), 0700);
    if (slash == std::string::npos) break;
  }
  return widen(path);
}

std::string homeFolder() {
  if (const char* variable = std::getenv("HOME"); variable && variable[0]) return variable;
  // A service or a job started without the login's environment.
  struct passwd entry;
  struct passwd* found = nullptr;
  char buffer[4096];
  if (getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &found) == 0 && found && found->pw_dir)
    return found->pw_dir;
  return {};
}

std::u16string PosixEnv::moduleFileName() {
  Dl_info info;
  struct link_map* map = nullptr;
  // The program itself has an empty link-map name, and dladdr then reports
  // argv[0], which may be relative or a bare name found on PATH.
  if (dladdr1(reinterpret_cast<void*>(&moduleAnchor), &info, reinterpret_cast<void**>(&map),
              RTLD_DL_LINKMAP) &&
      map && map->l_name && map->l_name[0] == '/') {
    char resolved[PATH_MAX];
    if (realpath(map->l_name, resolved)) return widen(resolved);
  }
  return hostExecutablePath();
}

std::u16string PosixEnv::hostExecutablePath() {
  char buffer[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  if (n <= 0) return {};
  return widen(std::string(buffer, size_t(n)));
}

bool PosixEnv::pathStatus(const std::u16string& path) {
  struct stat st;
  return stat(narrow(path).c_str(), &st) == 0;
}

bool PosixEnv::makeDirectory(const std::u16string& path) {
  return mkdir(narrow(path).c_str(), 0777) == 0;
}

OpenAlwaysResult PosixEnv::openAlways(const std::u16string& path) {
  std::string native = narrow(path);
  int fd = open(native.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd >= 0) {
    close(fd);
    return OpenAlwaysResult::Created;
  }
  if (errno != EEXIST) return OpenAlwaysResult::Failed;
  fd = open(native.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) return OpenAlwaysResult::Failed;
  close(fd);
  return OpenAlwaysResult::AlreadyExisted;
}

std::unique_ptr<WritableFile> PosixEnv::openForWriting(const std::u16string& path) {
  return StdioWritableFile::adopt(std::fopen(narrow(path).c_str(), "wbe"));
}

bool PosixEnv::listFolder(const std::u16string& folder, std::vector<FolderEntry>& entries) {
  const std::string native = narrow(folder);
  std::unique_ptr<DIR, DirCloser> dir(opendir(native.c_str()));
  if (!dir) return false;
  while (const struct dirent* entry = readdir(dir.get())) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    FolderEntry out;
    out.name = widen(name);
    struct stat st;
    // An entry that vanished since readdir is still listed, without bits.
    if (stat((native + "/" + name).c_str(), &st) == 0) {
      if (S_ISDIR(st.st_mode)) out.attributes |= kFileAttributeDirectory;
      if (!(st.st_mode & S_IWUSR)) out.attributes |= kFileAttributeReadOnly;
    }
    entries.push_back(std::move(out));
  }
  return true;
}

bool PosixEnv::removeFile(const std::u16string& path) { return unlink(narrow(path).c_str()) == 0; }

bool PosixEnv::replaceFile(const std::u16string& from, const std::u16string& to) {
  return rename(narrow(from).c_str(), narrow(to).c_str()) == 0;
}

bool PosixEnv::stdoutIsTerminal() { return isatty(STDOUT_FILENO) == 1; }

void PosixEnv::lowerThreadPriority() {
  // Linux keeps a nice value per thread; the thread id selects it.
  const id_t self = static_cast<id_t>(syscall(SYS_gettid));
  errno = 0;
  const int nice = getpriority(PRIO_PROCESS, self);
  if (errno == 0) setpriority(PRIO_PROCESS, self, nice + 1);
}

// ---------------------------------------------------------------------------

ThreadLocalSlot::ThreadLocalSlot() {
  pthread_key_t key;
  if (pthread_key_create(&key, nullptr) == 0) {
    key_ = static_cast<unsigned long>(key);
    valid_ = true;
  }
}

ThreadLocalSlot::~ThreadLocalSlot() {
  if (valid_) pthread_key_delete(static_cast<pthread_key_t>(key_));
}

void* ThreadLocalSlot::get() const { return pthread_getspecific(static_cast<pthread_key_t>(key_)); }

void ThreadLocalSlot::set(void* value) {
  pthread_setspecific(static_cast<pthread_key_t>(key_), value);
}

uint32_t currentThreadId() { return static_cast<uint32_t>(syscall(SYS_gettid)); }

}  // namespace PIM

#include <shlobj.h>
#include <windows.h>

#include "platform/stdio_file.h"
#include "platform/thread_local_slot.h"
#include "platform/win32/own_module.h"
#include "platform/win32/win32_env.h"

namespace PIM {

namespace {

SystemTime fromSystemTime(const SYSTEMTIME& s) {
  SystemTime t;
  t.year = s.wYear;
  t.month = s.wMonth;
  t.dayOfWeek = s.wDayOfWeek;
  t.day = s.wDay;
  t.hour = s.wHour;
  t.minute = s.wMinute;
  t.second = s.wSecond;
  t.milliseconds = s.wMilliseconds;
  return t;
}

std::u16string moduleName(HMODULE module, DWORD capacity) {
  std::wstring buffer(capacity, L'\0');
  DWORD n = GetModuleFileNameW(module, buffer.data(), capacity);
  if (n == 0 || n >= capacity) return {};
  buffer.resize(n);
  return fromWide(buffer.c_str());
}

}  // namespace

Env* Env::platformDefault() {
  static Win32Env* instance = new Win32Env();  // never freed: used until exit
  return instance;
}

Win32Env::Win32Env() = default;
Win32Env::~Win32Env() = default;

SystemTime Win32Env::systemTimeNow() {
  SYSTEMTIME s;
  GetSystemTime(&s);
  return fromSystemTime(s);
}

SystemTime Win32Env::localTimeNow() {
  SYSTEMTIME s;
  GetLocalTime(&s);
  return fromSystemTime(s);
}

TimeZoneInfo Win32Env::timeZone() {
  TIME_ZONE_INFORMATION tz;
  DWORD state = GetTimeZoneInformation(&tz);
  TimeZoneInfo info;
  info.bias = tz.Bias;
  info.standardBias = tz.StandardBias;
  info.daylightBias = tz.DaylightBias;
  info.state = state == TIME_ZONE_ID_STANDARD   ? TimeZoneState::Standard
               : state == TIME_ZONE_ID_DAYLIGHT ? TimeZoneState::Daylight
                                                : TimeZoneState::Unknown;
  return info;
}

uint32_t Win32Env::tickCount() { return GetTickCount(); }

std::u16string Win32Env::specialFolder(int csidl) {
  LPITEMIDLIST items = nullptr;
  if (FAILED(SHGetSpecialFolderLocation(nullptr, csidl, &items)) || !items) return {};
  wchar_t path[MAX_PATH + 1] = {};
  BOOL ok = SHGetPathFromIDListW(items, path);
  CoTaskMemFree(items);
  return ok ? fromWide(path) : std::u16string();
}

std::u16string Win32Env::moduleFileName() { return moduleName(ownModule(), 520); }

std::u16string Win32Env::hostExecutablePath() { return moduleName(nullptr, 1040); }

bool Win32Env::pathStatus(const std::u16string& path) {
  return GetFileAttributesW(wide(path)) != INVALID_FILE_ATTRIBUTES;
}

bool Win32Env::makeDirectory(const std::u16string& path) {
  SECURITY_ATTRIBUTES security = {sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
  return CreateDirectoryW(wide(path), &security) != FALSE;
}

OpenAlwaysResult Win32Env::openAlways(const std::u16string& path) {
  HANDLE file = CreateFileW(wide(path), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL, nullptr);
  DWORD error = GetLastError();
  if (file == INVALID_HANDLE_VALUE) return OpenAlwaysResult::Failed;
  CloseHandle(file);
  return error == ERROR_ALREADY_EXISTS ? OpenAlwaysResult::AlreadyExisted
                                       : OpenAlwaysResult::Created;
}

std::unique_ptr<WritableFile> Win32Env::openForWriting(const std::u16string& path) {
  return StdioWritableFile::adopt(_wfopen(wide(path), L"wb"));
}

namespace {
struct FindCloser {
  void operator()(HANDLE find) const { FindClose(find); }
};
}  // namespace

bool Win32Env::listFolder(const std::u16string& folder, std::vector<FolderEntry>& entries) {
  const std::u16string pattern = folder + u"\\*";
  WIN32_FIND_DATAW data;
  HANDLE first = FindFirstFileW(wide(pattern), &data);
  if (first == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_FILE_NOT_FOUND;
  std::unique_ptr<void, FindCloser> find(first);
  do {
    const std::u16string name = fromWide(data.cFileName);
    if (name == u"." || name == u"..") continue;
    entries.push_back({name, static_cast<uint32_t>(data.dwFileAttributes)});
  } while (FindNextFileW(find.get(), &data));
  return true;
}

bool Win32Env::removeFile(const std::u16string& path) { return DeleteFileW(wide(path)) != FALSE; }

bool Win32Env::replaceFile(const std::u16string& from, const std::u16string& to) {
  // Fails while a reader holds `to` open without delete sharing; the caller
  // then falls back to writing in place.
  return MoveFileExW(wide(from), wide(to), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) !=
         FALSE;
}

bool Win32Env::stdoutIsTerminal() {
  // A console answers GetConsoleMode; a file or a pipe does not.
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &mode) != FALSE;
}

void Win32Env::lowerThreadPriority() {
  SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_BELOW_NORMAL);
}

// ---------------------------------------------------------------------------

ThreadLocalSlot::ThreadLocalSlot() {
  DWORD index = TlsAlloc();
  if (index != TLS_OUT_OF_INDEXES) {
    key_ = index;
    valid_ = true;
  }
}

ThreadLocalSlot::~ThreadLocalSlot() {
  if (valid_) TlsFree(key_);
}

void* ThreadLocalSlot::get() const { return TlsGetValue(key_); }

void ThreadLocalSlot::set(void* value) { TlsSetValue(key_, value); }

uint32_t currentThreadId() { return GetCurrentThreadId(); }

}  // namespace PIM

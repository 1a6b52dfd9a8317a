#include "addin/sim/sim_host_win32.h"

#include <ole2.h>
#include <prsht.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "addin/sim/office_model.h"
#include "extensibility.h"
#include "mapi/mapi_ptr.h"

namespace Sim {
namespace {

using OfficeModel::fromUtf8;
using OfficeModel::toUtf8;
using PIM::ComPtr;

// ---- output -----------------------------------------------------------------

// One fact a line on stdout, flushed at once so that a test sees everything
// printed before a crash.
void say(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::vfprintf(stdout, format, args);
  va_end(args);
  std::fputc('\n', stdout);
  std::fflush(stdout);
}

std::string hex(HRESULT hr) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08lX", static_cast<unsigned long>(hr));
  return text;
}

double nowMs() {
  static const double perMs = [] {
    LARGE_INTEGER f;
    QueryPerformanceFrequency(&f);
    return static_cast<double>(f.QuadPart) / 1000.0;
  }();
  LARGE_INTEGER t;
  QueryPerformanceCounter(&t);
  return static_cast<double>(t.QuadPart) / perMs;
}

std::string guidText(const GUID& g) {
  wchar_t text[40] = {};
  StringFromGUID2(g, text, 40);
  return toUtf8(text);
}

// ---- owners -------------------------------------------------------------------

class RegKey {
 public:
  RegKey() = default;
  RegKey(const RegKey&) = delete;
  RegKey& operator=(const RegKey&) = delete;
  ~RegKey() {
    if (key_) RegCloseKey(key_);
  }
  bool open(HKEY parent, const std::wstring& path) {
    return RegOpenKeyExW(parent, path.c_str(), 0, KEY_READ, &key_) == ERROR_SUCCESS;
  }
  HKEY get() const { return key_; }

  std::optional<DWORD> dword(const wchar_t* name) const {
    DWORD type = 0, value = 0, size = sizeof value;
    if (RegQueryValueExW(key_, name, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size) !=
            ERROR_SUCCESS ||
        type != REG_DWORD)
      return std::nullopt;
    return value;
  }
  // A REG_SZ or REG_EXPAND_SZ value (expanded); empty when missing.
  std::wstring text(const wchar_t* name) const {
    DWORD type = 0, size = 0;
    if (RegQueryValueExW(key_, name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS ||
        (type != REG_SZ && type != REG_EXPAND_SZ))
      return {};
    std::wstring value(size / sizeof(wchar_t) + 1, L'\0');
    if (RegQueryValueExW(key_, name, nullptr, &type, reinterpret_cast<BYTE*>(value.data()),
                         &size) != ERROR_SUCCESS)
      return {};
    value.resize(wcsnlen(value.c_str(), value.size()));
    if (type == REG_EXPAND_SZ) {
      wchar_t expanded[MAX_PATH * 2] = {};
      if (ExpandEnvironmentStringsW(value.c_str(), expanded, MAX_PATH * 2)) value = expanded;
    }
    return value;
  }

 private:
  HKEY key_ = nullptr;
};

class SafeArray {
 public:
  SafeArray() : array_(SafeArrayCreateVector(VT_VARIANT, 0, 0)) {}
  SafeArray(const SafeArray&) = delete;
  SafeArray& operator=(const SafeArray&) = delete;
  ~SafeArray() {
    if (array_) SafeArrayDestroy(array_);
  }
  // The add-in may replace the array it is given: whatever it leaves is ours.
  SAFEARRAY** slot() { return &array_; }

 private:
  SAFEARRAY* array_;
};

class FileHandle {
 public:
  explicit FileHandle(HANDLE h) : h_(h) {}
  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;
  ~FileHandle() {
    if (valid()) CloseHandle(h_);
  }
  bool valid() const { return h_ != INVALID_HANDLE_VALUE; }
  HANDLE get() const { return h_; }

 private:
  HANDLE h_;
};

// ---- the registry's add-ins -----------------------------------------------------

constexpr wchar_t kAddinsKey[] = L"Software\\Microsoft\\Office\\Outlook\\Addins";

struct AddinEntry {
  const char* hive;
  std::wstring progId;
  std::wstring friendlyName;
};

// Reads Outlook's add-in lists, machine first, then user; prints every entry
// and returns those to load (LoadBehavior 3, each ProgID once).
std::vector<AddinEntry> readAddins(const std::string& only) {
  std::vector<AddinEntry> load;
  const std::pair<HKEY, const char*> hives[] = {{HKEY_LOCAL_MACHINE, "HKLM"},
                                                {HKEY_CURRENT_USER, "HKCU"}};
  for (const auto& [hive, hiveName] : hives) {
    RegKey addins;
    if (!addins.open(hive, kAddinsKey)) continue;
    for (DWORD i = 0;; ++i) {
      wchar_t name[256];
      DWORD length = 256;
      LONG rc = RegEnumKeyExW(addins.get(), i, name, &length, nullptr, nullptr, nullptr, nullptr);
      if (rc == ERROR_NO_MORE_ITEMS) break;
      if (rc != ERROR_SUCCESS) continue;
      RegKey entry;
      if (!entry.open(addins.get(), name)) continue;
      std::optional<DWORD> behavior = entry.dword(L"LoadBehavior");
      std::string progId = toUtf8(name);
      bool duplicate = std::any_of(load.begin(), load.end(), [&](const AddinEntry& e) {
        return _wcsicmp(e.progId.c_str(), name) == 0;
      });
      bool wanted = only.empty() || _wcsicmp(fromUtf8(only).c_str(), name) == 0;
      bool loads = behavior == 3u && !duplicate && wanted;
      say("registry hive=%s progid=%s LoadBehavior=%s load=%d%s", hiveName, progId.c_str(),
          behavior ? std::to_string(*behavior).c_str() : "-", loads ? 1 : 0,
          duplicate ? " duplicate=1" : "");
      if (loads) load.push_back({hiveName, name, entry.text(L"FriendlyName")});
    }
  }
  return load;
}

std::wstring inprocServerPath(const CLSID& clsid) {
  wchar_t text[40] = {};
  StringFromGUID2(clsid, text, 40);
  RegKey server;
  if (!server.open(HKEY_CLASSES_ROOT, std::wstring(L"CLSID\\") + text + L"\\InprocServer32"))
    return {};
  return server.text(nullptr);
}

// ---- the message loop -------------------------------------------------------------

// Pumps this thread's messages and keeps the figures of the longest single
// dispatch (from a message's retrieval to the return of DispatchMessage).
class Loop {
 public:
  // Pumps until `done()` holds (checked at least every 10 ms) or `ms` have
  // passed; true when `done()` held.
  template <class Done>
  bool until(double ms, Done done) {
    double deadline = nowMs() + ms;
    while (true) {
      drain();
      if (done()) return true;
      double left = deadline - nowMs();
      if (left <= 0) return false;
      MsgWaitForMultipleObjectsEx(0, nullptr, static_cast<DWORD>(std::min(left, 10.0)) + 1,
                                  QS_ALLINPUT, MWMO_INPUTAVAILABLE);
    }
  }
  void drain() {
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
      double start = nowMs();
      if (msg.message == WM_QUIT) {
        quits_++;
        continue;
      }
      // The stand-in's own command timer is not the add-in's doing.
      bool own = ownTimer_ && msg.message == WM_TIMER && !msg.hwnd && msg.wParam == ownTimer_;
      bool outer = inOwnTimer_;
      inOwnTimer_ = own;
      TranslateMessage(&msg);
      DispatchMessageW(&msg);
      inOwnTimer_ = outer;
      if (own) continue;
      maxBlockedMs_ = std::max(maxBlockedMs_, nowMs() - start);
      messages_++;
    }
  }
  void setOwnTimer(UINT_PTR id) { ownTimer_ = id; }
  // True while this loop (not a modal loop the add-in runs) dispatches the
  // command timer.
  bool inOwnTimer() const { return inOwnTimer_; }
  void report() const {
    say("loop max_blocked_ms=%.2f messages=%ld%s", maxBlockedMs_, messages_,
        quits_ ? (" quit=" + std::to_string(quits_)).c_str() : "");
  }

 private:
  double maxBlockedMs_ = 0;
  long messages_ = 0;
  long quits_ = 0;
  UINT_PTR ownTimer_ = 0;
  bool inOwnTimer_ = false;
};

// Looks for text written to a log after a mark. Each file's mark starts where
// the file ended when the stand-in started (before any add-in loaded), and
// moves past each match, so a text written twice is waited for twice and a
// line written before the wait began (by a worker thread, say) still counts.
class LogWatch {
 public:
  explicit LogWatch(const std::string& path) : path_(fromUtf8(path)) {
    FileHandle f(open());
    LARGE_INTEGER size{};
    if (f.valid() && GetFileSizeEx(f.get(), &size)) mark_ = size.QuadPart;
  }

  bool find(const std::string& text) {
    readNew();
    std::string needle = text;
    if (utf16_) {
      std::wstring wide = fromUtf8(text);
      needle.assign(reinterpret_cast<const char*>(wide.data()), wide.size() * sizeof(wchar_t));
    }
    size_t at = seen_.find(needle);
    if (at == std::string::npos) return false;
    size_t consumed = at + needle.size();
    mark_ += static_cast<long long>(consumed);
    seen_.erase(0, consumed);
    return true;
  }

 private:
  HANDLE open() const {
    return CreateFileW(path_.c_str(), GENERIC_READ,
                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                       OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  }
  // Appends what the file gained since the last read to `seen_`.
  void readNew() {
    FileHandle f(open());
    if (!f.valid()) return;
    char bom[2] = {};
    DWORD got = 0;
    if (ReadFile(f.get(), bom, 2, &got, nullptr) && got == 2)
      utf16_ =
          static_cast<unsigned char>(bom[0]) == 0xFF && static_cast<unsigned char>(bom[1]) == 0xFE;
    LARGE_INTEGER at;
    at.QuadPart = mark_ + static_cast<long long>(seen_.size());
    if (!SetFilePointerEx(f.get(), at, nullptr, FILE_BEGIN)) return;
    char buffer[65536];
    while (ReadFile(f.get(), buffer, sizeof buffer, &got, nullptr) && got > 0)
      seen_.append(buffer, got);
  }

  std::wstring path_;
  long long mark_ = 0;  // file offset of seen_[0]
  std::string seen_;    // the file's bytes from mark_ on, as far as read
  bool utf16_ = false;
};

// ---- dialogs of the stand-in's thread ------------------------------------------------

bool isDialog(HWND window) {
  wchar_t name[16] = {};
  return GetClassNameW(window, name, 16) && std::wcscmp(name, L"#32770") == 0;
}

BOOL CALLBACK collectDialog(HWND window, LPARAM list) {
  if (IsWindowVisible(window) && isDialog(window))
    reinterpret_cast<std::vector<HWND>*>(list)->push_back(window);
  return TRUE;
}

// The thread's visible dialogs, from the front.
std::vector<HWND> threadDialogs() {
  std::vector<HWND> found;
  EnumThreadWindows(GetCurrentThreadId(), &collectDialog, reinterpret_cast<LPARAM>(&found));
  return found;
}

std::string windowText(HWND window) {
  int length = GetWindowTextLengthW(window);
  std::wstring text(static_cast<size_t>(length) + 1, L'\0');
  text.resize(static_cast<size_t>(std::max(0, GetWindowTextW(window, text.data(), length + 1))));
  return toUtf8(text);
}

// A text on one line: line breaks, tabs, quotes and backslashes escaped.
std::string escaped(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '\r':
        out += "\\r";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      default:
        out += c;
    }
  }
  return out;
}

// A property sheet's current page; none for any other dialog.
HWND currentPage(HWND dialog) {
  auto page = reinterpret_cast<HWND>(SendMessageW(dialog, PSM_GETCURRENTPAGEHWND, 0, 0));
  return page && IsChild(dialog, page) ? page : nullptr;
}

// ---- the add-ins --------------------------------------------------------------------

struct Addin {
  AddinEntry entry;
  CLSID clsid{};
  std::wstring path;
  HMODULE module = nullptr;  // the add-in's DLL, found while it is loaded
  ComPtr<IUnknown> object;
  ComPtr<IDTExtensibility2> extension;
  ComPtr<IDispatch> addInInstance;
  bool connected = false;
  double startMs = 0;  // just before CoGetClassObject
  double endMs = 0;    // the end of OnStartupComplete, or of OnConnection when that is the last
  double classObjectMs = 0, createMs = 0, connectMs = 0, startupCompleteMs = 0;
};

class Host {
 public:
  explicit Host(const Options& options) : options_(options) {
    for (const Command& c : options_.commands)
      if (c.kind == Command::Kind::WaitLog && !watches_.count(c.log))
        watches_.emplace(c.log, std::make_unique<LogWatch>(c.log));
  }

  int run();

 private:
  bool startMapi();
  void stopMapi();
  bool load(const AddinEntry& entry);
  void connect(Addin& addin);
  void startupComplete(Addin& addin);
  void dispatchCheck(Addin& addin);
  void printButtons();
  void printCalls();
  enum class Step { Done, Waiting, Failed };
  static void CALLBACK onTick(HWND, UINT, UINT_PTR, DWORD);
  void runCommands();
  void tick();
  Step check(const Command& c);
  bool act(const Command& c);
  bool click(const Command& c);
  HWND dialog(const char* command);
  bool setText(const Command& c);
  bool press(const Command& c);
  bool selectPage(const Command& c);
  bool printTexts();
  void shutdown();
  void checkUnload(Addin& addin);
  void failed(const std::string& why) {
    say("error %s", why.c_str());
    status_ = kExitFailed;
  }

  const Options& options_;
  std::unique_ptr<OfficeModel::Office> office_;
  std::vector<std::unique_ptr<Addin>> addins_;
  std::map<std::string, std::unique_ptr<LogWatch>> watches_;
  Loop loop_;
  ComPtr<IMAPISession> session_;
  bool mapiStarted_ = false;
  bool shutDown_ = false;
  size_t callsPrinted_ = 0;
  int status_ = kExitOk;
  // The commands' progress: the next to run, when it began, and whether a
  // failure ended them.
  size_t next_ = 0;
  double stepStartMs_ = -1;
  bool stopped_ = false;
  HWND dialog_ = nullptr;    // the one --dialog chose
  std::string dialogTitle_;  // its caption when chosen
  std::set<HWND> closing_;   // dialogs closed after a failure
  static Host* ticking_;
};

Host* Host::ticking_ = nullptr;

bool Host::startMapi() {
  MAPIINIT_0 init{MAPI_INIT_VERSION, 0};
  HRESULT hr = MAPIInitialize(&init);
  say("call MAPIInitialize hr=%s", hex(hr).c_str());
  if (SUCCEEDED(hr)) {
    mapiStarted_ = true;
    // Outlook's own logon, which the add-in's later joins.
    hr = MAPILogonEx(0, nullptr, nullptr, MAPI_EXTENDED | MAPI_USE_DEFAULT | MAPI_NO_MAIL,
                     session_.put());
    say("call MAPILogonEx hr=%s", hex(hr).c_str());
  }
  if (SUCCEEDED(hr)) return true;
  if (options_.noMapi) {
    say("mapi off");
    return true;
  }
  failed("MAPI did not start (--no-mapi goes on without it)");
  return false;
}

void Host::stopMapi() {
  if (session_) {
    HRESULT hr = session_->Logoff(0, 0, 0);
    say("call Logoff hr=%s", hex(hr).c_str());
    session_.reset();
  }
  if (mapiStarted_) MAPIUninitialize();
  mapiStarted_ = false;
}

bool Host::load(const AddinEntry& entry) {
  auto addin = std::make_unique<Addin>();
  addin->entry = entry;
  std::string progId = toUtf8(entry.progId);
  HRESULT hr = CLSIDFromProgID(entry.progId.c_str(), &addin->clsid);
  if (FAILED(hr)) {
    say("error addin %s CLSIDFromProgID hr=%s", progId.c_str(), hex(hr).c_str());
    return false;
  }
  addin->path = inprocServerPath(addin->clsid);
  say("addin %s clsid=%s path=%s", progId.c_str(), guidText(addin->clsid).c_str(),
      toUtf8(addin->path).c_str());

  addin->startMs = nowMs();
  ComPtr<IClassFactory> factory;
  hr = CoGetClassObject(addin->clsid, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory,
                        factory.putVoid());
  double gotFactory = nowMs();
  addin->classObjectMs = gotFactory - addin->startMs;
  say("call CoGetClassObject hr=%s ms=%.2f", hex(hr).c_str(), addin->classObjectMs);
  if (FAILED(hr)) return false;
  hr = factory->CreateInstance(nullptr, IID_IUnknown, addin->object.putVoid());
  addin->createMs = nowMs() - gotFactory;
  say("call CreateInstance hr=%s ms=%.2f", hex(hr).c_str(), addin->createMs);
  if (FAILED(hr) || !addin->object) return false;
  hr = addin->object.queryInterface(IID_IDTExtensibility2, addin->extension);
  say("call QueryInterface(IDTExtensibility2) hr=%s", hex(hr).c_str());
  if (FAILED(hr) || !addin->extension) return false;

  // The DLL is found by its registered path, as the brief check at the end
  // needs it; the object's own code is the fallback when the path differs
  // from the loaded name (8.3 forms, another drive letter).
  addin->module = GetModuleHandleW(addin->path.c_str());
  if (!addin->module)
    GetModuleHandleExW(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        *reinterpret_cast<LPCWSTR*>(addin->extension.get()), &addin->module);
  addin->addInInstance.reset(OfficeModel::makeAddInInstance(
      entry.progId, entry.friendlyName.empty() ? entry.progId : entry.friendlyName));
  addins_.push_back(std::move(addin));
  return true;
}

void Host::connect(Addin& addin) {
  ext_ConnectMode mode = options_.mode == Mode::Startup ? ext_cm_Startup : ext_cm_AfterStartup;
  IDispatch* application = options_.nullApp ? nullptr : office_->application();
  SafeArray custom;
  double start = nowMs();
  HRESULT hr =
      addin.extension->OnConnection(application, mode, addin.addInInstance.get(), custom.slot());
  addin.endMs = nowMs();
  addin.connectMs = addin.endMs - start;
  addin.connected = SUCCEEDED(hr);
  printCalls();
  say("call OnConnection mode=%d hr=%s ms=%.2f", static_cast<int>(mode), hex(hr).c_str(),
      addin.connectMs);
}

void Host::startupComplete(Addin& addin) {
  SafeArray custom;
  double start = nowMs();
  HRESULT hr = addin.extension->OnStartupComplete(custom.slot());
  addin.endMs = nowMs();
  addin.startupCompleteMs = addin.endMs - start;
  printCalls();
  say("call OnStartupComplete hr=%s ms=%.2f", hex(hr).c_str(), addin.startupCompleteMs);
  if (FAILED(hr)) failed("OnStartupComplete failed");
}

// The add-in through IDispatch alone: each dual interface describes itself
// (one type information, named by its own interface) and the extensibility
// interface's methods are reached by name.
void Host::dispatchCheck(Addin& addin) {
  auto describe = [this](const char* what, IDispatch* dispatch) {
    UINT count = 0;
    HRESULT hr = dispatch->GetTypeInfoCount(&count);
    ComPtr<ITypeInfo> info;
    if (SUCCEEDED(hr)) hr = dispatch->GetTypeInfo(0, LOCALE_USER_DEFAULT, info.put());
    BSTR name = nullptr;
    if (SUCCEEDED(hr)) hr = info->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr);
    say("dispatch %s typeinfo_count=%u name=%ls hr=%s", what, count, name ? name : L"-",
        hex(hr).c_str());
    SysFreeString(name);
    if (FAILED(hr)) failed("the add-in's type information is missing");
  };
  describe("extensibility", addin.extension.get());
  ComPtr<IDispatch> own;
  HRESULT hr = addin.object->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(own.put()));
  if (FAILED(hr)) {
    say("dispatch object hr=%s", hex(hr).c_str());
    failed("the add-in has no IDispatch");
    return;
  }
  describe("object", own.get());

  wchar_t methodName[] = L"OnAddInsUpdate";
  LPOLESTR names[] = {methodName};
  DISPID id = DISPID_UNKNOWN;
  hr = addin.extension->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
  SafeArray custom;
  VARIANT argument;
  VariantInit(&argument);
  argument.vt = VT_ARRAY | VT_VARIANT | VT_BYREF;
  argument.pparray = custom.slot();
  DISPPARAMS params{&argument, nullptr, 1, 0};
  if (SUCCEEDED(hr))
    hr = addin.extension->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params,
                                 nullptr, nullptr, nullptr);
  say("dispatch OnAddInsUpdate dispid=%ld hr=%s", static_cast<long>(id), hex(hr).c_str());
  if (FAILED(hr)) failed("OnAddInsUpdate through IDispatch failed");
}

std::string quoted(const std::optional<std::string>& text) {
  return text ? "\"" + *text + "\"" : "-";
}
template <class T>
std::string number(const std::optional<T>& n) {
  return n ? std::to_string(*n) : "-";
}
std::string size(const std::optional<OfficeModel::PictureSize>& s) {
  return s ? std::to_string(s->width) + "x" + std::to_string(s->height) : "-";
}

void Host::printButtons() {
  std::vector<OfficeModel::ButtonInfo> buttons = office_->buttons();
  say("buttons count=%zu", buttons.size());
  for (const auto& b : buttons) {
    std::optional<int> visible;
    if (b.visible) visible = *b.visible ? -1 : 0;
    say("button bar=\"%s\" index=%d caption=%s faceid=%s style=%s visible=%s temporary=%d "
        "tooltip=%s description=%s picture=%s mask=%s number=%d sinks=%d bar_index=%d",
        b.bar.c_str(), b.index, quoted(b.caption).c_str(), number(b.faceId).c_str(),
        number(b.style).c_str(), number(visible).c_str(), b.temporary ? 1 : 0,
        quoted(b.tooltip).c_str(), quoted(b.description).c_str(), size(b.picture).c_str(),
        size(b.mask).c_str(), b.number, b.sinks, b.barIndex);
  }
}

// Prints what the add-in did to the Office objects since the last time.
void Host::printCalls() {
  const auto& calls = office_->calls();
  for (; callsPrinted_ < calls.size(); ++callsPrinted_)
    say("office %s", calls[callsPrinted_].c_str());
}

// The commands run from a thread timer: its messages are dispatched by any
// loop on this thread, also the modal one of a dialog the add-in shows, so
// the commands can act on that dialog and go on while it is up.
void CALLBACK Host::onTick(HWND, UINT, UINT_PTR, DWORD) {
  if (ticking_) ticking_->tick();
}

void Host::runCommands() {
  ticking_ = this;
  UINT_PTR timer = SetTimer(nullptr, 0, USER_TIMER_MINIMUM, &Host::onTick);
  loop_.setOwnTimer(timer);
  tick();
  loop_.until(std::numeric_limits<double>::infinity(),
              [&] { return stopped_ || next_ >= options_.commands.size(); });
  KillTimer(nullptr, timer);
  loop_.setOwnTimer(0);
  ticking_ = nullptr;
}

void Host::tick() {
  const std::vector<Command>& commands = options_.commands;
  while (!stopped_ && next_ < commands.size()) {
    const Command& c = commands[next_];
    if (stepStartMs_ < 0) stepStartMs_ = nowMs();
    Step step = check(c);
    if (step == Step::Waiting) return;
    // Moved on before an action runs: a modal loop it enters runs the next
    // commands from there.
    ++next_;
    stepStartMs_ = -1;
    if (step == Step::Failed || (step == Step::Done && !act(c))) stopped_ = true;
  }
  // A failure inside a modal loop: the dialogs are closed so that the
  // stand-in gets back to shut down.
  if (stopped_ && !loop_.inOwnTimer())
    for (HWND d : threadDialogs())
      if (closing_.insert(d).second) PostMessageW(d, WM_CLOSE, 0, 0);
}

// The waiting commands: Waiting until their condition holds, Failed when the
// time limit passed first. Every other command is Done at once.
Host::Step Host::check(const Command& c) {
  double ms = nowMs() - stepStartMs_;
  bool found = false;
  const char* word = "";
  std::string what = "\"" + c.text + "\"";
  switch (c.kind) {
    case Command::Kind::Pump:
      if (ms < c.number) return Step::Waiting;
      say("pump ms=%d", c.number);
      return Step::Done;
    case Command::Kind::WaitLog:
      word = "wait-log";
      found = watches_.at(c.log)->find(c.text);
      break;
    case Command::Kind::WaitFile:
      word = "wait-file";
      found = GetFileAttributesW(fromUtf8(c.text).c_str()) != INVALID_FILE_ATTRIBUTES;
      break;
    case Command::Kind::Dialog: {
      word = "dialog";
      std::vector<HWND> dialogs = threadDialogs();
      HWND chosen = nullptr;
      if (c.text[0] == '#') {
        if (c.number <= static_cast<int>(dialogs.size())) chosen = dialogs[c.number - 1];
      } else {
        for (HWND d : dialogs)
          if (!chosen && windowText(d) == c.text) chosen = d;
      }
      if (chosen) {
        dialog_ = chosen;
        dialogTitle_ = windowText(chosen);
        what = "\"" + dialogTitle_ + "\"";
        found = true;
      }
      break;
    }
    case Command::Kind::WaitClosed:
      word = "wait-closed";
      if (!dialog_) {
        failed("wait-closed: no dialog (--dialog chooses one)");
        return Step::Failed;
      }
      what = "\"" + dialogTitle_ + "\"";
      found = !IsWindow(dialog_);
      if (found) dialog_ = nullptr;
      break;
    default:
      return Step::Done;
  }
  if (!found) {
    if (ms < c.timeoutS * 1000.0) return Step::Waiting;
    char limit[32];
    std::snprintf(limit, sizeof limit, "%.1f", c.timeoutS);
    failed(std::string(word) + " " + what + " timed out after " + limit + " s");
    return Step::Failed;
  }
  printCalls();
  say("%s %s found ms=%.0f", word, what.c_str(), ms);
  return Step::Done;
}

bool Host::act(const Command& c) {
  switch (c.kind) {
    case Command::Kind::Shutdown:
      shutdown();
      return true;
    case Command::Kind::Click:
      return click(c);
    case Command::Kind::SetText:
      return setText(c);
    case Command::Kind::Press:
      return press(c);
    case Command::Kind::SelectPage:
      return selectPage(c);
    case Command::Kind::PrintTexts:
      return printTexts();
    default:
      return true;  // the waits, done in check()
  }
}

bool Host::click(const Command& c) {
  std::vector<OfficeModel::ButtonInfo> buttons = office_->buttons();
  int number = c.number;
  if (c.text[0] != '#') {
    auto it = std::find_if(buttons.begin(), buttons.end(),
                           [&](const auto& b) { return b.caption == c.text; });
    number = it == buttons.end() ? 0 : it->number;
  }
  if (number < 1 || number > static_cast<int>(buttons.size())) {
    failed("click: no button " + c.text);
    return false;
  }
  const auto& b = buttons[number - 1];
  double start = nowMs();
  HRESULT hr = office_->click(number);
  double ms = nowMs() - start;
  printCalls();
  say("click caption=%s number=%d sinks=%d hr=%s ms=%.2f", quoted(b.caption).c_str(), number,
      b.sinks, hex(hr).c_str(), ms);
  return true;
}

// The dialog --dialog chose, while it is there.
HWND Host::dialog(const char* command) {
  if (!dialog_) {
    failed(std::string(command) + ": no dialog (--dialog chooses one)");
    return nullptr;
  }
  if (!IsWindow(dialog_)) {
    failed(std::string(command) + ": the dialog \"" + dialogTitle_ + "\" is gone");
    dialog_ = nullptr;
  }
  return dialog_;
}

bool Host::setText(const Command& c) {
  HWND d = dialog("set-text");
  if (!d) return false;
  HWND page = currentPage(d);
  HWND control = page ? GetDlgItem(page, c.number) : nullptr;
  const char* where = "page";
  if (!control) {
    control = GetDlgItem(d, c.number);
    where = "dialog";
  }
  if (!control) {
    failed("set-text: no control " + std::to_string(c.number));
    return false;
  }
  std::wstring text = fromUtf8(c.text);
  SendMessageW(control, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text.c_str()));
  say("set-text id=%d where=%s text=\"%s\"", c.number, where, escaped(c.text).c_str());
  return true;
}

// Posted, as a click is: what the press leads to (a message box, the
// dialog's end) happens in the dialog's loop, where the next commands see it.
bool Host::press(const Command& c) {
  HWND d = dialog("press");
  if (!d) return false;
  HWND page = currentPage(d);
  const std::pair<int, WPARAM> sheetButtons[] = {
      {IDOK, PSBTN_OK}, {IDCANCEL, PSBTN_CANCEL}, {IDHELP, PSBTN_HELP}};
  for (const auto& [id, button] : sheetButtons)
    if (page && c.number == id) {
      PostMessageW(d, PSM_PRESSBUTTON, button, 0);
      say("press id=%d by=PSM_PRESSBUTTON", c.number);
      return true;
    }
  HWND control = page ? GetDlgItem(page, c.number) : nullptr;
  if (!control) control = GetDlgItem(d, c.number);
  if (!control) {
    failed("press: no control " + std::to_string(c.number));
    return false;
  }
  PostMessageW(GetParent(control), WM_COMMAND, MAKEWPARAM(c.number, BN_CLICKED),
               reinterpret_cast<LPARAM>(control));
  say("press id=%d by=WM_COMMAND", c.number);
  return true;
}

bool Host::selectPage(const Command& c) {
  HWND d = dialog("select-page");
  if (!d) return false;
  if (!currentPage(d) || !SendMessageW(d, PSM_SETCURSEL, static_cast<WPARAM>(c.number - 1), 0)) {
    failed("select-page: no page " + std::to_string(c.number));
    return false;
  }
  say("select-page %d", c.number);
  return true;
}

// The dialog's own controls, then its current page's, one line each.
bool Host::printTexts() {
  HWND d = dialog("print-texts");
  if (!d) return false;
  HWND page = currentPage(d);
  int pageNumber =
      page ? static_cast<int>(SendMessageW(d, PSM_HWNDTOINDEX, reinterpret_cast<WPARAM>(page), 0)) +
                 1
           : 0;
  say("texts title=\"%s\" page=%d", escaped(windowText(d)).c_str(), pageNumber);
  auto children = [](HWND parent, const char* where) {
    for (HWND w = GetWindow(parent, GW_CHILD); w; w = GetWindow(w, GW_HWNDNEXT)) {
      // A page is listed on its own; hidden controls are not the user's.
      if (isDialog(w) || !IsWindowVisible(w)) continue;
      wchar_t name[64] = {};
      GetClassNameW(w, name, 64);
      say("text where=%s id=%d class=%s text=\"%s\"", where, GetDlgCtrlID(w), toUtf8(name).c_str(),
          escaped(windowText(w)).c_str());
    }
  };
  children(d, "dialog");
  if (page) children(page, "page");
  return true;
}

void Host::shutdown() {
  if (shutDown_) return;
  shutDown_ = true;
  // Outlook tells every add-in that it is closing before it disconnects any.
  for (auto& addin : addins_) {
    if (!addin->connected) continue;
    SafeArray custom;
    double start = nowMs();
    HRESULT hr = addin->extension->OnBeginShutdown(custom.slot());
    double ms = nowMs() - start;
    printCalls();
    say("call OnBeginShutdown hr=%s ms=%.2f", hex(hr).c_str(), ms);
    if (FAILED(hr)) failed("OnBeginShutdown failed");
  }
  for (auto& addin : addins_) {
    // Also after a failed OnConnection: the add-in must survive it.
    SafeArray custom;
    double start = nowMs();
    HRESULT hr = addin->extension->OnDisconnection(ext_dm_HostShutdown, custom.slot());
    double ms = nowMs() - start;
    printCalls();
    say("call OnDisconnection mode=%d hr=%s ms=%.2f", static_cast<int>(ext_dm_HostShutdown),
        hex(hr).c_str(), ms);
    if (FAILED(hr)) failed("OnDisconnection failed");
    addin->addInInstance.reset();
    addin->extension.reset();
    IUnknown* object = addin->object.detach();
    ULONG left = object->Release();
    say("call Release refs=%lu", left);
    checkUnload(*addin);
  }
  say("office references=%ld", office_->outstandingReferences());
}

void Host::checkUnload(Addin& addin) {
  if (!addin.module) {
    say("DllCanUnloadNow module not found");
    return;
  }
  using CanUnload = HRESULT(WINAPI*)();
  auto canUnload = reinterpret_cast<CanUnload>(
      reinterpret_cast<void*>(GetProcAddress(addin.module, "DllCanUnloadNow")));
  if (!canUnload) {
    say("DllCanUnloadNow not exported");
    return;
  }
  say("DllCanUnloadNow hr=%s", hex(canUnload()).c_str());
}

int Host::run() {
  HRESULT hr = OleInitialize(nullptr);
  say("call OleInitialize hr=%s", hex(hr).c_str());
  if (FAILED(hr)) return kExitFailed;
  int result = kExitOk;
  if (startMapi()) {
    OfficeModel::Settings settings;
    settings.bars.clear();
    for (const Bar& b : options_.bars)
      settings.bars.push_back({fromUtf8(b.name), b.existingControls});
    settings.failItem = options_.failItem;
    settings.failApplicationQi = options_.failQi;
    settings.failAdd = options_.failAdd;
    settings.failAdvise = options_.failAdvise;
    office_ = std::make_unique<OfficeModel::Office>(std::move(settings));

    for (const AddinEntry& entry : readAddins(options_.addin)) load(entry);
    if (addins_.empty()) {
      say("error no add-in loaded");
      result = kExitNoAddin;
    } else {
      for (auto& addin : addins_) connect(*addin);
      if (options_.mode == Mode::Startup)
        for (auto& addin : addins_)
          if (addin->connected) startupComplete(*addin);
      if (options_.dispatch)
        for (auto& addin : addins_)
          if (addin->connected) dispatchCheck(*addin);
      for (auto& addin : addins_)
        say("timing class_object_ms=%.2f create_ms=%.2f connect_ms=%.2f startup_complete_ms=%.2f "
            "total_ms=%.2f",
            addin->classObjectMs, addin->createMs, addin->connectMs, addin->startupCompleteMs,
            addin->endMs - addin->startMs);
      bool anyConnected =
          std::any_of(addins_.begin(), addins_.end(), [](const auto& a) { return a->connected; });
      bool anyFailed =
          std::any_of(addins_.begin(), addins_.end(), [](const auto& a) { return !a->connected; });
      if (options_.expectConnectFail && anyConnected) failed("OnConnection was expected to fail");
      if (!options_.expectConnectFail && anyFailed) failed("OnConnection failed");
      printButtons();
      runCommands();
      shutdown();
      loop_.drain();
      CoFreeUnusedLibraries();
      loop_.report();
      result = status_;
    }
    printCalls();
    addins_.clear();
    office_.reset();
  } else {
    result = status_;
  }
  stopMapi();
  OleUninitialize();
  say("exit %d", result);
  return result;
}

}  // namespace

int runHost(const Options& options) {
  Host host(options);
  return host.run();
}

}  // namespace Sim

// What the dialog tests share: running the thread's messages until a
// condition holds, and a watchdog that ends a dialog left open by a failed
// test so that the run goes on.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "core/language_file_testing.h"
#include "core/resource_loader.h"
#include "core/unicode_file_reader.h"
#include "ui/dialog_template.h"
#include "ui/dialog_win32.h"

namespace PIM::testing {

// Dialog template `id` as this module's resources hold it; false, with the
// reason in `error`, when it is missing or cannot be read.
inline bool loadDialogTemplate(UINT id, DialogTemplate& dialog, std::string& error) {
  HRSRC found = FindResourceW(uiModule(), MAKEINTRESOURCEW(id), MAKEINTRESOURCEW(5));
  HGLOBAL loaded = found ? LoadResource(uiModule(), found) : nullptr;
  const auto* bytes = static_cast<const uint8_t*>(loaded ? LockResource(loaded) : nullptr);
  if (!bytes) {
    error = "no dialog template " + std::to_string(id);
    return false;
  }
  return parseDialogTemplate(bytes, SizeofResource(uiModule(), found), dialog, error);
}

// Replaces the language strings with the lines of `text` ("KEY=text", CR
// LF between them), as if read from a language file.
inline void useLanguageText(const std::u16string& text) {
  ResourceLoader::freeInstance();
  UnicodeFileReader reader;
  reader.openBuffer(utf16Bytes(text, true));
  ResourceLoader::instance()->readResourceString(reader);
}

// Whether this session can make windows at all (a display is needed).
inline bool canCreateWindows() {
  HWND probe = CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 10, 10, nullptr, nullptr,
                               GetModuleHandleW(nullptr), nullptr);
  if (!probe) return false;
  DestroyWindow(probe);
  return true;
}

// Delivers the calling thread's messages until `done` answers true; false
// when it still does not after `limitMs` (a test then fails instead of
// hanging). Waits on the message queue between checks, never sleeps.
inline bool pumpUntil(const std::function<bool()>& done, DWORD limitMs = 10000) {
  const DWORD start = GetTickCount();
  while (!done()) {
    if (GetTickCount() - start > limitMs) return false;
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
      TranslateMessage(&msg);
      DispatchMessageW(&msg);
    }
    if (done()) break;
    MsgWaitForMultipleObjects(0, nullptr, FALSE, 10, QS_ALLINPUT);
  }
  return true;
}

// While it lives, a dialog (class "#32770") of the calling thread still
// open `limitMs` after the watchdog started is ended with result -2, and
// fired() tells so. Message boxes are dialogs too. One at a time per thread.
class DialogWatchdog {
 public:
  explicit DialogWatchdog(UINT limitMs = 15000) {
    current() = this;
    timer_ = SetTimer(nullptr, 0, limitMs, &DialogWatchdog::expire);
  }
  ~DialogWatchdog() {
    if (timer_) KillTimer(nullptr, timer_);
    current() = nullptr;
  }
  DialogWatchdog(const DialogWatchdog&) = delete;
  DialogWatchdog& operator=(const DialogWatchdog&) = delete;

  bool fired() const { return fired_; }

 private:
  static DialogWatchdog*& current() {
    static thread_local DialogWatchdog* watchdog = nullptr;
    return watchdog;
  }

  static BOOL CALLBACK endDialog(HWND window, LPARAM) {
    wchar_t name[16] = {};
    GetClassNameW(window, name, 16);
    if (lstrcmpW(name, L"#32770") == 0) ::EndDialog(window, -2);
    return TRUE;
  }

  static void CALLBACK expire(HWND, UINT, UINT_PTR, DWORD) {
    DialogWatchdog* self = current();
    if (!self) return;
    self->fired_ = true;
    EnumThreadWindows(GetCurrentThreadId(), &DialogWatchdog::endDialog, 0);
  }

  UINT_PTR timer_ = 0;
  bool fired_ = false;
};

// Steps run one per timer tick on the dialog's thread while the dialog (and
// any message box over it) runs its own loop. A step answers false to be
// tried again on the next tick. A run that has not done every step after
// some seconds fails, and its windows are closed so that the test ends.
class DialogDriver {
 public:
  using Step = std::function<bool(HWND dialog)>;

  // The dialog the steps get: the one of this thread titled `title`, or
  // with none the first visible one.
  explicit DialogDriver(const wchar_t* title = nullptr) : title_(title ? title : L"") {}
  virtual ~DialogDriver() = default;

  void add(const char* name, Step step) { steps_.push_back({name, std::move(step)}); }

  // Runs `show` (which opens the sheet modally) with the steps ticking.
  void run(const std::function<void()>& show) {
    current() = this;
    start_ = GetTickCount();
    const UINT_PTR timer = SetTimer(nullptr, 0, 15, &DialogDriver::tick);
    show();
    KillTimer(nullptr, timer);
    current() = nullptr;
  }

  bool done() const { return next_ == steps_.size() && !timedOut_; }
  std::string stuckAt() const {
    return next_ < steps_.size() ? steps_[next_].name : (timedOut_ ? "timed out" : "");
  }

  // The dialog of this thread the steps work on, or null.
  HWND dialog() const {
    if (title_.empty()) return ownedDialog(nullptr);
    HWND found = FindWindowW(L"#32770", title_.c_str());
    DWORD process = 0;
    if (found && GetWindowThreadProcessId(found, &process) != GetCurrentThreadId()) return nullptr;
    return found;
  }
  // A visible message box (or other dialog) owned by `owner`; with null,
  // any top-level one.
  static HWND ownedDialog(HWND owner) {
    Search search{owner, nullptr};
    EnumThreadWindows(GetCurrentThreadId(), &DialogDriver::findOwned,
                      reinterpret_cast<LPARAM>(&search));
    return search.found;
  }

 private:
  struct Named {
    const char* name;
    Step step;
  };

  struct Search {
    HWND owner;
    HWND found;
  };
  // Window enumeration callbacks: the system's calling convention, which
  // a lambda does not have on 32-bit Windows.
  static BOOL CALLBACK findOwned(HWND window, LPARAM data) {
    auto* s = reinterpret_cast<Search*>(data);
    if (window != s->owner && isDialog(window) && IsWindowVisible(window) &&
        (!s->owner || GetWindow(window, GW_OWNER) == s->owner)) {
      s->found = window;
      return FALSE;
    }
    return TRUE;
  }
  static BOOL CALLBACK cancelOpen(HWND window, LPARAM) {
    if (isDialog(window) && IsWindowVisible(window))
      PostMessageW(window, WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED), 0);
    return TRUE;
  }
  static bool isDialog(HWND window) {
    wchar_t name[16] = {};
    GetClassNameW(window, name, 16);
    return lstrcmpW(name, L"#32770") == 0;
  }

  static DialogDriver*& current() {
    static thread_local DialogDriver* driver = nullptr;
    return driver;
  }

  static void CALLBACK tick(HWND, UINT, UINT_PTR, DWORD) {
    DialogDriver* self = current();
    if (!self || self->busy_) return;
    self->busy_ = true;
    HWND window = self->dialog();
    if (GetTickCount() - self->start_ > 20000) {
      // Whatever is open on this thread is cancelled, the sheet found by
      // its title or not.
      self->timedOut_ = true;
      EnumThreadWindows(GetCurrentThreadId(), &DialogDriver::cancelOpen, 0);
    } else if (window && self->next_ < self->steps_.size() &&
               self->steps_[self->next_].step(window)) {
      ++self->next_;
    }
    self->busy_ = false;
  }

  std::wstring title_;
  std::vector<Named> steps_;
  size_t next_ = 0;
  DWORD start_ = 0;
  bool busy_ = false;
  bool timedOut_ = false;
};

// A point on `item`'s state icon (its check box), found by the tree's own
// hit test; {-1, -1} when the row has none.
inline POINT stateIconPoint(HWND tree, HTREEITEM item) {
  RECT text = {};
  *reinterpret_cast<HTREEITEM*>(&text) = item;
  if (!SendMessageW(tree, TVM_GETITEMRECT, TRUE, reinterpret_cast<LPARAM>(&text))) return {-1, -1};
  for (LONG x = text.left - 1; x >= 0; --x) {
    TVHITTESTINFO hit = {};
    hit.pt = {x, (text.top + text.bottom) / 2};
    if (TreeView_HitTest(tree, &hit) == item && (hit.flags & TVHT_ONITEMSTATEICON)) return hit.pt;
  }
  return {-1, -1};
}

}  // namespace PIM::testing

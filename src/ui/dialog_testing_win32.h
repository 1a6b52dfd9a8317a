// What the dialog tests share: running the thread's messages until a
// condition holds, and a watchdog that ends a dialog left open by a failed
// test so that the run goes on.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

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

}  // namespace PIM::testing

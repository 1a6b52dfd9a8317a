// A small dialog framework over the window system's dialog manager, in the
// shape the dialogs are written in: an object per dialog whose virtual
// handlers (OnInitDialog, OnOK, OnCancel, OnTimer, OnCommand) the dialog
// procedure calls, with the object found from the window.
//
//   class AboutBox : public Dialog {
//    public:
//     AboutBox() : Dialog(IDD_ABOUTBOX) {}
//    protected:
//     BOOL OnInitDialog() override;
//   };
//   AboutBox().DoModal();
//
// Threads: a dialog belongs to the thread that created it.
#pragma once

// windows.h first: the common controls' header builds on it.
#include <windows.h>

#include <commctrl.h>

#include <string>

namespace PIM {

// The module whose resources hold the dialog templates and bitmaps: the one
// this code is linked into (the add-in DLL, or a test program).
HINSTANCE uiModule();

// What dialogs and property pages share: the window and its controls.
class DialogWindow {
 public:
  DialogWindow(const DialogWindow&) = delete;
  DialogWindow& operator=(const DialogWindow&) = delete;

  // Null until the window exists and again after it is destroyed.
  HWND hwnd() const { return hwnd_; }
  HWND item(int id) const;
  void setItemText(int id, const std::u16string& text);
  std::u16string itemText(int id) const;
  void setWindowText(const std::u16string& text);
  void enableItem(int id, bool enable);
  // The language string of `key` (empty text when the key is missing).
  static std::u16string text(const char16_t* key);
  // The language string of `key` as the text of control `id` (of the
  // window itself); when the language has none, the template's own text
  // stays, so that a missing or damaged language file never leaves the
  // dialog blank.
  void setItemString(int id, const char16_t* key);
  void setWindowString(const char16_t* key);

 protected:
  DialogWindow() = default;
  virtual ~DialogWindow() = default;

  // After the controls exist; TRUE lets the dialog manager set the focus.
  virtual BOOL OnInitDialog() { return TRUE; }
  virtual void OnTimer(UINT_PTR /*timerId*/) {}
  // A WM_COMMAND from control `id` with notification `code`; true when
  // handled.
  virtual bool OnCommand(int /*id*/, int /*code*/) { return false; }
  // Any other message; true, with the procedure's result in `result`, when
  // handled.
  virtual bool OnMessage(UINT /*message*/, WPARAM /*wParam*/, LPARAM /*lParam*/,
                         INT_PTR& /*result*/) {
    return false;
  }

  // The dialog procedure's common part: attaches on WM_INITDIALOG (`self`
  // then comes from its lParam), forgets the window on WM_NCDESTROY.
  static INT_PTR dispatch(DialogWindow* self, HWND window, UINT message, WPARAM wParam,
                          LPARAM lParam);
  // The handlers' own part, after dispatch has found the object.
  virtual INT_PTR handle(UINT message, WPARAM wParam, LPARAM lParam);

  HWND hwnd_ = nullptr;
};

// A modal dialog from a template of uiModule().
class Dialog : public DialogWindow {
 public:
  explicit Dialog(UINT templateId, HWND parent = nullptr)
      : templateId_(templateId), parent_(parent) {}

  // Runs the dialog until EndDialog; its result, or -1 when the dialog
  // could not be made.
  INT_PTR DoModal();
  void EndDialog(INT_PTR result);

 protected:
  // The OK button (IDOK) and Enter: the framework's default ends the
  // dialog with IDOK.
  virtual void OnOK() { EndDialog(IDOK); }
  // The cancel button (IDCANCEL), Escape and the close box: ends with
  // IDCANCEL.
  virtual void OnCancel() { EndDialog(IDCANCEL); }

  INT_PTR handle(UINT message, WPARAM wParam, LPARAM lParam) override;

 private:
  static INT_PTR CALLBACK procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

  UINT templateId_;
  HWND parent_;
};

// A page of a property sheet from a template of uiModule(). The sheet that
// owns it calls OnOK and OnCancel itself (see PIMPrefsSheet); the page's
// window exists only once the user has shown the page.
class PropertyPage : public DialogWindow {
 public:
  explicit PropertyPage(UINT templateId) : templateId_(templateId) {}

  // The page for PropertySheet: with PSP_HASHELP when `hasHelp`. The title
  // is the template's caption (the sheet translates it).
  HPROPSHEETPAGE create(bool hasHelp);

  // The page's part of the sheet's OK, after every page has validated.
  virtual void OnOK() {}
  virtual void OnCancel() {}

 private:
  static INT_PTR CALLBACK procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

  UINT templateId_;
};

}  // namespace PIM

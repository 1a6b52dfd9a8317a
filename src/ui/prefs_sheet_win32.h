// The preferences: a modal property sheet with the Capture, Data and
// Folders pages, its texts from the language strings, mirrored for
// right-to-left languages, with a Help button that opens the language's
// compiled help file.
//
//   PIM::ShowPreferences();   // on the main thread; saves on OK
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "ui/dialog_win32.h"

namespace PIM {

// Runs the sheet; OK writes the whole preference set (and tells the
// listeners), Cancel or the close box writes nothing.
void ShowPreferences();

class PIMPrefsSheet {
 public:
  PIMPrefsSheet(std::u16string caption, HWND parent);
  PIMPrefsSheet(const PIMPrefsSheet&) = delete;
  PIMPrefsSheet& operator=(const PIMPrefsSheet&) = delete;

  // In tab order; the page must outlive the sheet's run.
  void addPage(PropertyPage* page);
  // IDOK when closed through OK, IDCANCEL otherwise, -1 when the sheet
  // could not be made.
  INT_PTR DoModal();
  HWND hwnd() const { return hwnd_; }

  // Where the Help button sends the file it found (the shell by default);
  // tests record it instead. Null restores the shell.
  using HelpOpener = std::function<void(HWND owner, const std::u16string& path)>;
  static void setHelpOpener(HelpOpener opener);

 protected:
  BOOL OnInitDialog();
  void OnOK();
  void OnCancel();
  void OnHelp();
  void showHelp(const std::u16string& path);

 private:
  static int CALLBACK callback(HWND window, UINT message, LPARAM lParam);
  static LRESULT CALLBACK subclass(HWND window, UINT message, WPARAM wParam, LPARAM lParam,
                                   UINT_PTR id, DWORD_PTR self);
  void rearrangeButtons();
  void translateTabs();

  std::u16string caption_;
  HWND parent_;
  HWND hwnd_ = nullptr;
  std::vector<PropertyPage*> pages_;
  bool ok_ = false;
};

}  // namespace PIM

#include "ui/prefs_sheet_win32.h"

#include <commctrl.h>
#include <shellapi.h>

#include "core/debug_logger.h"
#include "core/resource_loader.h"
#include "prefs/preferences.h"
#include "ui/capture_page_win32.h"
#include "ui/data_page_win32.h"
#include "ui/flip_rtl.h"
#include "ui/folder_page_win32.h"
#include "ui/help_file.h"
#include "ui/validate.h"

namespace PIM {

namespace {

const wchar_t* wide(const std::u16string& text) {
  return reinterpret_cast<const wchar_t*>(text.c_str());
}

// The sheet being made on this thread, for its callback, which is given no
// context of its own.
thread_local PIMPrefsSheet* t_creating = nullptr;

PIMPrefsSheet::HelpOpener& helpOpener() {
  static PIMPrefsSheet::HelpOpener opener;
  return opener;
}

// A control's rectangle in the sheet's client coordinates (mirrored ones
// when the sheet is mirrored).
RECT rectIn(HWND parent, HWND control) {
  RECT r = {};
  GetWindowRect(control, &r);
  MapWindowPoints(HWND_DESKTOP, parent, reinterpret_cast<POINT*>(&r), 2);
  return r;
}

void moveTo(HWND control, const RECT& r) {
  MoveWindow(control, r.left, r.top, r.right - r.left, r.bottom - r.top, TRUE);
}

constexpr UINT_PTR kSubclassId = 1;

}  // namespace

void ShowPreferences() {
  PIM_ENTRY("PIM::ShowPreferences");
  PIMPrefsSheet sheet(DialogWindow::text(u"PREFERENCES_DIALOG_TITLE"), nullptr);
  // Declared in page order: destroyed Folders, Data, Capture.
  CapturePage capture;
  DataPage data;
  FolderPage folders;
  sheet.addPage(&capture);
  sheet.addPage(&data);
  sheet.addPage(&folders);
  if (sheet.DoModal() == IDOK) Preferences::instance().save();
}

PIMPrefsSheet::PIMPrefsSheet(std::u16string caption, HWND parent)
    : caption_(std::move(caption)), parent_(parent) {}

void PIMPrefsSheet::addPage(PropertyPage* page) { pages_.push_back(page); }

void PIMPrefsSheet::setHelpOpener(HelpOpener opener) { helpOpener() = std::move(opener); }

INT_PTR PIMPrefsSheet::DoModal() {
  std::vector<HPROPSHEETPAGE> handles;
  for (PropertyPage* page : pages_) {
    HPROPSHEETPAGE handle = page->create(true);
    if (!handle) {
      for (HPROPSHEETPAGE made : handles) DestroyPropertySheetPage(made);
      return -1;
    }
    handles.push_back(handle);
  }
  PROPSHEETHEADERW header = {};
  header.dwSize = sizeof header;
  header.dwFlags = PSH_HASHELP | PSH_NOAPPLYNOW | PSH_USECALLBACK;
  header.hwndParent = parent_;
  header.hInstance = uiModule();
  header.pszCaption = wide(caption_);
  header.nPages = static_cast<UINT>(handles.size());
  header.nStartPage = 0;
  header.phpage = handles.data();
  header.pfnCallback = &PIMPrefsSheet::callback;
  ok_ = false;
  PIMPrefsSheet* outer = t_creating;
  t_creating = this;
  const INT_PTR result = PropertySheetW(&header);
  t_creating = outer;
  hwnd_ = nullptr;
  if (result < 0) return -1;
  return ok_ ? IDOK : IDCANCEL;
}

int CALLBACK PIMPrefsSheet::callback(HWND window, UINT message, LPARAM) {
  // Called at the end of the sheet's own initialisation: from here on the
  // sheet's messages pass through this object first.
  if (message != PSCB_INITIALIZED || !t_creating) return 0;
  PIMPrefsSheet* self = t_creating;
  self->hwnd_ = window;
  SetWindowSubclass(window, &PIMPrefsSheet::subclass, kSubclassId,
                    reinterpret_cast<DWORD_PTR>(self));
  self->OnInitDialog();
  return 0;
}

LRESULT CALLBACK PIMPrefsSheet::subclass(HWND window, UINT message, WPARAM wParam, LPARAM lParam,
                                         UINT_PTR, DWORD_PTR data) {
  auto* self = reinterpret_cast<PIMPrefsSheet*>(data);
  if (message == WM_COMMAND && HIWORD(wParam) == BN_CLICKED) {
    switch (LOWORD(wParam)) {
      case IDOK:
        self->OnOK();
        return 0;
      case IDCANCEL:
        self->OnCancel();
        break;  // then the sheet's own cancel
      case IDHELP:
        self->OnHelp();
        return 0;
      default:
        break;
    }
  } else if (message == PSM_PRESSBUTTON) {
    // A button pressed by message goes the way of a click: some sheets act
    // on it without a command message.
    const int button = wParam == PSBTN_OK       ? IDOK
                       : wParam == PSBTN_CANCEL ? IDCANCEL
                       : wParam == PSBTN_HELP   ? IDHELP
                                                : 0;
    if (button) {
      return subclass(window, WM_COMMAND, MAKEWPARAM(button, BN_CLICKED),
                      reinterpret_cast<LPARAM>(GetDlgItem(window, button)), 0, data);
    }
  } else if (message == WM_SYSCOMMAND && (wParam & 0xFFF0) == SC_CLOSE) {
    self->OnCancel();
  } else if (message == WM_NCDESTROY) {
    RemoveWindowSubclass(window, &PIMPrefsSheet::subclass, kSubclassId);
  }
  return DefSubclassProc(window, message, wParam, lParam);
}

BOOL PIMPrefsSheet::OnInitDialog() {
  PIM_ENTRY("PIM::PIMPrefsSheet::OnInitDialog");
  if (ResourceLoader::instance()->isRtl()) FlipRTL(hwnd_);
  // Without a language file the buttons keep the system's own texts.
  const struct {
    int id;
    const char16_t* key;
  } buttons[] = {
      {IDOK, u"PREFERENCES_OK"}, {IDCANCEL, u"PREFERENCES_CANCEL"}, {IDHELP, u"PREFERENCES_HELP"}};
  for (const auto& b : buttons) {
    const std::u16string shown = DialogWindow::text(b.key);
    if (!shown.empty()) SetDlgItemTextW(hwnd_, b.id, wide(shown));
  }
  rearrangeButtons();
  translateTabs();
  return TRUE;
}

void PIMPrefsSheet::rearrangeButtons() {
  HWND ok = GetDlgItem(hwnd_, IDOK);
  HWND cancel = GetDlgItem(hwnd_, IDCANCEL);
  HWND help = GetDlgItem(hwnd_, IDHELP);
  if (!ok || !cancel || !help) return;
  RECT client = {};
  GetClientRect(hwnd_, &client);
  const RECT cancelRect = rectIn(hwnd_, cancel);
  RECT helpRect = rectIn(hwnd_, help);
  moveTo(ok, cancelRect);
  moveTo(cancel, helpRect);
  // Help alone on the other side, as far from that edge as it was from
  // this one.
  const LONG width = helpRect.right - helpRect.left;
  helpRect.left = client.right - helpRect.right;
  helpRect.right = helpRect.left + width;
  moveTo(help, helpRect);
  EnableWindow(help, TRUE);
}

void PIMPrefsSheet::translateTabs() {
  HWND tabs = PropSheet_GetTabControl(hwnd_);
  if (!tabs) return;
  const int count = TabCtrl_GetItemCount(tabs);
  for (int i = 0; i < count; ++i) {
    wchar_t buffer[513] = {};
    TCITEMW tab = {};
    tab.mask = TCIF_TEXT;
    tab.pszText = buffer;
    tab.cchTextMax = 512;
    if (!SendMessageW(tabs, TCM_GETITEMW, static_cast<WPARAM>(i), reinterpret_cast<LPARAM>(&tab)))
      continue;
    const std::u16string key(reinterpret_cast<const char16_t*>(tab.pszText));
    // A tab whose title the language lacks keeps its key: never a blank tab.
    std::u16string title = ResourceLoader::instance()->getStringValue(key, key);
    tab.pszText = const_cast<wchar_t*>(wide(title));
    SendMessageW(tabs, TCM_SETITEMW, static_cast<WPARAM>(i), reinterpret_cast<LPARAM>(&tab));
  }
}

void PIMPrefsSheet::OnOK() {
  PIM_ENTRY("PIM::PIMPrefsSheet::OnOK");
  // Pages the user never opened have no window: they are neither asked nor
  // applied.
  for (PropertyPage* page : pages_) {
    if (!page->hwnd()) continue;
    if (auto* validating = dynamic_cast<IValidate*>(page); validating && !validating->validate())
      return;
  }
  for (PropertyPage* page : pages_)
    if (page->hwnd()) page->OnOK();
  ok_ = true;
  // The sheet's own OK then closes it.
  DefSubclassProc(hwnd_, WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED),
                  reinterpret_cast<LPARAM>(GetDlgItem(hwnd_, IDOK)));
}

void PIMPrefsSheet::OnCancel() {
  for (PropertyPage* page : pages_)
    if (page->hwnd()) page->OnCancel();
}

void PIMPrefsSheet::OnHelp() {
  PIM_ENTRY("PIM::PIMPrefsSheet::OnHelp");
  const std::u16string path = findHelpFile();
  if (!path.empty()) showHelp(path);
}

void PIMPrefsSheet::showHelp(const std::u16string& path) {
  PIM_ENTRY("PIM::PIMPrefsSheet::showHelp");
  if (helpOpener()) {
    helpOpener()(hwnd_, path);
    return;
  }
  ShellExecuteW(hwnd_, nullptr, wide(path), nullptr, nullptr, SW_SHOWDEFAULT);
}

}  // namespace PIM

#include "ui/dialog_win32.h"

#include <vector>

#include "core/resource_loader.h"
#include "platform/win32/own_module.h"

namespace PIM {

namespace {

const wchar_t* wide(const std::u16string& text) {
  return reinterpret_cast<const wchar_t*>(text.c_str());
}

// The tree, progress and tab classes live in the common controls library,
// which registers them only when asked; every dialog of the module uses at
// least one of them.
void registerCommonControls() {
  static const bool done = [] {
    INITCOMMONCONTROLSEX classes = {};
    classes.dwSize = sizeof classes;
    classes.dwICC = ICC_TREEVIEW_CLASSES | ICC_PROGRESS_CLASS | ICC_TAB_CLASSES |
                    ICC_STANDARD_CLASSES | ICC_WIN95_CLASSES;
    return InitCommonControlsEx(&classes) != FALSE;
  }();
  (void)done;
}

}  // namespace

HINSTANCE uiModule() { return ownModule(); }

HWND DialogWindow::item(int id) const { return hwnd_ ? GetDlgItem(hwnd_, id) : nullptr; }

void DialogWindow::setItemText(int id, const std::u16string& text) {
  SetDlgItemTextW(hwnd_, id, wide(text));
}

std::u16string DialogWindow::itemText(int id) const {
  HWND control = item(id);
  if (!control) return {};
  int length = GetWindowTextLengthW(control);
  if (length <= 0) return {};
  std::vector<wchar_t> buffer(static_cast<size_t>(length) + 1);
  int got = GetWindowTextW(control, buffer.data(), length + 1);
  return std::u16string(reinterpret_cast<const char16_t*>(buffer.data()),
                        static_cast<size_t>(got > 0 ? got : 0));
}

void DialogWindow::setWindowText(const std::u16string& text) { SetWindowTextW(hwnd_, wide(text)); }

void DialogWindow::setItemString(int id, const char16_t* key) {
  const std::u16string shown = ResourceLoader::instance()->getStringValue(key, itemText(id));
  setItemText(id, shown);
}

void DialogWindow::setWindowString(const char16_t* key) {
  wchar_t current[512] = {};
  GetWindowTextW(hwnd_, current, 512);
  setWindowText(ResourceLoader::instance()->getStringValue(
      key, std::u16string(reinterpret_cast<const char16_t*>(current))));
}

void DialogWindow::enableItem(int id, bool enable) {
  if (HWND control = item(id)) EnableWindow(control, enable ? TRUE : FALSE);
}

std::u16string DialogWindow::text(const char16_t* key) {
  return ResourceLoader::instance()->getStringValue(key, u"");
}

INT_PTR DialogWindow::dispatch(DialogWindow* self, HWND window, UINT message, WPARAM wParam,
                               LPARAM lParam) {
  if (message == WM_INITDIALOG) {
    SetWindowLongPtrW(window, DWLP_USER, reinterpret_cast<LONG_PTR>(self));
    if (self) self->hwnd_ = window;
  } else {
    self = reinterpret_cast<DialogWindow*>(GetWindowLongPtrW(window, DWLP_USER));
  }
  // Messages before WM_INITDIALOG (WM_SETFONT) and after the object let go
  // go to the dialog manager's defaults.
  if (!self) return FALSE;
  INT_PTR result = self->handle(message, wParam, lParam);
  if (message == WM_NCDESTROY) {
    SetWindowLongPtrW(window, DWLP_USER, 0);
    self->hwnd_ = nullptr;
  }
  return result;
}

INT_PTR DialogWindow::handle(UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_INITDIALOG:
      return OnInitDialog();
    case WM_TIMER:
      OnTimer(static_cast<UINT_PTR>(wParam));
      return TRUE;
    case WM_COMMAND:
      if (OnCommand(LOWORD(wParam), HIWORD(wParam))) return TRUE;
      break;
    default:
      break;
  }
  INT_PTR result = FALSE;
  if (OnMessage(message, wParam, lParam, result)) return result;
  return FALSE;
}

// ---- Dialog -----------------------------------------------------------------

INT_PTR Dialog::DoModal() {
  registerCommonControls();
  return DialogBoxParamW(uiModule(), MAKEINTRESOURCEW(templateId_), parent_, &Dialog::procedure,
                         reinterpret_cast<LPARAM>(static_cast<DialogWindow*>(this)));
}

void Dialog::EndDialog(INT_PTR result) {
  if (hwnd_) ::EndDialog(hwnd_, result);
}

INT_PTR Dialog::handle(UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_COMMAND && HIWORD(wParam) == BN_CLICKED) {
    // A dialog's own handler of IDOK or IDCANCEL comes before the default.
    if (OnCommand(LOWORD(wParam), HIWORD(wParam))) return TRUE;
    if (LOWORD(wParam) == IDOK) {
      OnOK();
      return TRUE;
    }
    if (LOWORD(wParam) == IDCANCEL) {
      OnCancel();
      return TRUE;
    }
    return FALSE;
  }
  return DialogWindow::handle(message, wParam, lParam);
}

INT_PTR CALLBACK Dialog::procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  auto* self = message == WM_INITDIALOG ? reinterpret_cast<DialogWindow*>(lParam) : nullptr;
  return dispatch(self, window, message, wParam, lParam);
}

// ---- PropertyPage -------------------------------------------------------------

HPROPSHEETPAGE PropertyPage::create(bool hasHelp) {
  registerCommonControls();
  PROPSHEETPAGEW page = {};
  page.dwSize = sizeof page;
  // Without PSP_USETITLE the tab shows the template's caption.
  page.dwFlags = PSP_DEFAULT | (hasHelp ? PSP_HASHELP : 0);
  page.hInstance = uiModule();
  page.pszTemplate = MAKEINTRESOURCEW(templateId_);
  page.pfnDlgProc = &PropertyPage::procedure;
  page.lParam = reinterpret_cast<LPARAM>(static_cast<DialogWindow*>(this));
  return CreatePropertySheetPageW(&page);
}

INT_PTR CALLBACK PropertyPage::procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  // A page's WM_INITDIALOG carries its PROPSHEETPAGE, whose lParam is the
  // object.
  DialogWindow* self = nullptr;
  if (message == WM_INITDIALOG) {
    auto* page = reinterpret_cast<const PROPSHEETPAGEW*>(lParam);
    self = page ? reinterpret_cast<DialogWindow*>(page->lParam) : nullptr;
  }
  return dispatch(self, window, message, wParam, lParam);
}

}  // namespace PIM

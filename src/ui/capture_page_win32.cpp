#include "ui/capture_page_win32.h"

#include "capture/data_capture.h"
#include "core/debug_logger.h"
#include "prefs/preferences.h"
#include "ui/about_box_win32.h"
#include "ui/capture_values.h"
#include "ui/page_controls.h"
#include "ui/ui_resources.h"

namespace PIM {

namespace {

struct TextKey {
  int id;
  const char16_t* key;
};
constexpr TextKey kTexts[] = {
    {IDC_CAPTURE_FREQUENCY, u"PREFERENCES_CAPTURE_FREQUENCY"},
    {IDC_CAPTURE_AUTOMATIC, u"PREFERENCES_CAPTURE_FREQUENCY_AUTO"},
    {IDC_CAPTURE_EVERY, u"PREFERENCES_CAPTURE_FREQUENCY_EVERY"},
    {IDC_CAPTURE_MINUTES, u"PREFERENCES_CAPTURE_FREQUENCY_MINUTES"},
    {IDC_CAPTURE_STARTUP, u"PREFERENCES_CAPTURE_FREQUENCY_STARTUP"},
    {IDC_CAPTURE_MANUALLY, u"PREFERENCES_CAPTURE_FREQUENCY_MANUALLY"},
    {IDC_CAPTURE_CALENDAR, u"PREFERENCES_CAPTURE_CALENDAR"},
    {IDC_CAPTURE_BEFORE, u"PREFERENCES_CAPTURE_CALENDAR_BEFORE"},
    {IDC_CAPTURE_AFTER, u"PREFERENCES_CAPTURE_CALENDAR_AFTER"},
    {IDC_CAPTURE_TASKS_HEADING, u"PREFERENCES_CAPTURE_TASKS"},
    {IDC_CAPTURE_TASKS_ITEMS, u"PREFERENCES_CAPTURE_TASKS_ITEMS"},
    {IDC_CAPTURE_EMAILS_HEADING, u"PREFERENCES_CAPTURE_EMAILS"},
    {IDC_CAPTURE_EMAILS_ITEMS, u"PREFERENCES_CAPTURE_EMAILS_ITEMS"},
    {IDC_CAPTURE_NOW, u"PREFERENCES_CAPTURE"},
    {IDC_CAPTURE_ABOUT, u"PREFERENCES_ABOUT"},
};

const wchar_t* wide(const std::u16string& text) {
  return reinterpret_cast<const wchar_t*>(text.c_str());
}

}  // namespace

CapturePage::CapturePage() : PropertyPage(IDD_CAPTURE_PAGE) {}

BOOL CapturePage::OnInitDialog() {
  PIM_ENTRY("PIM::CapturePage::OnInitDialog");
  for (const TextKey& t : kTexts) setItemString(t.id, t.key);
  const CaptureNumbers numbers = captureNumbersOf(Preferences::instance());
  for (size_t i = 0; i < kCaptureFieldCount; ++i)
    SetDlgItemInt(hwnd(), kCaptureFields[i].editId, static_cast<UINT>(numbers[i]), TRUE);
  const int radio = radioOfCaptureMode(Preferences::instance().captureMode);
  CheckRadioButton(hwnd(), IDC_CAPTURE_AUTOMATIC, IDC_CAPTURE_STARTUP, radio);
  EnableCaptureFrequencyEdit(radio == IDC_CAPTURE_AUTOMATIC);
  return TRUE;
}

bool CapturePage::OnCommand(int id, int code) {
  if (code != BN_CLICKED) return false;
  switch (id) {
    case IDC_CAPTURE_AUTOMATIC:
    case IDC_CAPTURE_STARTUP:
    case IDC_CAPTURE_MANUALLY:
      OnFrequencyRadio(id);
      return true;
    case IDC_CAPTURE_NOW:
      onCapture();
      return true;
    case IDC_CAPTURE_ABOUT:
      onAbout();
      return true;
    default:
      return false;
  }
}

void CapturePage::OnFrequencyRadio(int id) {
  PIM_ENTRY("PIM::CapturePage::OnFrequencyRadio");
  EnableCaptureFrequencyEdit(id == IDC_CAPTURE_AUTOMATIC);
}

void CapturePage::EnableCaptureFrequencyEdit(bool enable) {
  PIM_ENTRY("PIM::CapturePage::EnableCaptureFrequencyEdit");
  for (int id : {IDC_CAPTURE_INTERVAL, IDC_CAPTURE_EVERY, IDC_CAPTURE_MINUTES})
    enableItem(id, enable);
}

bool CapturePage::validatePage() {
  PIM_ENTRY("PIM::CapturePage::validatePage");
  const HWND page = hwnd();
  if (!IsDlgButtonChecked(page, IDC_CAPTURE_AUTOMATIC) &&
      !IsDlgButtonChecked(page, IDC_CAPTURE_STARTUP) &&
      !IsDlgButtonChecked(page, IDC_CAPTURE_MANUALLY))
    return false;
  CaptureTexts texts;
  for (size_t i = 0; i < kCaptureFieldCount; ++i) texts[i] = itemText(kCaptureFields[i].editId);
  const CaptureCheck check = checkCaptureTexts(texts);
  if (check.accepted) return true;
  // Owned by the sheet, which is what the user sees whichever page is up.
  HWND owner = GetParent(page) ? GetParent(page) : page;
  MessageBoxW(owner, wide(check.message), wide(text(u"ABOUT_PRODUCT_NAME")), MB_OK);
  for (size_t i = 0; i < kCaptureFieldCount; ++i)
    SetDlgItemInt(page, kCaptureFields[i].editId, static_cast<UINT>(check.values[i]), TRUE);
  return false;
}

void CapturePage::OnOK() {
  PIM_ENTRY("PIM::CapturePage::OnOK");
  const HWND page = hwnd();
  const std::optional<uint32_t> mode =
      captureModeOfRadios(IsDlgButtonChecked(page, IDC_CAPTURE_MANUALLY) == BST_CHECKED,
                          IsDlgButtonChecked(page, IDC_CAPTURE_STARTUP) == BST_CHECKED,
                          IsDlgButtonChecked(page, IDC_CAPTURE_AUTOMATIC) == BST_CHECKED);
  if (!mode) {
    PIM_LOG_ERR("No capture preference selected.");
    return;
  }
  CaptureTexts texts;
  for (size_t i = 0; i < kCaptureFieldCount; ++i) texts[i] = itemText(kCaptureFields[i].editId);
  Preferences& preferences = Preferences::instance();
  preferences.captureMode = *mode;
  // Validated just before: every value is in range and kept as typed.
  storeCaptureNumbers(checkCaptureTexts(texts).values, preferences);
}

void CapturePage::onCapture() {
  PIM_ENTRY("PIM::CapturePage::onCapture");
  DataCapture::instance()->captureNow();
  DataCapture::instance()->showCaptureProgress();
}

void CapturePage::onAbout() {
  PIM_ENTRY("PIM::CapturePage::onAbout");
  AboutBox(GetParent(hwnd())).DoModal();
}

}  // namespace PIM

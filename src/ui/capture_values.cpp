#include "ui/capture_values.h"

#include <limits>

#include "core/resource_loader.h"
#include "core/utils.h"
#include "ui/page_controls.h"

namespace PIM {

const std::array<CaptureField, kCaptureFieldCount> kCaptureFields = {{
    {IDC_CAPTURE_INTERVAL, u"ERROR_BAD_CAPTURE_INTERVAL", 1, 120},
    {IDC_CAPTURE_DAYS_BEFORE, u"ERROR_BAD_CAPTURE_DAYS_BEFORE", 0, 180},
    {IDC_CAPTURE_DAYS_AFTER, u"ERROR_BAD_CAPTURE_DAYS_AFTER", 0, 180},
    {IDC_CAPTURE_TASKS, u"ERROR_BAD_TASK_CAPTURE", 1, 50},
    {IDC_CAPTURE_EMAILS, u"ERROR_BAD_EMAIL_CAPTURE", 1, 1000},
}};

namespace {

bool isBlank(char16_t c) { return c == u' ' || c == u'\t'; }

std::u16string decimal(int32_t value) { return fromUtf8(std::to_string(value)); }

}  // namespace

std::optional<int32_t> parseCaptureNumber(const std::u16string& text) {
  size_t at = 0;
  size_t end = text.size();
  while (at < end && isBlank(text[at])) ++at;
  while (end > at && isBlank(text[end - 1])) --end;
  bool negative = false;
  if (at < end && (text[at] == u'-' || text[at] == u'+')) negative = text[at++] == u'-';
  if (at == end) return std::nullopt;
  int64_t value = 0;
  for (; at < end; ++at) {
    if (text[at] < u'0' || text[at] > u'9') return std::nullopt;
    value = value * 10 + (text[at] - u'0');
    if (value > int64_t(std::numeric_limits<int32_t>::max()) + 1) return std::nullopt;
  }
  if (negative) value = -value;
  if (value > std::numeric_limits<int32_t>::max()) return std::nullopt;
  return static_cast<int32_t>(value);
}

CaptureCheck checkCaptureTexts(const CaptureTexts& texts) {
  const ResourceLoader* strings = ResourceLoader::instance();
  CaptureCheck check;
  std::u16string message = strings->getStringValue(u"ERROR_BAD_CAPTURE_PREFERENCES", u"") + u"\n";
  for (size_t i = 0; i < kCaptureFieldCount; ++i) {
    const CaptureField& field = kCaptureFields[i];
    const std::optional<int32_t> number = parseCaptureNumber(texts[i]);
    // Text that is no number at all is as wrong as a number below the range:
    // the user is told the range and finds the lowest value in its place.
    const int32_t value = number.value_or(field.lowest);
    const bool bad = !number || value < field.lowest || value > field.highest;
    check.values[i] = value < field.lowest    ? field.lowest
                      : value > field.highest ? field.highest
                                              : value;
    if (!bad) continue;
    check.accepted = false;
    std::u16string line = strings->getStringValue(field.errorKey, u"");
    line = strReplace(line, u"%1", decimal(field.lowest));
    line = strReplace(line, u"%2", decimal(field.highest));
    message += u"\n" + line;
  }
  if (!check.accepted) check.message = message;
  return check;
}

CaptureNumbers captureNumbersOf(const PreferenceValues& values) {
  return {static_cast<int32_t>(values.captureInterval.get()),
          static_cast<int32_t>(values.calendar.captureDaysBefore.get()),
          static_cast<int32_t>(values.calendar.captureDaysAfter.get()),
          static_cast<int32_t>(values.tasks.maxTaskCapture.get()),
          static_cast<int32_t>(values.email.captureEmailCount.get())};
}

void storeCaptureNumbers(const CaptureNumbers& numbers, PreferenceValues& values) {
  values.captureInterval = static_cast<uint32_t>(numbers[0]);
  values.calendar.captureDaysBefore = static_cast<uint32_t>(numbers[1]);
  values.calendar.captureDaysAfter = static_cast<uint32_t>(numbers[2]);
  values.tasks.maxTaskCapture = static_cast<uint32_t>(numbers[3]);
  values.email.captureEmailCount = static_cast<uint32_t>(numbers[4]);
}

int radioOfCaptureMode(uint32_t mode) {
  switch (mode) {
    case CaptureManual:
      return IDC_CAPTURE_MANUALLY;
    case CaptureAtStartup:
      return IDC_CAPTURE_STARTUP;
    default:
      return IDC_CAPTURE_AUTOMATIC;
  }
}

std::optional<uint32_t> captureModeOfRadios(bool manual, bool startup, bool automatic) {
  if (manual) return CaptureManual;
  if (startup) return CaptureAtStartup;
  if (automatic) return CaptureAutomatic;
  return std::nullopt;
}

}  // namespace PIM

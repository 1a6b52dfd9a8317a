// The Capture page's rules without its window: the five numbers it edits,
// their ranges and messages, the text of an edit read as a number, and the
// capture mode behind the three radio buttons.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "prefs/preferences.h"

namespace PIM {

// One edit of the page, in the order the values are checked and listed.
struct CaptureField {
  int editId;
  const char16_t* errorKey;  // "%1" = lowest, "%2" = highest valid value
  int32_t lowest;
  int32_t highest;
};
inline constexpr size_t kCaptureFieldCount = 5;
extern const std::array<CaptureField, kCaptureFieldCount> kCaptureFields;

using CaptureNumbers = std::array<int32_t, kCaptureFieldCount>;
using CaptureTexts = std::array<std::u16string, kCaptureFieldCount>;

// An edit's text as a signed decimal: blanks around it, an optional sign,
// digits; nothing when the text is empty, holds anything else or does not
// fit 32 bits.
std::optional<int32_t> parseCaptureNumber(const std::u16string& text);

struct CaptureCheck {
  bool accepted = true;
  // The values to show again: each one in range, a bad one moved to its
  // nearer bound.
  CaptureNumbers values{};
  // One message for every bad value, empty when all are good.
  std::u16string message;
};

// Checks the five edit texts in field order, with the message texts of the
// current language.
CaptureCheck checkCaptureTexts(const CaptureTexts& texts);

// The values the page shows, in field order, and where OK puts them.
CaptureNumbers captureNumbersOf(const PreferenceValues& values);
void storeCaptureNumbers(const CaptureNumbers& numbers, PreferenceValues& values);

// The radio button of a stored mode: 0 manual, 1 start-up, anything else
// automatic.
int radioOfCaptureMode(uint32_t mode);
// The mode of the checked radio buttons, tested manual, start-up, automatic;
// nothing when none is checked.
std::optional<uint32_t> captureModeOfRadios(bool manual, bool startup, bool automatic);

}  // namespace PIM

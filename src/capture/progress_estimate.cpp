#include "capture/progress_estimate.h"

#include <string>

#include "core/resource_loader.h"
#include "core/utils.h"

namespace PIM {

bool ProgressEstimate::update(uint32_t totalFolders, uint32_t foldersDone, uint32_t startTicks,
                              uint32_t nowTicks, Text& text) {
  if (static_cast<int32_t>(foldersDone) <= 0) return false;
  if (foldersDone != lastDone_) {
    lastDone_ = foldersDone;
    lastChangeTicks_ = nowTicks;
  }
  uint32_t estimate = (totalFolders - lastDone_) * ((lastChangeTicks_ - startTicks) / foldersDone);
  const uint32_t elapsed = nowTicks - lastChangeTicks_;
  if (elapsed > estimate) estimate = elapsed;
  const uint32_t seconds = (estimate - elapsed) / 1000;
  if (seconds >= 61) {
    text = {u"CAPTURE_PROGRESS_REMAINING_MINUTES", seconds / 60};
  } else if (seconds >= 31) {
    text = {u"CAPTURE_PROGRESS_REMAINING_SECONDS", 60};
  } else if (seconds >= 16) {
    text = {u"CAPTURE_PROGRESS_REMAINING_SECONDS", 30};
  } else if (seconds >= 11) {
    text = {u"CAPTURE_PROGRESS_REMAINING_SECONDS", 15};
  } else {
    text = {u"CAPTURE_PROGRESS_REMAINING_LESSTHANTEN", 0};
  }
  return true;
}

int ProgressEstimate::percent(uint32_t totalFolders, uint32_t foldersDone) {
  if (totalFolders == 0) return 0;
  return static_cast<int32_t>(foldersDone) * 100 / static_cast<int32_t>(totalFolders);
}

std::u16string ProgressEstimate::format(const Text& text) {
  const std::u16string pattern = ResourceLoader::instance()->getStringValue(text.key, text.key);
  const std::string digits = std::to_string(text.number);
  return strReplace(pattern, u"%1", std::u16string(digits.begin(), digits.end()));
}

}  // namespace PIM

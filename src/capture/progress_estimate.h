// How long a capture run still needs, as the progress display tells it: the
// average time per finished folder up to the last change, times the folders
// still to do, counting down between changes and shown in coarse steps
// (less than ten seconds, 15, 30 or 60 seconds, whole minutes).
#pragma once

#include <cstdint>
#include <string>

namespace PIM {

class ProgressEstimate {
 public:
  // The language key of the text and the number for its "%1".
  struct Text {
    const char16_t* key;
    uint32_t number;
  };

  // One poll, with the run's counters and the tick count now. Nothing until
  // the first folder is finished (the display keeps "estimating").
  bool update(uint32_t totalFolders, uint32_t foldersDone, uint32_t startTicks, uint32_t nowTicks,
              Text& text);

  // Percentage of folders done, 0 when there are none.
  static int percent(uint32_t totalFolders, uint32_t foldersDone);
  // The text of `text` from the language strings, "%1" replaced.
  static std::u16string format(const Text& text);

  static constexpr const char16_t* kEstimating = u"CAPTURE_PROGRESS_ESTIMATING";

 private:
  uint32_t lastChangeTicks_ = 0;
  uint32_t lastDone_ = 0;
};

}  // namespace PIM

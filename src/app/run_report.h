// What the ferrant command tells of a capture run: its progress on one
// terminal line, redrawn in place as the progress dialog would show it, and
// what the run did once it has ended.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "capture/data_capture.h"
#include "capture/progress_estimate.h"

namespace PIM {

// "4 folders captured, 1 unchanged", "9 appointments, 5 contacts, ...",
// "4 files written, 2 deleted, 0.3 s": the summary's three parts; the first
// starts with "cancelled, " when the user stopped the run.
std::vector<std::string> describeRun(const DataCapture::RunSummary& summary);
// "2 error lines in the log, /home/u/.local/share/Corvel/CVTK_Logs/CVTK_DBG.log".
std::string describeLoggedErrors(const DataCapture::RunSummary& summary);

class ProgressLine {
 public:
  explicit ProgressLine(std::ostream& out) : out_(out) {}
  // Draws the bar, the percentage, the folders done and the time remaining.
  void draw(const DataCapture::Progress& progress, uint32_t nowTicks);
  // Blanks the line so that what follows starts on a clean one.
  void clear();

 private:
  std::ostream& out_;
  ProgressEstimate estimate_;
  size_t width_ = 0;  // of the line drawn last
};

}  // namespace PIM

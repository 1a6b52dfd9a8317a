#include "app/run_report.h"

#include <cstdio>
#include <ostream>

#include "core/debug_logger.h"
#include "core/utils.h"

namespace PIM {

namespace {

std::string count(uint32_t n, const char* one, const char* many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

constexpr size_t kBarWidth = 24;

}  // namespace

std::vector<std::string> describeRun(const DataCapture::RunSummary& s) {
  std::string folders = count(s.foldersRead, "folder captured", "folders captured");
  if (s.cancelled) folders = "cancelled, " + folders;
  if (s.foldersUnchanged != 0) folders += ", " + std::to_string(s.foldersUnchanged) + " unchanged";
  if (s.foldersFailed != 0) {
    folders += ", " + std::to_string(s.foldersFailed) +
               (s.cancelled ? " not read (cancelled)" : " failed (see the log)");
  }
  const std::string items = count(s.records[kFolderCalendar], "appointment", "appointments") +
                            ", " + count(s.records[kFolderContacts], "contact", "contacts") + ", " +
                            count(s.records[kFolderEmail], "e-mail", "e-mails") + ", " +
                            count(s.records[kFolderTasks], "task", "tasks");
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%.1f s", s.elapsedMs / 1000.0);
  std::string files = count(s.filesWritten, "file written", "files written") + ", ";
  if (s.filesFailed != 0) files += std::to_string(s.filesFailed) + " not written, ";
  files += std::to_string(s.filesDeleted) + " deleted, " + seconds;
  return {folders, items, files};
}

std::string describeLoggedErrors(const DataCapture::RunSummary& s) {
  const std::u16string log = DebugLogger::instance().path();
  return count(s.errorsLogged, "error line", "error lines") + " in the log" +
         (log.empty() ? std::string(" (see ferrant paths)") : ", " + toUtf8(log));
}

void ProgressLine::draw(const DataCapture::Progress& progress, uint32_t nowTicks) {
  const bool started = progress.totalFolders != DataCapture::kNoRunYet;
  const uint32_t total = started ? progress.totalFolders : 0;
  const int percent = ProgressEstimate::percent(total, progress.foldersDone);
  ProgressEstimate::Text text{ProgressEstimate::kEstimating, 0};
  estimate_.update(total, progress.foldersDone, progress.startTicks, nowTicks, text);

  const size_t filled = static_cast<size_t>(percent < 0     ? 0
                                            : percent > 100 ? 100
                                                            : percent) *
                        kBarWidth / 100;
  std::string line = "[";
  line.append(filled, '#').append(kBarWidth - filled, '.').append("] ");
  char numbers[64];
  std::snprintf(numbers, sizeof numbers, "%3d%%  %u/%u folders  ", percent, progress.foldersDone,
                total);
  line += numbers + toUtf8(ProgressEstimate::format(text));
  if (progress.cancelRequested) line += "  (cancelling)";
  const size_t width = line.size();
  if (width < width_) line.append(width_ - width, ' ');
  width_ = width;
  out_ << '\r' << line << std::flush;
}

void ProgressLine::clear() {
  if (width_ == 0) return;
  out_ << '\r' << std::string(width_, ' ') << '\r' << std::flush;
  width_ = 0;
}

}  // namespace PIM

#include "core/debug_logger.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "core/crash_report.h"
#include "core/utils.h"
#include "platform/env.h"

namespace PIM {

namespace {

thread_local uint32_t t_errorLines = 0;

const char* const kWeekdays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// The C runtime's 24-character local-time text, "Wed Mar 05 14:02:11 2025",
// with the day zero-filled as the Windows runtime writes it.
std::string timeText(const SystemTime& t) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%s %s %02u %02u:%02u:%02u %04u", kWeekdays[t.dayOfWeek % 7],
                kMonths[(t.month + 11) % 12], unsigned(t.day), unsigned(t.hour), unsigned(t.minute),
                unsigned(t.second), unsigned(t.year));
  return buffer;
}

// Where the log goes when there is no logs folder: the folder of the host
// executable, or the current folder when even that is unknown.
std::u16string hostFolder() {
  PIM_ENTRY("PIM::DebugLogger::start");
  std::u16string exe = env()->hostExecutablePath();
  PIM_ASSERT(!exe.empty());
  auto cut = exe.find_last_of(u"/\\");
  PIM_ASSERT(cut != std::u16string::npos);
  return cut == std::u16string::npos ? std::u16string() : exe.substr(0, cut);
}

}  // namespace

DebugLogger& DebugLogger::instance() {
  static DebugLogger logger;
  return logger;
}

void writeLogHeader(std::ostream& out, const char* file, int line, const char* function) {
  out << file << "(" << line << ") : " << function << "() >";
}

std::string DebugLogger::timePrefix() {
  SystemTime now = env()->localTimeNow();
  std::string text = timeText(now);
  char prefix[26];
  std::snprintf(prefix, sizeof prefix, "[%.15s.%03hu] ", text.c_str() + 4, now.milliseconds);
  return prefix;
}

void DebugLogger::start() {
  if (started_) stop();
  started_ = true;
  env()->installCrashHandler(&reportCrash);
  std::u16string folder = getLogsFolder();
  if (folder.empty()) folder = hostFolder();
  std::u16string path = u"CVTK_DBG.log";
  if (!folder.empty()) path = folder + kPathSeparator + path;
  // A file that cannot be opened leaves the stream failed: its lines vanish.
  auto stream = std::make_unique<std::ofstream>(std::filesystem::path(path), std::ios::app);
  {
    EntryGuard guard(&lock_);
    path_ = stream->good() ? path : std::u16string();
    stream_ = std::move(stream);
  }
  write("-----------------");
  write(" Logging Started");
  write("-----------------");
}

void DebugLogger::stop() {
  if (!started_) return;
  started_ = false;
  env()->uninstallCrashHandler();
  EntryGuard guard(&lock_);
  stream_.reset();
  path_.clear();
}

std::u16string DebugLogger::path() const {
  EntryGuard guard(&lock_);
  return path_;
}

void DebugLogger::redirectForTesting(std::ostream* sink) {
  EntryGuard guard(&lock_);
  sink_ = sink;
}

void DebugLogger::write(const std::string& line) {
  EntryGuard guard(&lock_);
  std::ostream* out = sink_ ? sink_ : stream_.get();
  if (!out) return;
  *out << timePrefix() << line << std::endl;
}

uint32_t errorLinesOnThisThread() { return t_errorLines; }

void countErrorLine() { ++t_errorLines; }

}  // namespace PIM

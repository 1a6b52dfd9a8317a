#include "app/capture_fingerprints.h"

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <memory>
#include <system_error>

#include "app/data_index_reader.h"
#include "capture/monitored_folder.h"
#include "core/debug_logger.h"
#include "core/utils.h"
#include "mapi/mapi_properties.h"
#include "mapi/mapi_ptr.h"
#include "prefs/preferences.h"

#ifndef FERRANT_APP_VERSION
#define FERRANT_APP_VERSION "dev"
#endif

namespace PIM {

namespace {

constexpr char kHeader[] = "ferrant fingerprints 1";
constexpr char16_t kNewSuffix[] = u".new";
// Raised whenever the data files a capture writes change for the same
// store and settings, so that no file of an older program is kept.
constexpr uint32_t kOutputFormat = 1;
constexpr ULONG kRowsPerQuery = 500;

class Hash {
 public:
  void add(const void* data, size_t size) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < size; ++i) value_ = (value_ ^ bytes[i]) * 0x100000001B3ull;
  }
  void add(uint64_t number) { add(&number, sizeof number); }
  void add(std::string_view text) {
    add(text.size());
    add(text.data(), text.size());
  }
  uint64_t value() const { return value_; }

 private:
  uint64_t value_ = 0xCBF29CE484222325ull;
};

std::u16string pathIn(const std::u16string& folder, const char16_t* name) {
  return folder + kPathSeparator + name;
}

// Splits off the text up to the next space (or the end).
std::string_view word(std::string_view& line) {
  const size_t space = line.find(' ');
  const std::string_view head = line.substr(0, space);
  line = space == std::string_view::npos ? std::string_view() : line.substr(space + 1);
  return head;
}

template <class Number>
bool number(std::string_view text, Number& value, int base = 10) {
  if (text.empty() || text.size() > 20 || text[0] == '+') return false;
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (code != std::errc() || end != text.data() + text.size()) return false;
  // One spelling per number ("7", never "07" or "-0"), as the writer has it.
  return base != 10 || std::to_string(value) == text;
}

bool isLowerHex(std::string_view text) {
  for (char c : text)
    if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return false;
  return true;
}

// A bare data file name: what the capture makes, never a path.
bool isFileName(std::string_view text) {
  if (text.empty() || text.size() > 255 || text == "-") return false;
  for (char c : text)
    if (c == '/' || c == '\\' || c == ':' || c == ' ' || static_cast<unsigned char>(c) < 0x20)
      return false;
  return text != "." && text != "..";
}

bool parseLine(std::string_view line, FolderFingerprint& folder) {
  int32_t type = 0;
  if (!number(word(line), type) || type < 0) return false;
  const std::string_view id = word(line);
  if (id.empty() || id.size() % 2 != 0 || id.size() > 2048 || !isLowerHex(id)) return false;
  const std::string_view hash = word(line);
  if (hash.size() != 16 || !isLowerHex(hash) || !number(hash, folder.hash, 16)) return false;
  if (!number(word(line), folder.fileSize) || !number(word(line), folder.fileTime)) return false;
  const std::string_view name = line;
  if (name != "-" && !isFileName(name)) return false;
  folder.type = type;
  folder.folderId = std::string(id);
  folder.fileName = name == "-" ? std::u16string() : fromUtf8(std::string(name));
  return name == "-" ? folder.fileSize == 0 : toUtf8(folder.fileName) == name;
}

}  // namespace

bool parseFingerprints(std::string_view bytes, Fingerprints& read, std::string& error) {
  read = Fingerprints();
  std::vector<FolderFingerprint>& folders = read.folders;
  size_t lineNumber = 0;
  bool ended = false;
  const auto fail = [&](const std::string& why) {
    read = Fingerprints();
    error = "line " + std::to_string(lineNumber) + ": " + why;
    return false;
  };
  while (!bytes.empty()) {
    ++lineNumber;
    const size_t end = bytes.find('\n');
    if (end == std::string_view::npos) return fail("not ended by a line feed");
    const std::string_view line = bytes.substr(0, end);
    bytes.remove_prefix(end + 1);
    if (ended) return fail("text after the end line");
    if (lineNumber == 1) {
      if (line != kHeader) return fail("not a fingerprint file of this version");
      continue;
    }
    if (lineNumber == 2) {
      uint64_t run = 0;
      if (line == "run -") continue;
      if (line.substr(0, 4) != "run " || line.size() != 20 || !isLowerHex(line.substr(4)) ||
          !number(line.substr(4), run, 16))
        return fail("not a run line");
      read.run = run;
      continue;
    }
    if (line.substr(0, 4) == "end ") {
      size_t count = 0;
      if (!number(line.substr(4), count) || count != folders.size())
        return fail("the end line does not count the folder lines");
      ended = true;
      continue;
    }
    FolderFingerprint folder;
    if (!parseLine(line, folder)) return fail("not a folder line");
    folders.push_back(std::move(folder));
  }
  if (!ended) {
    ++lineNumber;
    return fail(lineNumber == 1   ? "the header line is missing"
                : lineNumber == 2 ? "the run line is missing"
                                  : "the end line is missing");
  }
  return true;
}

namespace {
std::string hex16(uint64_t value) {
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(value));
  return text;
}
}  // namespace

std::string formatFingerprints(const Fingerprints& fingerprints) {
  std::string text = std::string(kHeader) + "\n";
  text += "run " + (fingerprints.run ? hex16(*fingerprints.run) : std::string("-")) + "\n";
  for (const FolderFingerprint& folder : fingerprints.folders) {
    text += std::to_string(folder.type) + " " + folder.folderId + " " + hex16(folder.hash) + " " +
            std::to_string(folder.fileSize) + " " + std::to_string(folder.fileTime) + " " +
            (folder.fileName.empty() ? std::string("-") : toUtf8(folder.fileName)) + "\n";
  }
  return text + "end " + std::to_string(fingerprints.folders.size()) + "\n";
}

bool readFingerprints(const std::u16string& dataFolder, Fingerprints& read, std::string& error) {
  read = Fingerprints();
  std::string bytes;
  bool found = false;
  if (!readSmallFile(pathIn(dataFolder, kFingerprintFileName), kMaxFingerprintBytes, "fingerprints",
                     bytes, found, error))
    return false;
  return !found || parseFingerprints(bytes, read, error);
}

bool writeFingerprints(const std::u16string& dataFolder, const Fingerprints& fingerprints) {
  const std::u16string path = pathIn(dataFolder, kFingerprintFileName);
  const std::u16string newPath = path + kNewSuffix;
  const std::string text = formatFingerprints(fingerprints);
  bool written = false;
  if (std::unique_ptr<WritableFile> file = env()->openForWriting(newPath)) {
    written = file->write(text.data(), text.size()) == text.size();
    written = file->close() && written;
  }
  if (written && env()->replaceFile(newPath, path)) return true;
  env()->removeFile(newPath);
  env()->removeFile(path);
  return false;
}

void removeFingerprints(const std::u16string& dataFolder) {
  env()->removeFile(pathIn(dataFolder, kFingerprintFileName));
}

bool fileStamp(const std::u16string& path, uint64_t& size, int64_t& time) {
  const std::filesystem::path file(path);
  std::error_code code;
  size = std::filesystem::file_size(file, code);
  if (code) return false;
  const auto written = std::filesystem::last_write_time(file, code);
  if (code) return false;
  time = static_cast<int64_t>(written.time_since_epoch().count());
  return true;
}

std::optional<uint64_t> contentFingerprint(IMAPIFolder* folder) {
  PIM_ENTRY("PIM::contentFingerprint");
  if (!folder) return std::nullopt;
  try {
    ComPtr<IMAPITable> table;
    if (FAILED(folder->GetContentsTable(0, table.put()))) return std::nullopt;
    const PropTagArray columns({PR_ENTRYID, PR_LAST_MODIFICATION_TIME, PR_CHANGE_KEY});
    if (FAILED(table->SetColumns(columns.get(), 0))) return std::nullopt;
    Hash hash;
    uint64_t rows = 0;
    for (;;) {
      RowSet batch;
      if (FAILED(table->QueryRows(kRowsPerQuery, 0, batch.put()))) return std::nullopt;
      if (batch.size() == 0) break;
      for (ULONG r = 0; r < batch.size(); ++r) {
        const SRow& row = batch->aRow[r];
        if (row.cValues < 3) return std::nullopt;
        const SPropValue& id = row.lpProps[0];
        const SPropValue& time = row.lpProps[1];
        const SPropValue& key = row.lpProps[2];
        const bool hasTime = time.ulPropTag == PR_LAST_MODIFICATION_TIME;
        const bool hasKey = key.ulPropTag == PR_CHANGE_KEY;
        if (id.ulPropTag != PR_ENTRYID || (!hasTime && !hasKey)) return std::nullopt;
        hash.add(
            std::string_view(reinterpret_cast<const char*>(id.Value.bin.lpb), id.Value.bin.cb));
        hash.add(hasTime
                     ? (uint64_t{time.Value.ft.dwHighDateTime} << 32) | time.Value.ft.dwLowDateTime
                     : 0);
        hash.add(hasKey ? std::string_view(reinterpret_cast<const char*>(key.Value.bin.lpb),
                                           key.Value.bin.cb)
                        : std::string_view());
        ++rows;
      }
    }
    hash.add(rows);
    return hash.value();
  } catch (const std::exception& e) {
    PIM_LOG_ERR("Could not read the folder's changes: " << e.what());
    return std::nullopt;
  }
}

uint64_t environmentFingerprint(const SystemTime& day) {
  Hash hash;
  hash.add(std::string_view(FERRANT_APP_VERSION));
  hash.add(kOutputFormat);
  hash.add((uint64_t{day.year} << 16) | (uint64_t{day.month} << 8) | day.day);
  const TimeZoneInfo zone = env()->timeZone();
  for (int32_t value : {zone.bias, zone.standardBias, zone.daylightBias})
    hash.add(static_cast<uint64_t>(static_cast<uint32_t>(value)));
  hash.add(static_cast<uint64_t>(zone.state));
  hash.add(env()->userUiLanguage());
  return hash.value();
}

uint64_t settingsFingerprint(uint32_t folderType, const SystemTime& day) {
  const Preferences& prefs = Preferences::instance();
  Hash hash;
  // Only the calendar's window depends on the day.
  hash.add(environmentFingerprint(folderType == kFolderCalendar ? day : SystemTime()));
  hash.add(folderType);
  const auto values = [&](std::initializer_list<uint64_t> settings) {
    for (uint64_t value : settings) hash.add(value);
  };
  switch (folderType) {
    case kFolderCalendar: {
      const CalendarSettings& s = prefs.calendar;
      values({s.captureDaysBefore, s.captureDaysAfter, s.captureBody, s.captureOrganizer,
              s.captureRequiredAttendees, s.captureOptionalAttendees, s.captureBusyStatus,
              s.capturePriority});
      break;
    }
    case kFolderContacts: {
      const ContactSettings& s = prefs.contacts;
      values({s.captureCellularNumber, s.capturePagerNumber, s.captureHomeNumber,
              s.captureCompanyName, s.captureBusinessFax, s.captureBusinessAddress,
              s.captureHomeAddress, s.captureHomeFax, s.captureNotes, s.captureTitle});
      break;
    }
    case kFolderEmail: {
      const EmailSettings& s = prefs.email;
      values({s.captureEmailCount, s.captureImportance, s.captureFlagStatus, s.captureSensitivity,
              s.captureFlagRequest, s.captureAttachments});
      break;
    }
    case kFolderTasks: {
      const TaskSettings& s = prefs.tasks;
      values({s.maxTaskCapture, s.captureStatus, s.capturePriority, s.captureBody});
      break;
    }
    default:
      break;
  }
  return hash.value();
}

uint64_t mixFingerprint(uint64_t seed, std::string_view bytes) {
  Hash hash;
  hash.add(seed);
  hash.add(bytes);
  return hash.value();
}

std::optional<uint64_t> folderFingerprint(IMAPIFolder* folder, uint32_t folderType,
                                          const SystemTime& day) {
  const std::optional<uint64_t> content = contentFingerprint(folder);
  if (!content) return std::nullopt;
  Hash hash;
  hash.add(*content);
  hash.add(settingsFingerprint(folderType, day));
  return hash.value();
}

}  // namespace PIM

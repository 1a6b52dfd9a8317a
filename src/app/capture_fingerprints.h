// What `ferrant capture` remembers between runs, beside the index: for each
// folder it wrote, a fingerprint of the folder's content and of the settings
// that shape its file, and the file's size and time. A later run that finds
// the same fingerprint and the file untouched leaves that folder's file and
// index line as they are, as a running add-in does for a folder that sent no
// change notification.
//
// When every folder of a run is there, the file also holds a fingerprint of
// the store file and the settings file themselves, so that a run finding
// both untouched need not load the store at all.
//
// The file (".ferrant.fingerprints") is plain text, LF-ended:
//   ferrant fingerprints 1
//   run <16 hex, or ->
//   <index type> <folder entry id, hex> <hash, 16 hex> <size> <time> <file name or ->
//   ...
//   end <number of folder lines>
// Anything else is refused as a whole, and the run then reads every folder.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mapi/mapi.h"
#include "platform/env.h"

namespace PIM {

inline constexpr char16_t kFingerprintFileName[] = u".ferrant.fingerprints";
inline constexpr size_t kMaxFingerprintBytes = 4 << 20;

struct FolderFingerprint {
  int32_t type = 0;         // the index's number of the folder's kind
  std::string folderId;     // the folder's entry id, lower-case hex
  uint64_t hash = 0;        // content and settings
  uint64_t fileSize = 0;    // 0 without a file
  int64_t fileTime = 0;     // the file's last write, in the file system's ticks
  std::u16string fileName;  // empty: the folder had no records
  bool operator==(const FolderFingerprint&) const = default;
};

struct Fingerprints {
  std::optional<uint64_t> run;  // the store and settings files; none: not known
  std::vector<FolderFingerprint> folders;
  bool operator==(const Fingerprints&) const = default;
};

// False, with `error` naming the first problem and its line, when `bytes`
// are not a file as formatFingerprints makes it; `read` is then empty.
bool parseFingerprints(std::string_view bytes, Fingerprints& read, std::string& error);
std::string formatFingerprints(const Fingerprints& fingerprints);

// True with nothing when there is no file.
bool readFingerprints(const std::u16string& dataFolder, Fingerprints& read, std::string& error);
// Made whole beside the old one and renamed over it; false when it could
// not be (the old one is then removed, so that it is never trusted).
bool writeFingerprints(const std::u16string& dataFolder, const Fingerprints& fingerprints);

// `seed` and `bytes` mixed into one hash.
uint64_t mixFingerprint(uint64_t seed, std::string_view bytes);
void removeFingerprints(const std::u16string& dataFolder);

// The size and last write of a file; false when it is not there.
bool fileStamp(const std::u16string& path, uint64_t& size, int64_t& time);

// The entry id, last modification time and change key of every item of the
// folder's contents table, hashed in the table's order; none when the table
// cannot be read or an item has neither a time nor a change key, since its
// changes could then go unseen.
std::optional<uint64_t> contentFingerprint(IMAPIFolder* folder);

// What every file depends on besides the store and the settings: the
// program's version and output format, the day (the calendar's window), the
// time zone and the language.
uint64_t environmentFingerprint(const SystemTime& day);

// The settings of a kind (FolderType) that its files depend on, with the day
// the calendar's window is counted from, the time zone and the language.
uint64_t settingsFingerprint(uint32_t folderType, const SystemTime& day);

// Both of the above for one folder; none when its content has none.
std::optional<uint64_t> folderFingerprint(IMAPIFolder* folder, uint32_t folderType,
                                          const SystemTime& day);

}  // namespace PIM

// Reads back the index a capture run wrote ("DataDirectory.xml"), so that a
// new process knows which file each folder had. Only the exact text the
// writer produces is accepted: the declaration, the <xmlData> line, one
// <dataFile name="…" type="…" entryId="…"/> line per folder file, the
// closing tag, every line ended by CR LF. Anything else (a damaged file, a
// file of another program that happens to bear the name) is refused as a
// whole with a reason, and the caller goes on as if there were no index.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "data/data_file.h"

namespace PIM {

// The largest index read: a few hundred folders take some kilobytes.
inline constexpr size_t kMaxDataDirectoryBytes = 1 << 20;

// False, with `error` naming the first problem and its line, when `bytes`
// is not an index as the writer makes it; `entries` is then empty. Names
// come back unescaped and must be bare file names; only the folder's own
// identifier is known.
bool parseDataDirectory(std::string_view bytes, std::vector<DataDirectoryEntry>& entries,
                        std::string& error);

// The bytes of a small file the data folder keeps beside its data files.
// True with `found` false when there is none; false, with `error` set, when
// it cannot be read or is larger than `maxBytes` (`kind` names it then).
bool readSmallFile(const std::u16string& path, size_t maxBytes, const char* kind,
                   std::string& bytes, bool& found, std::string& error);

// Reads and parses the index in `folder`. True with no entries when there
// is no index; false, with `error` set, when it cannot be read or parsed.
bool readDataDirectory(const std::u16string& folder, std::vector<DataDirectoryEntry>& entries,
                       std::string& error);

}  // namespace PIM

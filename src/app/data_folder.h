// What the ferrant command makes sure of before it lets a run write into a
// data folder. A run deletes every writable ".xml" file there that no
// folder uses any more: right in a folder only the system writes, fatal in
// one that holds someone's own files. So a run goes only into an empty
// folder or one that already was a data folder, unless the user insists.
#pragma once

#include <string>

namespace PIM {

enum class DataFolderState {
  Usable,      // empty, or a data folder already
  NotAFolder,  // a file, or a folder that cannot be listed
  Foreign,     // holds entries and was never a data folder
};

// Looks at `folder` as it is now. A folder that holds the index or the
// lock file has been a data folder; the lock file alone does not make a
// folder non-empty.
DataFolderState inspectDataFolder(const std::u16string& folder);

// Whether a file can be made (and is then removed again) in `folder`.
bool canWriteInto(const std::u16string& folder);

}  // namespace PIM

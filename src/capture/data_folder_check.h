// For the capture's tests and fuzz target: what a data folder holds after a
// run, and what is wrong with it. A sound folder has an index that is whole
// (its envelope closed), names only files that exist and are whole, names
// each once, and no other data file lies beside them.
#pragma once

#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "core/utils.h"
#include "data/data_file.h"
#include "platform/env.h"
#include "store/fixture.h"

namespace PIM::testing {

inline constexpr char kDataFileEnd[] = "</xmlData>\r\n";

// Begins with the XML declaration and ends with the closing tag.
inline bool isWholeDataFile(const std::string& bytes) {
  const std::string end = kDataFileEnd;
  return bytes.rfind("<?xml ", 0) == 0 && bytes.size() >= end.size() &&
         bytes.compare(bytes.size() - end.size(), end.size(), end) == 0;
}

struct IndexLine {
  std::string name;
  std::string type;
  std::string entryId;
};

struct DataFolderState {
  std::map<std::string, std::string> files;  // every file's name -> bytes
  std::string index;                         // its bytes, empty when absent
  std::vector<IndexLine> lines;              // in the index's order
  std::vector<std::string> problems;
};

// The value of `attribute` in an index line, or empty text.
inline std::string indexAttribute(const std::string& line, const std::string& attribute) {
  const std::string start = " " + attribute + "=\"";
  const size_t at = line.find(start);
  if (at == std::string::npos) return "";
  const size_t from = at + start.size();
  const size_t end = line.find('"', from);
  return end == std::string::npos ? "" : line.substr(from, end - from);
}

inline DataFolderState readDataFolder(const std::u16string& folder) {
  DataFolderState state;
  std::vector<FolderEntry> entries;
  if (!env()->listFolder(folder, entries)) {
    state.problems.push_back("the data folder cannot be listed");
    return state;
  }
  for (const FolderEntry& entry : entries) {
    if (entry.attributes & kFileAttributeDirectory) continue;
    std::ifstream in(store::nativePath(folder + kPathSeparator + entry.name), std::ios::binary);
    state.files[toUtf8(entry.name)] =
        std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  const std::string indexName = toUtf8(kDataDirectoryName);
  auto index = state.files.find(indexName);
  if (index == state.files.end()) {
    state.problems.push_back("there is no index");
    return state;
  }
  state.index = index->second;
  if (!isWholeDataFile(state.index)) state.problems.push_back("the index is not whole");
  for (size_t at = state.index.find("<dataFile "); at != std::string::npos;
       at = state.index.find("<dataFile ", at + 1)) {
    const std::string line = state.index.substr(at, state.index.find("/>", at) - at);
    IndexLine parsed{indexAttribute(line, "name"), indexAttribute(line, "type"),
                     indexAttribute(line, "entryId")};
    auto file = state.files.find(parsed.name);
    if (file == state.files.end())
      state.problems.push_back("the index names a missing file: " + parsed.name);
    else if (!isWholeDataFile(file->second))
      state.problems.push_back("the index names a file that is not whole: " + parsed.name);
    for (const IndexLine& earlier : state.lines) {
      if (earlier.name == parsed.name)
        state.problems.push_back("the index names a file twice: " + parsed.name);
    }
    state.lines.push_back(parsed);
  }
  for (const auto& [name, bytes] : state.files) {
    bool named = name == indexName;
    for (const IndexLine& line : state.lines) named = named || line.name == name;
    if (!named) state.problems.push_back("a file the index does not name: " + name);
  }
  return state;
}

}  // namespace PIM::testing

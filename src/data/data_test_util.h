// Shared by the record tests: a store profile read through the capture's
// table reader, a fixed clock and time zone, fresh preferences, and the
// written data file with its schema check.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "capture/data_list.h"
#include "data/data_file.h"
#include "prefs/preferences.h"
#include "store/store_test_util.h"
#include "testing/schema_check.h"
#include "testing/test_support.h"

namespace PIM::testing {

// The clock and zone the records see; everything else is the platform's.
class ClockEnv : public EnvWrapper {
 public:
  ClockEnv() : EnvWrapper(Env::platformDefault()) {}
  SystemTime now{2026, 11, 0, 22, 10, 30, 0, 0};  // UTC
  TimeZoneInfo zone{};                            // UTC, no daylight saving
  SystemTime systemTimeNow() override { return now; }
  TimeZoneInfo timeZone() override { return zone; }
};

// The log's lines as "file : function() > ERR> text", the file without its
// folder and the line number left out: which operation wrote each line.
inline std::vector<std::string> writers(const LogCapture& log) {
  std::vector<std::string> out;
  for (const std::string& line : log.lines()) {
    const size_t headerEnd = line.find(") : ");
    const size_t lineNumber = line.rfind('(', headerEnd);
    if (headerEnd == std::string::npos || lineNumber == std::string::npos) {
      out.push_back(line);
      continue;
    }
    const size_t folderEnd = line.find_last_of("/\\", lineNumber);
    const size_t fileStart = folderEnd == std::string::npos ? 0 : folderEnd + 1;
    out.push_back(line.substr(fileStart, lineNumber - fileStart) + " : " +
                  line.substr(headerEnd + 4));
  }
  return out;
}

inline void expectValidDataFile(const std::u16string& path) {
  if (const std::optional<std::string> errors = schemaErrors(path)) {
    EXPECT_EQ(*errors, "") << "the file does not follow XMLDataSchema.xsd";
  }
}

class RecordTest : public store::testing::StoreTest {
 protected:
  void SetUp() override {
    Preferences::instance().resetToDefaults();
    store::testing::StoreTest::SetUp();
  }
  void TearDown() override {
    store::testing::StoreTest::TearDown();
    Preferences::instance().resetToDefaults();
  }

  // Every record the folder yields, as the capture reads it.
  template <class Record>
  std::vector<Record> read(const std::string& folderKey) {
    std::vector<Record> records;
    CancelFlag cancel{false};
    EXPECT_EQ(getDataList(folder(folderKey).get(), &records, cancel), S_OK);
    return records;
  }

  // The data file the records make, checked against the schema where that
  // can be done.
  template <class Record>
  std::string fileOf(const std::vector<Record>& records) {
    const std::u16string path = dir_.file(u"records.xml");
    EXPECT_TRUE(writeToFile(path, records));
    expectValidDataFile(path);
    return readFileBytes(path);
  }

  // The data file of `body` lines: header, the lines with CR LF, footer.
  static std::string envelope(const std::string& body);

  ClockEnv clock_;
  ScopedEnv scopedClock_{&clock_};
  TempDir dir_;
};

}  // namespace PIM::testing

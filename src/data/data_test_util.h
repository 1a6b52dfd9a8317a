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

// The envelope used by every record test.
#include <string>

#include "core/utils.h"
#include "data/data_test_util.h"

namespace PIM::testing {

std::string RecordTest::envelope(const std::string& body) {
  return std::string("<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<xmlData xmlns=\"") +
         kDataSchemaUrl + "\">\r\n" + body + "</xmlData>\r\n";
}

}  // namespace PIM::testing

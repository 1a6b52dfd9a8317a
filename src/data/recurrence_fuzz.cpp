// Arbitrary bytes as an appointment's recurrence blob: decoded and written.
// Must end without a crash, and a pattern is either dropped whole (no
// element) or one of the seven types with an end type and fields that pass
// their type's checks.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "data/mapi_recurrence.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  PIM::MAPIRecurrence recurrence;
  recurrence.reset(std::vector<uint8_t>(data, data + size));
  const std::u16string xml = recurrence.toXml();
  check(recurrence.data.size() == size);
  if (recurrence.type == PIM::MAPIRecurrence::None) {
    check(xml.empty());
  } else {
    check(recurrence.type <= PIM::MAPIRecurrence::YearlyFuzzy);
    check(recurrence.endType >= 1 && recurrence.endType <= 3);
    if (recurrence.type == PIM::MAPIRecurrence::Weekly ||
        recurrence.type == PIM::MAPIRecurrence::MonthlyFuzzy)
      check(recurrence.dayMask <= 127);
    if (recurrence.type == PIM::MAPIRecurrence::MonthlyFuzzy)
      check(recurrence.occurrence <= 5 && recurrence.every <= 12);
    if (recurrence.type >= PIM::MAPIRecurrence::YearlySpecific) check(recurrence.month <= 11);
    check(xml.rfind(u"<recurrence ", 0) == 0);
    check(xml.size() > 15 && xml.compare(xml.size() - 15, 15, u"</recurrence>\r\n") == 0);
  }
  return 0;
}

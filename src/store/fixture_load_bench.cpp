// Fixture bytes per second through the loader: contacts-like items of short
// texts in several scripts and named properties, and mail-like items with a
// 4 KB body and a recipient.
#include <benchmark/benchmark.h>

#include <string>

#include "store/fixture.h"

namespace {

constexpr int kItems = 2000;

std::string fixture(bool mail) {
  std::string json = R"({"stores": [{"name": "S", "root": {"folders": [{"name": "F", "items": [)";
  const std::string body(4096, 'x');
  for (int i = 0; i < kItems; ++i) {
    const std::string n = std::to_string(i);
    json += std::string(i ? "," : "") + R"({"key": "m)" + n + R"(", "class": )" +
            (mail ? R"("IPM.Note")" : R"("IPM.Contact")") + R"(, "props": [)" +
            R"({"tag": "PR_SUBJECT_W", "value": "Zoë Ølberg Дмитрий 😀 )" + n + R"("},)" +
            R"({"tag": "PR_IMPORTANCE", "value": 1},)" +
            R"({"tag": "PR_MESSAGE_DELIVERY_TIME", "value": "2024-03-01T09:30:00Z"},)" +
            R"({"named": {"set": "PSETID_Address", "id": "0x8083"}, "type": "PT_UNICODE",)" +
            R"( "value": "zoe.)" + n + R"(@example.com"})";
    if (mail) json += R"(, {"tag": "PR_BODY_W", "value": ")" + body + R"("})";
    json += "]";
    if (mail)
      json += R"(, "recipients": [{"props": [{"tag": "PR_DISPLAY_NAME_W", "value": "Ana"},)"
              R"( {"tag": "PR_RECIPIENT_TYPE", "value": 1}]}])";
    json += "}";
  }
  return json + "]}]}}]}";
}

void load(benchmark::State& state, bool mail) {
  const std::string json = fixture(mail);
  for (auto _ : state) benchmark::DoNotOptimize(PIM::store::loadFixtureText(json, "bench.json"));
  state.SetItemsProcessed(int64_t(state.iterations()) * kItems);
  state.SetBytesProcessed(int64_t(state.iterations() * json.size()));
}

void BM_LoadContacts(benchmark::State& state) { load(state, false); }
void BM_LoadMail(benchmark::State& state) { load(state, true); }

}  // namespace

BENCHMARK(BM_LoadContacts)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LoadMail)->Unit(benchmark::kMillisecond)->UseRealTime();

// Records per second through the data-file writer, against one buffered
// write of the same bytes (the floor: what writing the output costs).
// Tasks and contacts carry short texts in several scripts; e-mails a 4 KB
// HTML body.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "data/contact.h"
#include "data/data_file.h"
#include "data/email.h"
#include "data/task.h"
#include "platform/env.h"

namespace {

constexpr size_t kRecords = 1000;

PIM::EntryId entryIdOf(size_t i) {
  std::vector<uint8_t> bytes(46, 0x5A);
  for (size_t k = 0; k < sizeof i; ++k) bytes[k] = uint8_t(i >> (8 * k));
  return PIM::EntryId(std::move(bytes));
}

std::u16string textOf(size_t i) {
  return u"Réunion «budget» & 会議 " + std::u16string(1, char16_t(u'0' + i % 10)) +
         u" <Ωμέγα> \U0001F4C5";
}

std::string htmlBody() {
  std::string html = "<html><head><meta charset=\"utf-8\"></head><body>";
  while (html.size() < 4096 - 20) html += "<p>Quarterly figures &amp; notes.</p>";
  return html + "</body></html>";
}

std::vector<PIM::Task> tasks() {
  std::vector<PIM::Task> records(kRecords);
  for (size_t i = 0; i < kRecords; ++i) {
    records[i].entryId = entryIdOf(i);
    records[i].subject = textOf(i);
    records[i].body = u"Follow up with the team\r\n" + textOf(i);
    records[i].dueDate = 133000000000000000ULL + i;
    records[i].status = PIM::Task::InProgress;
    records[i].priority = PIM::PriorityHigh;
  }
  return records;
}

std::vector<PIM::Contact> contacts() {
  std::vector<PIM::Contact> records(kRecords);
  for (size_t i = 0; i < kRecords; ++i) {
    PIM::Contact& c = records[i];
    c.entryId = entryIdOf(i);
    c.name = u"Østergård, Zoë " + textOf(i);
    c.fullname = u"Zoë Østergård";
    c.email = u"zoe.ostergard@example.org";
    c.businessNumber = u"+45 33 12 34 56";
    c.mobileNumber = u"+45 20 98 76 54";
    c.companyName = u"Ålborg & Søn";
    c.businessAddress = u"Strandvejen 12\r\n2900 Hellerup";
    c.notes = textOf(i);
    c.title = u"Directrice";
  }
  return records;
}

std::vector<PIM::Email> emails() {
  const std::string body = htmlBody();
  std::vector<PIM::Email> records(kRecords);
  for (size_t i = 0; i < kRecords; ++i) {
    PIM::Email& e = records[i];
    e.entryId = entryIdOf(i);
    e.subject = textOf(i);
    e.from = u"Zoë Østergård <zoe@example.org>";
    e.date = 133000000000000000ULL + i;
    e.to = {u"Ann <ann@example.org>", u"Bo <bo@example.org>"};
    e.body = body;
  }
  return records;
}

std::u16string outputPath() {
  const std::string path =
      (std::filesystem::temp_directory_path() / "ferrant_data_file_bench.xml").string();
  return std::u16string(path.begin(), path.end());
}

template <class Record>
void writeRecords(benchmark::State& state, const std::vector<Record>& records) {
  const std::u16string path = outputPath();
  for (auto _ : state) {
    if (!PIM::writeToFile(path, records)) state.SkipWithError("the data file was not written");
  }
  state.SetItemsProcessed(int64_t(state.iterations() * records.size()));
  state.SetBytesProcessed(int64_t(
      state.iterations() * std::filesystem::file_size(std::string(path.begin(), path.end()))));
}

// The same file's bytes in one buffered write.
template <class Record>
void writeBytes(benchmark::State& state, const std::vector<Record>& records) {
  const std::u16string path = outputPath();
  if (!PIM::writeToFile(path, records)) state.SkipWithError("the data file was not written");
  std::ifstream in(std::string(path.begin(), path.end()), std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  for (auto _ : state) {
    std::unique_ptr<PIM::WritableFile> file = PIM::env()->openForWriting(path);
    if (!file || file->write(bytes.data(), bytes.size()) != bytes.size() || !file->close())
      state.SkipWithError("the bytes were not written");
  }
  state.SetItemsProcessed(int64_t(state.iterations() * records.size()));
  state.SetBytesProcessed(int64_t(state.iterations() * bytes.size()));
}

void BM_WriteTasks(benchmark::State& state) { writeRecords(state, tasks()); }
void BM_BareWriteTasks(benchmark::State& state) { writeBytes(state, tasks()); }
void BM_WriteContacts(benchmark::State& state) { writeRecords(state, contacts()); }
void BM_BareWriteContacts(benchmark::State& state) { writeBytes(state, contacts()); }
void BM_WriteEmails(benchmark::State& state) { writeRecords(state, emails()); }
void BM_BareWriteEmails(benchmark::State& state) { writeBytes(state, emails()); }
BENCHMARK(BM_WriteTasks)->UseRealTime();
BENCHMARK(BM_BareWriteTasks)->UseRealTime();
BENCHMARK(BM_WriteContacts)->UseRealTime();
BENCHMARK(BM_BareWriteContacts)->UseRealTime();
BENCHMARK(BM_WriteEmails)->UseRealTime();
BENCHMARK(BM_BareWriteEmails)->UseRealTime();

}  // namespace

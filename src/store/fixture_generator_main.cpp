// ferrant-fixture-gen: writes large store fixtures for measuring the capture
// and the reload. The same arguments always give the same bytes: every item
// draws from its own random stream (seed, item number), so a changed copy
// differs from the original in the changed items only and their keys match.
#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <string_view>

namespace {

// splitmix64: tiny, fast and the same on every platform.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  uint32_t below(uint32_t n) { return n ? uint32_t(next() % n) : 0; }
  template <typename T, size_t N>
  const T& pick(const T (&list)[N]) {
    return list[below(N)];
  }

 private:
  uint64_t state_;
};

// Text in many scripts; emoji outside the BMP become surrogate pairs in the
// store's UTF-16.
const char* const kWords[] = {
    "réunion",      "façade",  "Überprüfung", "niño",       "Ølberg", "naïve",      "Ελλάδα",
    "ημερολόγιο",   "встреча", "отчёт",       "Привет",     "שלום",   "פגישה",      "مرحبا",
    "تقرير",        "اجتماع",  "会議",        "資料",       "北京",   "東京タワー", "서울",
    "プロジェクト", "budget",  "planning",    "review",     "📎",      "🎉",          "😀",
    "👩‍💻",  "✈",       "Kraków",      "Ærøskøbing", "Zoë",    "Łódź",       "İstanbul"};
const char* const kGiven[] = {"Renée",   "Дмитрий", "דנה",  "أحمد",  "太郎",  "Zoë",
                              "Γιώργος", "José",    "王芳", "Søren", "Ñandú", "Ana"};
const char* const kFamily[] = {"Lefèvre",   "Соколов",   "כהן",          "الفارسي",
                               "山田",      "Müller",    "Παπαδόπουλος", "Núñez",
                               "Østergård", "Kowalczyk", "Çelik",        "李"};
const char* const kAscii[] = {"renee",   "dmitri", "dana", "ahmed", "taro",  "zoe",
                              "giorgos", "jose",   "wang", "soren", "nandu", "ana"};
const char* const kDomains[] = {"example.fr", "example.ru", "example.co.il", "example.ae",
                                "example.jp", "example.no", "example.gr",    "example.es"};
const char* const kPlaces[] = {"Sala Tejo", "Зал 3",     "חדר ישיבות",  "قاعة 2",
                               "会議室 B",  "Αίθουσα 1", "Café Zürich", "Room 🚀"};
const char* const kMime[] = {"application/pdf", "text/plain", "image/png",
                             "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"};
const char* const kExt[] = {".pdf", ".txt", ".png", ".xlsx"};

void appendEscaped(std::string& out, std::string_view text) {
  for (char c : text) {
    const unsigned char u = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (c == '\n') {
      out += "\\n";
    } else if (u < 0x20) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", u);
      out += buf;
    } else {
      out += c;
    }
  }
}

// Days since 1970-01-01 to and from a civil date (proleptic Gregorian).
int64_t daysFromCivil(int y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = unsigned(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + int64_t(doe) - 719468;
}

std::string dateText(int64_t days) {
  days += 719468;
  const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const unsigned doe = unsigned(days - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  const unsigned d = doy - (153 * mp + 2) / 5 + 1;
  const unsigned m = mp < 10 ? mp + 3 : mp - 9;
  const int64_t y = int64_t(yoe) + era * 400 + (m <= 2);
  char buf[48];
  std::snprintf(buf, sizeof buf, "%04" PRId64 "-%02u-%02u", y, m, d);
  return buf;
}

std::string timeText(int64_t days, int minutes) {
  char buf[80];
  std::snprintf(buf, sizeof buf, "%sT%02d:%02d", dateText(days).c_str(), minutes / 60,
                minutes % 60);
  return buf;
}

const char* weekdayName(int64_t days) {
  static const char* const names[] = {"thursday", "friday",  "saturday", "sunday",
                                      "monday",   "tuesday", "wednesday"};
  return names[((days % 7) + 7) % 7];
}

enum class Kind { Calendar, Contacts, Tasks, Email, Mixed };

struct Options {
  Kind kind = Kind::Mixed;
  uint64_t items = 1000;
  uint64_t seed = 1;
  int64_t around = daysFromCivil(2026, 11, 15);
  std::string out;
  std::string changedOut;
  uint64_t changes = 0;
  // The four default folders, and beyond them further mail folders that
  // share the e-mails with the Inbox.
  uint64_t folders = 4;
};

// Buffers the document and hands it to the file in large writes.
class Writer {
 public:
  explicit Writer(const std::string& path) : file_(std::fopen(path.c_str(), "wb")), path_(path) {}
  bool ok() const { return file_ && !failed_; }
  std::string& buf() { return buf_; }
  void maybeFlush() {
    if (buf_.size() >= (1u << 20)) flush();
  }
  bool finish() {
    flush();
    if (!file_) return false;
    const bool closed = std::fclose(file_.release()) == 0;
    return closed && !failed_;
  }

 private:
  struct Closer {
    void operator()(FILE* f) const { std::fclose(f); }
  };
  void flush() {
    if (file_ && !buf_.empty() &&
        std::fwrite(buf_.data(), 1, buf_.size(), file_.get()) != buf_.size())
      failed_ = true;
    buf_.clear();
  }
  std::unique_ptr<FILE, Closer> file_;
  std::string path_;
  std::string buf_;
  bool failed_ = false;
};

class Generator {
 public:
  Generator(const Options& options, const std::set<uint64_t>* changed)
      : o_(options), changed_(changed) {}

  void write(std::string& out, Writer& writer) {
    out_ = &out;
    const uint64_t n = o_.items;
    uint64_t cal = 0, con = 0, task = 0, mail = 0;
    switch (o_.kind) {
      case Kind::Calendar:
        cal = n;
        break;
      case Kind::Contacts:
        con = n;
        break;
      case Kind::Tasks:
        task = n;
        break;
      case Kind::Email:
        mail = n;
        break;
      case Kind::Mixed:
        // Roughly a real mailbox: mostly mail, then contacts, calendar, tasks.
        cal = n / 10;
        con = n / 5;
        task = n / 10;
        mail = n - cal - con - task;
        break;
    }
    out += "{\n\"format\": \"Ferrant reference store fixture\", \"version\": 1,\n\"stores\": [{\n";
    out += "\"key\": \"main\", \"name\": \"Mailbox - Ana Núñez 📬\", \"default\": true,\n";
    out += "\"ipmSubtree\": \"ipm\", \"receiveFolder\": \"inbox\",\n\"root\": {\"props\": [\n";
    out += "{\"tag\": \"PR_IPM_APPOINTMENT_ENTRYID\", \"value\": {\"entryIdOf\": \"calendar\"}},\n";
    out += "{\"tag\": \"PR_IPM_CONTACT_ENTRYID\", \"value\": {\"entryIdOf\": \"contacts\"}}],\n";
    out +=
        "\"folders\": [{\"key\": \"ipm\", \"name\": \"Top of Information Store\", \"folders\": [\n";
    out += "{\"key\": \"inbox\", \"name\": \"Inbox\", \"class\": \"IPF.Note\", \"props\": [\n";
    out += "{\"tag\": \"PR_IPM_TASK_ENTRYID\", \"value\": {\"entryIdOf\": \"tasks\"}}],\n";
    const uint64_t mailFolders = o_.folders - 3;
    const uint64_t inboxMail = mail / mailFolders + (mail % mailFolders != 0 ? 1 : 0);
    folderItems(writer, std::min(mail, inboxMail), 0, &Generator::email);
    out += "},\n{\"key\": \"calendar\", \"name\": \"Calendar\", \"class\": \"IPF.Appointment\",\n";
    folderItems(writer, cal, mail, &Generator::appointment);
    out += "},\n{\"key\": \"contacts\", \"name\": \"Contacts\", \"class\": \"IPF.Contact\",\n";
    folderItems(writer, con, mail + cal, &Generator::contact);
    out += "},\n{\"key\": \"tasks\", \"name\": \"Tasks\", \"class\": \"IPF.Task\",\n";
    folderItems(writer, task, mail + cal + con, &Generator::task);
    // The rest of the mail, spread over the further folders; numbered after
    // the tasks so that a store of four folders stays as it always was.
    uint64_t mailDone = std::min(mail, inboxMail);
    for (uint64_t f = 1; f < mailFolders; ++f) {
      const uint64_t count = std::min(mail - mailDone, inboxMail);
      char name[32];
      std::snprintf(name, sizeof name, "Archive %04llu", static_cast<unsigned long long>(f));
      out += "},\n{\"key\": \"archive." + std::to_string(f) + "\", \"name\": \"" + name +
             "\", \"class\": \"IPF.Note\",\n";
      folderItems(writer, count, n + mailDone - std::min(mail, inboxMail), &Generator::email);
      mailDone += count;
    }
    out += "}]}]}}],\n\"addressBook\": [";
    for (size_t i = 0; i < std::size(kAscii); ++i) {
      if (i) out += ",";
      out += "\n{\"key\": \"ab." + std::to_string(i) + "\", \"props\": [";
      prop("PR_DISPLAY_NAME_W", std::string(kGiven[i]) + " " + kFamily[i]);
      out += ",";
      prop("PR_ADDRTYPE_W", "SMTP");
      out += ",";
      prop("PR_SMTP_ADDRESS_W", address(i));
      out += "]}";
    }
    out += "]\n}\n";
  }

 private:
  using ItemFn = void (Generator::*)(uint64_t, Random&);

  // `first` numbers items across the whole file, so keys are unique.
  void folderItems(Writer& writer, uint64_t count, uint64_t first, ItemFn fn) {
    *out_ += "\"items\": [";
    for (uint64_t i = 0; i < count; ++i) {
      const uint64_t number = first + i;
      Random random(o_.seed * 0x100000001B3ull ^ (number + 1) * 0xD6E8FEB86659FD93ull);
      edited_ = changed_ && changed_->count(number) != 0;
      *out_ += i ? ",\n" : "\n";
      (this->*fn)(number, random);
      writer.maybeFlush();
    }
    *out_ += "]";
  }

  static std::string address(size_t person) {
    return std::string(kAscii[person]) + "@" + kDomains[person % std::size(kDomains)];
  }

  std::string phrase(Random& r, unsigned words) {
    std::string text;
    for (unsigned i = 0; i < words; ++i) {
      if (i) text += ' ';
      text += r.pick(kWords);
    }
    return text;
  }

  // A changed item says so in its subject or name: a change the capture writes.
  std::string subject(Random& r, uint64_t number) {
    std::string text = phrase(r, 2 + r.below(4)) + " #" + std::to_string(number);
    if (edited_) text += " (edited ✎)";
    return text;
  }

  void raw(std::string_view text) { *out_ += text; }
  void quoted(std::string_view text) {
    *out_ += '"';
    appendEscaped(*out_, text);
    *out_ += '"';
  }
  void prop(const char* tag, std::string_view text) {
    *out_ += "{\"tag\": \"";
    *out_ += tag;
    *out_ += "\", \"value\": ";
    quoted(text);
    *out_ += "}";
  }
  void propRaw(const char* tag, std::string_view json) {
    *out_ += "{\"tag\": \"";
    *out_ += tag;
    *out_ += "\", \"value\": ";
    *out_ += json;
    *out_ += "}";
  }
  void named(const char* set, const char* id, const char* type, std::string_view json) {
    *out_ += "{\"named\": {\"set\": \"";
    *out_ += set;
    *out_ += "\", \"id\": \"";
    *out_ += id;
    *out_ += "\"}, \"type\": \"";
    *out_ += type;
    *out_ += "\", \"value\": ";
    *out_ += json;
    *out_ += "}";
  }
  std::string q(std::string_view text) {
    std::string s = "\"";
    appendEscaped(s, text);
    return s + "\"";
  }
  static std::string n(int64_t v) { return std::to_string(v); }

  void key(const char* prefix, uint64_t number, const char* cls) {
    *out_ += "{\"key\": \"";
    *out_ += prefix;
    *out_ += std::to_string(number);
    *out_ += "\", \"class\": \"";
    *out_ += cls;
    *out_ += "\", \"props\": [\n";
  }

  void recipient(size_t person, int type) {
    *out_ += "{\"props\": [";
    prop("PR_DISPLAY_NAME_W", std::string(kGiven[person]) + " " + kFamily[person]);
    *out_ += ", ";
    propRaw("PR_RECIPIENT_TYPE", n(type));
    *out_ += ", ";
    prop("PR_ADDRTYPE_W", "SMTP");
    *out_ += ", ";
    prop("PR_EMAIL_ADDRESS_W", address(person));
    *out_ += ", ";
    prop("PR_SMTP_ADDRESS_W", address(person));
    *out_ += "]}";
  }

  void email(uint64_t number, Random& r) {
    key("m", number, "IPM.Note");
    const size_t sender = r.below(std::size(kAscii));
    // Newest first, a few minutes apart, as an inbox sorted by arrival.
    const int64_t minutesBack = int64_t(number) * 7 + r.below(7);
    const int64_t day = o_.around - minutesBack / 1440;
    const std::string when = q(timeText(day, int(1439 - minutesBack % 1440)) + ":00Z");
    // The emoji written as a JSON surrogate pair escape, as some writers do.
    *out_ += "{\"tag\": \"PR_SUBJECT_W\", \"value\": \"\\ud83d\\udcec ";
    appendEscaped(*out_, subject(r, number));
    *out_ += "\"},\n";
    propRaw("PR_CLIENT_SUBMIT_TIME", when);
    raw(", ");
    propRaw("PR_MESSAGE_DELIVERY_TIME", when);
    raw(",\n");
    propRaw("PR_SENDER_ENTRYID", "{\"entryIdOf\": \"ab." + n(int64_t(sender)) + "\"}");
    raw(", ");
    prop("PR_SENDER_NAME_W", std::string(kGiven[sender]) + " " + kFamily[sender]);
    raw(",\n");
    propRaw("PR_IMPORTANCE", n(r.below(3)));
    raw(", ");
    propRaw("PR_SENSITIVITY", n(r.below(4)));
    raw(", ");
    propRaw("PR_MESSAGE_FLAGS", r.below(2) ? "17" : "1");
    raw(", ");
    propRaw("PR_FLAG_STATUS", n(r.below(3)));
    raw(",\n");
    prop("PR_BODY_W", phrase(r, 30));
    raw(",\n");
    // An HTML body of about 4 KB.
    std::string html = "<html><body><p>";
    while (html.size() < 4096) {
      html += phrase(r, 12);
      html += r.below(4) ? " " : "</p>\n<p>";
    }
    html += "</p></body></html>";
    prop("PR_BODY_HTML_W", html);
    raw("]");
    *out_ += ",\n\"recipients\": [";
    const unsigned recipients = 1 + r.below(3);
    for (unsigned i = 0; i < recipients; ++i) {
      if (i) raw(", ");
      recipient((sender + 1 + i) % std::size(kAscii), int(1 + i % 3));
    }
    raw("]");
    const unsigned attachments = r.below(3);
    if (attachments) {
      raw(",\n\"attachments\": [");
      for (unsigned i = 0; i < attachments; ++i) {
        if (i) raw(", ");
        const uint32_t type = r.below(std::size(kMime));
        const std::string name = phrase(r, 2) + kExt[type];
        raw("{\"props\": [");
        prop("PR_ATTACH_LONG_FILENAME_W", name);
        raw(", ");
        prop("PR_DISPLAY_NAME_W", name);
        raw(", ");
        prop("PR_ATTACH_MIME_TAG_W", kMime[type]);
        raw("], \"data\": {\"text\": ");
        quoted(phrase(r, 20 + r.below(40)));
        raw("}}");
      }
      raw("]");
    }
    raw("}");
  }

  void appointmentTimes(int64_t day, int start, int end, const std::string& location, int busy) {
    named("PSETID_Appointment", "0x820D", "PT_SYSTIME", q(timeText(day, start) + ":00Z"));
    raw(",\n");
    named("PSETID_Appointment", "0x820E", "PT_SYSTIME", q(timeText(day, end) + ":00Z"));
    raw(",\n");
    named("PSETID_Appointment", "0x8208", "PT_UNICODE", q(location));
    raw(", ");
    named("PSETID_Appointment", "0x8205", "PT_LONG", n(busy));
  }

  // Appointments in date order over two years around the base date, every
  // fifth one a recurring series with a deleted occurrence and a moved one
  // (an embedded message, as a real store keeps it).
  void appointment(uint64_t number, Random& r) {
    const uint64_t span = 730;
    const int64_t day = o_.around - 365 + int64_t(o_.items ? number * span / o_.items : 0);
    const int start = 7 * 60 + 15 * int(r.below(40));
    const int end = start + 15 * int(1 + r.below(8));
    const std::string title = subject(r, number);
    const std::string location = r.pick(kPlaces);
    const int busy = int(r.below(4));
    key("a", number, "IPM.Appointment");
    prop("PR_SUBJECT_W", title);
    raw(",\n");
    appointmentTimes(day, start, end, location, busy);
    raw(", ");
    propRaw("PR_PRIORITY", n(int(r.below(3)) - 1));
    raw(",\n");
    prop("PR_BODY_W", phrase(r, 15));
    const bool recurring = number % 5 == 0;
    struct Moved {
      int64_t originalDay, day;
      int start, end;
      std::string subject, location;
    } moved{};
    if (recurring) {
      const bool weekly = r.below(2);
      const int every = 1 + int(r.below(3));
      const int count = 6 + int(r.below(20));
      const int step = weekly ? 7 * every : every;
      const int64_t last = day + int64_t(count - 1) * step;
      const int deleted = 1 + int(r.below(count - 2));
      int change = 1 + int(r.below(count - 2));
      if (change == deleted) change = deleted + 1 < count ? deleted + 1 : deleted - 1;
      moved.originalDay = day + int64_t(change) * step;
      // Same day, an hour later: a move past another occurrence is not allowed.
      moved.day = moved.originalDay;
      moved.start = start + 60 > 22 * 60 ? start - 60 : start + 60;
      moved.end = moved.start + (end - start);
      moved.subject = title + " — " + phrase(r, 1);
      moved.location = r.pick(kPlaces);
      auto hm = [](int m) {
        char buf[32];
        std::snprintf(buf, sizeof buf, "%02d:%02d", m / 60, m % 60);
        return std::string(buf);
      };
      std::string rec = "{\"recurrence\": {\"pattern\": ";
      rec += weekly ? "\"weekly\", \"days\": [\"" + std::string(weekdayName(day)) + "\"]"
                    : std::string("\"daily\"");
      rec += ", \"every\": " + n(every) + ", \"start\": " + q(dateText(day)) +
             ", \"count\": " + n(count) + ", \"endDate\": " + q(dateText(last)) +
             ", \"startTime\": " + q(hm(start)) + ", \"endTime\": " + q(hm(end)) +
             ", \"deleted\": [" + q(dateText(day + int64_t(deleted) * step)) +
             "], \"exceptions\": [{\"original\": " + q(timeText(moved.originalDay, start)) +
             ", \"start\": " + q(timeText(moved.day, moved.start)) +
             ", \"end\": " + q(timeText(moved.day, moved.end)) +
             ", \"subject\": " + q(moved.subject) + ", \"location\": " + q(moved.location) + "}]}}";
      raw(",\n");
      named("PSETID_Appointment", "0x8223", "PT_BOOLEAN", "true");
      raw(",\n");
      named("PSETID_Appointment", "0x8216", "PT_BINARY", rec);
    }
    const bool meeting = r.below(3) == 0;
    if (meeting) {
      raw(",\n");
      prop("PR_SENDER_NAME_W", std::string(kGiven[0]) + " " + kFamily[0]);
      raw(", ");
      named("PSETID_Appointment", "0x8217", "PT_LONG", "1");
      raw(", ");
      named("PSETID_Appointment", "0x8218", "PT_LONG", n(1 + r.below(3)));
    }
    raw("]");
    if (meeting) {
      raw(",\n\"recipients\": [");
      recipient(1 + r.below(5), 1);
      raw(", ");
      recipient(6 + r.below(5), 2);
      raw("]");
    }
    if (recurring) {
      raw(",\n\"attachments\": [{\"props\": [");
      prop("PR_DISPLAY_NAME_W", moved.subject);
      raw(", ");
      propRaw("PR_ATTACH_METHOD", "5");
      raw("], \"embedded\": {\"class\": \"IPM.OLE.CLASS.{00061055-0000-0000-C000-000000000046}\", "
          "\"props\": [\n");
      prop("PR_SUBJECT_W", moved.subject);
      raw(", ");
      prop("PR_BODY_W", phrase(r, 8));
      raw(",\n");
      appointmentTimes(moved.day, moved.start, moved.end, moved.location, busy);
      raw(",\n");
      named("PSETID_Appointment", "0x8228", "PT_SYSTIME",
            q(timeText(moved.originalDay, start) + ":00Z"));
      raw("]}}]");
    }
    raw("}");
  }

  // Contacts, every fiftieth a distribution list of one-off members.
  void contact(uint64_t number, Random& r) {
    const size_t person = r.below(std::size(kAscii));
    std::string name =
        std::string(kGiven[person]) + " " + kFamily[person] + " " + std::to_string(number);
    if (edited_) name += " (edited ✎)";
    const std::string mail = std::string(kAscii[person]) + "." + std::to_string(number) + "@" +
                             kDomains[person % std::size(kDomains)];
    if (number % 50 == 49) {
      key("c", number, "IPM.DistList");
      prop("PR_DISPLAY_NAME_W", "📋 " + name);
      raw(", ");
      named("PSETID_Address", "0x8005", "PT_UNICODE", q("📋 " + name));
      raw(",\n");
      std::string members = "[";
      const unsigned count = 2 + r.below(6);
      for (unsigned i = 0; i < count; ++i) {
        const size_t m = r.below(std::size(kAscii));
        if (i) members += ",\n";
        members += "{\"oneOff\": {\"name\": " + q(std::string(kGiven[m]) + " " + kFamily[m]) +
                   ", \"addressType\": \"SMTP\", \"address\": " + q(address(m)) +
                   // Some members saved without Unicode: only Latin-1 names fit.
                   ", \"unicode\": " + (m == 5 || m == 9 ? (i % 2 ? "false" : "true") : "true") +
                   "}}";
      }
      members += "]";
      named("PSETID_Address", "0x8054", "PT_MV_BINARY", members);
      raw(",\n");
      prop("PR_BODY_W", phrase(r, 6));
      raw("]}");
      return;
    }
    key("c", number, "IPM.Contact");
    prop("PR_DISPLAY_NAME_W", name);
    raw(", ");
    named("PSETID_Address", "0x8005", "PT_UNICODE",
          q(std::string(kFamily[person]) + ", " + kGiven[person] + " " + std::to_string(number)));
    raw(",\n");
    named("PSETID_Address", "0x8083", "PT_UNICODE", q(mail));
    raw(", ");
    named("PSETID_Address", "0x8080", "PT_UNICODE", q(name + " (" + mail + ")"));
    raw(", ");
    named("PSETID_Address", "0x8082", "PT_UNICODE", "\"SMTP\"");
    raw(",\n");
    prop("PR_COMPANY_NAME_W", phrase(r, 2) + " GmbH");
    raw(", ");
    prop("PR_TITLE_W", phrase(r, 2));
    raw(", ");
    char phone[32];
    std::snprintf(phone, sizeof phone, "+%u %03u %04u", 1 + r.below(98), r.below(1000),
                  r.below(10000));
    prop("PR_BUSINESS_TELEPHONE_NUMBER_W", phone);
    raw(", ");
    std::snprintf(phone, sizeof phone, "+%u %03u %04u", 1 + r.below(98), r.below(1000),
                  r.below(10000));
    prop("PR_MOBILE_TELEPHONE_NUMBER_W", phone);
    raw(",\n");
    named("PSETID_Address", "0x801B", "PT_UNICODE",
          q(std::to_string(1 + r.below(200)) + " " + phrase(r, 2) + "\n" + r.pick(kPlaces)));
    if (r.below(2)) {
      raw(", ");
      prop("PR_BODY_W", phrase(r, 10));
    }
    raw("]}");
  }

  void task(uint64_t number, Random& r) {
    key("t", number, "IPM.Task");
    const int status = int(r.below(5));
    prop("PR_SUBJECT_W", subject(r, number));
    raw(", ");
    named("PSETID_Task", "0x8101", "PT_LONG", n(status));
    raw(", ");
    propRaw("PR_PRIORITY", n(int(r.below(3)) - 1));
    raw(",\n");
    named("PSETID_Task", "0x8102", "PT_DOUBLE", status == 2 ? "1.0" : status == 1 ? "0.5" : "0.0");
    raw(", ");
    named("PSETID_Task", "0x811C", "PT_BOOLEAN", status == 2 ? "true" : "false");
    if (r.below(4)) {
      const std::string due = q(dateText(o_.around - 60 + r.below(180)));
      raw(",\n");
      named("PSETID_Task", "0x8104", "PT_SYSTIME", due);
      raw(", ");
      named("PSETID_Task", "0x8105", "PT_SYSTIME", due);
    }
    if (r.below(2)) {
      raw(",\n");
      prop("PR_BODY_W", phrase(r, 12));
    }
    raw("]}");
  }

  const Options& o_;
  const std::set<uint64_t>* changed_;
  std::string* out_ = nullptr;
  bool edited_ = false;
};

bool writeFile(const Options& o, const std::string& path, const std::set<uint64_t>* changed) {
  Writer writer(path);
  if (!writer.ok()) {
    std::fprintf(stderr, "ferrant-fixture-gen: cannot write %s: %s\n", path.c_str(),
                 std::strerror(errno));
    return false;
  }
  Generator generator(o, changed);
  generator.write(writer.buf(), writer);
  if (!writer.finish()) {
    std::fprintf(stderr, "ferrant-fixture-gen: writing %s failed\n", path.c_str());
    return false;
  }
  return true;
}

int usage(const char* error) {
  if (error) std::fprintf(stderr, "ferrant-fixture-gen: %s\n", error);
  std::fprintf(
      error ? stderr : stdout,
      "usage: ferrant-fixture-gen --out FILE [--kind calendar|contacts|tasks|email|mixed]\n"
      "           [--items N] [--folders N] [--seed N] [--around YYYY-MM-DD]\n"
      "           [--changed-copy FILE --changes N]\n"
      "Writes a store fixture of N items (mixed: a mailbox of all four kinds).\n"
      "The same arguments give the same file. --changed-copy also writes a second\n"
      "file in which N items, spread over the folders, carry another subject or name.\n"
      "--around is the date the appointments, tasks and mail gather around.\n"
      "--folders (4 or more) adds mail folders beside the four default ones; the\n"
      "e-mails are shared between them and the Inbox.\n");
  return error ? 2 : 0;
}

bool number(const char* text, uint64_t& value) {
  if (!*text || *text == '-') return false;
  char* end = nullptr;
  errno = 0;
  const unsigned long long v = std::strtoull(text, &end, 10);
  if (errno || *end) return false;
  value = v;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  bool haveChanges = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "--help" || arg == "-h") return usage(nullptr);
    if (i + 1 >= argc) return usage(("missing value after " + std::string(arg)).c_str());
    const char* value = argv[++i];
    if (arg == "--out") {
      o.out = value;
    } else if (arg == "--changed-copy") {
      o.changedOut = value;
    } else if (arg == "--kind") {
      const std::string_view k = value;
      if (k == "calendar")
        o.kind = Kind::Calendar;
      else if (k == "contacts")
        o.kind = Kind::Contacts;
      else if (k == "tasks")
        o.kind = Kind::Tasks;
      else if (k == "email")
        o.kind = Kind::Email;
      else if (k == "mixed")
        o.kind = Kind::Mixed;
      else
        return usage("--kind takes calendar, contacts, tasks, email or mixed");
    } else if (arg == "--items") {
      if (!number(value, o.items) || o.items > 100000000)
        return usage("--items takes 0 to 100000000");
    } else if (arg == "--folders") {
      if (!number(value, o.folders) || o.folders < 4 || o.folders > 1000000)
        return usage("--folders takes 4 to 1000000");
    } else if (arg == "--seed") {
      if (!number(value, o.seed)) return usage("--seed takes a non-negative number");
    } else if (arg == "--changes") {
      if (!number(value, o.changes)) return usage("--changes takes a non-negative number");
      haveChanges = true;
    } else if (arg == "--around") {
      unsigned y = 0, m = 0, d = 0;
      char extra = 0;
      if (std::sscanf(value, "%4u-%2u-%2u%c", &y, &m, &d, &extra) != 3 || y < 1700 || m < 1 ||
          m > 12 || d < 1 || d > 31)
        return usage("--around takes a date YYYY-MM-DD");
      o.around = daysFromCivil(int(y), m, d);
    } else {
      return usage(("unknown option " + std::string(arg)).c_str());
    }
  }
  if (o.out.empty()) return usage("--out FILE is required");
  if (o.changedOut.empty() != !haveChanges)
    return usage("--changed-copy and --changes go together");
  if (o.changes > o.items) return usage("--changes cannot exceed --items");
  if (!writeFile(o, o.out, nullptr)) return 1;
  if (!o.changedOut.empty()) {
    // Evenly spread, so that every folder of a mixed mailbox gets its share.
    std::set<uint64_t> changed;
    for (uint64_t k = 0; k < o.changes; ++k) changed.insert(k * o.items / o.changes);
    if (!writeFile(o, o.changedOut, &changed)) return 1;
  }
  return 0;
}

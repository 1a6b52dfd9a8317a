#include "store/fixture.h"

#include <cstring>
#include <filesystem>
#include <limits>

#include "core/debug_logger.h"
#include "core/utils.h"
#include "platform/file_buffer.h"
#include "store/json_reader.h"
#include "store/one_off_entry_id.h"
#include "store/props.h"
#include "store/recurrence_blob.h"
#include "store/tag_names.h"

namespace PIM::store {
namespace {

using Json = JsonValue;

constexpr int kMaxDepth = 32;
// Items read are handed back in steps of this many bytes of text.
constexpr size_t kReleaseStep = 1 << 20;

// Where in the document a value is: a JSON pointer, made into text only
// for an error. A path refers to the path it extends, which outlives it.
class Path {
 public:
  Path() = default;
  Path operator/(std::string_view key) const& { return Path(this).push(key, 0); }
  Path operator/(size_t index) const& { return Path(this).push({}, index + 1); }
  Path operator/(std::string_view key) && { return std::move(*this).push(key, 0); }
  Path operator/(size_t index) && { return std::move(*this).push({}, index + 1); }
  std::string str() const {
    const std::string t = pointer();
    return t.empty() ? "/" : t;
  }

 private:
  // Up to kMax steps of its own; a longer chain is a path of a path.
  static constexpr int kMax = 4;
  struct Step {
    std::string_view key;
    size_t index = 0;  // 1 + the array index; 0 for a key
  };
  explicit Path(const Path* parent) : parent_(parent) {}
  Path push(std::string_view key, size_t index) && {
    if (count_ == kMax) return Path(this).push(key, index);
    steps_[count_++] = Step{key, index};
    return std::move(*this);
  }
  std::string pointer() const {
    std::string t = parent_ ? parent_->pointer() : std::string();
    for (int i = 0; i < count_; ++i) {
      t += '/';
      if (steps_[i].index)
        t += std::to_string(steps_[i].index - 1);
      else
        t.append(steps_[i].key);
    }
    return t;
  }
  const Path* parent_ = nullptr;
  Step steps_[kMax];
  int count_ = 0;
};

const char* kindOf(const Json& j) {
  switch (j.kind()) {
    case Json::Kind::Null:
      return "null";
    case Json::Kind::Object:
      return "an object";
    case Json::Kind::Array:
      return "an array";
    case Json::Kind::String:
      return "a text";
    case Json::Kind::Boolean:
      return "a boolean";
    case Json::Kind::Unsigned:
    case Json::Kind::Integer:
      return "an integer";
    case Json::Kind::Float:
      return "a number";
  }
  return "a value";
}

class Loader {
 public:
  // `text` is the document's bytes, which deferred values are read from.
  Loader(std::string file, std::string_view text, FileBuffer* buffer, const KnownItems* known,
         LoadStats* stats)
      : file_(std::move(file)),
        text_(text),
        buffer_(buffer),
        known_(known),
        stats_(stats),
        profile_(Profile::create()) {}

  std::shared_ptr<Profile> load(const Json& doc) {
    const Path root;
    expectKeys(doc, root, {"format", "version", "stores", "addressBook"});
    if (doc.contains("version")) {
      const int64_t v = integer(doc["version"], root / "version", 1, 1);
      (void)v;
    }
    const Json& stores = member(doc, root, "stores");
    expectArray(stores, root / "stores");
    if (stores.empty()) fail(root / "stores", "a profile needs at least one store");
    // Stores and folders first, so every folder key is known to the
    // properties and items that point at it.
    for (size_t i = 0; i < stores.size(); ++i) buildStore(stores[i], root / "stores" / i, i);
    if (doc.contains("addressBook")) {
      const Json& book = doc["addressBook"];
      const Path p = root / "addressBook";
      expectArray(book, p);
      for (size_t i = 0; i < book.size(); ++i) buildAbEntry(book[i], p / i);
    }
    for (size_t i = 0; i < stores.size(); ++i) fillStore(stores[i], root / "stores" / i, i);
    return profile_;
  }

 private:
  [[noreturn]] void fail(const Path& where, const std::string& what) const {
    throw FixtureError(file_ + ": " + where.str() + ": " + what);
  }

  // ---- Shape checks ------------------------------------------------------------
  void expectObject(const Json& j, const Path& p) const {
    if (!j.isObject()) fail(p, std::string("expected an object, found ") + kindOf(j));
  }
  void expectArray(const Json& j, const Path& p) const {
    if (!j.isArray()) fail(p, std::string("expected an array, found ") + kindOf(j));
  }
  void expectKeys(const Json& j, const Path& p, std::initializer_list<const char*> allowed) const {
    expectObject(j, p);
    for (const Json::Member& m : j.members()) {
      bool known = false;
      for (const char* a : allowed) known = known || m.key == a;
      if (!known) {
        std::string list;
        for (const char* a : allowed) list += std::string(list.empty() ? "" : ", ") + a;
        fail(p / m.key, "unknown member \"" + m.key + "\" (expected one of: " + list + ")");
      }
    }
  }
  const Json& member(const Json& j, const Path& p, const char* key) const {
    const Json* value = j.find(key);
    if (!value) fail(p, std::string("missing member \"") + key + "\"");
    return *value;
  }
  std::string text(const Json& j, const Path& p) const {
    if (!j.isString()) fail(p, std::string("expected a text, found ") + kindOf(j));
    return j.str();
  }
  bool boolean(const Json& j, const Path& p) const {
    if (!j.isBoolean()) fail(p, std::string("expected true or false, found ") + kindOf(j));
    return j.boolean();
  }
  // An integer (or a "0x" hex text) within [lo, hi].
  int64_t integer(const Json& j, const Path& p, int64_t lo, int64_t hi) const {
    int64_t v = 0;
    if (j.isUnsigned()) {
      const uint64_t u = j.uint64();
      if (u > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
        fail(p, "integer out of range");
      v = static_cast<int64_t>(u);
    } else if (j.isInteger()) {
      v = j.int64();
    } else if (j.isString()) {
      v = parseIntText(j.str(), p);
    } else {
      fail(p, std::string("expected an integer, found ") + kindOf(j));
    }
    if (v < lo || v > hi)
      fail(p, "integer " + std::to_string(v) + " out of range " + std::to_string(lo) + ".." +
                  std::to_string(hi));
    return v;
  }
  int64_t parseIntText(const std::string& s, const Path& p) const {
    const bool hex = s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X');
    const bool negative = !hex && !s.empty() && s[0] == '-';
    const size_t start = hex ? 2 : (negative ? 1 : 0);
    if (start >= s.size()) fail(p, "expected an integer, found \"" + s + "\"");
    uint64_t v = 0;
    for (size_t i = start; i < s.size(); ++i) {
      const char c = s[i];
      int d = -1;
      if (c >= '0' && c <= '9')
        d = c - '0';
      else if (hex && c >= 'a' && c <= 'f')
        d = c - 'a' + 10;
      else if (hex && c >= 'A' && c <= 'F')
        d = c - 'A' + 10;
      if (d < 0) fail(p, "expected an integer, found \"" + s + "\"");
      const uint64_t base = hex ? 16 : 10;
      if (v > (std::numeric_limits<uint64_t>::max() - static_cast<uint64_t>(d)) / base)
        fail(p, "integer out of range");
      v = v * base + static_cast<uint64_t>(d);
    }
    // Hex texts give bit patterns (0xFFFFFFFF for a 32-bit -1 fits here).
    if (!hex && v > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
      fail(p, "integer out of range");
    const int64_t signedValue = static_cast<int64_t>(v);
    return negative ? -signedValue : signedValue;
  }

  // ---- Values ----------------------------------------------------------------------
  Bytes hexBytes(const std::string& s, const Path& p) const {
    Bytes out;
    int high = -1;
    for (char c : s) {
      if (c == ' ' || c == '\n' || c == '\t' || c == '\r' || c == ':' || c == '-') continue;
      int d = -1;
      if (c >= '0' && c <= '9')
        d = c - '0';
      else if (c >= 'a' && c <= 'f')
        d = c - 'a' + 10;
      else if (c >= 'A' && c <= 'F')
        d = c - 'A' + 10;
      if (d < 0) fail(p, std::string("not a hexadecimal digit: '") + c + "'");
      if (high < 0) {
        high = d;
      } else {
        out.push_back(static_cast<uint8_t>(high * 16 + d));
        high = -1;
      }
    }
    if (high >= 0) fail(p, "odd number of hexadecimal digits");
    return out;
  }

  GUID guidText(const std::string& s, const Path& p) const {
    // {xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}
    std::string t = s;
    if (t.size() == 38 && t.front() == '{' && t.back() == '}') t = t.substr(1, 36);
    if (t.size() != 36 || t[8] != '-' || t[13] != '-' || t[18] != '-' || t[23] != '-')
      fail(p,
           "expected a GUID such as {00062002-0000-0000-C000-000000000046}, found \"" + s + "\"");
    const Bytes b = hexBytes(t, p);
    GUID g{};
    g.Data1 = static_cast<uint32_t>(b[0]) << 24 | static_cast<uint32_t>(b[1]) << 16 |
              static_cast<uint32_t>(b[2]) << 8 | b[3];
    g.Data2 = static_cast<uint16_t>(b[4] << 8 | b[5]);
    g.Data3 = static_cast<uint16_t>(b[6] << 8 | b[7]);
    for (int i = 0; i < 8; ++i) g.Data4[i] = b[8 + i];
    return g;
  }

  static Bytes guidBytes(const GUID& g) {
    Bytes b;
    for (int i = 0; i < 4; ++i) b.push_back(static_cast<uint8_t>(g.Data1 >> (8 * i)));
    for (int i = 0; i < 2; ++i) b.push_back(static_cast<uint8_t>(g.Data2 >> (8 * i)));
    for (int i = 0; i < 2; ++i) b.push_back(static_cast<uint8_t>(g.Data3 >> (8 * i)));
    for (int i = 0; i < 8; ++i) b.push_back(g.Data4[i]);
    return b;
  }

  struct DateTime {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millis = 0;
  };

  // "2024-03-01", "2024-03-01T09:30", "2024-03-01T09:30:00", "...:00.250",
  // each optionally ending in "Z".
  DateTime dateTime(const std::string& s, const Path& p, bool allowTime = true) const {
    auto bad = [&]() {
      fail(p,
           "expected a date text such as 2024-03-01 or 2024-03-01T09:30:00Z, found \"" + s + "\"");
    };
    auto digits = [&](size_t at, size_t n) {
      if (at + n > s.size()) bad();
      int v = 0;
      for (size_t i = at; i < at + n; ++i) {
        if (s[i] < '0' || s[i] > '9') bad();
        v = v * 10 + (s[i] - '0');
      }
      return v;
    };
    DateTime d;
    d.year = digits(0, 4);
    if (s.size() < 10 || s[4] != '-' || s[7] != '-') bad();
    d.month = digits(5, 2);
    d.day = digits(8, 2);
    size_t at = 10;
    if (at < s.size() && (s[at] == 'T' || s[at] == ' ')) {
      if (!allowTime) bad();
      d.hour = digits(at + 1, 2);
      if (at + 3 >= s.size() || s[at + 3] != ':') bad();
      d.minute = digits(at + 4, 2);
      at += 6;
      if (at < s.size() && s[at] == ':') {
        d.second = digits(at + 1, 2);
        at += 3;
        if (at < s.size() && s[at] == '.') {
          d.millis = digits(at + 1, 3);
          at += 4;
        }
      }
    }
    if (at < s.size() && s[at] == 'Z') ++at;
    if (at != s.size()) bad();
    static const int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (d.year < 1601 || d.year > 9999 || d.month < 1 || d.month > 12 || d.day < 1 ||
        d.day > kDays[d.month - 1] || d.hour > 23 || d.minute > 59 || d.second > 59)
      fail(p, "date out of range: \"" + s + "\"");
    return d;
  }

  uint32_t minutes(const DateTime& d) const {
    return minutesSince1601(d.year, d.month, d.day, d.hour, d.minute);
  }

  uint64_t fileTime(const Json& j, const Path& p) const {
    if (j.isInteger() || j.isUnsigned())
      return static_cast<uint64_t>(integer(j, p, 0, std::numeric_limits<int64_t>::max()));
    if (!j.isString())
      fail(p, std::string("PT_SYSTIME wants a date text such as 2024-03-01T09:30:00Z, found ") +
                  kindOf(j));
    const DateTime d = dateTime(j.str(), p);
    const uint64_t mins = minutes(d);
    return (mins * 60 + static_cast<uint64_t>(d.second)) * 10000000ull +
           static_cast<uint64_t>(d.millis) * 10000ull;
  }

  // "09:30" -> minutes after midnight.
  uint32_t timeOfDay(const Json& j, const Path& p) const {
    if (j.isInteger()) return static_cast<uint32_t>(integer(j, p, 0, 1439));
    const std::string s = text(j, p);
    if (s.size() != 5 || s[2] != ':' || !isdigit(static_cast<unsigned char>(s[0])) ||
        !isdigit(static_cast<unsigned char>(s[1])) || !isdigit(static_cast<unsigned char>(s[3])) ||
        !isdigit(static_cast<unsigned char>(s[4])))
      fail(p, "expected a time such as 09:30, found \"" + s + "\"");
    const int h = (s[0] - '0') * 10 + (s[1] - '0'), m = (s[3] - '0') * 10 + (s[4] - '0');
    if (h > 23 || m > 59) fail(p, "time out of range: \"" + s + "\"");
    return static_cast<uint32_t>(h * 60 + m);
  }

  std::string textValue(const Json& j, const Path& p) const {
    if (j.isString()) return j.str();
    if (j.isObject()) {
      expectKeys(j, p, {"text", "repeat", "hex"});
      if (j.contains("hex")) {
        const Bytes b = hexBytes(text(j["hex"], p / "hex"), p / "hex");
        return std::string(b.begin(), b.end());
      }
      const std::string piece = text(member(j, p, "text"), p / "text");
      const int64_t n = j.contains("repeat") ? integer(j["repeat"], p / "repeat", 0, 100000) : 1;
      if (piece.size() * static_cast<size_t>(n) > (16u << 20)) fail(p, "text longer than 16 MB");
      std::string out;
      out.reserve(piece.size() * static_cast<size_t>(n));
      for (int64_t i = 0; i < n; ++i) out += piece;
      return out;
    }
    fail(p, std::string("expected a text, found ") + kindOf(j));
  }

  Bytes binaryValue(const Json& j, const Path& p, size_t store) {
    if (j.isString()) return hexBytes(j.str(), p);
    if (!j.isObject())
      fail(p, std::string("a binary value is hex text or an object, found ") + kindOf(j));
    expectKeys(j, p,
               {"hex", "text", "entryIdOf", "shortTermEntryIdOf", "oneOff", "recurrence",
                "taskRecurrence"});
    if (j.size() != 1) fail(p, "a binary value object has exactly one member");
    if (j.contains("hex")) return hexBytes(text(j["hex"], p / "hex"), p / "hex");
    if (j.contains("text")) {
      const std::string s = textValue(j["text"], p / "text");
      return Bytes(s.begin(), s.end());
    }
    if (j.contains("entryIdOf") || j.contains("shortTermEntryIdOf")) {
      const bool shortTerm = j.contains("shortTermEntryIdOf");
      const char* key = shortTerm ? "shortTermEntryIdOf" : "entryIdOf";
      const std::string name = text(j[key], p / key);
      const Ref ref = profile_->byKey(name);
      if (!ref.valid())
        fail(p / key, "unknown key \"" + name +
                          "\" (keys of stores, folders and address-book entries, and of items "
                          "defined earlier in the file)");
      if (shortTerm && ref.kind != Ref::Kind::Folder && ref.kind != Ref::Kind::Item)
        fail(p / key, "only folders and items have short-term entry ids");
      return shortTerm ? profile_->shortTermEntryId(ref) : profile_->entryId(ref);
    }
    if (j.contains("oneOff")) return oneOff(j["oneOff"], p / "oneOff");
    if (j.contains("taskRecurrence")) {
      AppointmentRecurrence r = recurrence(j["taskRecurrence"], p / "taskRecurrence", false);
      return encodeRecurrencePattern(r.pattern);
    }
    (void)store;
    return encodeAppointmentRecurrence(recurrence(j["recurrence"], p / "recurrence", true));
  }

  Bytes oneOff(const Json& j, const Path& p) const {
    expectKeys(j, p, {"name", "addressType", "address", "unicode", "noRichInfo"});
    OneOffEntryId e;
    e.displayName = fromUtf8(text(member(j, p, "name"), p / "name"));
    e.addressType = fromUtf8(text(member(j, p, "addressType"), p / "addressType"));
    e.address = fromUtf8(text(member(j, p, "address"), p / "address"));
    if (j.contains("unicode")) e.unicode = boolean(j["unicode"], p / "unicode");
    if (j.contains("noRichInfo")) e.noRichInfo = boolean(j["noRichInfo"], p / "noRichInfo");
    return encodeOneOffEntryId(e);
  }

  uint32_t dayMask(const Json& j, const Path& p) const {
    expectArray(j, p);
    static const char* kDays[] = {"sunday",   "monday", "tuesday", "wednesday",
                                  "thursday", "friday", "saturday"};
    uint32_t mask = 0;
    for (size_t i = 0; i < j.size(); ++i) {
      const std::string d = text(j[i], p / i);
      bool found = false;
      for (int k = 0; k < 7; ++k)
        if (d == kDays[k]) {
          mask |= 1u << k;
          found = true;
        }
      if (!found) fail(p / i, "unknown day \"" + d + "\" (sunday .. saturday)");
    }
    return mask;
  }

  AppointmentRecurrence recurrence(const Json& j, const Path& p, bool appointment) {
    expectKeys(j, p,
               {"pattern", "every", "days", "day", "nth", "start", "end", "count", "endDate",
                "startTime", "endTime", "firstDayOfWeek", "deleted", "exceptions", "raw"});
    AppointmentRecurrence r;
    RecurrencePattern& pat = r.pattern;
    const std::string kind = text(member(j, p, "pattern"), p / "pattern");
    const uint32_t every =
        j.contains("every") ? static_cast<uint32_t>(integer(j["every"], p / "every", 1, 999)) : 1;
    auto needDays = [&]() { return dayMask(member(j, p, "days"), p / "days"); };
    auto needDay = [&]() {
      return static_cast<uint32_t>(integer(member(j, p, "day"), p / "day", 1, 31));
    };
    auto needNth = [&]() {
      return static_cast<uint32_t>(integer(member(j, p, "nth"), p / "nth", 1, 5));
    };
    if (kind == "daily") {
      pat.frequency = kRecurDaily, pat.patternType = kPatternDay, pat.period = every * 1440;
    } else if (kind == "weekdays") {
      pat.frequency = kRecurDaily, pat.patternType = kPatternWeek, pat.period = 1;
      pat.dayMask = 0x3E;
    } else if (kind == "weekly") {
      pat.frequency = kRecurWeekly, pat.patternType = kPatternWeek, pat.period = every;
      pat.dayMask = needDays();
    } else if (kind == "monthly") {
      pat.frequency = kRecurMonthly, pat.patternType = kPatternMonth, pat.period = every;
      pat.dayOfMonth = needDay();
    } else if (kind == "monthlyNth") {
      pat.frequency = kRecurMonthly, pat.patternType = kPatternMonthNth, pat.period = every;
      pat.dayMask = needDays(), pat.nth = needNth();
    } else if (kind == "yearly") {
      pat.frequency = kRecurYearly, pat.patternType = kPatternMonth, pat.period = 12 * every;
      pat.dayOfMonth = needDay();
    } else if (kind == "yearlyNth") {
      pat.frequency = kRecurYearly, pat.patternType = kPatternMonthNth, pat.period = 12 * every;
      pat.dayMask = needDays(), pat.nth = needNth();
    } else {
      fail(p / "pattern", "unknown pattern \"" + kind +
                              "\" (daily, weekdays, weekly, monthly, monthlyNth, yearly, "
                              "yearlyNth)");
    }
    if (j.contains("firstDayOfWeek")) {
      const uint32_t mask = dayMask(Json::arrayOf(j["firstDayOfWeek"]), p / "firstDayOfWeek");
      for (uint32_t k = 0; k < 7; ++k)
        if (mask == (1u << k)) pat.firstDayOfWeek = k;
    }
    pat.startDate = minutes(dateTime(text(member(j, p, "start"), p / "start"), p / "start", false));
    if (j.contains("end") && j.contains("count")) fail(p, "give \"end\" or \"count\", not both");
    if (j.contains("end")) {
      pat.endType = kEndAfterDate;
      pat.endDate = minutes(dateTime(text(j["end"], p / "end"), p / "end", false));
      pat.occurrenceCount = 0;
    } else if (j.contains("count")) {
      pat.endType = kEndAfterCount;
      pat.occurrenceCount = static_cast<uint32_t>(integer(j["count"], p / "count", 1, 999));
      // The encoder does not work out the series; the last occurrence's date is given.
      pat.endDate =
          minutes(dateTime(text(member(j, p, "endDate"), p / "endDate"), p / "endDate", false));
    }
    if (pat.endDate < pat.startDate) fail(p, "the series ends before it starts");
    if (j.contains("deleted")) {
      const Json& d = j["deleted"];
      expectArray(d, p / "deleted");
      for (size_t i = 0; i < d.size(); ++i)
        pat.deleted.push_back(minutes(dateTime(text(d[i], p / "deleted" / i), p / "deleted" / i)));
    }
    if (appointment) {
      if (j.contains("startTime")) r.startTimeOffset = timeOfDay(j["startTime"], p / "startTime");
      if (j.contains("endTime")) r.endTimeOffset = timeOfDay(j["endTime"], p / "endTime");
      if (j.contains("exceptions")) {
        const Json& ex = j["exceptions"];
        expectArray(ex, p / "exceptions");
        for (size_t i = 0; i < ex.size(); ++i)
          r.exceptions.push_back(exception(ex[i], p / "exceptions" / i));
      }
    } else if (j.contains("startTime") || j.contains("endTime") || j.contains("exceptions")) {
      fail(p, "a task recurrence has no times or exceptions");
    }
    if (j.contains("raw")) raw(j["raw"], p / "raw", r);
    return r;
  }

  RecurrenceException exception(const Json& j, const Path& p) const {
    expectKeys(j, p,
               {"original", "start", "end", "subject", "location", "busyStatus", "meetingType",
                "reminderDelta", "reminderSet", "attachment", "subType", "appointmentColor",
                "exceptionalBody", "changeHighlight"});
    RecurrenceException e;
    e.originalStart =
        minutes(dateTime(text(member(j, p, "original"), p / "original"), p / "original"));
    e.start = minutes(dateTime(text(member(j, p, "start"), p / "start"), p / "start"));
    e.end = minutes(dateTime(text(member(j, p, "end"), p / "end"), p / "end"));
    if (j.contains("subject")) e.subject = fromUtf8(text(j["subject"], p / "subject"));
    if (j.contains("location")) e.location = fromUtf8(text(j["location"], p / "location"));
    auto opt = [&](const char* key, std::optional<uint32_t>& out) {
      if (j.contains(key)) out = static_cast<uint32_t>(integer(j[key], p / key, 0, 0xFFFFFFFF));
    };
    opt("busyStatus", e.busyStatus);
    opt("meetingType", e.meetingType);
    opt("reminderDelta", e.reminderDelta);
    opt("reminderSet", e.reminderSet);
    opt("attachment", e.attachment);
    opt("subType", e.subType);
    opt("appointmentColor", e.appointmentColor);
    if (j.contains("exceptionalBody"))
      e.exceptionalBody = boolean(j["exceptionalBody"], p / "exceptionalBody");
    if (j.contains("changeHighlight"))
      e.changeHighlight = static_cast<uint32_t>(
          integer(j["changeHighlight"], p / "changeHighlight", 0, 0xFFFFFFFF));
    return e;
  }

  // Raw field values for odd cases, written as they are.
  void raw(const Json& j, const Path& p, AppointmentRecurrence& r) const {
    expectKeys(
        j, p,
        {"frequency", "patternType", "calendarType", "firstDateTime", "period", "endType",
         "occurrenceCount", "dayMask", "dayOfMonth", "nth", "readerVersion2", "writerVersion2"});
    auto u32 = [&](const char* key) {
      return static_cast<uint32_t>(integer(j[key], p / key, 0, 0xFFFFFFFF));
    };
    RecurrencePattern& pat = r.pattern;
    if (j.contains("frequency"))
      pat.frequency = static_cast<uint16_t>(integer(j["frequency"], p / "frequency", 0, 0xFFFF));
    if (j.contains("patternType"))
      pat.patternType =
          static_cast<uint16_t>(integer(j["patternType"], p / "patternType", 0, 0xFFFF));
    if (j.contains("calendarType"))
      pat.calendarType =
          static_cast<uint16_t>(integer(j["calendarType"], p / "calendarType", 0, 0xFFFF));
    if (j.contains("firstDateTime")) pat.firstDateTime = u32("firstDateTime");
    if (j.contains("period")) pat.period = u32("period");
    if (j.contains("endType")) pat.endType = u32("endType");
    if (j.contains("occurrenceCount")) pat.occurrenceCount = u32("occurrenceCount");
    if (j.contains("dayMask")) pat.dayMask = u32("dayMask");
    if (j.contains("dayOfMonth")) pat.dayOfMonth = u32("dayOfMonth");
    if (j.contains("nth")) pat.nth = u32("nth");
    if (j.contains("readerVersion2")) r.readerVersion2 = u32("readerVersion2");
    if (j.contains("writerVersion2")) r.writerVersion2 = u32("writerVersion2");
  }

  // One value of the tag's (single-valued) type.
  Prop element(const Json& j, const Path& p, ULONG tag, size_t store) {
    switch (PROP_TYPE(tag)) {
      case PT_I2:
        return Prop::ofNum(tag, integer(j, p, -32768, 65535));
      case PT_LONG:
        return Prop::ofNum(tag, static_cast<int32_t>(static_cast<uint32_t>(integer(
                                    j, p, std::numeric_limits<int32_t>::min(), 0xFFFFFFFFll))));
      case PT_BOOLEAN:
        return Prop::ofNum(tag, boolean(j, p) ? 1 : 0);
      case PT_I8:
        return Prop::ofNum(tag, integer(j, p, std::numeric_limits<int64_t>::min(),
                                        std::numeric_limits<int64_t>::max()));
      case PT_SYSTIME:
        return Prop::ofNum(tag, static_cast<int64_t>(fileTime(j, p)));
      case PT_R4:
      case PT_DOUBLE:
      case PT_APPTIME:
        if (!j.isNumber()) fail(p, std::string("expected a number, found ") + kindOf(j));
        return Prop::ofReal(tag, j.number());
      case PT_STRING8:
        return Prop::ofString8(tag, textValue(j, p));
      case PT_UNICODE:
        return Prop::ofUtf8Text(tag, textValue(j, p));
      case PT_BINARY:
        return Prop::ofBinary(tag, binaryValue(j, p, store));
      case PT_CLSID: {
        const Bytes g = guidBytes(guidText(text(j, p), p));
        return Prop::ofBytes(tag, std::string(g.begin(), g.end()));
      }
      default:
        fail(p, "this property type cannot be given a value");
    }
  }

  Prop propValue(const Json& j, const Path& p, ULONG tag, size_t store) {
    const ULONG type = PROP_TYPE(tag);
    if (!(type & MV_FLAG)) return element(j, p, tag, store);
    expectArray(j, p);
    const ULONG base = type & ~MV_FLAG;
    const ULONG baseTag = PROP_TAG(base, PROP_ID(tag));
    std::vector<std::string> strs;
    std::vector<int64_t> nums;
    std::vector<Bytes> bins;
    for (size_t i = 0; i < j.size(); ++i) {
      switch (base) {
        case PT_UNICODE:
          strs.push_back(textValue(j[i], p / i));
          break;
        case PT_STRING8:
          strs.push_back(element(j[i], p / i, baseTag, store).str());
          break;
        case PT_BINARY:
        case PT_CLSID:
          bins.push_back(element(j[i], p / i, baseTag, store).bin());
          break;
        case PT_R4:
        case PT_DOUBLE:
        case PT_APPTIME:
          // Checked, but multi-valued reals keep no value.
          element(j[i], p / i, baseTag, store);
          nums.push_back(0);
          break;
        default:
          nums.push_back(element(j[i], p / i, baseTag, store).num());
          break;
      }
    }
    switch (base) {
      case PT_UNICODE:
        return Prop::ofMvUtf8Text(tag, strs);
      case PT_STRING8:
        return Prop::ofMvString8(tag, strs);
      case PT_BINARY:
      case PT_CLSID: {
        Prop prop = Prop::ofMvBinary(tag, std::move(bins));
        prop.tag = tag;
        return prop;
      }
      default:
        return Prop::ofMvNums(tag, nums);
    }
  }

  PropName propName(const Json& j, const Path& p) const {
    expectKeys(j, p, {"set", "id", "name"});
    PropName name;
    const std::string set = text(member(j, p, "set"), p / "set");
    if (!propSetByName(set, name.set)) {
      if (set.empty() || set[0] != '{')
        fail(p / "set", "unknown property set \"" + set +
                            "\" (PSETID_Appointment, PSETID_Task, PSETID_Address, PSETID_Common, "
                            "PS_PUBLIC_STRINGS, PS_MAPI or a {GUID})");
      name.set = guidText(set, p / "set");
    }
    if (j.contains("id") == j.contains("name")) fail(p, "give \"id\" or \"name\", one of them");
    if (j.contains("id")) {
      name.kind = MNID_ID;
      name.id = static_cast<LONG>(integer(j["id"], p / "id", 0, 0xFFFFFFFF));
    } else {
      name.kind = MNID_STRING;
      name.name = fromUtf8(text(j["name"], p / "name"));
    }
    return name;
  }

  // {"tag": ..., "type": ..., "value": ...} or {"named": ..., "type": ..., "value": ...}
  Prop property(const Json& j, const Path& p, size_t store, bool namedAllowed) {
    expectKeys(j, p, {"tag", "named", "type", "value", "error"});
    ULONG tag = 0;
    if (j.contains("tag") == j.contains("named")) fail(p, "give \"tag\" or \"named\", one of them");
    if (j.contains("tag")) {
      const std::string t = text(j["tag"], p / "tag");
      if (!tagByName(t, tag)) {
        if (t.rfind("0x", 0) != 0 && t.rfind("0X", 0) != 0)
          fail(p / "tag", "unknown property tag \"" + t + "\" (a PR_ name or 0x hex tag)");
        tag = static_cast<ULONG>(integer(j["tag"], p / "tag", 0, 0xFFFFFFFF));
      }
    } else {
      if (!namedAllowed) fail(p / "named", "named properties need a store");
      const ULONG id = profile_->namedPropId(store, propName(j["named"], p / "named"));
      if (!id) fail(p / "named", "the store has no more named property ids");
      if (!j.contains("type")) fail(p, "a named property needs a \"type\"");
      tag = PROP_TAG(PT_UNSPECIFIED, id);
    }
    if (j.contains("type")) {
      const std::string t = text(j["type"], p / "type");
      ULONG type = 0;
      if (!typeByName(t, type)) fail(p / "type", "unknown property type \"" + t + "\"");
      tag = CHANGE_PROP_TYPE(tag, type);
    }
    if (PROP_ID(tag) == 0) fail(p, "property id 0 is not a property");
    if (j.contains("error")) {
      if (j.contains("value")) fail(p, "give \"value\" or \"error\", not both");
      SCODE code = 0;
      const Json& e = j["error"];
      if (e.isString() && errorByName(e.str(), code)) {
      } else {
        code = static_cast<SCODE>(static_cast<uint32_t>(integer(e, p / "error", 0, 0xFFFFFFFF)));
      }
      return Prop::ofError(PROP_ID(tag), code);
    }
    const ULONG type = PROP_TYPE(tag);
    if (type == PT_ERROR) fail(p, "an error value is given with \"error\"");
    if (type == PT_OBJECT || type == PT_UNSPECIFIED || type == PT_NULL || !typeName(type))
      fail(p, "properties of this type cannot be stored");
    return propValue(member(j, p, "value"), p / "value", tag, store);
  }

  // `extra`: values the caller adds afterwards.
  PropList props(const Json& j, const Path& p, size_t store, bool namedAllowed = true,
                 size_t extra = 0) {
    expectArray(j, p);
    PropList out;
    out.reserve(j.size() + extra);
    for (size_t i = 0; i < j.size(); ++i) {
      Prop prop = property(j[i], p / i, store, namedAllowed);
      if (out.find(prop.id())) fail(p / i, "property set twice");
      out.set(std::move(prop));
    }
    return out;
  }

  void setKey(const Json& j, const Path& p, const Ref& ref) {
    if (!j.contains("key")) return;
    const std::string key = text(j["key"], p / "key");
    if (profile_->byKey(key).valid()) fail(p / "key", "key \"" + key + "\" is used twice");
    profile_->setKey(key, ref);
  }

  // ---- Structure --------------------------------------------------------------------
  void buildStore(const Json& j, const Path& p, size_t index) {
    expectKeys(j, p,
               {"key", "name", "default", "options", "namedProperties", "ipmSubtree",
                "receiveFolder", "receiveFolders", "props", "root"});
    const std::u16string name = fromUtf8(text(member(j, p, "name"), p / "name"));
    const bool isDefault = j.contains("default") && boolean(j["default"], p / "default");
    StoreOptions options;
    if (j.contains("options")) {
      const Json& o = j["options"];
      const Path op = p / "options";
      expectKeys(o, op,
                 {"unicode", "shortTermIdsInTables", "tableStringLimit", "streamTerminator",
                  "getPropsByteLimit"});
      if (o.contains("unicode")) options.unicode = boolean(o["unicode"], op / "unicode");
      if (o.contains("shortTermIdsInTables"))
        options.shortTermIdsInTables =
            boolean(o["shortTermIdsInTables"], op / "shortTermIdsInTables");
      if (o.contains("tableStringLimit"))
        options.tableStringLimit = static_cast<uint32_t>(
            integer(o["tableStringLimit"], op / "tableStringLimit", 0, 1 << 20));
      if (o.contains("streamTerminator"))
        options.streamTerminator = boolean(o["streamTerminator"], op / "streamTerminator");
      if (o.contains("getPropsByteLimit"))
        options.getPropsByteLimit = static_cast<uint32_t>(
            integer(o["getPropsByteLimit"], op / "getPropsByteLimit", 0, 1 << 30));
    }
    const size_t store = profile_->addStore(name, isDefault, options);
    if (store != index) fail(p, "internal: store numbering");
    setKey(j, p, profile_->storeRef(store));
    if (j.contains("namedProperties")) {
      const Json& names = j["namedProperties"];
      expectArray(names, p / "namedProperties");
      for (size_t i = 0; i < names.size(); ++i)
        if (!profile_->namedPropId(store, propName(names[i], p / "namedProperties" / i)))
          fail(p / "namedProperties" / i, "the store has no more named property ids");
    }
    const Json& root = member(j, p, "root");
    buildFolders(root, p / "root", profile_->rootFolder(store), 0, true);
  }

  void buildFolders(const Json& j, const Path& p, const Ref& folder, int depth, bool isRoot) {
    if (depth > kMaxDepth) fail(p, "folders nested deeper than 32");
    expectKeys(j, p, {"key", "name", "class", "props", "folders", "items"});
    if (isRoot && j.contains("name")) {
      profile_->setProp(folder,
                        Prop::ofText(PR_DISPLAY_NAME_W, fromUtf8(text(j["name"], p / "name"))));
    }
    setKey(j, p, folder);
    if (!j.contains("folders")) return;
    const Json& children = j["folders"];
    expectArray(children, p / "folders");
    for (size_t i = 0; i < children.size(); ++i) {
      const Json& c = children[i];
      const Path cp = p / "folders" / i;
      expectObject(c, cp);
      const std::u16string name = fromUtf8(text(member(c, cp, "name"), cp / "name"));
      if (name.find(u'/') != std::u16string::npos) fail(cp / "name", "folder names hold no '/'");
      const std::u16string cls =
          c.contains("class") ? fromUtf8(text(c["class"], cp / "class")) : std::u16string();
      buildFolders(c, cp, profile_->addFolder(folder, name, cls), depth + 1, false);
    }
  }

  void buildAbEntry(const Json& j, const Path& p) {
    expectKeys(j, p, {"key", "props"});
    const Ref ref = profile_->addAbEntry(props(member(j, p, "props"), p / "props", 0, false));
    setKey(j, p, ref);
  }

  // ---- Contents --------------------------------------------------------------------------
  Ref folderKey(const Json& j, const Path& p) const {
    const std::string key = text(j, p);
    const Ref ref = profile_->byKey(key);
    if (ref.kind != Ref::Kind::Folder) fail(p, "\"" + key + "\" is not the key of a folder");
    return ref;
  }

  void fillStore(const Json& j, const Path& p, size_t store) {
    if (j.contains("props")) {
      const PropList list = props(j["props"], p / "props", store);
      for (const Prop& prop : list.all()) profile_->setProp(profile_->storeRef(store), prop);
    }
    if (j.contains("ipmSubtree")) {
      const Ref f = folderKey(j["ipmSubtree"], p / "ipmSubtree");
      if (f.store != store) fail(p / "ipmSubtree", "the folder is in another store");
      profile_->setIpmSubtree(f);
    }
    if (j.contains("receiveFolder")) {
      const Ref f = folderKey(j["receiveFolder"], p / "receiveFolder");
      if (f.store != store) fail(p / "receiveFolder", "the folder is in another store");
      profile_->setReceiveFolder(f);
    }
    if (j.contains("receiveFolders")) {
      const Json& map = j["receiveFolders"];
      expectObject(map, p / "receiveFolders");
      for (const Json::Member& m : map.members()) {
        const Ref f = folderKey(m.value, p / "receiveFolders" / m.key);
        if (f.store != store) fail(p / "receiveFolders" / m.key, "the folder is in another store");
        profile_->setReceiveFolder(f, m.key);
      }
    }
    fillFolder(member(j, p, "root"), p / "root", profile_->rootFolder(store), store);
  }

  void fillFolder(const Json& j, const Path& p, const Ref& folder, size_t store) {
    if (j.contains("props")) {
      const PropList list = props(j["props"], p / "props", store);
      for (const Prop& prop : list.all()) profile_->setProp(folder, prop);
    }
    if (j.contains("items")) {
      const Json& items = j["items"];
      expectArray(items, p / "items");
      if (items.deferred()) {
        // Items are read from the text one at a time.
        JsonReader reader(text_);
        reader.startArray(items.begin());
        Json one;
        size_t done = items.begin();  // bytes before this are handed back
        for (size_t i = 0;; ++i) {
          const size_t start = reader.position();
          if (!reader.next(one)) break;
          const Ref ref = profile_->addItem(
              folder, topItem(one, p / "items" / i, store, span(start, reader.position())));
          setKey(one, p / "items" / i, ref);
          if (buffer_ && reader.position() - done >= kReleaseStep) {
            buffer_->release(done, reader.position() - done);
            done = reader.position();
          }
        }
        if (buffer_) buffer_->release(done, reader.position() - done);
      } else {
        for (size_t i = 0; i < items.size(); ++i) {
          countBuilt();
          const Ref ref = profile_->addItem(folder, item(items[i], p / "items" / i, store, 0));
          setKey(items[i], p / "items" / i, ref);
        }
      }
    }
    if (j.contains("folders")) {
      const Json& children = j["folders"];
      // Folders were made in this order by buildFolders.
      for (size_t i = 0; i < children.size(); ++i) {
        const Json& c = children[i];
        fillFolder(c, p / "folders" / i, childFolder(folder, i), store);
      }
    }
  }

  // An item's own text, without the separators around it.
  std::string_view span(size_t begin, size_t end) const {
    auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    while (begin < end && (blank(text_[begin]) || text_[begin] == ',')) ++begin;
    while (end > begin && blank(text_[end - 1])) --end;
    return text_.substr(begin, end - begin);
  }

  // A hash of the store's number and the text, eight bytes a step: the same
  // text in another store may mean other named property ids.
  static uint64_t textHash(std::string_view t, size_t store) {
    constexpr uint64_t kMul = 0x9E3779B97F4A7C15ull;
    uint64_t h = (0xcbf29ce484222325ull ^ uint64_t{store}) * kMul ^ t.size();
    size_t i = 0;
    for (; i + 8 <= t.size(); i += 8) {
      uint64_t w;
      std::memcpy(&w, t.data() + i, 8);
      h = (h ^ w) * kMul;
      h ^= h >> 31;
    }
    for (; i < t.size(); ++i) h = (h ^ static_cast<unsigned char>(t[i])) * 0x100000001b3ull;
    h ^= h >> 29;
    h *= kMul;
    h ^= h >> 32;
    return h ? h : 1;
  }

  void countBuilt() {
    if (stats_) ++stats_->itemsBuilt;
  }

  // A folder's item. Its text vouches for its content unless it names other
  // objects (their entry ids follow the rest of the file) or has no key.
  Item topItem(const Json& j, const Path& p, size_t store, std::string_view text) {
    const bool keyed = j.isObject() && j.contains("key") && j["key"].isString();
    uint64_t hash = 0;
    if (keyed && !namesObjects(j, text)) hash = textHash(text, store);
    if (hash && known_) {
      auto it = known_->find(j["key"].str());
      if (it != known_->end() && it->second == hash) {
        // Named properties are numbered in the order the file first uses them.
        registerNames(j, p, store, 0);
        Item stub;
        stub.sourceHash = hash;
        stub.unbuilt = true;
        return stub;
      }
    }
    countBuilt();
    Item it = item(j, p, store, 0);
    it.sourceHash = hash;
    return it;
  }

  // Whether `j` (whose text is `text`) holds an entry id of another item.
  // Stores, folders and address-book entries are made before any item; a
  // reload checks that their keys mean the same objects.
  bool namesObjects(const Json& j, std::string_view text) const {
    // Keys may be spelt with escapes; without either, no member can be one.
    if (text.find("IdOf") == std::string_view::npos && text.find('\\') == std::string_view::npos)
      return false;
    return namesObjects(j, 0);
  }
  bool namesObjects(const Json& j, int depth) const {
    if (depth > 2 * kMaxDepth + 8) return true;
    if (j.isArray()) {
      for (size_t i = 0; i < j.size(); ++i)
        if (namesObjects(j[i], depth + 1)) return true;
    } else if (j.isObject()) {
      for (const Json::Member& m : j.members()) {
        if (m.key == "entryIdOf" || m.key == "shortTermEntryIdOf") {
          if (!m.value.isString()) return true;
          const Ref::Kind kind = profile_->byKey(m.value.str()).kind;
          if (kind != Ref::Kind::Store && kind != Ref::Kind::Folder && kind != Ref::Kind::AbEntry)
            return true;
        } else if (namesObjects(m.value, depth + 1)) {
          return true;
        }
      }
    }
    return false;
  }

  // The named properties item() would register, in the same order.
  void registerNames(const Json& j, const Path& p, size_t store, int depth) {
    if (depth > kMaxDepth || !j.isObject()) return;
    auto listNames = [&](const Json& owner, const Path& op) {
      if (!owner.isObject() || !owner.contains("props") || !owner["props"].isArray()) return;
      const Json& list = owner["props"];
      for (size_t i = 0; i < list.size(); ++i) {
        if (!list[i].isObject() || !list[i].contains("named")) continue;
        const Path np = op / "props" / i / "named";
        if (!profile_->namedPropId(store, propName(list[i]["named"], np)))
          fail(np, "the store has no more named property ids");
      }
    };
    listNames(j, p);
    if (j.contains("recipients") && j["recipients"].isArray()) {
      const Json& r = j["recipients"];
      for (size_t i = 0; i < r.size(); ++i) listNames(r[i], p / "recipients" / i);
    }
    if (j.contains("attachments") && j["attachments"].isArray()) {
      const Json& a = j["attachments"];
      for (size_t i = 0; i < a.size(); ++i) {
        const Path ap = p / "attachments" / i;
        listNames(a[i], ap);
        if (a[i].isObject() && a[i].contains("embedded"))
          registerNames(a[i]["embedded"], ap / "embedded", store, depth + 1);
      }
    }
  }

  Ref childFolder(const Ref& folder, size_t index) {
    std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
    auto f = profile_->folder(folder.store, folder.id);
    return Ref{Ref::Kind::Folder, folder.store, f->folders.at(index)->nid};
  }

  Item item(const Json& j, const Path& p, size_t store, int depth) {
    if (depth > kMaxDepth) fail(p, "messages embedded deeper than 32");
    expectKeys(j, p, {"key", "class", "associated", "props", "recipients", "attachments"});
    if (depth > 0 && j.contains("key")) fail(p / "key", "embedded messages have no key");
    Item it;
    if (j.contains("props"))
      it.props = props(j["props"], p / "props", store, true, j.contains("class") ? 1 : 0);
    if (j.contains("class")) {
      if (it.props.find(PROP_ID(PR_MESSAGE_CLASS)))
        fail(p / "class", "the message class is given twice");
      it.props.set(Prop::ofUtf8Text(PR_MESSAGE_CLASS_W, text(j["class"], p / "class")));
    }
    if (j.contains("associated")) it.associated = boolean(j["associated"], p / "associated");
    if (j.contains("recipients")) {
      const Json& r = j["recipients"];
      expectArray(r, p / "recipients");
      for (size_t i = 0; i < r.size(); ++i) {
        const Path rp = p / "recipients" / i;
        expectKeys(r[i], rp, {"props"});
        it.recipients.push_back(Recipient{props(member(r[i], rp, "props"), rp / "props", store)});
      }
    }
    if (j.contains("attachments")) {
      const Json& a = j["attachments"];
      expectArray(a, p / "attachments");
      for (size_t i = 0; i < a.size(); ++i) {
        const Path ap = p / "attachments" / i;
        expectKeys(a[i], ap, {"props", "data", "embedded"});
        Attachment att;
        if (a[i].contains("props")) att.props = props(a[i]["props"], ap / "props", store);
        if (a[i].contains("data") && a[i].contains("embedded"))
          fail(ap, "an attachment has \"data\" or \"embedded\", not both");
        if (a[i].contains("data")) att.data = binaryValue(a[i]["data"], ap / "data", store);
        if (a[i].contains("embedded"))
          att.embedded =
              std::make_shared<Item>(item(a[i]["embedded"], ap / "embedded", store, depth + 1));
        it.attachments.push_back(std::move(att));
      }
    }
    return it;
  }

  std::string file_;
  std::string_view text_;
  FileBuffer* buffer_;
  const KnownItems* known_;
  LoadStats* stats_;
  std::shared_ptr<Profile> profile_;
};

std::string lineAndColumn(std::string_view text, size_t byte) {
  size_t line = 1, column = 1;
  for (size_t i = 0; i < text.size() && i + 1 < byte; ++i) {
    if (text[i] == '\n') {
      ++line;
      column = 1;
    } else {
      ++column;
    }
  }
  return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

// `buffer`, when given, holds `text`: the parts read for the last time are
// handed back as the items are built.
std::shared_ptr<Profile> loadBytes(std::string_view text, const std::string& fileName,
                                   FileBuffer* buffer, const KnownItems* known = nullptr,
                                   LoadStats* stats = nullptr) {
  // The whole text is checked first, so a syntax error anywhere is reported
  // before any meaning; the folders' items stay in the text until read.
  Json doc;
  try {
    doc = JsonReader(text).document(true);
  } catch (const JsonError& e) {
    if (!e.byte) throw FixtureError(fileName + ": invalid JSON: " + e.what());
    throw FixtureError(fileName + ": " + lineAndColumn(text, e.byte) +
                       ": invalid JSON: " + e.what());
  }
  try {
    return Loader(fileName, text, buffer, known, stats).load(doc);
  } catch (const JsonError& e) {
    // Read once already; only a changed text could fail here.
    throw FixtureError(fileName + ": invalid JSON: " + e.what());
  }
}

}  // namespace

std::shared_ptr<Profile> loadFixtureText(const std::string& text, const std::string& fileName) {
  PIM_ENTRY("PIM::store::loadFixtureText");
  return loadBytes(text, fileName, nullptr);
}

std::shared_ptr<Profile> loadFixtureText(const std::string& text, const std::string& fileName,
                                         const KnownItems* known, LoadStats* stats) {
  PIM_ENTRY("PIM::store::loadFixtureText");
  return loadBytes(text, fileName, nullptr, known, stats);
}

std::filesystem::path nativePath(const std::u16string& path) {
  // Windows paths are UTF-16 already; elsewhere the library takes UTF-8 bytes.
  if constexpr (sizeof(std::filesystem::path::value_type) == sizeof(char16_t))
    return std::filesystem::path(std::wstring(path.begin(), path.end()));
  else
    return std::filesystem::path(toUtf8(path));
}

std::shared_ptr<Profile> loadFixtureFile(const std::u16string& path) {
  return loadFixtureFile(path, nullptr, nullptr);
}

std::shared_ptr<Profile> loadFixtureFile(const std::u16string& path, const KnownItems* known,
                                         LoadStats* stats) {
  PIM_ENTRY("PIM::store::loadFixtureFile");
  const std::string name = toUtf8(path);
  const std::unique_ptr<FileBuffer> buffer = FileBuffer::read(path);
  if (!buffer) throw FixtureError(name + ": cannot be opened");
  return loadBytes(std::string_view(buffer->data(), buffer->size()), name, buffer.get(), known,
                   stats);
}

}  // namespace PIM::store

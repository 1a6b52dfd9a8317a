#include "ui/dialog_template.h"

namespace PIM {
namespace {

constexpr uint32_t kSetFont = 0x40;  // DS_SETFONT
constexpr uint16_t kOrdinal = 0xFFFF;

// Little-endian fields of a template; every read checks the length first.
// Items start on 4-byte boundaries counted from the template's start.
class TemplateReader {
 public:
  TemplateReader(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  bool u16(uint16_t& v) {
    if (size_ - pos_ < 2) return fail("a 16-bit field");
    v = static_cast<uint16_t>(data_[pos_] | data_[pos_ + 1] << 8);
    pos_ += 2;
    return true;
  }
  bool s16(int16_t& v) {
    uint16_t u = 0;
    if (!u16(u)) return false;
    v = static_cast<int16_t>(u);
    return true;
  }
  bool u32(uint32_t& v) {
    uint16_t lo = 0, hi = 0;
    if (!u16(lo) || !u16(hi)) return false;
    v = lo | static_cast<uint32_t>(hi) << 16;
    return true;
  }
  bool u8(uint8_t& v) {
    if (size_ - pos_ < 1) return fail("a byte");
    v = data_[pos_++];
    return true;
  }
  bool text(std::u16string& s) {
    s.clear();
    for (;;) {
      uint16_t c = 0;
      if (!u16(c)) return fail("the end of a text");
      if (c == 0) return true;
      s.push_back(static_cast<char16_t>(c));
    }
  }
  // A name or an ordinal: 0 none, 0xFFFF then the ordinal, else a text.
  bool nameOrOrdinal(uint16_t& ordinal, std::u16string& name) {
    ordinal = 0;
    name.clear();
    if (size_ - pos_ < 2) return fail("a name or ordinal");
    const uint16_t first = static_cast<uint16_t>(data_[pos_] | data_[pos_ + 1] << 8);
    if (first == 0) {
      pos_ += 2;
      return true;
    }
    if (first == kOrdinal) {
      pos_ += 2;
      return u16(ordinal);
    }
    return text(name);
  }
  bool align4() {
    const size_t next = (pos_ + 3) & ~size_t{3};
    if (next > size_) return fail("the alignment of an item");
    pos_ = next;
    return true;
  }
  bool skip(size_t n) {
    if (size_ - pos_ < n) return fail("an item's creation data");
    pos_ += n;
    return true;
  }
  const std::string& error() const { return error_; }
  size_t pos() const { return pos_; }

 private:
  bool fail(const char* what) {
    if (error_.empty()) error_ = "template ends at byte " + std::to_string(pos_) + " in " + what;
    return false;
  }
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
  std::string error_;
};

bool readControl(TemplateReader& r, bool extended, DialogTemplate::Control& c) {
  if (!r.align4()) return false;
  uint32_t helpId = 0;
  if (extended) {
    if (!r.u32(helpId) || !r.u32(c.exStyle) || !r.u32(c.style)) return false;
  } else if (!r.u32(c.style) || !r.u32(c.exStyle)) {
    return false;
  }
  if (!r.s16(c.x) || !r.s16(c.y) || !r.s16(c.cx) || !r.s16(c.cy)) return false;
  if (extended) {
    if (!r.u32(c.id)) return false;
  } else {
    uint16_t id = 0;
    if (!r.u16(id)) return false;
    c.id = id;
  }
  uint16_t textOrdinal = 0;
  uint16_t extra = 0;
  return r.nameOrOrdinal(c.classOrdinal, c.className) && r.nameOrOrdinal(textOrdinal, c.text) &&
         r.u16(extra) && r.skip(extra);
}

}  // namespace

bool parseDialogTemplate(const uint8_t* data, size_t size, DialogTemplate& out,
                         std::string& error) {
  out = DialogTemplate();
  TemplateReader r(data, size);
  uint16_t count = 0;
  uint16_t version = 0, signature = 0;
  bool ok = r.u16(version) && r.u16(signature);
  out.extended = ok && version == 1 && signature == kOrdinal;
  if (ok && out.extended) {
    uint32_t helpId = 0;
    ok = r.u32(helpId) && r.u32(out.exStyle) && r.u32(out.style);
  } else if (ok) {
    // The plain form starts with the style, whose halves were just read.
    out.style = version | static_cast<uint32_t>(signature) << 16;
    ok = r.u32(out.exStyle);
  }
  ok = ok && r.u16(count) && r.s16(out.x) && r.s16(out.y) && r.s16(out.cx) && r.s16(out.cy);
  uint16_t menuOrdinal = 0, classOrdinal = 0;
  std::u16string menu, windowClass;
  ok = ok && r.nameOrOrdinal(menuOrdinal, menu) && r.nameOrOrdinal(classOrdinal, windowClass) &&
       r.text(out.caption);
  if (ok && (out.style & kSetFont)) {
    ok = r.u16(out.pointSize);
    if (ok && out.extended) {
      uint16_t weight = 0;
      uint8_t italic = 0, charset = 0;
      ok = r.u16(weight) && r.u8(italic) && r.u8(charset);
    }
    ok = ok && r.text(out.typeface);
  }
  for (uint16_t i = 0; ok && i < count; ++i) {
    DialogTemplate::Control c;
    ok = readControl(r, out.extended, c);
    if (ok) out.controls.push_back(std::move(c));
  }
  if (!ok) error = r.error();
  return ok;
}

namespace {

class TemplateWriter {
 public:
  void u16(uint16_t v) {
    bytes.push_back(static_cast<uint8_t>(v));
    bytes.push_back(static_cast<uint8_t>(v >> 8));
  }
  void u32(uint32_t v) {
    u16(static_cast<uint16_t>(v));
    u16(static_cast<uint16_t>(v >> 16));
  }
  void text(const std::u16string& s) {
    for (char16_t c : s) u16(c);
    u16(0);
  }
  void nameOrOrdinal(uint16_t ordinal, const std::u16string& name) {
    if (ordinal) {
      u16(kOrdinal);
      u16(ordinal);
    } else {
      text(name);
    }
  }
  void align4() {
    while (bytes.size() % 4) bytes.push_back(0);
  }
  std::vector<uint8_t> bytes;
};

}  // namespace

std::vector<uint8_t> encodeDialogTemplate(const DialogTemplate& d) {
  TemplateWriter w;
  w.u16(1);
  w.u16(kOrdinal);
  w.u32(0);
  w.u32(d.exStyle);
  w.u32(d.style);
  w.u16(static_cast<uint16_t>(d.controls.size()));
  for (int16_t v : {d.x, d.y, d.cx, d.cy}) w.u16(static_cast<uint16_t>(v));
  w.u16(0);  // no menu
  w.u16(0);  // the dialog class
  w.text(d.caption);
  if (d.style & kSetFont) {
    w.u16(d.pointSize);
    w.u16(400);
    w.u16(0x0100);  // not italic; DEFAULT_CHARSET
    w.text(d.typeface);
  }
  for (const DialogTemplate::Control& c : d.controls) {
    w.align4();
    w.u32(0);
    w.u32(c.exStyle);
    w.u32(c.style);
    for (int16_t v : {c.x, c.y, c.cx, c.cy}) w.u16(static_cast<uint16_t>(v));
    w.u32(c.id);
    w.nameOrOrdinal(c.classOrdinal, c.className);
    w.text(c.text);
    w.u16(0);
  }
  return w.bytes;
}

}  // namespace PIM

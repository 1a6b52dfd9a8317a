// A dialog template as the resource compiler stores it (the extended form
// that DIALOGEX statements give, and the older plain form), read back so
// that tests can hold the windows on screen against the templates: each
// control's id, class and rectangle in dialog units.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace PIM {

struct DialogTemplate {
  struct Control {
    uint32_t id = 0;
    uint32_t style = 0;
    uint32_t exStyle = 0;
    int16_t x = 0, y = 0, cx = 0, cy = 0;
    // A predefined class by its ordinal (0x80 button, 0x81 edit, 0x82
    // static, ...) or by name.
    uint16_t classOrdinal = 0;
    std::u16string className;
    std::u16string text;
  };
  bool extended = false;
  uint32_t style = 0;
  uint32_t exStyle = 0;
  int16_t x = 0, y = 0, cx = 0, cy = 0;
  std::u16string caption;
  uint16_t pointSize = 0;  // with DS_SETFONT
  std::u16string typeface;
  std::vector<Control> controls;
};

// False, with `error` saying where, when the bytes end early or hold less
// than they claim.
bool parseDialogTemplate(const uint8_t* data, size_t size, DialogTemplate& out, std::string& error);

// The bytes of `dialog` in the extended form, for tests.
std::vector<uint8_t> encodeDialogTemplate(const DialogTemplate& dialog);

}  // namespace PIM

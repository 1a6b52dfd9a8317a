// A page's answer to the sheet's OK: may its current input be accepted?
#pragma once

namespace PIM {

class IValidate {
 public:
  // False keeps the sheet open; the page has told the user why.
  virtual bool validate() = 0;

 protected:
  ~IValidate() = default;
};

}  // namespace PIM

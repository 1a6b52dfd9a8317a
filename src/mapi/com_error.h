// The error object of the store wrappers: a failed MAPI call turned into an
// exception at the wrapper boundary, carrying its HRESULT. Out of memory is
// thrown as std::bad_alloc instead, like every other allocation failure.
// Callers catch it at folder, table-read, thread and add-in-method level.
#pragma once

#include <exception>
#include <string>

#include "mapi/mapi.h"

namespace PIM {

class ComError : public std::exception {
 public:
  explicit ComError(HRESULT hr);
  HRESULT hr() const noexcept { return hr_; }
  // The code as hrText() writes it.
  const char* what() const noexcept override { return text_.c_str(); }

 private:
  HRESULT hr_;
  std::string text_;
};

// Throws ComError(hr), or std::bad_alloc for E_OUTOFMEMORY.
[[noreturn]] void throwComError(HRESULT hr);

// An HRESULT as the log writes it: "0x80004005".
std::string hrText(HRESULT hr);

}  // namespace PIM

// " ERR> HR Error: 0x80004005: <context>" (needs core/debug_logger.h and a
// PIM_ENTRY in the calling function).
#define PIM_LOG_HR(hr, context) PIM_LOG_ERR("HR Error: " << ::PIM::hrText(hr) << ": " << context)

// Property values between the store's model and MAPI: delivery into MAPI
// buffers (with the type conversions and cuts real stores make), reading
// caller-supplied MAPI values, and the comparisons that restrictions and
// sorts use.
#pragma once

#include <string>

#include "mapi/mapi.h"
#include "store/model.h"

namespace PIM::store {

struct DeliverOptions {
  bool unicode = true;       // PT_UNICODE may be delivered
  uint32_t stringLimit = 0;  // cut strings to this many characters; 0 = none
  uint32_t byteLimit = 0;    // longer text/binary values become errors; 0 = none
};

// Fills `out` with the value `requested` asks for (PT_UNSPECIFIED: as
// stored) from `prop` (null: absent), allocating with MAPIAllocateMore on
// `root`. Text is converted between PT_UNICODE and PT_STRING8 (UTF-8) either
// way; a value that cannot be delivered becomes an error value (PT_ERROR,
// MAPI_E_NOT_FOUND or MAPI_E_NOT_ENOUGH_MEMORY). Returns S_OK, or the
// allocation failure. Sets `isError` when `out` is an error value.
HRESULT deliver(const Prop* prop, ULONG requested, void* root, SPropValue& out,
                const DeliverOptions& options, bool& isError);

// A caller's MAPI value as a model value (deep copy).
Prop fromMapi(const SPropValue& value);

// The value `prop` converted to `type` (text between 8-bit and Unicode only);
// false when it cannot be.
bool convertProp(const Prop& prop, ULONG type, Prop& out);

// Text of a string value (PT_UNICODE, or PT_STRING8 read as UTF-8).
std::u16string textOf(const Prop& prop);
// A PT_UNICODE value's text as UTF-8 (as toUtf8 would give it).
std::string utf8Of(const Prop& prop);

// Case folding and accent stripping used by string comparisons.
std::u16string foldCase(const std::u16string& text);
std::u16string stripAccents(const std::u16string& text);

// Orders two values of comparable types: numbers with numbers, text with
// text (ignoring case), binaries bytewise (a shorter prefix first),
// multi-valued element by element. Returns false when the types are not
// comparable (or either is an error value).
bool compareProps(const Prop& a, const Prop& b, int& result);

// The size MAPI's RES_SIZE restrictions measure (UlPropSize): fixed sizes
// for numbers, byte counts with terminator for strings, sums for
// multi-valued values.
ULONG propSize(const Prop& prop);

}  // namespace PIM::store

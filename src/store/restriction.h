// Restrictions and sort orders as the store evaluates them.
//
// Semantics (where MAPI leaves a choice, the choice of this store):
//   - A property restriction, bitmask, size or compare-props restriction on a
//     property the row lacks (or holds as an error) is false, whatever the
//     relation; callers pair RELOP_NE with RES_EXIST as for real stores.
//   - Text compares ignoring case, PT_STRING8 (read as UTF-8) and PT_UNICODE
//     alike; binaries bytewise with a shorter prefix first; numbers, times
//     and booleans numerically.
//   - A multi-valued property against a single value matches when any value
//     does.
//   - RELOP_RE takes an ECMAScript regular expression over the UTF-8 text;
//     one that does not compile makes Restrict answer MAPI_E_TOO_COMPLEX.
//   - Content restrictions: FL_FULLSTRING/FL_SUBSTRING/FL_PREFIX on text or
//     binaries; FL_IGNORECASE folds case, FL_IGNORENONSPACE drops accents,
//     FL_LOOSE does both.
//   - Sorting: missing values (and errors) sort after every present value
//     when ascending, so before them when descending; equal keys keep the
//     folder's order.
#pragma once

#include <memory>
#include <regex>
#include <vector>

#include "mapi/mapi.h"
#include "store/model.h"

namespace PIM::store {

struct Restriction {
  ULONG rt = RES_AND;
  ULONG relop = 0;   // relation, fuzzy level, BMR_* or sub-object tag
  ULONG tag = 0;     // property (first property of RES_COMPAREPROPS)
  ULONG tag2 = 0;    // second property of RES_COMPAREPROPS
  ULONG number = 0;  // mask of RES_BITMASK, size of RES_SIZE
  bool hasValue = false;
  Prop value;
  std::shared_ptr<std::regex> regex;
  std::vector<Restriction> children;
};

// Copies a caller's restriction. MAPI_E_INVALID_PARAMETER for null parts,
// MAPI_E_TOO_COMPLEX for unknown kinds, relations or a bad expression, or
// nesting deeper than 64.
HRESULT copyRestriction(const SRestriction& in, Restriction& out);

// What a restriction sees of one row.
class RowAccess {
 public:
  virtual ~RowAccess() = default;
  // The row's value with this property identifier, or null.
  virtual const Prop* find(ULONG propId) const = 0;
  // The rows of a sub-object (PR_MESSAGE_RECIPIENTS, PR_MESSAGE_ATTACHMENTS).
  virtual std::vector<PropList> subObjectRows(ULONG subObject) const = 0;
};

bool evaluate(const Restriction& r, const RowAccess& row);

// Orders two rows by the sort keys: negative, 0 or positive.
int compareRows(const std::vector<SSortOrder>& keys, const RowAccess& a, const RowAccess& b);
// The same in two steps, so that a sort looks each row's keys up once:
// `out` gets one value (or null) per key.
void sortValues(const std::vector<SSortOrder>& keys, const RowAccess& row, const Prop** out);
int compareSortValues(const std::vector<SSortOrder>& keys, const Prop* const* a,
                      const Prop* const* b);

}  // namespace PIM::store

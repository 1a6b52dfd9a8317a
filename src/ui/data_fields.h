// The Data page's tree without its window: one root per kind of item, under
// it every field a capture can write, either always written (a fixed check)
// or written when its preference switch is on (a check the user toggles).
#pragma once

#include <array>
#include <vector>

#include "prefs/preferences.h"
#include "ui/check_tree_sink.h"

namespace PIM {

struct DataField {
  const char16_t* key;
  // The switch of a field the user chooses; null for one always written.
  Setting<bool>& (*flag)(PreferenceValues& values);
};

struct DataRoot {
  const char16_t* key;
  int image;
  std::vector<DataField> fields;
};

// Calendar, contacts, e-mails, tasks, each with its fields in page order.
const std::array<DataRoot, 4>& dataFieldTree();

// The tree's items as filled, to read the toggles back.
struct DataTreeItems {
  std::array<CheckTreeSink::Item, 4> roots{};
  // Per toggled field, in table order: its item and its switch.
  std::vector<std::pair<CheckTreeSink::Item, Setting<bool>& (*)(PreferenceValues&)>> toggles;
};

// Inserts every root and field (a toggle checked when its switch is on),
// then expands the roots.
DataTreeItems fillDataTree(CheckTreeSink& tree, PreferenceValues& values);
// Every switch on exactly when its item is checked; fixed items are not
// read.
void readDataTree(const CheckTreeSink& tree, const DataTreeItems& items, PreferenceValues& values);

}  // namespace PIM

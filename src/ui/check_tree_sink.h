// What the Data and Folders pages need of their check tree, so that the
// rules that fill a tree and read it back run without a window too.
#pragma once

#include <cstdint>
#include <string>

namespace PIM {

// Check states of a tree item.
enum CheckState : int { kCheckNone = 0, kUnchecked = 1, kChecked = 2, kCheckFixed = 3 };

class CheckTreeSink {
 public:
  // An item of the tree; null is the root (and a failed insertion).
  using Item = void*;

  // A last child of `parent` whose text is the language string of `key`
  // (the key itself when the language has none), with the check state and,
  // unless 0, the image.
  virtual Item insertItem(const std::u16string& key, int state, Item parent, int image) = 0;
  virtual int getCheckState(Item item) const = 0;
  virtual void expand(Item item) = 0;

 protected:
  ~CheckTreeSink() = default;
};

}  // namespace PIM

// What the user's click or key does to an item of a check tree. An item's
// check state is its state-image index: 0 no box (group items), 1
// unchecked, 2 checked, 3 fixed (always on, cannot be changed); 4 and above
// are not valid states and never change either.
#pragma once

namespace PIM {

enum class CheckInput {
  IconClick,   // a button press on the item's state icon
  OtherClick,  // a button press anywhere else
  Space,       // the space bar, with an item selected
  OtherKey,    // any other key, or the space bar with nothing selected
};

struct CheckOutcome {
  int state;    // the item's state afterwards
  bool passOn;  // whether the tree's own handling of the input still runs
};

CheckOutcome checkTreeInput(CheckInput input, int state);

// 1 and 2 swap; every other state stays.
bool isToggleable(int state);

}  // namespace PIM

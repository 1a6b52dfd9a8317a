#include "ui/check_state.h"

namespace PIM {

bool isToggleable(int state) { return state == 1 || state == 2; }

CheckOutcome checkTreeInput(CheckInput input, int state) {
  const int toggled = isToggleable(state) ? 3 - state : state;
  switch (input) {
    case CheckInput::IconClick:
      // A box that cannot change leaves the click to the tree: it selects.
      if (isToggleable(state)) return {toggled, false};
      return {state, true};
    case CheckInput::Space:
      // Taken even when nothing changes, so that the tree does not act on it.
      return {toggled, false};
    case CheckInput::OtherClick:
    case CheckInput::OtherKey:
      break;
  }
  return {state, true};
}

}  // namespace PIM

#include "ui/check_state.h"

#include <gtest/gtest.h>

namespace PIM {
namespace {

struct InputCase {
  CheckInput input;
  int state;
  int after;
  bool passOn;
};

TEST(CheckStateTest, WhatEachInputDoesToEachState) {
  const InputCase cases[] = {
      // The box of an unchecked or checked item swaps them and keeps the
      // click from the tree (no selection, no expanding).
      {CheckInput::IconClick, 1, 2, false},
      {CheckInput::IconClick, 2, 1, false},
      // No box, the fixed mark and invalid states: the tree gets the click.
      {CheckInput::IconClick, 0, 0, true},
      {CheckInput::IconClick, 3, 3, true},
      {CheckInput::IconClick, 4, 4, true},
      {CheckInput::IconClick, 15, 15, true},
      // Space swaps 1 and 2 and is always taken.
      {CheckInput::Space, 1, 2, false},
      {CheckInput::Space, 2, 1, false},
      {CheckInput::Space, 0, 0, false},
      {CheckInput::Space, 3, 3, false},
      {CheckInput::Space, 4, 4, false},
      // Anything else is the tree's.
      {CheckInput::OtherClick, 1, 1, true},
      {CheckInput::OtherClick, 2, 2, true},
      {CheckInput::OtherKey, 1, 1, true},
      {CheckInput::OtherKey, 2, 2, true},
      {CheckInput::OtherKey, 0, 0, true},
  };
  for (const InputCase& c : cases) {
    SCOPED_TRACE(::testing::Message()
                 << "input " << static_cast<int>(c.input) << " state " << c.state);
    CheckOutcome outcome = checkTreeInput(c.input, c.state);
    EXPECT_EQ(outcome.state, c.after);
    EXPECT_EQ(outcome.passOn, c.passOn);
  }
}

}  // namespace
}  // namespace PIM

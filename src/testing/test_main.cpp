// The entry point of every test executable: the call-stack slot exists for
// the whole run, as it does in the add-in between load and unload.
#include <gtest/gtest.h>

#include "core/stack_logger.h"

int main(int argc, char** argv) {
  PIM::StackLogger::initialise();
  ::testing::InitGoogleTest(&argc, argv);
  int result = RUN_ALL_TESTS();
  PIM::StackLogger::shutdown();
  return result;
}

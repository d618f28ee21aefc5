// SPDX-License-Identifier: BSD-3-Clause
// Entry point of every test program.
#include <gtest/gtest.h>

int main(int argc, char** argv) {
  // The tests of what ends the process start the program anew: once an OpenMP runtime has
  // threads, a mere fork of it cannot end in an orderly way.
#ifndef VELMORA_EMULATED  // a program of another architecture cannot start itself anew
  GTEST_FLAG_SET(death_test_style, "threadsafe");
#endif
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}

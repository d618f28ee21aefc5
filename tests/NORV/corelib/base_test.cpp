// SPDX-License-Identifier: BSD-3-Clause
// Allocation, assertions, timers, the log, and the second names of the routines.
#include "NORV/corelib/base.hpp"

#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstring>

#include "NORV/corelib/norvmora_names.hpp"
#include "norv_log.hpp"

#define DECLARE_SECOND_NAME(name) extern "C" decltype(::name) NORVMORA_##name;
#define EXPECT_SECOND_NAME(name) EXPECT_EQ(address(&::name), address(&NORVMORA_##name));
// A table, which the formatter would stagger.
// clang-format off
#define NORVMORA_ALL(X)                                                                        \
  NORVMORA_PERM(X) NORVMORA_PERMCYCLE(X) NORVMORA_BITVEC(X) NORVMORA_PRIOQ(X)                  \
  NORVMORA_JDXLIST(X) NORVMORA_SMAT(X) NORVMORA_SMAT_PRODUCT(X) NORVMORA_SMAT_MATMUL(X)        \
  NORVMORA_SMAT_TRANSFORM(X) NORVMORA_SMAT_UTILS(X) NORVMORA_SMAT_SCALE(X)                     \
  NORVMORA_SMAT_ACCESS(X) NORVMORA_SMAT_NORMS(X) NORVMORA_SMAT_PRINT(X) NORVMORA_SMAT_CHECK(X) \
  NORVMORA_SMAT_SPARSIFY(X) NORVMORA_SMAT_SPLIT(X) NORVMORA_SMAT_ANALYSIS(X)                   \
  NORVMORA_SMAT_BLOCKS(X) NORVMORA_SMAT_CPX(X) NORVMORA_SBMAT(X)
// clang-format on
NORVMORA_ALL(DECLARE_SECOND_NAME)

// Read at run time: a compiler may take it that two declared routines stand at two addresses.
template <class Routine>
Routine* address(Routine* routine) {
  Routine* volatile read = routine;
  return read;
}

TEST(Names, SecondNamesAreTheSameRoutines){NORVMORA_ALL(EXPECT_SECOND_NAME)}

TEST(Memory, GivesWhatWasAskedFor) {
  int* cleared = static_cast<int*>(_norv_calloc(1000, sizeof(int)));
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(cleared[i], 0);
  for (int i = 0; i < 1000; ++i) cleared[i] = i;
  cleared = static_cast<int*>(_norv_realloc(cleared, 5000, sizeof(int)));
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(cleared[i], i);
  std::free(cleared);
  // Nothing asked for is no failure.
  for (void* nothing : {_norv_malloc(0, 8), _norv_calloc(8, 0), _norv_realloc(nullptr, 0, 0)}) {
    EXPECT_NE(nothing, nullptr);
    std::free(nothing);
  }
}

// The messages go to standard output, which a death test sees once it is standard error.
template <class F>
void on_standard_error(F&& f) {
  dup2(STDERR_FILENO, STDOUT_FILENO);
  f();
}

TEST(MemoryDeathTest, RequestsThatDontFitEndAsExhaustedMemoryDoes) {
  const auto exit_code_7 = ::testing::ExitedWithCode(7);
  // 2^32 bytes, a product that wraps to 4, and one that wraps to a small even number.
  EXPECT_EXIT(on_standard_error([] { _norv_malloc(65536, 65536); }), exit_code_7,
              "ERROR during memory allocation!\nBacktrace not available.\n");
  EXPECT_EXIT(on_standard_error([] { _norv_calloc(0x40000001u, 4); }), exit_code_7,
              "ERROR during cleared memory allocation!\nBacktrace not available.\n");
  EXPECT_EXIT(on_standard_error([] { _norv_realloc(nullptr, ~0u, ~0u); }), exit_code_7,
              "ERROR during memory RE-allocation!\nBacktrace not available.\n");
  EXPECT_EXIT(vlm::allocate<double>(~std::uint64_t{0} / 4), exit_code_7, "");
  EXPECT_EXIT(bitvec_new_from(5, nullptr), ::testing::KilledBySignal(SIGABRT), "words != 0");
}

TEST(AssertionDeathTest, PrintsTheTestAsWritten) {
  const int* const missing = nullptr;
  EXPECT_DEATH(NORV_ASSERT(missing != 0), "base_test.*assertion \"missing != 0\" failed");
  EXPECT_DEATH(NORV_ASSERT_TEXT(missing, "a fixed text"), "assertion \"a fixed text\" failed");
  EXPECT_DEATH(start_timing(nullptr), "tv != 0");
  NORV_ASSERT(missing == 0);
}

TEST(Timers, CountSecondsSinceTheStart) {
  timeval tv;
  start_timing(&tv);
  tv.tv_sec -= 2;
  tv.tv_usec += 500000;  // 1.5 seconds ago
  const double seconds = get_time_span(&tv);
  EXPECT_GE(seconds, 1.5 - 1e-6);
  EXPECT_LT(seconds, 60.0);
}

TEST(Log, EveryKindHasItsFrameAndItsLevel) {
  const auto say_all = [] {
    _norv_print_error_msg("e %d", 1);
    _norv_print_warn_msg("w %s", "x");
    _norv_print_stat_msg("s %%");
    _norv_print_iter_msg("i %5.2f", 1.5);
    _norv_print_debug_msg("d %d|", 2);
    NORV_DEBUG("some_file", "value %d", 3);
  };
  const std::string up_to_stat =
      "[VELMORA/ML]>> ERROR: e 1\n[VELMORA/ML]>> WARNING: w x\n[VELMORA/ML]>> s %\n";
  const std::string above =
      "[VELMORA/ML]>> i  1.50\nd 2|[VELMORA/ML]>> \tNORV/corelib/some_file: value 3\n";
  const std::string expected[] = {"", up_to_stat, up_to_stat + above};
  NorvLog log;
  for (int level = 0; level <= 2; ++level) {
    norv_debug_set_level(level);
    EXPECT_EQ(norv_debug_get_level(), level);
    EXPECT_EQ(_norv_debug_level, level);
    say_all();
    EXPECT_EQ(log.take(), expected[level]);
  }
}

TEST(Log, AppendsUntilItIsInitialized) {
  NorvLog log;
  _norv_print_stat_msg("old");
  norv_log_init();
  _norv_print_stat_msg("%s", std::string(300000, 'x').c_str());
  _norv_print_stat_msg("new");
  EXPECT_EQ(log.take(), "[VELMORA/ML]>> " + std::string(300000, 'x') + "\n[VELMORA/ML]>> new\n");
}

TEST(Log, StandardErrorTakesOver) {
  NorvLog log;
  // A directory in the place of the file can be neither removed nor opened.
  std::filesystem::create_directories("velmora-ml.out/in-the-way");
  ::testing::internal::CaptureStderr();
  norv_log_init();
  _norv_print_warn_msg("lost?");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "Error while opening file ./velmora-ml.out\n[VELMORA/ML]>> WARNING: lost?\n");
  std::filesystem::remove_all("velmora-ml.out");
}

TEST(LogDeathTest, NotImplementedEndsTheProcess) {
  EXPECT_EXIT(
      {
        static NorvLog log;  // shown and removed by the end of the process
        std::atexit([] { std::fputs(log.take().c_str(), stderr); });
        norv_not_implemented();
      },
      ::testing::ExitedWithCode(7), "^\\[VELMORA/ML\\]>> ERROR: Function not implemented\\.\n$");
}

TEST(MessageText, Grows) {
  vlm::MessageText text;
  std::string expected;
  for (int i = 0; i < 500; ++i) {
    text.add("%d,", i);
    expected += std::to_string(i) + ",";
  }
  text.add("%s", "");
  EXPECT_EQ(expected, text.c_str());
}

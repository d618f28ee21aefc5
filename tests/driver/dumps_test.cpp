// SPDX-License-Identifier: BSD-3-Clause
// Dumps: when they are written, how they are named and what they hold.
#include "driver/dumps.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

/// Runs in an empty folder with the dump variables unset.
class Dumps : public testing::Test {
 protected:
  void SetUp() override {
    previous_ = fs::current_path();
    folder_ = fs::temp_directory_path() / ("velmora-dumps-" + std::to_string(getpid()));
    fs::create_directory(folder_);
    fs::current_path(folder_);
    for (const char* name : variables) unsetenv(name);
  }
  void TearDown() override {
    fs::current_path(previous_);
    fs::remove_all(folder_);
    for (const char* name : variables) unsetenv(name);
  }

  /// The one file in the folder, its text taken and the file removed; name empty for none.
  struct Written {
    std::string name;
    std::vector<std::string> lines;
  };
  static Written take() {
    Written written;
    for (const auto& entry : fs::recursive_directory_iterator(".")) {
      if (!entry.is_regular_file()) continue;
      EXPECT_TRUE(written.name.empty()) << "a second file: " << entry.path();
      written.name = entry.path().filename().string();
      std::ifstream file(entry.path());
      for (std::string line; std::getline(file, line);) written.lines.push_back(line);
    }
    if (!written.name.empty()) fs::remove(written.name);
    return written;
  }
  /// Name without the running count, which other tests of the process move.
  static std::string uncounted(std::string name) {
    const auto at = name.find("-phase");
    return at == std::string::npos ? name : name.erase(at - 3, 3);
  }

  static constexpr const char* variables[] = {"VELMORA_WRITE_MAT", "VELMORA_WRITE_MTX",
                                              "VELMORA_WRITE_SOL", "VELMORA_WRITE_PREFIX"};
  fs::path previous_, folder_;
};

vlm::DumpCounters counters;

const std::vector<int> ia = {1, 3, 4}, ja = {1, 2, 2};
const std::vector<double> a = {1.5, -2, 0.1, 4, 5, 6}, b = {7, 8, 9, 10};
vlm::InputMatrix matrix() { return {2, ia.data(), ja.data(), a.data()}; }

std::vector<std::vector<double>> numbers(const std::vector<std::string>& lines) {
  std::vector<std::vector<double>> rows;
  for (const std::string& line : lines) {
    std::istringstream in(line);
    rows.emplace_back(std::istream_iterator<double>(in), std::istream_iterator<double>());
  }
  return rows;
}

using Rows = std::vector<std::vector<double>>;

TEST_F(Dumps, ArraysHoldWhatThePhaseUses) {
  setenv("VELMORA_WRITE_MAT", "1", 1);
  const Rows structure = {{2}, {3}, {1}, {3}, {4}, {1}, {2}, {2}};
  const auto joined = [&](const Rows& more) {
    Rows rows = structure;
    rows.insert(rows.end(), more.begin(), more.end());
    return rows;
  };
  const auto dumped = [](int phase, int mtype) {
    vlm::dump_input(counters, phase, mtype, matrix(), b.data());
    const Written written = take();
    EXPECT_EQ(uncounted(written.name), "mat-velmora_-phase-" + std::to_string(phase) + ".iajaa");
    return numbers(written.lines);
  };
  EXPECT_EQ(dumped(11, -2), structure);
  EXPECT_EQ(dumped(12, -2), joined({{1.5}, {-2}, {0.1}}));
  EXPECT_EQ(dumped(33, -2), joined({{1.5}, {-2}, {0.1}, {7}, {8}}));
  EXPECT_EQ(dumped(13, 13), joined({{1.5, -2}, {0.1, 4}, {5, 6}, {7, 8}, {9, 10}}));
  // The other complex types write the first doubles of the values only.
  EXPECT_EQ(dumped(13, 4), joined({{1.5}, {-2}, {0.1}, {7}, {8}}));
  vlm::dump_input(counters, 33, -2, matrix(), nullptr);
  EXPECT_EQ(numbers(take().lines), joined({{1.5}, {-2}, {0.1}}));
}

TEST_F(Dumps, LinesHaveTheirFormat) {
  setenv("VELMORA_WRITE_MAT", "", 1);
  vlm::dump_input(counters, 13, 6, matrix(), b.data());
  const auto lines = take().lines;
  ASSERT_EQ(lines.size(), 13U);
  EXPECT_EQ(lines[8], "  1.500000000000000000000000e+00  -2.000000000000000000000000e+00");
  EXPECT_EQ(lines[11], "  7.000000000000000000000000e+00   8.000000000000000000000000e+00 ");
}

TEST_F(Dumps, CoordinatesMirrorOffDiagonalValues) {
  setenv("VELMORA_WRITE_MTX", "1", 1);
  vlm::dump_input(counters, 11, 11, matrix(), b.data());
  const Written pairs = take();
  EXPECT_EQ(uncounted(pairs.name), "mat-velmora_-phase-11.mtx");
  EXPECT_EQ(numbers(pairs.lines), (Rows{{1, 1}, {1, 2}, {2, 2}}));
  vlm::dump_input(counters, 22, 11, matrix(), b.data());
  EXPECT_EQ(numbers(take().lines), (Rows{{1, 1, 1.5}, {1, 2, -2}, {2, 1, -2}, {2, 2, 0.1}}));
  vlm::dump_input(counters, 33, 6, matrix(), b.data());
  EXPECT_EQ(numbers(take().lines),
            (Rows{{1, 1, 1.5, -2}, {1, 2, 0.1, 4}, {2, 1, 0.1, 4}, {2, 2, 5, 6}}));

  // Row starts that have not been checked lead no dump outside the entries.
  const std::vector<int> wild = {-5, 100000, 4};
  vlm::dump_input(counters, 22, 11, {2, wild.data(), ja.data(), a.data()}, nullptr);
  EXPECT_EQ(take().lines.size(), 5U);
}

TEST_F(Dumps, SolutionOfSolvingPhases) {
  setenv("VELMORA_WRITE_SOL", "1", 1);
  const std::vector<double> x = {-1, -2, -3, -4};
  for (const int phase : {13, 23, 33}) {
    vlm::dump_solution(counters, phase, 1, 2, b.data(), x.data());
    Written written = take();
    EXPECT_EQ(uncounted(written.name), "sol-velmora_-phase-" + std::to_string(phase) + ".iajaa");
    EXPECT_EQ(numbers(written.lines), (Rows{{7}, {8}}));
    vlm::dump_solution(counters, phase, -4, 2, b.data(), x.data());
    EXPECT_EQ(numbers(take().lines), (Rows{{-1, -2}, {-3, -4}}));
  }
  for (const int phase : {11, 12, 22, 0, -1})
    vlm::dump_solution(counters, phase, 1, 2, b.data(), x.data());
  EXPECT_EQ(take().name, "");
}

TEST_F(Dumps, NothingWithoutAVariableOrForReleasingPhases) {
  vlm::dump_input(counters, 13, 11, matrix(), b.data());
  EXPECT_EQ(take().name, "");
  setenv("VELMORA_WRITE_MAT", "1", 1);
  setenv("VELMORA_WRITE_MTX", "1", 1);
  for (const int phase : {0, -1, -22}) vlm::dump_input(counters, phase, 11, matrix(), b.data());
  vlm::dump_input(counters, 11, 11, {0, ia.data(), ja.data(), a.data()}, b.data());
  vlm::dump_input(counters, 11, 11, {2, nullptr, nullptr, nullptr}, b.data());
  EXPECT_EQ(take().name, "");
}

TEST_F(Dumps, PrefixOfAnyLengthAndRunningCount) {
  setenv("VELMORA_WRITE_SOL", "1", 1);
  const std::string prefix(200, 'p');
  setenv("VELMORA_WRITE_PREFIX", prefix.c_str(), 1);
  vlm::dump_solution(counters, 33, 1, 2, b.data(), b.data());
  const std::string first = take().name;
  ASSERT_EQ(uncounted(first), prefix + "_-phase-33.iajaa");

  // A file that cannot be opened is told, and takes no number.
  setenv("VELMORA_WRITE_PREFIX", "no-such-folder/case", 1);
  testing::internal::CaptureStderr();
  vlm::dump_solution(counters, 33, 1, 2, b.data(), b.data());
  EXPECT_NE(testing::internal::GetCapturedStderr().find("no-such-folder/case_"), std::string::npos);
  EXPECT_EQ(take().name, "");

  setenv("VELMORA_WRITE_PREFIX", "case", 1);
  vlm::dump_solution(counters, 33, 1, 2, b.data(), b.data());
  const int count = std::stoi(first.substr(prefix.size() + 1, 3));
  char expected[64];
  std::snprintf(expected, sizeof expected, "case_%03d-phase-33.iajaa", count + 1);
  EXPECT_EQ(take().name, expected);
}

}  // namespace

// SPDX-License-Identifier: BSD-3-Clause
// Messages of failed allocations, and the peak of the analysis against the resident set.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <string>

#include "caller.hpp"
#include "gallery.hpp"

namespace vlm::test {
namespace {

Caller caller_of(const Matrix& m) { return Caller(m.mtype, m.ia, m.ja, m.a); }

/// A line of /proc/self/status, KB.
long process_kilobytes(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with(name + ":")) return std::stol(line.substr(name.size() + 1));
  return -1;
}

struct MemoryMessage {
  int location = 0;
  long long bytes = 0;
};

MemoryMessage read_message(const std::string& text) {
  MemoryMessage message;
  const std::size_t at = text.find("(insufficient_memory     ) error_num= ");
  char array[40];
  if (at == std::string::npos ||
      std::sscanf(text.c_str() + at,
                  "(insufficient_memory     ) error_num= %d\n*** error velmora (memory allocation) "
                  "%39[^,], size to allocate: %lld bytes",
                  &message.location, array, &message.bytes) != 3)
    ADD_FAILURE() << text;
  return message;
}

TEST(Memory, ATableThatDoesNotFit) {
#ifdef VELMORA_SANITIZED
  GTEST_SKIP() << "the sanitizers replace malloc";
#endif
  const LimitedMemory limited;
  Caller c = make_tridiagonal(10, -2);
  c.maxfct = 2147483647;
  const std::string text = c.run_and_read(11);
  EXPECT_EQ(c.error, -2);
  EXPECT_EQ(read_message(text).location, -200);
  EXPECT_GT(read_message(text).bytes, 2147483647LL * 16);
  EXPECT_NE(text.find("FACT_ADR"), std::string::npos);
  EXPECT_TRUE(c.empty());
  c.maxfct = 1;
  EXPECT_EQ(c.run(13), 0);
}

// With ever more room a solve fails at one array after another, its scratch among them, until it
// goes through.
TEST(Memory, EveryFailureTellsItsBytes) {
#if defined(VELMORA_SANITIZED) || defined(VELMORA_EMULATED)
  GTEST_SKIP() << "malloc is another one, or the memory an emulator's";
#endif
  std::set<int> locations;
  std::set<long long> sizes;
  for (const int matching : {0, 2}) {
    const Matrix m = matching == 0 ? poisson2d(200) : interior_point_kkt(90, 4, 1);
    Caller first = caller_of(m), c = caller_of(m);
    first.iparm(13) = c.iparm(13) = matching;
    ASSERT_EQ(first.run(13), 0);  // the BLAS takes its buffers
    const std::size_t start = static_cast<std::size_t>(process_kilobytes("VmSize")) << 10;
    c.error = -2;
    for (std::size_t room = 0; c.error != 0; room += 192 << 10) {
      std::string text;
      {
        const LimitedMemory limited(start + room);
        text = c.run_and_read(13);
      }
      if (c.error == 0) break;
      ASSERT_EQ(c.error, -2);
      const MemoryMessage message = read_message(text);
      EXPECT_GT(message.bytes, 0) << text;
      locations.insert(message.location);
      sizes.insert(message.bytes);
      ASSERT_LT(room, std::size_t{400} << 20);
    }
  }
  EXPECT_GE(locations.size(), 2U);  // at least; what else is met depends on the address space
  EXPECT_GE(sizes.size(), 8U);
}

struct Peak {
  int reported = 0;
  long measured = 0;
};

/// iparm(15) of an analysis, and how much the resident set grew in a process of its own, KB; the
/// pages of program and libraries, of which the kernel may map megabytes at the first touch, and
/// large pages, of which a heap may touch a corner only, are no memory of the analysis.
Peak analysis_peak(const Matrix& m, int matching, int threads) {
  int ends[2];
  if (pipe(ends) != 0) return {};
  const pid_t child = fork();
  if (child == 0) {
    Caller c = caller_of(m);
    c.iparm(3) = threads;
    c.iparm(13) = matching;
    malloc_trim(0);
    prctl(PR_SET_THP_DISABLE, 1, 0, 0, 0);
    const long programs = process_kilobytes("RssFile");
    std::ofstream("/proc/self/clear_refs") << 5 << std::flush;  // VmHWM starts again
    const long before = process_kilobytes("VmHWM");
    const bool ready = before < process_kilobytes("VmRSS") + 1024;
    c.run(11);
    const long grown = process_kilobytes("VmHWM") - before;
    const long mapped = process_kilobytes("RssFile") - programs;
    const Peak peak{c.iparm(15), ready ? grown - mapped : 0};
    const bool written = write(ends[1], &peak, sizeof peak) == sizeof peak;
    _exit(written && c.error == 0 ? 0 : 1);
  }
  close(ends[1]);
  Peak peak;
  int status = 1;
  if (read(ends[0], &peak, sizeof peak) != sizeof peak) peak = {};
  close(ends[0]);
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  return peak;
}

TEST(Memory, PeakOfTheAnalysisIsTheGrowthOfTheProcess) {
#if defined(VELMORA_SANITIZED) || defined(VELMORA_EMULATED)
  GTEST_SKIP() << "malloc is another one, or the memory an emulator's";
#endif
  struct Case {
    Matrix m;
    int matching, threads;
  };
  const Case cases[] = {{poisson2d(350), 0, 1},
                        {poisson3d(36), 0, 1},
                        {poisson3d(36), 0, 4},
                        {elasticity3d(22, 1), 0, 1},
                        {saddle_point(22, 2), 0, 1},
                        {interior_point_kkt(160, 4, 3), 2, 1},
                        {circuit(60000, 4), 0, 1},
                        {circuit(60000, 4), 1, 1},
                        {structurally_symmetric(28, 5), 0, 1}};
  for (const Case& c : cases) {
    const Peak peak = analysis_peak(c.m, c.matching, c.threads);
    if (peak.measured == 0) GTEST_SKIP() << "the system does not tell the peak of a part";
    EXPECT_GT(peak.measured, 6144) << c.m.name;  // large beside what any call touches
    // A further thread has a heap of its own, which keeps what was freed.
    const double heaps = 2048.0 * (c.threads - 1);
    EXPECT_NEAR(peak.reported, peak.measured, 0.2 * static_cast<double>(peak.measured) + heaps)
        << c.m.name << " matching " << c.matching << " threads " << c.threads;
  }
}

}  // namespace
}  // namespace vlm::test

// SPDX-License-Identifier: BSD-3-Clause
/// Whether the machine has the memory of a factorization, before it is taken: an allocation
/// succeeds on most systems, and the process is killed when it uses it.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <limits>

#include "api/process.hpp"
#include "velmora.h"
#include "velmora/prepare.h"

namespace vlm {
namespace {

constexpr long long unlimited = std::numeric_limits<long long>::max();
/// Below so many KB nobody looks: reading the system's files takes as long as a small
/// factorization.
constexpr long long negligible = 16 * 1024;

/// The number behind a word of one of the system's files, or at its begin for an empty word.
/// @return false where there is none
bool read_number(const char* path, const char* word, long long& value) {
  std::FILE* const file = std::fopen(path, "re");
  if (file == nullptr) return false;
  std::array<char, 128> line;
  bool found = false;
  const std::size_t length = std::strlen(word);
  while (!found && std::fgets(line.data(), static_cast<int>(line.size()), file) != nullptr)
    found = std::strncmp(line.data(), word, length) == 0 &&
            std::sscanf(line.data() + length, "%lld", &value) == 1;
  std::fclose(file);
  return found;
}

/// KB that control group of the process may still take; files that it only caches give way.
long long left_in_group() {
  long long limit = 0, taken = 0, cached = 0;
  if (!read_number("/sys/fs/cgroup/memory.max", "", limit) ||
      !read_number("/sys/fs/cgroup/memory.current", "", taken))
    return unlimited;
  read_number("/sys/fs/cgroup/memory.stat", "inactive_file ", cached);
  return std::max(0LL, limit - taken + cached) / 1024;
}

/// KB that the limit of the process's address space leaves.
long long left_in_space() {
  rlimit limit;
  long long pages = 0;
  if (getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY ||
      !read_number("/proc/self/statm", "", pages))
    return unlimited;
  return std::max(
      0LL, static_cast<long long>(limit.rlim_cur / 1024) - pages * (sysconf(_SC_PAGESIZE) / 1024));
}

/// KB; 0 where the system does not tell.
long long memory_left() {
  long long available = 0, swap = 0;
  if (!read_number("/proc/meminfo", "MemAvailable:", available)) return 0;
  read_number("/proc/meminfo", "SwapFree:", swap);
  return std::max(1LL, std::min({available + swap, left_in_group(), left_in_space()}));
}

struct Size {
  std::array<char, 32> text;
  explicit Size(long long kilobytes) : text() {
    const double megabytes = static_cast<double>(kilobytes) / 1024;
    if (megabytes < 1024)
      std::snprintf(text.data(), text.size(), "%.1f MB", megabytes);
    else
      std::snprintf(text.data(), text.size(), "%.1f GB", megabytes / 1024);
  }
};

}  // namespace
}  // namespace vlm

extern "C" int velmora_require_memory(long long kilobytes, long long* left) {
  using vlm::Size;
  vlm::keep_message("");
  const long long there = left == nullptr && kilobytes < vlm::negligible ? 0 : vlm::memory_left();
  if (left != nullptr) *left = there;
  if (there == 0 || kilobytes <= there) return 0;
  std::array<char, vlm::message_length> text;
  std::snprintf(text.data(), text.size(),
                "*** error velmora: the factorization needs %s, and the machine has %s left\n"
                "*** what to do: another ordering (iparm(2)), single precision (iparm(29)), the "
                "iterative solver, or several machines\n",
                Size(kilobytes).text.data(), Size(there).text.data());
  vlm::keep_message(text.data());
  return -2;
}

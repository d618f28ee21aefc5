// SPDX-License-Identifier: BSD-3-Clause
// Many threads asked for under a limit on the address space: the call ends, with an answer or with
// the memory error, and neither the OpenMP runtime nor the BLAS ends or stops the process.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <fstream>
#include <string>

#include "caller.hpp"
#include "gallery.hpp"

namespace vlm::test {
namespace {

/// Addresses that this process has in use, bytes.
std::size_t addresses() {
  std::size_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

/// The error of a solve with so much room left, in a process of its own; 99 for another end.
int error_with_room(const Matrix& m, int threads, std::size_t room) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    const LimitedMemory limited(addresses() + room);
    Caller c(m.mtype, m.ia, m.ja, m.a);
    c.iparm(3) = threads;
    _exit(-c.run(13));
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? -WEXITSTATUS(status) : 99;
}

TEST(AddressSpace, CallsOfManyThreadsEnd) {
#if defined(VELMORA_SANITIZED) || defined(VELMORA_EMULATED)
  GTEST_SKIP() << "the addresses are mostly the sanitizer's, or an emulator's";
#endif
  // Types 1 and 3 call the BLAS in each thread.
  for (const Matrix& m : {structurally_symmetric(8, 1), poisson3d(11), magnetic_laplacian(9, 0, 2)})
    for (std::size_t room = std::size_t{1} << 20; room < std::size_t{8} << 30; room *= 3) {
      const int error = error_with_room(m, 48, room);
      EXPECT_TRUE(error == 0 || error == -2) << m.name << ", room " << room << ": " << error;
    }
}

}  // namespace
}  // namespace vlm::test

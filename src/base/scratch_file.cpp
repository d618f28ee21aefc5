// SPDX-License-Identifier: BSD-3-Clause
#include "base/scratch_file.hpp"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "base/memory.hpp"

namespace vlm {
namespace {

constexpr std::size_t most_at_once = std::size_t{1} << 30;  // what one call surely takes

/// Moves `bytes` bytes by steps(offset, length), each of which returns as read() and write() do.
template <class Step>
int move_all(std::size_t bytes, Step step) {
  for (std::size_t done = 0; done < bytes;) {
    const ssize_t moved = step(done, std::min(bytes - done, most_at_once));
    if (moved < 0 && errno == EINTR) continue;
    if (moved < 0) return errno;
    if (moved == 0) return EIO;
    done += static_cast<std::size_t>(moved);
  }
  return 0;
}

}  // namespace

ScratchFile::~ScratchFile() {
  if (file_ >= 0) ::close(file_);
}

int ScratchFile::write(const void* block, std::size_t bytes) {
  const char* const folder = std::getenv("TMPDIR");
  const std::string_view root = folder != nullptr && *folder != '\0' ? folder : "/tmp";
  const std::string_view name = "/velmora_inverse_XXXXXX";
  Vector<char> path(root.begin(), root.end());
  path.insert(path.end(), name.begin(), name.end());
  path.push_back('\0');
  file_ = ::mkostemp(path.data(), O_CLOEXEC);
  if (file_ < 0) return errno;
  ::unlink(path.data());
  // Not every file system can reserve; those tell when they are written to.
  const int reserved = ::posix_fallocate(file_, 0, static_cast<off_t>(bytes));
  if (reserved != 0 && reserved != EINVAL && reserved != EOPNOTSUPP) return reserved;
  const char* const from = static_cast<const char*>(block);
  return move_all(bytes, [&](std::size_t at, std::size_t length) {
    return ::pwrite(file_, from + at, length, static_cast<off_t>(at));
  });
}

int ScratchFile::read(void* block, std::size_t bytes) {
  char* const to = static_cast<char*>(block);
  return move_all(bytes, [&](std::size_t at, std::size_t length) {
    return ::pread(file_, to + at, length, static_cast<off_t>(at));
  });
}

}  // namespace vlm

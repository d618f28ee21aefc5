// SPDX-License-Identifier: BSD-3-Clause
/// A file without a name, for bytes that are wanted back within the same call.
#pragma once

#include <cstddef>

namespace vlm {

/// Lies in the folder that the environment variable TMPDIR names, /tmp without it, and is unlinked
/// as soon as it is there: whatever becomes of the process, its room is given back.
class ScratchFile {
 public:
  ScratchFile() = default;
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  /// Makes the file and writes a block of memory to it; its room is reserved before.
  /// @return 0, or the errno of what failed
  int write(const void* block, std::size_t bytes);
  /// Reads the block back.  @return 0, or the errno of what failed; EIO where the file is short
  int read(void* block, std::size_t bytes);

 private:
  int file_ = -1;
};

}  // namespace vlm

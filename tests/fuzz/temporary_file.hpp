// SPDX-License-Identifier: BSD-3-Clause
/// A file with the bytes of one input, for readers that take a name.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace fuzz {

class TemporaryFile {
 public:
  TemporaryFile(const std::uint8_t* data, std::size_t size) {
    const int file = mkstemp(path_.data());
    if (file < 0 || write(file, data, size) != static_cast<ssize_t>(size)) std::abort();
    close(file);
  }
  ~TemporaryFile() { unlink(path_.c_str()); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_ = "/tmp/velmora-fuzz-XXXXXX";
};

}  // namespace fuzz

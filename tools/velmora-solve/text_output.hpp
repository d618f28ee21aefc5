// SPDX-License-Identifier: BSD-3-Clause
/// Text written through a buffer to a file, gzipped when the name ends in ".gz".
#pragma once

#include <fmt/format.h>

#include <iterator>
#include <memory>
#include <string>

#include "text_input.hpp"

namespace tool {

/// Finds out before hours of work that a file cannot be written.
/// @throws InputError
void require_writable(const std::string& path);

class TextOutput {
 public:
  /// @throws InputError when the file cannot be written
  explicit TextOutput(const std::string& path);

  template <typename... Args>
  void print(fmt::format_string<Args...> format, Args&&... args) {
    fmt::format_to(std::back_inserter(text_), format, std::forward<Args>(args)...);
    if (text_.size() > (std::size_t{1} << 16)) flush();
  }

  /// Completes the file.  Without it the file is left as far as it was written.
  /// @throws InputError when anything could not be written
  void close();

 private:
  void flush();
  struct Close {
    void operator()(gzFile_s* file) const;
  };
  std::string path_;
  std::unique_ptr<gzFile_s, Close> file_;
  fmt::memory_buffer text_;
  bool good_ = true;
};

}  // namespace tool

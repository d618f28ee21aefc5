// SPDX-License-Identifier: BSD-3-Clause
/// The log file of the iterative library, caught by a test.
///
/// While the object lives the process works in a fresh directory, at the given message level,
/// so that programs that run side by side don't share "./velmora-ml.out".
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "norv.h"

class NorvLog {
 public:
  explicit NorvLog(int level = 2) : home_(std::filesystem::current_path()) {
    std::string name = (std::filesystem::temp_directory_path() / "norv-log-XXXXXX").string();
    directory_ = mkdtemp(name.data()) ? name : std::string();
    std::filesystem::current_path(directory_);
    norv_debug_set_level(level);
  }
  ~NorvLog() {
    norv_debug_set_level(0);
    std::filesystem::current_path(home_);
    std::filesystem::remove_all(directory_);
  }
  NorvLog(const NorvLog&) = delete;
  NorvLog& operator=(const NorvLog&) = delete;

  const std::filesystem::path& directory() const { return directory_; }

  /// What has been logged since the last call.
  std::string take() {
    std::stringstream text;
    std::ifstream file(directory_ / "velmora-ml.out");
    if (file.is_open() && file.peek() != std::ifstream::traits_type::eof()) text << file.rdbuf();
    std::filesystem::remove(directory_ / "velmora-ml.out");
    return text.str();
  }

 private:
  std::filesystem::path home_;
  std::filesystem::path directory_;
};

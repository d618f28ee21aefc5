// SPDX-License-Identifier: BSD-3-Clause
/// Lines of a message.  Formats mark an integer with %d; they are substituted here, so that a
/// format may come from a table.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace vlm {

/// The format with its %d replaced, from the left, by the values.
inline std::string substitute(std::string_view format, std::initializer_list<long long> values) {
  std::string line;
  auto value = values.begin();
  while (!format.empty()) {
    if (format.substr(0, 2) == "%d" && value != values.end()) {
      line += std::to_string(*value++);
      format.remove_prefix(2);
    } else {
      line += format.front();
      format.remove_prefix(1);
    }
  }
  return line;
}

}  // namespace vlm

// SPDX-License-Identifier: BSD-3-Clause
/// Failures of the C++ interface: what the library says of a failed call, in its parts.
#ifndef VELMORA_ERROR_HPP
#define VELMORA_ERROR_HPP

#include <velmora.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace velm {

/// A call failed, or an argument is wrong.  what() has message and advice in one line.
class Error : public std::runtime_error {
 public:
  Error(int code, std::string message, std::string advice = {})
      : std::runtime_error("velmora error " + std::to_string(code) + ": " + message +
                           (advice.empty() ? "" : "; " + advice)),
        code_(code),
        message_(std::move(message)),
        advice_(std::move(advice)) {}

  /// The library's error: -1 wrong arguments, -2 memory, -4 numerical failure; velmora.h has all.
  int code() const noexcept { return code_; }
  /// What went wrong.
  const std::string& message() const noexcept { return message_; }
  /// What to do about it; empty where the library has no advice.
  const std::string& advice() const noexcept { return advice_; }

 private:
  int code_;
  std::string message_, advice_;
};

namespace detail {

/// The calling thread's last message, without the decoration of its lines.
struct Message {
  std::string text, advice;

  Message() {
    char lines[1024];
    velmora_last_message(lines, static_cast<int>(sizeof lines));
    const std::string all = lines, mark = "*** ", heading = "*** error VELMORA ",
                      remedy = "*** what to do: ", lead = "error velmora: ";
    for (std::size_t at = 0; at < all.size();) {
      const std::size_t end = std::min(all.find('\n', at), all.size());
      std::string line = all.substr(at, end - at);
      at = end + 1;
      if (line.compare(0, heading.size(), heading) == 0) continue;
      if (line.compare(0, remedy.size(), remedy) == 0) {
        advice = line.substr(remedy.size());
        continue;
      }
      if (line.compare(0, mark.size(), mark) == 0) line.erase(0, mark.size());
      if (line.compare(0, lead.size(), lead) == 0) line.erase(0, lead.size());
      text += (text.empty() || line.empty() ? "" : ", ") + line;
    }
  }
};

[[noreturn]] inline void fail(int code) {
  const Message said;
  throw Error(code, said.text.empty() ? velmora_error_text(code) : said.text, said.advice);
}

[[noreturn]] inline void refuse(const std::string& why) { throw Error(-1, why); }

}  // namespace detail
}  // namespace velm

#endif

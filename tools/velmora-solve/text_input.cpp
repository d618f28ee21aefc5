// SPDX-License-Identifier: BSD-3-Clause
#include "text_input.hpp"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace tool {

void LineReader::Close::operator()(gzFile_s* file) const { gzclose_r(file); }

LineReader::LineReader(const std::string& path) : path_(path == "-" ? "standard input" : path) {
  errno = 0;
  file_.reset(path == "-" ? gzdopen(dup(STDIN_FILENO), "rb") : gzopen(path.c_str(), "rb"));
  if (!file_) {
    throw InputError(
        fmt::format("cannot open {}: {}", path_, std::strerror(errno ? errno : ENOMEM)));
  }
  gzbuffer(file_.get(), 1U << 18);
  buffer_.resize(std::size_t{1} << 18);
}

std::int64_t LineReader::plain_size() const {
  struct stat info {};
  if (gzdirect(file_.get()) == 0 || stat(path_.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
    return 0;
  }
  return info.st_size;
}

void LineReader::fail(const std::string& what) const {
  throw InputError(fmt::format("{}:{}: {}", path_, line_number_, what));
}

/// Moves the unread rest to the front and reads behind it; false when the file has ended.
bool LineReader::refill() {
  std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
  end_ -= begin_;
  begin_ = 0;
  if (end_ == buffer_.size()) {
    if (end_ >= max_line) {
      ++line_number_;
      fail("line of more than a million characters");
    }
    buffer_.resize(2 * buffer_.size());
  }
  const int got =
      gzread(file_.get(), buffer_.data() + end_, static_cast<unsigned>(buffer_.size() - end_));
  int code = Z_OK;
  const char* reason = gzerror(file_.get(), &code);
  if (got < 0 || code == Z_BUF_ERROR) {
    throw InputError(fmt::format("cannot read {}: {}", path_,
                                 code == Z_ERRNO       ? std::strerror(errno)
                                 : code == Z_BUF_ERROR ? "the gzip archive ends early"
                                                       : reason));
  }
  end_ += static_cast<std::size_t>(got);
  return got > 0;
}

std::string_view LineReader::peek(std::size_t count) {
  while (end_ - begin_ < count && refill()) {
  }
  return {buffer_.data() + begin_, std::min(count, end_ - begin_)};
}

bool LineReader::next(std::string_view& line) {
  std::size_t searched = 0;
  for (;;) {
    const char* start = buffer_.data() + begin_;
    const void* stop = std::memchr(start + searched, '\n', end_ - begin_ - searched);
    if (stop != nullptr) {
      line =
          std::string_view(start, static_cast<std::size_t>(static_cast<const char*>(stop) - start));
      begin_ += line.size() + 1;
      break;
    }
    searched = end_ - begin_;
    if (!refill()) {
      if (begin_ == end_) return false;
      line = std::string_view(buffer_.data() + begin_, end_ - begin_);
      begin_ = end_;
      break;
    }
  }
  ++line_number_;
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return true;
}

std::string excerpt(std::string_view text) {
  constexpr std::size_t longest = 40;
  std::string shown(text.substr(0, longest));
  for (char& c : shown) {
    if (c < ' ' || c > '~') c = '.';
  }
  return text.size() > longest ? shown + "..." : shown;
}

bool Fields::read(std::int64_t& value) {
  skip_blanks();
  const auto [stop, error] = std::from_chars(at_, end_, value);
  if (error != std::errc() || !ends_here(stop)) return false;
  at_ = stop;
  return true;
}

bool Fields::read(double& value) {
  skip_blanks();
  const auto [stop, error] = std::from_chars(at_, end_, value);
  if (error != std::errc() || !ends_here(stop)) return read_unusual(value);
  at_ = stop;
  return true;
}

/// Spellings that from_chars refuses: "+1.5", "1.5D+03", "1e-400".
bool Fields::read_unusual(double& value) {
  const char* stop = at_;
  while (!ends_here(stop)) ++stop;
  std::string number(at_, stop);
  if (!number.empty() && number.front() == '+') number.erase(0, 1);
  if (number.empty() || number.front() == '+') return false;
  if (number.find_first_not_of("+-.0123456789eEdD") != std::string::npos) return false;
  for (char& c : number) {
    if (c == 'd' || c == 'D') c = 'e';
  }
  char* parsed = nullptr;
  value = std::strtod(number.c_str(), &parsed);
  if (parsed != number.c_str() + number.size() || std::isinf(value)) return false;
  at_ = stop;
  return true;
}

bool Fields::at_end() {
  skip_blanks();
  return at_ == end_;
}

}  // namespace tool

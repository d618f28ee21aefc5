// SPDX-License-Identifier: BSD-3-Clause
/// Lines of a text file, plain or gzipped, in one buffer that moves along the file.
///
/// A file of any length needs the buffer and the longest line; zlib reads plain files too, and
/// tells the two apart by the first bytes.  Errors name the file and the line.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

struct gzFile_s;

namespace tool {

/// A file that cannot be used; the text is one line for the user.
class InputError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

class LineReader {
 public:
  /// Opens `path`, or standard input for "-".
  /// @throws InputError when it cannot be opened
  explicit LineReader(const std::string& path);

  /// Reads the next line, without its end (line feed, or carriage return and line feed).
  /// The text stays valid until the next call.
  /// @return false at the end of the file
  /// @throws InputError for a damaged archive or a line beyond `max_line` bytes
  bool next(std::string_view& line);

  /// The next characters without taking them, fewer than `count` only at the end of the file.
  std::string_view peek(std::size_t count);

  /// Ends with an error that names the file and the current line.
  [[noreturn]] void fail(const std::string& what) const;

  const std::string& path() const { return path_; }

  /// Bytes of the file on disk, 0 where that is unknown or says nothing (pipe, archive).
  std::int64_t plain_size() const;

 private:
  static constexpr std::size_t max_line = std::size_t{1} << 20;
  bool refill();

  struct Close {
    void operator()(gzFile_s* file) const;
  };
  std::string path_;
  std::unique_ptr<gzFile_s, Close> file_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0, end_ = 0;  ///< what is not handed out yet: buffer_[begin_, end_)
  std::int64_t line_number_ = 0;
};

/// `text` fit for an error message: at most 40 characters, control characters as dots.
std::string excerpt(std::string_view text);

/// Numbers of one line, separated by blanks.
///
/// The readers return false where no number of the kind stands; a value must end at a blank or
/// at the end of the line.
class Fields {
 public:
  explicit Fields(std::string_view line) : at_(line.data()), end_(at_ + line.size()) {}

  bool read(std::int64_t& value);
  /// Real number; also with a leading plus, a Fortran exponent letter D, and out of the range
  /// of doubles when it is too small (then 0 or subnormal).  "nan" and "inf" are numbers here.
  bool read(double& value);
  bool at_end();

 private:
  void skip_blanks() {
    while (at_ != end_ && (*at_ == ' ' || *at_ == '\t')) ++at_;
  }
  bool ends_here(const char* p) const { return p == end_ || *p == ' ' || *p == '\t'; }
  bool read_unusual(double& value);

  const char* at_;
  const char* end_;
};

}  // namespace tool

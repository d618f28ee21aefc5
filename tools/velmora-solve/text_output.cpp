// SPDX-License-Identifier: BSD-3-Clause
#include "text_output.hpp"

#include <zlib.h>

#include <cerrno>
#include <cstring>

namespace tool {
namespace {

[[noreturn]] void fail(const std::string& path) {
  throw InputError(fmt::format("cannot write {}: {}", path, std::strerror(errno ? errno : EIO)));
}

}  // namespace

void TextOutput::Close::operator()(gzFile_s* file) const { gzclose_w(file); }

TextOutput::TextOutput(const std::string& path) : path_(path) {
  errno = 0;
  file_.reset(gzopen(path.c_str(), path.ends_with(".gz") ? "wb" : "wbT"));
  if (!file_) fail(path_);
}

void TextOutput::flush() {
  const auto size = static_cast<unsigned>(text_.size());
  good_ =
      good_ && (size == 0 || gzwrite(file_.get(), text_.data(), size) == static_cast<int>(size));
  text_.clear();
}

void TextOutput::close() {
  errno = 0;
  flush();
  if (gzclose_w(file_.release()) != Z_OK || !good_) fail(path_);
}

}  // namespace tool

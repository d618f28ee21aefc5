// SPDX-License-Identifier: BSD-3-Clause
#include "text_output.hpp"

#include <sys/stat.h>
#include <unistd.h>
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

void require_writable(const std::string& path) {
  errno = 0;
  struct stat info {};
  if (stat(path.c_str(), &info) == 0) {
    if (S_ISDIR(info.st_mode)) errno = EISDIR;
    if (S_ISDIR(info.st_mode) || access(path.c_str(), W_OK) != 0) fail(path);
    return;
  }
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  if (access(folder.c_str(), W_OK | X_OK) != 0) fail(path);
}

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

// SPDX-License-Identifier: BSD-3-Clause
/// The log of the iterative library.
///
/// Each message opens "./velmora-ml.out", appends and closes it again, so that a crash loses
/// nothing and the file follows the current directory; standard error is the fallback.
#include <cstdarg>
#include <cstdio>

#include "NORV/corelib/base.hpp"

int _norv_debug_level = 0;

namespace {

constexpr const char* log_path = "./velmora-ml.out";

/// The level of the running call, or that of the process.
int& debug_level() {
  vlm::CallScope* const scope = vlm::running_scope();
  return scope != nullptr ? scope->level : _norv_debug_level;
}

/// Appends head, the formatted text and tail when the level is reached.
__attribute__((format(printf, 3, 0))) void append(int level, const char* head, const char* format,
                                                  std::va_list arguments, const char* tail) {
  if (debug_level() < level) return;
  std::FILE* file = std::fopen(log_path, "a");
  std::FILE* sink = file ? file : stderr;
  std::fputs(head, sink);
  std::vfprintf(sink, format, arguments);
  std::fputs(tail, sink);
  std::fflush(sink);
  if (file) std::fclose(file);
}

}  // namespace

/// Body of a printf-like routine: one message of the given level between head and tail.
#define NORV_APPEND(level, head, tail)          \
  std::va_list arguments;                       \
  va_start(arguments, format);                  \
  append(level, head, format, arguments, tail); \
  va_end(arguments)

void _norv_print_error_msg(const char* format, ...) {
  NORV_APPEND(1, "[VELMORA/ML]>> ERROR: ", "\n");
}

void _norv_print_warn_msg(const char* format, ...) {
  NORV_APPEND(1, "[VELMORA/ML]>> WARNING: ", "\n");
}

void _norv_print_stat_msg(const char* format, ...) { NORV_APPEND(1, "[VELMORA/ML]>> ", "\n"); }

void _norv_print_iter_msg(const char* format, ...) { NORV_APPEND(2, "[VELMORA/ML]>> ", "\n"); }

void _norv_print_debug_msg(const char* format, ...) { NORV_APPEND(2, "", ""); }

#undef NORV_APPEND

bool vlm::empty_log() {
  std::remove(log_path);
  std::FILE* const file = std::fopen(log_path, "w");
  return file != nullptr && std::fclose(file) == 0;
}

void norv_log_init(void) {
  if (!vlm::empty_log()) std::fprintf(stderr, "Error while opening file %s\n", log_path);
}

void norv_debug_set_level(int level) { debug_level() = level; }

int norv_debug_get_level(void) { return debug_level(); }

void norv_not_implemented(void) { vlm::bad_options(7, "Function not implemented."); }

// SPDX-License-Identifier: BSD-3-Clause
#include "progress.hpp"

#include <fmt/format.h>
#include <unistd.h>
#include <velmora.h>
#include <velmora/prepare.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "text_input.hpp"

namespace tool {
namespace {

/// A bar appears for what has taken so many seconds, and is that wide.
constexpr double patience = 1;
constexpr int bar_width = 30;
/// A forecast of the time left needs so much of the work done.
constexpr double least_share = 0.02;

volatile std::sig_atomic_t interrupted = 0;

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

const char* name_of(int phase) {
  switch (phase) {
    case 11:
      return "analysis";
    case 22:
      return "factorization";
    case -22:
      return "inverse";
    default:
      return "solution";
  }
}

std::string duration(double seconds) {
  const int whole = static_cast<int>(seconds + 0.5);
  return whole < 60 ? fmt::format("{} s", whole)
                    : fmt::format("{} min {:02d} s", whole / 60, whole % 60);
}

std::string size_of(long long kilobytes) {
  const double megabytes = static_cast<double>(kilobytes) / 1024;
  return megabytes < 1024 ? fmt::format("{:.1f} MB", megabytes)
                          : fmt::format("{:.1f} GB", megabytes / 1024);
}

}  // namespace

CallWatch::CallWatch(void** handle, bool draws)
    : handle_(handle),
      draws_(draws),
      start_(std::chrono::steady_clock::now()),
      phase_start_(start_),
      before_(std::signal(SIGINT, [](int) { interrupted = 1; })) {
  interrupted = 0;
  velmora_set_progress(handle_, hear, this);
}

CallWatch::~CallWatch() {
  velmora_set_progress(handle_, nullptr, nullptr);
  std::signal(SIGINT, before_);
  clear();
}

int CallWatch::hear(void* data, int phase, double share) {
  CallWatch& self = *static_cast<CallWatch*>(data);
  if (phase != self.phase_) {
    self.phase_ = phase;
    self.phase_start_ = std::chrono::steady_clock::now();
  }
  if (self.draws_ && seconds_since(self.start_) > patience) self.draw(phase, share);
  return interrupted != 0;
}

void CallWatch::draw(int phase, double share) {
  const int filled = static_cast<int>(share * bar_width);
  const double elapsed = seconds_since(phase_start_);
  std::string text = fmt::format("\r{:<14} [{:#<{}}{: <{}}] {:3.0f} %", name_of(phase), "", filled,
                                 "", bar_width - filled, 100 * share);
  if (share > least_share && share < 1)
    text += fmt::format("  {} left", duration(elapsed * (1 - share) / share));
  std::fprintf(stderr, "%s\033[K", text.c_str());
  std::fflush(stderr);
  drawn_ = true;
}

void CallWatch::clear() {
  if (drawn_) std::fputs("\r\033[K", stderr);
  drawn_ = false;
}

bool can_draw() {
  const char* const terminal = std::getenv("TERM");
  return isatty(STDERR_FILENO) == 1 && terminal != nullptr && std::string(terminal) != "dumb";
}

std::string require_memory(long long kilobytes) {
  long long left = 0;
  if (velmora_require_memory(kilobytes, &left) != 0)
    throw InputError(
        fmt::format("the factorization needs {}, and the machine has {} left: --single, another "
                    "--ordering or --iterative need less; --ignore-memory tries all the same",
                    size_of(kilobytes), size_of(left)));
  if (left == 0) return "needs " + size_of(kilobytes);  // the system does not tell
  return fmt::format("needs {} of {} that are left", size_of(kilobytes), size_of(left));
}

}  // namespace tool

// SPDX-License-Identifier: BSD-3-Clause
#include "session.hpp"

#include <fmt/format.h>
#include <unistd.h>
#include <velmora.h>

#include <chrono>
#include <cstdio>

#include "progress.hpp"

namespace tool {
namespace {

/// Error of a call that its listener ended.
constexpr int cancelled = -9;

/// Catches what is written to standard output or error while it lives: the checker tells its
/// reasons nowhere else.
class Capture {
 public:
  explicit Capture(std::FILE* stream) : stream_(stream), file_(std::tmpfile()) {
    if (file_ == nullptr) return;  // messages then appear where they were bound for
    std::fflush(stream_);
    saved_ = dup(fileno(stream_));
    dup2(fileno(file_), fileno(stream_));
  }
  ~Capture() {
    restore();
    if (file_ != nullptr) std::fclose(file_);
  }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  /// Ends the capture and returns its text.
  std::string text() {
    restore();
    std::string out;
    if (file_ == nullptr) return out;
    std::rewind(file_);
    char block[4096];
    for (std::size_t got; (got = std::fread(block, 1, sizeof block, file_)) > 0;) {
      out.append(block, got);
    }
    return out;
  }

 private:
  void restore() {
    if (saved_ < 0) return;
    std::fflush(stream_);
    dup2(saved_, fileno(stream_));
    close(saved_);
    saved_ = -1;
  }
  std::FILE* stream_;
  std::FILE* file_;
  int saved_ = -1;
};

/// `line` without blanks at its ends.
std::string trimmed(std::string_view line) {
  const std::size_t first = line.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return std::string(line.substr(first, line.find_last_not_of(" \t") - first + 1));
}

/// What follows `mark` in the first line that begins with it, but not with `heading`; of several
/// lines the first gives the reason, the others what it led to.
std::string first_line(const std::string& text, std::string_view mark, std::string_view heading) {
  std::string_view rest = text;
  while (!rest.empty()) {
    const std::size_t stop = std::min(rest.find('\n'), rest.size());
    std::string_view line = rest.substr(0, stop);
    rest.remove_prefix(std::min(stop + 1, rest.size()));
    if (!line.starts_with(mark) || (!heading.empty() && line.starts_with(heading))) continue;
    line.remove_prefix(mark.size());
    for (const std::string_view lead : {"error velmora: ", ":"}) {
      if (line.starts_with(lead)) line.remove_prefix(lead.size());
    }
    return trimmed(line);
  }
  return {};
}

void conjugate(std::vector<double>& values) {
  for (std::size_t k = 1; k < values.size(); k += 2) values[k] = -values[k];
}

}  // namespace

Session::Session(const SparseMatrix& matrix, int mtype, const Settings& settings,
                 bool show_messages)
    : matrix_(matrix), mtype_(mtype), show_messages_(show_messages), draws_(settings.draws) {
  const int solver = settings.iterative ? 1 : 0;
  int error = 0;
  velmorainit(handle_.data(), &mtype_, &solver, iparm_.data(), dparm_.data(), &error);
  if (settings.iterative && iparm(32) != 1) {
    throw InputError(fmt::format("the iterative solver does not cover type {}", mtype_));
  }
  apply(settings);
  perm_.assign(static_cast<std::size_t>(matrix.n) * (triangular(mtype) ? 1 : 2), 0);
}

void Session::apply(const Settings& settings) {
  option(3) = settings.threads;
  option(5) = triangular(mtype_) ? -1 : -2;  // the order comes back, and the matching
  // Where pivots may be perturbed, accuracy comes from refinement; it stops by itself as soon as
  // it no longer contracts.
  if (mtype_ != 2 && mtype_ != 4) option(8) = 10;
  if (settings.robust) {
    option(11) = 1;
    option(13) = mtype_ == 11 || mtype_ == 13 ? 1 : 2;
    option(21) = 1;
  }
  const auto set = [this](int number, const std::optional<int>& value) {
    if (value) option(number) = *value;
  };
  set(2, settings.ordering);
  set(21, settings.pivoting);
  set(10, settings.perturbation);
  set(8, settings.refinement);
  set(11, settings.scaling);
  set(13, settings.matching);
  option(28) = settings.parallel_ordering ? 1 : 0;
  option(29) = settings.single_precision ? 1 : 0;
  option(33) = settings.determinant ? 1 : 0;
  option(12) = settings.transposed ? 1 : 0;
  conjugated_ = settings.transposed && (mtype_ == 4 || mtype_ == -4);
  for (const auto& [number, value] : settings.iparm) option(number) = value;
  for (const auto& [number, value] : settings.dparm) {
    dparm_[static_cast<std::size_t>(number - 1)] = value;
    own_tolerance_ = own_tolerance_ || number == 2;
  }
  const auto asked = [&](int number, int otherwise) {
    for (const auto& [entry, value] : settings.iparm)
      if (entry == number) otherwise = value;
    return otherwise;
  };
  accuracy_ = asked(40, 2);
  ladder_ = asked(42, 1);
  judge(false);
}

void Session::judge(bool wanted) {
  option(40) = wanted ? accuracy_ : 0;
  option(42) = wanted ? ladder_ : 0;
}

void Session::set_iterative_tolerance(double tolerance) {
  if (!own_tolerance_) dparm_[1] = tolerance;
}

Session::~Session() {
  int phase = -1, one = 1, quiet = 0, error = 0;
  velmora(handle_.data(), &one, &one, &mtype_, &phase, &matrix_.n, nullptr, nullptr, nullptr,
          nullptr, &one, iparm_.data(), &quiet, nullptr, nullptr, &error, dparm_.data());
}

void Session::set_rhs(const std::vector<double>& b, int nrhs) {
  b_ = b;
  if (conjugated_) conjugate(b_);
  nrhs_ = nrhs;
  x_.assign(b.size(), 0.0);
}

Call Session::run(Phase phase) {
  const Call out = call(phase, matrix_.a.data());
  if (conjugated_ && phase == Phase::solution) conjugate(x_);
  return out;
}

Call Session::invert(std::vector<double>& values) {
  values = matrix_.a;
  return call(Phase::inversion, values.data());
}

Call Session::call(Phase phase, const double* values) {
  Call call;
  const int number = static_cast<int>(phase), one = 1, level = show_messages_ ? 1 : 0;
  const auto start = std::chrono::steady_clock::now();
  {
    const CallWatch watch(handle_.data(), draws_);
    velmora(handle_.data(), &one, &one, &mtype_, &number, &matrix_.n, values, matrix_.ia.data(),
            matrix_.ja.data(), perm_.data(), &nrhs_, iparm_.data(), &level, b_.data(), x_.data(),
            &call.error, dparm_.data());
  }
  if (call.error == cancelled) throw Interrupted();
  call.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  call.diagonal = iparm(12) < 0;
  std::array<char, 1024> text;
  velmora_last_message(text.data(), static_cast<int>(text.size()));
  call.complaint = first_line(text.data(), "*** ", "*** error VELMORA ");
  call.remedy = first_line(text.data(), "*** what to do: ", "");
  return call;
}

std::string check(const SparseMatrix& matrix, int mtype, const std::vector<double>& b, int nrhs) {
  Capture capture(stderr);
  int error = 0;
  if (complex_type(mtype)) {
    velmora_chkmatrix_z(&mtype, &matrix.n, matrix.a.data(), matrix.ia.data(), matrix.ja.data(),
                        &error);
    if (error == 0) velmora_chkvec_z(&matrix.n, &nrhs, b.data(), &error);
  } else {
    velmora_chkmatrix(&mtype, &matrix.n, matrix.a.data(), matrix.ia.data(), matrix.ja.data(),
                      &error);
    if (error == 0) velmora_chkvec(&matrix.n, &nrhs, b.data(), &error);
  }
  const std::string text = capture.text();
  if (error == 0) return {};
  const std::string found = first_line(text, "[VELMORA]: CHK", "");
  return fmt::format("{} (checker error {})", found.empty() ? "the input is wrong" : found, error);
}

std::string explain(const Call& call, Phase phase, int mtype) {
  const char* step = phase == Phase::analysis        ? "analysis"
                     : phase == Phase::setup         ? "setup of the preconditioner"
                     : phase == Phase::factorization ? "factorization"
                     : phase == Phase::inversion     ? "inversion"
                                                     : "solution";
  std::string meaning;
  switch (call.diagonal ? 0 : call.error) {  // of a diagonal system it may be a row's number
    case -2:
      meaning = "not enough memory: --ordering nd, --single or a smaller --nrhs need less";
      break;
    case -4:
      if (phase == Phase::factorization) {
        meaning = mtype == 2 || mtype == 4
                      ? "the matrix is not positive definite; without --type spd or hpd it is "
                        "solved as indefinite"
                      : "zero pivot: --type unsym or complex-unsym permutes large entries there";
      }
      break;
    default:
      break;
  }
  if (meaning.empty()) {
    meaning = call.complaint.empty() ? "the library gave no reason" : call.complaint;
    if (!call.remedy.empty()) meaning += "; " + call.remedy;
  } else if (!call.complaint.empty()) {
    meaning += " (" + call.complaint + ")";
  }
  return fmt::format("{} failed with error {}: {}", step, call.error, meaning);
}

}  // namespace tool

// SPDX-License-Identifier: BSD-3-Clause
/// Triangular solves with a finished factor: gathering, sweeps on one or several threads,
/// scattering.  The table at the end has one line for each historical name.
#include "solve/solve.hpp"

#include <omp.h>

#include <algorithm>
#include <complex>
#include <cstddef>
#include <cstdint>

#include "base/status.hpp"
#include "base/team.hpp"
#include "numeric/factorize.hpp"
#include "solve/exchange.hpp"
#include "solve/solve_panels.hpp"

namespace vlm {

namespace {

/// Entries of the factor, times right-hand sides, below which one thread does it all.
constexpr double worthwhile_entries = 3e5;
/// Right-hand sides for which a thread of its own reads the whole factor.
constexpr int worthwhile_rhs = 8;

/// Everything that one solve is given.
struct SolveCall {
  const SolveOptions& options;
  const Structure& st;
  const Matching& matching;
  const void* lu;
  int nrhs;
  const double* b;
  double* x;
  void* work;
};

/// Which parts of the two sweeps run.
struct Sweep {
  bool forward = true, backward = true;
  bool partial = false;  ///< the panels of the path alone
  int last_panel = 0;    ///< panels beyond belong to the Schur complement
};

bool is_partial(const SolveOptions& options, const Structure& st) {
  return options.partial && !st.path.empty();
}

Sweep plan_sweep(const SolveOptions& options, const Structure& st) {
  Sweep sweep;
  sweep.forward = options.steps <= 1;
  sweep.backward = options.steps != 1;
  sweep.partial = is_partial(options, st);
  sweep.last_panel = st.nsuper;
  if (options.schur > 0) {
    sweep.last_panel = st.snode(st.n - options.schur + 1) - 1;
  }
  return sweep;
}

Side row_side(const SolveCall& call) {
  const double* scale = call.matching.scale;
  return {call.matching.perm, scale ? scale + call.st.n : nullptr};
}

Side column_side(const SolveCall& call) { return {nullptr, call.matching.scale}; }

/// Doubles before right-hand side k of the caller.
template <class T>
std::ptrdiff_t column_start(const Structure& st, int k) {
  constexpr std::ptrdiff_t doubles = sizeof(Wide<T>) / sizeof(double);
  return static_cast<std::ptrdiff_t>(k) * st.n * doubles;
}

/// What the threads of one block of right-hand sides share.
template <class T>
struct SolveBlock {
  SolveFrame<T> frame;
  Sweep sweep;
  int count = 1;                   ///< right-hand sides
  std::ptrdiff_t temp_length = 0;  ///< values of one thread's scratch, which lie behind each other
  int threads = 1;                 ///< more than one: domains side by side
  T* tails = nullptr;  ///< [domains * tail_length()] what domains subtract from the rest

  int domains() const { return frame.st.nparts; }
  int tail_first() const { return frame.st.xsuper(frame.st.range(2 * domains() + 1)); }
  std::ptrdiff_t tail_length() const {
    return static_cast<std::ptrdiff_t>(frame.st.n - tail_first() + 1) * frame.nb;
  }
  /// The frame of a thread that runs beside others.
  SolveFrame<T> of_thread(int thread) const {
    SolveFrame<T> f = frame;
    f.temp += thread * temp_length;
    return f;
  }
};

/// Calls visit(i) for the positions of the panels on the path.
template <class Visit>
void for_each_on_path(const Structure& st, const Visit& visit) {
  for (const int s : st.path)
    for (int i = st.xsuper(s); i < st.xsuper(s + 1); ++i) visit(i);
}

/// y := scaled right-hand sides in elimination order; a backward step alone takes them as they
/// stand.  May throw Cancelled, as the next one.
template <class T>
void psol_fwgath_velmora(const SolveBlock<T>& block, const SolveCall& call, int k0) {
  const SolveFrame<T>& f = block.frame;
  const Structure& st = f.st;
  const Exchange<T> e{.st = st,
                      .side = call.options.transpose ? column_side(call) : row_side(call),
                      .plain = f.options.steps > 1,
                      .count = block.count,
                      .nb = f.nb,
                      .y = f.y};
  const double* const b = call.b + column_start<T>(st, k0);
  const auto gather = [&](int i) { gather_row(e, b, i); };
  if (!block.sweep.partial) {
    gather_all(e, b, block.threads);
  } else if (e.plain) {
    for_each_on_path(st, gather);
  } else {
    for_each_on_path(st, [&](int i) { std::fill_n(e.row(i), f.nb, T(0)); });
    for (const int i : call.options.transpose ? st.marked_columns : st.marked_rows) gather(i);
  }
}

/// Solutions back to the caller's order; a forward step alone gives them as they stand.
template <class T>
void psol_bwscat_velmora(const SolveBlock<T>& block, const SolveCall& call, int k0) {
  const SolveFrame<T>& f = block.frame;
  const Structure& st = f.st;
  const Exchange<T> e{.st = st,
                      .side = call.options.transpose ? row_side(call) : column_side(call),
                      .plain = f.options.steps == 1,
                      .count = block.count,
                      .nb = f.nb,
                      .y = f.y};
  double* const x = call.x + column_start<T>(st, k0);
  const auto scatter = [&](int i) { scatter_row(e, x, i); };
  if (!block.sweep.partial) {
    scatter_all(e, x, block.threads);
  } else if (e.plain) {
    for_each_on_path(st, scatter);
  } else {
    for (const int i : call.options.transpose ? st.marked_rows : st.marked_columns) scatter(i);
  }
}

/// Forward and diagonal steps of panels first to last.  May throw Cancelled, as the next one.
template <class Family, class T>
void sweep_forward(const SolveFrame<T>& f, const Sweep& sweep, int first, int last) {
  for (int s = first; s <= std::min(last, sweep.last_panel); ++s) {
    pulse();
    Family::forward(f, panel_of(f.st, f.store, s));
  }
}

/// Backward steps of panels last to first.
template <class Family, class T>
void sweep_backward(const SolveFrame<T>& f, const Sweep& sweep, int first, int last) {
  for (int s = std::min(last, sweep.last_panel); s >= first; --s) {
    pulse();
    Family::backward(f, panel_of(f.st, f.store, s));
  }
}

/// A whole solve is one with zeros for the unknowns of the Schur complement.
template <class T>
void clear_schur_rows(const SolveFrame<T>& f) {
  const std::ptrdiff_t start = f.st.n - f.options.schur;
  std::fill(f.y + start * f.nb, f.y + static_cast<std::ptrdiff_t>(f.st.n) * f.nb, T(0));
}

/// Forward sweep with the domains side by side.  Each subtracts from the separators' rows in an
/// array of its own; these are added in the order of the domains, whoever was first.
template <class Family, class T>
void forward_by_domains(const SolveBlock<T>& block) {
  const SolveFrame<T>& frame = block.frame;
  const int domains = block.domains();
  const std::ptrdiff_t length = block.tail_length();
  const std::ptrdiff_t before = static_cast<std::ptrdiff_t>(block.tail_first() - 1) * frame.nb;
  TeamFailure failure;
#pragma omp parallel for schedule(dynamic, 1) num_threads(block.threads)
  for (int d = 1; d <= domains; ++d) {
    SolveFrame<T> f = block.of_thread(omp_get_thread_num());
    T* tail = block.tails + (d - 1) * length;
    std::fill_n(tail, length, T(0));
    f.tail_first = block.tail_first();
    f.tail = tail - before;
    failure.guard(
        [&] { sweep_forward<Family>(f, block.sweep, f.st.range(2 * d - 1), f.st.range(2 * d)); });
  }
  failure.rethrow();
  for (int d = 0; d < domains; ++d)
    for (std::ptrdiff_t i = 0; i < length; ++i) frame.y[before + i] += block.tails[d * length + i];
}

/// The sweeps over the path of a partial solve.
template <class Family, class T>
void sweep_path(const SolveFrame<T>& f, const Sweep& sweep) {
  const int* const begin = f.st.path.begin();
  const int* const end = std::upper_bound(begin, f.st.path.end(), sweep.last_panel);
  if (sweep.forward) {
    for (const int* s = begin; s != end; ++s) Family::forward(f, panel_of(f.st, f.store, *s));
    if (f.options.schur > 0 && sweep.backward) clear_schur_rows(f);
  }
  for (const int* s = end; sweep.backward && s != begin;)
    Family::backward(f, panel_of(f.st, f.store, *--s));
}

/// The sweeps of one block of right-hand sides.
template <class Family, class T>
void run_sweeps(const SolveBlock<T>& block) {
  const SolveFrame<T>& f = block.frame;
  const Sweep& sweep = block.sweep;
  const bool divided = block.threads > 1;
  const int first = divided ? f.st.range(2 * block.domains() + 1) : 1;
  if (sweep.forward) {
    if (divided) forward_by_domains<Family>(block);
    sweep_forward<Family>(f, sweep, first, f.st.nsuper);
    if (f.options.schur > 0 && sweep.backward) clear_schur_rows(f);
  }
  if (!sweep.backward) return;
  sweep_backward<Family>(f, sweep, first, f.st.nsuper);
  if (!divided) return;
  TeamFailure failure;
#pragma omp parallel for schedule(dynamic, 1) num_threads(block.threads)
  for (int d = 1; d <= block.domains(); ++d)
    failure.guard([&] {
      sweep_backward<Family>(block.of_thread(omp_get_thread_num()), sweep, f.st.range(2 * d - 1),
                             f.st.range(2 * d));
    });
  failure.rethrow();
}

/// How the threads of a solve divide the work.
struct Division {
  int block = 1;    ///< right-hand sides taken at once
  int blocks = 1;   ///< threads with a block of their own
  int domains = 1;  ///< threads within a block
};

/// Enough right-hand sides give each thread its own; else the threads share the factor's
/// domains, where the analysis made some.
Division divide(const SolveOptions& options, const Structure& st, int nrhs) {
  const bool partial = is_partial(options, st);
  const double entries =
      partial ? st.path_entries : static_cast<double>(st.figures.nnz_l + st.figures.nnz_u);
  const double work = entries * nrhs;
  const int threads = work < worthwhile_entries ? 1 : std::max(1, options.threads);
  const bool domains = threads > 1 && st.divided && options.use_domains && !partial;
  const int share = (nrhs + threads - 1) / threads;
  Division out;
  if (threads > 1 && (share >= worthwhile_rhs || (!domains && nrhs > 1))) {
    out.block = std::min(block_rhs, share);
    out.blocks = std::min(threads, (nrhs + out.block - 1) / out.block);
  } else {
    out.block = std::clamp(nrhs, 1, block_rhs);
    if (domains) out.domains = threads;
  }
  return out;
}

/// Values in a line of the cache.
template <class T>
constexpr std::size_t line_values = 64 / sizeof(T);

/// Values of work that one block needs.
template <class T>
std::size_t block_values(const Structure& st, const Division& division) {
  std::size_t rows = static_cast<std::size_t>(st.n);
  if (division.domains > 1) {
    const int tail = st.n - st.xsuper(st.range(2 * st.nparts + 1)) + 1;
    rows += static_cast<std::size_t>(tail) * static_cast<std::size_t>(st.nparts);
  }
  const auto stride = static_cast<std::size_t>(block_stride<T>(division.block));
  const auto scratch =
      static_cast<std::size_t>(st.max_rows) * static_cast<std::size_t>(division.domains);
  // Blocks follow each other, each from a new line of the cache on.
  return (rows * stride + scratch) / line_values<T> * line_values<T> + line_values<T>;
}

/// Solves for right-hand sides k0 to k0 + nb - 1.
template <class Family, class T>
void solve_block(const SolveCall& call, int k0, int count, int threads, T* work) {
  const Structure& st = call.st;
  const int nb = block_stride<T>(count);
  SolveBlock<T> block{.frame = {.options = call.options,
                                .st = st,
                                .store = factor_store<T>(st, const_cast<void*>(call.lu)),
                                .y = work,
                                .temp = nullptr,
                                .nb = nb,
                                .tail_first = st.n + 1},
                      .sweep = plan_sweep(call.options, st),
                      .count = count,
                      .temp_length = st.max_rows,
                      .threads = threads};
  block.tails = work + static_cast<std::ptrdiff_t>(st.n) * nb;
  block.frame.temp =
      block.tails + (threads > 1 ? block.domains() * block.tail_length() : std::ptrdiff_t{0});
  pulse();
  psol_fwgath_velmora(block, call, k0);
  if (block.sweep.partial)
    sweep_path<Family>(block.frame, block.sweep);
  else
    run_sweeps<Family>(block);
  pulse();
  psol_bwscat_velmora(block, call, k0);
}

template <class Family, class T>
int solve_with(const SolveCall& call) {
  const Division division = divide(call.options, call.st, call.nrhs);
  T* const work =
      reinterpret_cast<T*>((reinterpret_cast<std::uintptr_t>(call.work) + 63) / 64 * 64);
  const auto solve_from = [&](int k0, T* own) {
    const int nb = std::min(division.block, call.nrhs - k0);
    solve_block<Family>(call, k0, nb, division.domains, own);
  };
  if (division.blocks == 1) {  // no region around those of the domains: nested ones start slowly
    for (int k0 = 0; k0 < call.nrhs; k0 += division.block) solve_from(k0, work);
    return status_ok;
  }
  const std::size_t stride = block_values<T>(call.st, division);
  TeamFailure failure;
#pragma omp parallel for schedule(dynamic, 1) num_threads(division.blocks)
  for (int k0 = 0; k0 < call.nrhs; k0 += division.block)
    failure.guard(
        [&] { solve_from(k0, work + static_cast<std::size_t>(omp_get_thread_num()) * stride); });
  failure.rethrow();
  return status_ok;
}

using Kernel = int (*)(const SolveCall&);

/// The families, under their historical names; each takes one and many right-hand sides.
constexpr Kernel blkslvs_velmora = solve_with<SymmetricSolve<double, false, false>, double>;
constexpr Kernel blkldlslvs_velmora = solve_with<SymmetricSolve<double, false, true>, double>;
constexpr Kernel blkldlslvs_32_velmora = solve_with<SymmetricSolve<float, false, true>, float>;
constexpr Kernel ch_blkslvs_velmora = solve_with<SymmetricSolve<zcomplex, true, false>, zcomplex>;
constexpr Kernel ch_blkldlslvs_velmora = solve_with<SymmetricSolve<zcomplex, true, true>, zcomplex>;
constexpr Kernel c_blkslvs_velmora = solve_with<SymmetricSolve<zcomplex, false, true>, zcomplex>;
constexpr Kernel blkslv_velmora = solve_with<LuSolve<double>, double>;
constexpr Kernel blkslv_32_velmora = solve_with<LuSolve<float>, float>;
constexpr Kernel c_blkslv_velmora = solve_with<LuSolve<zcomplex>, zcomplex>;

/// Kernel for a matrix type and precision; partial and complete pivoting leave records of one
/// kind, so one solve serves both LU families.
Kernel choose_kernel(const MatrixType& type, bool single) {
  switch (type.family) {
    case Family::cholesky:
      return type.complex ? ch_blkslvs_velmora : blkslvs_velmora;
    case Family::ldlt:
      if (type.complex) return type.hermitian ? ch_blkldlslvs_velmora : c_blkslvs_velmora;
      return single ? blkldlslvs_32_velmora : blkldlslvs_velmora;
    case Family::lu:
    case Family::lu_complete:
      if (type.complex) return c_blkslv_velmora;
      return single ? blkslv_32_velmora : blkslv_velmora;
    case Family::none:
      break;
  }
  return nullptr;
}

}  // namespace

std::size_t solve_work_bytes(const SolveOptions& options, const Structure& st, int nrhs) {
  const Division division = divide(options, st, nrhs);
  const std::size_t blocks = static_cast<std::size_t>(division.blocks);
  const auto bytes = [&]<class T>(T) { return block_values<T>(st, division) * blocks * sizeof(T); };
  const std::size_t aligned = options.type.complex ? bytes(zcomplex{})
                              : options.single     ? bytes(float{})
                                                   : bytes(double{});
  return aligned + 64;
}

int solve_velmora(const SolveOptions& options, const Structure& structure, const Matching& matching,
                  const void* lu, int nrhs, const double* b, double* x, void* work) {
  const Kernel kernel = choose_kernel(options.type, options.single);
  if (kernel == nullptr) return status_unsupported;
  return kernel({options, structure, matching, lu, nrhs, b, x, work});
}

}  // namespace vlm

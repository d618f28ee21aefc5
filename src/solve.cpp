/// Triangular solves with a finished factor.
///
/// One right-hand side runs through panel kernels bound by the reading of the factor.
/// Several are taken in blocks and held with the right-hand sides of one unknown next to
/// each other, so that a panel's scattered rows are whole vectors and the dense work is the
/// update and right-solve kernels of the factorization.
#include <algorithm>
#include <complex>
#include <vector>

#include "family.hpp"
#include "stages.hpp"

namespace vlm {

namespace {

inline constexpr int block_rhs = 64;  ///< right-hand sides taken at once

/// Everything that one solve is given.
struct SolveCall {
  const Control& control;
  const Structure& st;
  const MatchingStore& matching;
  const void* lu;
  int nrhs;
  const double* b;
  double* x;
  void* work;
};

/// Which parts of the two sweeps run.
struct Sweep {
  bool forward = true, backward = true;
  int forward_from = 1;   ///< panels that end before this column meet zeros only
  int backward_to = 1;    ///< columns before this one aren't wanted
  int gather_from = 1;    ///< positions with right-hand side values
  int scatter_from = 1;   ///< positions of the solution that are delivered
  int last_panel = 0;     ///< panels beyond belong to the Schur complement
};

Sweep plan_sweep(const Control& control, const Structure& st) {
  Sweep sweep;
  sweep.forward = control.ext_res <= 1;
  sweep.backward = control.ext_res != 1;
  sweep.last_panel = st.nsuper;
  if (control.nschur > 0) {
    const int e = st.n - control.nschur;
    while (sweep.last_panel > 0 && st.xsuper(sweep.last_panel + 1) - 1 > e) --sweep.last_panel;
  }
  if (control.partial != 0) {
    if (st.nfw > 0) sweep.forward_from = sweep.gather_from = st.n - st.nfw + 1;
    if (st.nbw > 0) sweep.backward_to = sweep.scatter_from = st.n - st.nbw + 1;
  }
  return sweep;
}

/// Vectors of one block of right-hand sides: y(i, k) is right-hand side k of position i, with
/// the block's values adjacent.
template <class T>
struct SolveFrame {
  const Control& control;
  const Structure& st;
  FactorStore<T> store;
  const Kernels<T>& kernel = kernels<T>();
  Sweep sweep;
  T* y = nullptr;     ///< [n * nb]
  T* temp = nullptr;  ///< [max_below * nb]
  int nb = 1;
};

/// Value as the caller's doubles hold it.
template <class T>
void put_value(double* x, std::ptrdiff_t k, T v) {
  if constexpr (is_complex_v<T>) {
    x[2 * k] = v.real();
    x[2 * k + 1] = v.imag();
  } else {
    x[k] = static_cast<double>(v);
  }
}

/// y := scaled right-hand sides in elimination order.
template <class T>
void psol_fwgath_velmora(const SolveFrame<T>& f, const SolveCall& call, int k0) {
  const Structure& st = f.st;
  const double* scale = f.control.scale_flag ? call.matching.scale : nullptr;
  using Wide = std::conditional_t<is_complex_v<T>, zcomplex, double>;
  for (int i = 1; i <= st.n; ++i) {
    T* yi = f.y + static_cast<std::ptrdiff_t>(i - 1) * f.nb;
    const int node = f.control.ext_res > 1 ? i : st.perm(i);
    const double s = scale && f.control.ext_res <= 1 ? scale[node - 1] : 1.0;
    for (int k = 0; k < f.nb; ++k) {
      const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(k0 + k) * st.n + node - 1;
      yi[k] = i < f.sweep.gather_from ? T(0) : static_cast<T>(value_at<Wide>(call.b, at) * s);
    }
  }
}

/// Solutions back to the caller's order.
template <class T>
void psol_bwscat_velmora(const SolveFrame<T>& f, const SolveCall& call, int k0) {
  const Structure& st = f.st;
  const double* scale = f.control.scale_flag ? call.matching.scale : nullptr;
  using Wide = std::conditional_t<is_complex_v<T>, zcomplex, double>;
  const bool plain = f.control.ext_res == 1;
  for (int i = f.sweep.scatter_from; i <= st.n; ++i) {
    const T* yi = f.y + static_cast<std::ptrdiff_t>(i - 1) * f.nb;
    const int node = plain ? i : st.perm(i);
    const double s = scale && !plain ? scale[node - 1] : 1.0;
    for (int k = 0; k < f.nb; ++k)
      put_value(call.x, static_cast<std::ptrdiff_t>(k0 + k) * st.n + node - 1,
                static_cast<Wide>(yi[k]) * s);
  }
}

/// Applies the interchanges of a panel's diagonal block to its part of y.
template <class T>
void interchange_block(const Panel<T>& p, T* y, int nb, bool undo) {
  const auto swap = [&](int k) {
    const int place = std::abs(p.pivot[k]) - 1;
    // Of a 2x2 block the second row was exchanged; its first entry repeats the record.
    if (place != k) std::swap_ranges(y + static_cast<std::ptrdiff_t>(k) * nb,
                                     y + static_cast<std::ptrdiff_t>(k + 1) * nb,
                                     y + static_cast<std::ptrdiff_t>(place) * nb);
  };
  if (!undo) {
    for (int k = 0; k < p.width; ++k) {
      if (p.pivot[k] < 0) ++k;
      swap(k);
    }
  } else {
    for (int k = p.width - 1; k >= 0; --k) {
      swap(k);
      if (p.pivot[k] < 0) --k;
    }
  }
}

/// Symmetric factors: what the forward, diagonal and backward steps do with one panel.
template <class T, bool hermitian, bool unit>
struct SymmetricSolve {
  static void forward(const SolveFrame<T>& f, const Panel<T>& p) {
    T* y = f.y + static_cast<std::ptrdiff_t>(p.first - 1) * f.nb;
    if (unit) interchange_block(p, y, f.nb, false);
    if (f.nb == 1) {
      f.kernel.solve_lower(p.width, p.l, p.rows, unit, y);
      if (p.below() == 0) return;
      f.kernel.multiply(p.below(), p.width, p.l21(), p.rows, y, f.temp);
      const int* row = p.row + p.width;
      for (int i = 0; i < p.below(); ++i) f.y[row[i] - 1] -= f.temp[i];
      return;
    }
    // Held transposed, L y = b reads Y L^T = B, and Hermitian factors need no conjugates.
    RightSolve<T> solve{.m = f.nb, .n = p.width, .l = p.l, .ldl = p.rows, .unit = unit,
                        .op = RightSolve<T>::Op::transposed, .x = y, .ldx = f.nb};
    f.kernel.solve_right(solve);
    if (p.below() == 0) return;
    PanelUpdate<T> u{.m = f.nb, .q = p.below(), .k = p.width, .a = y, .lda = f.nb, .b = p.l21(),
                     .b_row = 1, .b_col = p.rows, .c = f.y - f.nb, .ldc = f.nb,
                     .col = p.row + p.width};
    f.kernel.update(u);
  }

  static void diagonal(const SolveFrame<T>& f, const Panel<T>& p) {
    T* y = f.y + static_cast<std::ptrdiff_t>(p.first - 1) * f.nb;
    // The block is held transposed: y^T D^-T, and D^T is D or its conjugate.
    if (unit) divide_by_d<T, hermitian, true>(p, y, f.nb, f.nb);
  }

  static void backward(const SolveFrame<T>& f, const Panel<T>& p) {
    T* y = f.y + static_cast<std::ptrdiff_t>(p.first - 1) * f.nb;
    const int* row = p.row + p.width;
    if (f.nb == 1) {
      for (int i = 0; i < p.below(); ++i) f.temp[i] = f.y[row[i] - 1];
      f.kernel.multiply_transposed(p.below(), p.width, p.l21(), p.rows, f.temp, y);
      f.kernel.solve_lower_transposed(p.width, p.l, p.rows, unit, y);
    } else {
      for (int i = 0; i < p.below(); ++i)
        std::copy_n(f.y + static_cast<std::ptrdiff_t>(row[i] - 1) * f.nb, f.nb,
                    f.temp + static_cast<std::ptrdiff_t>(i) * f.nb);
      if (p.below() > 0) {
        PanelUpdate<T> u{.m = f.nb, .q = p.width, .k = p.below(), .a = f.temp, .lda = f.nb,
                         .b = p.l21(), .b_row = p.rows, .b_col = 1, .c = y, .ldc = f.nb};
        f.kernel.update(u);
      }
      RightSolve<T> solve{.m = f.nb, .n = p.width, .l = p.l, .ldl = p.rows, .unit = unit,
                          .op = RightSolve<T>::Op::plain, .x = y, .ldx = f.nb};
      f.kernel.solve_right(solve);
    }
    if (unit) interchange_block(p, y, f.nb, true);
  }
};

/// Forward, diagonal and backward sweep of one block of right-hand sides.
template <class Family, class T>
void run_sweeps(const SolveFrame<T>& f) {
  const Structure& st = f.st;
  const auto panel = [&](int s) { return panel_of(st, f.store, s); };
  if (f.sweep.forward) {
    for (int s = 1; s <= f.sweep.last_panel; ++s) {
      if (st.xsuper(s + 1) - 1 < f.sweep.forward_from) continue;
      const Panel<T> p = panel(s);
      Family::forward(f, p);
      Family::diagonal(f, p);
    }
    if (f.control.nschur > 0) {
      const std::ptrdiff_t start = st.n - f.control.nschur;
      std::fill(f.y + start * f.nb, f.y + static_cast<std::ptrdiff_t>(st.n) * f.nb, T(0));
    }
  }
  if (!f.sweep.backward) return;
  for (int s = f.sweep.last_panel; s >= 1; --s) {
    if (st.xsuper(s + 1) <= f.sweep.backward_to) break;
    Family::backward(f, panel(s));
  }
}

template <class Family, class T>
int solve_with(const SolveCall& call) {
  const Structure& st = call.st;
  SolveFrame<T> f{.control = call.control,
                  .st = st,
                  .store = factor_store<T>(st, const_cast<void*>(call.lu)),
                  .sweep = plan_sweep(call.control, st)};
  f.y = static_cast<T*>(call.work);
  for (int k0 = 0; k0 < call.nrhs; k0 += block_rhs) {
    f.nb = std::min(block_rhs, call.nrhs - k0);
    f.temp = f.y + static_cast<std::ptrdiff_t>(st.n) * f.nb;
    psol_fwgath_velmora(f, call, k0);
    run_sweeps<Family>(f);
    psol_bwscat_velmora(f, call, k0);
  }
  return status_ok;
}

using Kernel = int (*)(const SolveCall&);

/// The families, under their historical names; each takes one and many right-hand sides.
constexpr Kernel blkslvs_velmora = solve_with<SymmetricSolve<double, false, false>, double>;
constexpr Kernel blkldlslvs_velmora = solve_with<SymmetricSolve<double, false, true>, double>;
constexpr Kernel blkldlslvs_32_velmora = solve_with<SymmetricSolve<float, false, true>, float>;

Kernel choose_kernel(int mtype, bool single) {
  switch (mtype) {
    case 2: return blkslvs_velmora;
    case -2: return single ? blkldlslvs_32_velmora : blkldlslvs_velmora;
    default: return nullptr;
  }
}

}  // namespace

std::size_t solve_work_bytes(const Structure& st, int nrhs, std::size_t scalar_bytes) {
  const std::size_t nb = static_cast<std::size_t>(std::clamp(nrhs, 1, block_rhs));
  return (static_cast<std::size_t>(st.n) + static_cast<std::size_t>(st.max_below)) * nb *
         scalar_bytes;
}

int solve_velmora(const Control& control, const Structure& structure,
                  const MatchingStore& matching, const void* lu, int nrhs, const double* b,
                  double* x, void* work) {
  const Kernel kernel = choose_kernel(control.mtype, control.single32 != 0);
  if (kernel == nullptr) return status_unsupported;
  return kernel({control, structure, matching, lu, nrhs, b, x, work});
}

}  // namespace vlm

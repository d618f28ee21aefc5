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

inline constexpr int block_rhs = 32;  ///< right-hand sides taken at once

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
  int forward_from = 1;  ///< panels that end before this column meet zeros only
  int backward_to = 1;   ///< columns before this one aren't wanted
  int gather_from = 1;   ///< positions with right-hand side values
  int scatter_from = 1;  ///< positions of the solution that are delivered
  int last_panel = 0;    ///< panels beyond belong to the Schur complement
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
  T* temp = nullptr;  ///< [max_rows * nb]
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

/// Node and scale of each position, on the side of the right-hand side or of the solution.
///
/// The factored matrix is P R A C under the symmetric order.  Right-hand sides enter through
/// its rows and solutions leave through its columns; with the transposed matrix the sides
/// change places.
struct Side {
  const int* match = nullptr;  ///< row of A in the place of a node; null: the node itself
  const double* scale = nullptr;
  int node(int order_node) const { return match ? match[order_node - 1] : order_node; }
  double factor(int at) const { return scale ? scale[at - 1] : 1.0; }
};

Side row_side(const SolveCall& call) {
  Side side;
  if (!call.control.sym_struct) side.match = call.matching.perm;
  if (call.control.scale_flag && call.matching.scale) side.scale = call.matching.scale + call.st.n;
  return side;
}

Side column_side(const SolveCall& call) {
  Side side;
  if (call.control.scale_flag) side.scale = call.matching.scale;
  return side;
}

/// y := scaled right-hand sides in elimination order; a backward step alone takes them as they
/// stand.
template <class T>
void psol_fwgath_velmora(const SolveFrame<T>& f, const SolveCall& call, int k0) {
  const Structure& st = f.st;
  const Side side = call.control.transpose ? column_side(call) : row_side(call);
  using Wide = std::conditional_t<is_complex_v<T>, zcomplex, double>;
  const bool plain = f.control.ext_res > 1;
  for (int i = 1; i <= st.n; ++i) {
    T* yi = f.y + static_cast<std::ptrdiff_t>(i - 1) * f.nb;
    const int node = plain ? i : side.node(st.perm(i));
    const double s = plain ? 1.0 : side.factor(node);
    for (int k = 0; k < f.nb; ++k) {
      const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(k0 + k) * st.n + node - 1;
      yi[k] = i < f.sweep.gather_from ? T(0) : static_cast<T>(value_at<Wide>(call.b, at) * s);
    }
  }
}

/// Solutions back to the caller's order; a forward step alone gives them as they stand.
template <class T>
void psol_bwscat_velmora(const SolveFrame<T>& f, const SolveCall& call, int k0) {
  const Structure& st = f.st;
  const Side side = call.control.transpose ? row_side(call) : column_side(call);
  using Wide = std::conditional_t<is_complex_v<T>, zcomplex, double>;
  const bool plain = f.control.ext_res == 1;
  for (int i = f.sweep.scatter_from; i <= st.n; ++i) {
    const T* yi = f.y + static_cast<std::ptrdiff_t>(i - 1) * f.nb;
    const int node = plain ? i : side.node(st.perm(i));
    const double s = plain ? 1.0 : side.factor(node);
    for (int k = 0; k < f.nb; ++k)
      put_value(call.x, static_cast<std::ptrdiff_t>(k0 + k) * st.n + node - 1,
                static_cast<Wide>(yi[k]) * s);
  }
}

/// Applies the interchanges of a panel's diagonal block to its part of y.
template <class T>
void interchange_block(const int* pivot, int width, T* y, int nb, bool undo) {
  const auto swap = [&](int k) {
    const int place = std::abs(pivot[k]) - 1;
    // Of a 2x2 block the second row was exchanged; its first entry repeats the record.
    if (place != k)
      std::swap_ranges(y + static_cast<std::ptrdiff_t>(k) * nb,
                       y + static_cast<std::ptrdiff_t>(k + 1) * nb,
                       y + static_cast<std::ptrdiff_t>(place) * nb);
  };
  if (!undo) {
    for (int k = 0; k < width; ++k) {
      if (pivot[k] < 0) ++k;
      swap(k);
    }
  } else {
    for (int k = width - 1; k >= 0; --k) {
      swap(k);
      if (pivot[k] < 0) --k;
    }
  }
}

/// One triangle of a panel, seen as the lower one: L itself, or U through its transpose.
template <class T>
struct Triangle {
  const T* block;  ///< diagonal block, element (j,k) at j*row + k*col
  int row, col;
  bool unit;
  bool conjugate;  ///< the backward sweep of Hermitian factors
  const T* below;  ///< rows below the block, column-major
  int ld_below;
  const int* pivot;  ///< interchanges that belong to this side; null: none
};

/// Whether the rows below the block continue its columns, so that one kernel takes both.
template <class T>
bool is_trapezoid(const Panel<T>& p, const Triangle<T>& t) {
  return t.row == 1 && t.below == t.block + p.width;
}

/// Forward step of one right-hand side, y being the panel's own part.
template <class T>
void forward_vector(const SolveFrame<T>& f, const Panel<T>& p, const Triangle<T>& t, T* y) {
  const int* row = p.row + p.width;
  TriangleSolve<T> solve{p.width, p.width, t.block, t.row, t.col, t.unit, t.conjugate, y};
  if (p.below() == 0) {
    f.kernel.solve_lower(solve);
  } else if (is_trapezoid(p, t)) {
    solve.rows = p.rows;
    solve.x = f.temp;
    std::copy_n(y, p.width, f.temp);
    std::fill_n(f.temp + p.width, p.below(), T(0));
    f.kernel.solve_lower(solve);
    std::copy_n(f.temp, p.width, y);
    for (int i = 0; i < p.below(); ++i) f.y[row[i] - 1] += f.temp[p.width + i];
  } else {
    f.kernel.solve_lower(solve);
    f.kernel.multiply(p.below(), p.width, t.below, t.ld_below, y, f.temp);
    for (int i = 0; i < p.below(); ++i) f.y[row[i] - 1] -= f.temp[i];
  }
}

/// Backward step of one right-hand side.
template <class T>
void backward_vector(const SolveFrame<T>& f, const Panel<T>& p, const Triangle<T>& t, T* y) {
  const int* row = p.row + p.width;
  TriangleSolve<T> solve{p.width, p.width, t.block, t.row, t.col, t.unit, t.conjugate, y};
  if (p.below() > 0 && is_trapezoid(p, t)) {
    solve.rows = p.rows;
    solve.x = f.temp;
    std::copy_n(y, p.width, f.temp);
    for (int i = 0; i < p.below(); ++i) f.temp[p.width + i] = f.y[row[i] - 1];
    f.kernel.solve_lower_transposed(solve);
    std::copy_n(f.temp, p.width, y);
    return;
  }
  for (int i = 0; i < p.below(); ++i) f.temp[i] = f.y[row[i] - 1];
  f.kernel.multiply_transposed(p.below(), p.width, t.below, t.ld_below, t.conjugate, f.temp, y);
  f.kernel.solve_lower_transposed(solve);
}

/// The diagonal block against a block of right-hand sides, which are held transposed.
template <class T>
void solve_block(const SolveFrame<T>& f, const Panel<T>& p, const Triangle<T>& t,
                 typename RightSolve<T>::Op op, T* y) {
  f.kernel.solve_right({.m = f.nb,
                        .n = p.width,
                        .l = t.block,
                        .l_row = t.row,
                        .l_col = t.col,
                        .unit = t.unit,
                        .conjugate = t.conjugate,
                        .op = op,
                        .x = y,
                        .ldx = f.nb});
}

/// y := (triangle)^-1 y for a panel's columns, and the rows below brought up to date.
template <class T>
void forward_panel(const SolveFrame<T>& f, const Panel<T>& p, const Triangle<T>& t) {
  T* y = f.y + static_cast<std::ptrdiff_t>(p.first - 1) * f.nb;
  if (t.pivot) interchange_block(t.pivot, p.width, y, f.nb, false);
  const int* row = p.row + p.width;
  if (f.nb == 1) {
    forward_vector(f, p, t, y);
    return;
  }
  // Held transposed: L y = b reads Y L^T = B.
  solve_block(f, p, t, RightSolve<T>::Op::transposed, y);
  if (p.below() == 0) return;
  PanelUpdate<T> u{.m = f.nb,
                   .q = p.below(),
                   .k = p.width,
                   .a = y,
                   .lda = f.nb,
                   .b = t.below,
                   .b_row = 1,
                   .b_col = t.ld_below,
                   .c = f.y - f.nb,
                   .ldc = f.nb,
                   .col = row,
                   .conjugate = t.conjugate};
  f.kernel.update(u);
}

/// y := (triangle)^-T y for a panel's columns, from the finished rows below.
template <class T>
void backward_panel(const SolveFrame<T>& f, const Panel<T>& p, const Triangle<T>& t) {
  T* y = f.y + static_cast<std::ptrdiff_t>(p.first - 1) * f.nb;
  const int* row = p.row + p.width;
  if (f.nb == 1) {
    backward_vector(f, p, t, y);
  } else {
    for (int i = 0; i < p.below(); ++i)
      std::copy_n(f.y + static_cast<std::ptrdiff_t>(row[i] - 1) * f.nb, f.nb,
                  f.temp + static_cast<std::ptrdiff_t>(i) * f.nb);
    if (p.below() > 0) {
      PanelUpdate<T> u{.m = f.nb,
                       .q = p.width,
                       .k = p.below(),
                       .a = f.temp,
                       .lda = f.nb,
                       .b = t.below,
                       .b_row = t.ld_below,
                       .b_col = 1,
                       .c = y,
                       .ldc = f.nb,
                       .conjugate = t.conjugate};
      f.kernel.update(u);
    }
    solve_block(f, p, t, RightSolve<T>::Op::plain, y);
  }
  if (t.pivot) interchange_block(t.pivot, p.width, y, f.nb, true);
}

/// Symmetric factors: what the three steps do with one panel.
template <class T, bool hermitian, bool unit>
struct SymmetricSolve {
  static Triangle<T> triangle(const Panel<T>& p, bool backward) {
    return {p.l, 1, p.rows, unit, hermitian && backward, p.l21(), p.rows, unit ? p.pivot : nullptr};
  }
  static void forward(const SolveFrame<T>& f, const Panel<T>& p) {
    forward_panel(f, p, triangle(p, false));
    // The block is held transposed: y^T D^-T.
    if (unit)
      divide_by_d<T, hermitian, true>(p, f.y + static_cast<std::ptrdiff_t>(p.first - 1) * f.nb,
                                      f.nb, f.nb);
  }
  static void backward(const SolveFrame<T>& f, const Panel<T>& p) {
    backward_panel(f, p, triangle(p, true));
  }
};

/// LU factors: L forward and U backward, or with the transposed matrix U^T and L^T.
template <class T>
struct LuSolve {
  static Triangle<T> lower(const Panel<T>& p) {
    return {p.l, 1, p.rows, true, false, p.l21(), p.rows, p.pivot};
  }
  static Triangle<T> upper(const Panel<T>& p) {
    return {p.l, p.rows, 1, false, false, p.u, p.below(), p.column_pivot};
  }
  static void forward(const SolveFrame<T>& f, const Panel<T>& p) {
    forward_panel(f, p, f.control.transpose ? upper(p) : lower(p));
  }
  static void backward(const SolveFrame<T>& f, const Panel<T>& p) {
    backward_panel(f, p, f.control.transpose ? lower(p) : upper(p));
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
      Family::forward(f, panel(s));
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
constexpr Kernel ch_blkslvs_velmora = solve_with<SymmetricSolve<zcomplex, true, false>, zcomplex>;
constexpr Kernel ch_blkldlslvs_velmora = solve_with<SymmetricSolve<zcomplex, true, true>, zcomplex>;
constexpr Kernel c_blkslvs_velmora = solve_with<SymmetricSolve<zcomplex, false, true>, zcomplex>;
constexpr Kernel blkslv_velmora = solve_with<LuSolve<double>, double>;
constexpr Kernel blkslv_32_velmora = solve_with<LuSolve<float>, float>;
constexpr Kernel c_blkslv_velmora = solve_with<LuSolve<zcomplex>, zcomplex>;

/// Kernel for a matrix type; partial and complete pivoting leave records of one kind, so one
/// solve serves both LU families.
Kernel choose_kernel(int mtype, bool single) {
  switch (mtype) {
    case 2:
      return blkslvs_velmora;
    case -2:
      return single ? blkldlslvs_32_velmora : blkldlslvs_velmora;
    case 4:
      return ch_blkslvs_velmora;
    case -4:
      return ch_blkldlslvs_velmora;
    case 6:
      return c_blkslvs_velmora;
    case 1:
    case 11:
      return single ? blkslv_32_velmora : blkslv_velmora;
    case 3:
    case 13:
      return c_blkslv_velmora;
    default:
      return nullptr;
  }
}

}  // namespace

std::size_t solve_work_bytes(const Structure& st, int nrhs, std::size_t scalar_bytes) {
  const std::size_t nb = static_cast<std::size_t>(std::clamp(nrhs, 1, block_rhs));
  return (static_cast<std::size_t>(st.n) + static_cast<std::size_t>(st.max_rows)) * nb *
         scalar_bytes;
}

int solve_velmora(const Control& control, const Structure& structure, const MatchingStore& matching,
                  const void* lu, int nrhs, const double* b, double* x, void* work) {
  const Kernel kernel = choose_kernel(control.mtype, control.single32 != 0);
  if (kernel == nullptr) return status_unsupported;
  return kernel({control, structure, matching, lu, nrhs, b, x, work});
}

}  // namespace vlm

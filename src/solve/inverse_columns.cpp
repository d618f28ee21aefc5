// SPDX-License-Identifier: BSD-3-Clause
/// Single entries of the inverse, see inverse_columns.hpp.
#include "solve/inverse_columns.hpp"

#include <omp.h>

#include <algorithm>
#include <cstddef>

#include "base/memory.hpp"
#include "solve/solve_panels.hpp"

namespace vlm {
namespace {

constexpr int block_columns = 16;  ///< columns solved for at once, whole vectors of any kind
/// Values of the solutions for which a thread is worth starting.
constexpr double worth_a_thread = 1e5;

/// A run of entries that share a block of columns.
struct EntryBlock {
  std::size_t first, last;  ///< entries first to last-1
};

Vector<EntryBlock> cut_into_blocks(const Vector<OutsideEntry>& entries) {
  Vector<EntryBlock> blocks;
  int columns = block_columns;
  for (std::size_t k = 0; k < entries.size(); ++k) {
    const bool new_column = k == 0 || entries[k].column != entries[k - 1].column;
    if (new_column && columns++ == block_columns) {
      blocks.push_back({k, k});
      columns = 1;
    }
    blocks.back().last = k + 1;
  }
  return blocks;
}

/// Panels on the way from some columns to the root.
class Paths {
 public:
  explicit Paths(const Structure& st) : st_(st), marked_(static_cast<std::size_t>(st.nsuper), 0) {
    panels_.reserve(static_cast<std::size_t>(st.nsuper));
  }
  void add(int column) {
    for (int s = st_.snode(column); s != 0 && !marked_[static_cast<std::size_t>(s - 1)];
         s = st_.sparent(s)) {
      marked_[static_cast<std::size_t>(s - 1)] = 1;
      panels_.push_back(s);
    }
  }
  void sort() { std::ranges::sort(panels_); }
  void clear() {
    for (const int s : panels_) marked_[static_cast<std::size_t>(s - 1)] = 0;
    panels_.clear();
  }
  const Vector<int>& panels() const { return panels_; }

 private:
  const Structure& st_;
  Vector<char> marked_;
  Vector<int> panels_;
};

/// Scratch of one thread.
template <class T>
struct ColumnScratch {
  Vector<T> y, temp;
  Paths down, up;  ///< panels of the forward and of the backward sweep

  explicit ColumnScratch(const Structure& st)
      : y(static_cast<std::size_t>(st.n) * block_columns),
        temp(static_cast<std::size_t>(st.max_rows)),
        down(st),
        up(st) {}
};

template <class T>
class ColumnSolver {
 public:
  ColumnSolver(const SolveOptions& options, const Structure& st, const void* lu)
      : options_(options), st_(st), store_(factor_store<T>(st, const_cast<void*>(lu))) {}

  void solve(const OutsideEntry* entry, const OutsideEntry* end, ColumnScratch<T>& scratch,
             double* values) const {
    int columns = 1;
    for (const OutsideEntry* e = entry + 1; e < end; ++e) columns += e->column != e[-1].column;
    const int nb = block_stride<T>(columns);
    SolveFrame<T> f{.options = options_,
                    .st = st_,
                    .store = store_,
                    .y = scratch.y.data(),
                    .temp = scratch.temp.data(),
                    .nb = nb,
                    .tail_first = st_.n + 1};
    scratch.down.clear();
    scratch.up.clear();
    for (const OutsideEntry* e = entry; e < end; ++e) {
      scratch.down.add(e->column);
      scratch.up.add(e->row);
    }
    scratch.down.sort();
    scratch.up.sort();
    clear(f, scratch.down);
    clear(f, scratch.up);
    const auto at = [&](int position, int column) -> T& {
      return f.y[static_cast<std::ptrdiff_t>(position - 1) * nb + column];
    };
    for_each(entry, end, [&](const OutsideEntry& e, int column) { at(e.column, column) = T(1); });
    for (const int s : scratch.down.panels()) LuSolve<T>::forward(f, panel_of(st_, store_, s));
    for (std::size_t k = scratch.up.panels().size(); k-- > 0;)
      LuSolve<T>::backward(f, panel_of(st_, store_, scratch.up.panels()[k]));
    std::ptrdiff_t k = 0;
    for_each(entry, end, [&](const OutsideEntry& e, int column) {
      put_value(values, k++, static_cast<Wide<T>>(at(e.row, column)));
    });
  }

 private:
  /// Calls visit(entry, number of its column in the block).
  template <class Visit>
  static void for_each(const OutsideEntry* entry, const OutsideEntry* end, Visit visit) {
    int column = 0;
    for (const OutsideEntry* e = entry; e < end; ++e) {
      if (e > entry && e->column != e[-1].column) ++column;
      visit(*e, column);
    }
  }

  void clear(const SolveFrame<T>& f, const Paths& paths) const {
    for (const int s : paths.panels())
      std::fill(f.y + static_cast<std::ptrdiff_t>(st_.xsuper(s) - 1) * f.nb,
                f.y + static_cast<std::ptrdiff_t>(st_.xsuper(s + 1) - 1) * f.nb, T(0));
  }

  const SolveOptions& options_;
  const Structure& st_;
  const FactorStore<T> store_;
};

template <class T>
void solve_with(const InverseOptions& options, const Structure& st,
                const Vector<OutsideEntry>& entries, const void* lu, double* values) {
  const SolveOptions solve{.type = options.type, .single = options.single};
  const ColumnSolver<T> solver(solve, st, lu);
  const Vector<EntryBlock> blocks = cut_into_blocks(entries);
  const double work = static_cast<double>(st.n) * static_cast<double>(blocks.size());
  const int threads =
      work < worth_a_thread ? 1 : std::min(options.threads, static_cast<int>(blocks.size()));
  Vector<ColumnScratch<T>> team;
  team.reserve(static_cast<std::size_t>(std::max(1, threads)));
  for (int k = 0; k < std::max(1, threads); ++k) team.emplace_back(st);
  const auto solve_block = [&](const EntryBlock& block, ColumnScratch<T>& scratch) {
    solver.solve(entries.data() + block.first, entries.data() + block.last, scratch,
                 values + block.first * static_cast<std::size_t>(options.type.nvals()));
  };
  if (threads <= 1) {
    for (const EntryBlock& block : blocks) solve_block(block, team.front());
    return;
  }
#pragma omp parallel for schedule(dynamic, 1) num_threads(threads)
  for (std::size_t k = 0; k < blocks.size(); ++k)
    solve_block(blocks[k], team[static_cast<std::size_t>(omp_get_thread_num())]);
}

}  // namespace

void solve_for_entries(const InverseOptions& options, const Structure& structure,
                       const Vector<OutsideEntry>& entries, const void* lu, double* values) {
  if (entries.empty()) return;
  if (options.type.complex)
    solve_with<zcomplex>(options, structure, entries, lu, values);
  else if (options.single)
    solve_with<float>(options, structure, entries, lu, values);
  else
    solve_with<double>(options, structure, entries, lu, values);
}

}  // namespace vlm

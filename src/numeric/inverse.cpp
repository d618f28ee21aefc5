// SPDX-License-Identifier: BSD-3-Clause
/// Selected inversion: threads, and the table of the families, one line for each historical name.
#include "numeric/inverse.hpp"

#include <atomic>

#include "base/clock.hpp"
#include "base/memory.hpp"
#include "base/progress.hpp"
#include "numeric/inverse_panel.hpp"
#include "numeric/inverse_plan.hpp"

namespace vlm {
namespace {

/// Threads take the separators in their order, so that whatever one waits for was taken before,
/// then whole domains.
template <class Family, class T>
class Inversion {
 public:
  Inversion(const Structure& st, void* lu, int threads)
      : plan_(plan_inversion(st, threads)),
        done_(static_cast<std::size_t>(st.nsuper)),
        frame_{.st = st, .store = factor_store<T>(st, lu)} {
    frame_.done = done_.data();
    team_.reserve(static_cast<std::size_t>(plan_.threads));
    for (int k = 0; k < plan_.threads; ++k)
      team_.emplace_back(st, Family::two_sided, plan_.threads);
  }

  void run(InverseTimes& times) {
    const double start = timer_velmora();
    double separated = start;
    PhaseProgress phase(-22, frame_.st.nsuper);
    if (plan_.threads == 1) {
      work(team_.front(), separated);
    } else {
#pragma omp parallel num_threads(plan_.threads)
      work(team_[static_cast<std::size_t>(number_.fetch_add(1))], separated);
    }
    if (stopped_.load()) throw Cancelled();
    phase.finish();
    times.separators = separated - start;
    times.domains = timer_velmora() - separated;
  }

 private:
  /// @param separated  the time when the last separator was finished, out
  void work(InverseScratch<T>& scratch, double& separated) {
    const int separators = static_cast<int>(plan_.separators.size());
    for (int k; goes_on() && (k = next_separator_.fetch_add(1)) < separators;) {
      invert(plan_.separators[static_cast<std::size_t>(k)], scratch);
      if (finished_.fetch_add(1) + 1 == separators) separated = timer_velmora();
    }
    for (int d; goes_on() && (d = next_domain_.fetch_add(1)) < plan_.domains();)
      for (int k = plan_.start[static_cast<std::size_t>(d)];
           k < plan_.start[static_cast<std::size_t>(d) + 1] && goes_on(); ++k)
        invert(plan_.panels[static_cast<std::size_t>(k)], scratch);
  }

  void invert(int s, InverseScratch<T>& scratch) {
    PanelInversion<Family, T>(frame_, scratch, s).run();
    if (progress_ != nullptr) progress_->add(1);
  }

  /// False once the listener has ended the call: no further panel is begun, and what a begun one
  /// waits for was begun before.
  bool goes_on() {
    if (progress_ != nullptr && Progress::current() == progress_ && !progress_->pulse())
      stopped_.store(true);
    return !stopped_.load(std::memory_order_relaxed);
  }

  const InversionPlan plan_;
  Vector<std::atomic<char>> done_;
  InverseFrame<T> frame_;
  Vector<InverseScratch<T>> team_;
  Progress* const progress_ = Progress::current();
  std::atomic<bool> stopped_{false};
  std::atomic<int> number_{0}, next_separator_{0}, next_domain_{0}, finished_{0};
};

template <class Family, class T>
void invert_with(const InverseOptions& options, const Structure& st, void* lu,
                 InverseTimes& times) {
  const double start = timer_velmora();
  Inversion<Family, T> inversion(st, lu, options.threads);
  times.preparation = timer_velmora() - start;
  inversion.run(times);
}

using Kernel = void (*)(const InverseOptions&, const Structure&, void*, InverseTimes&);

/// The families, under their historical names.
constexpr Kernel blkl_inverse = invert_with<SymmetricInverse<double, false, false>, double>;
constexpr Kernel ch_blkl_inverse = invert_with<SymmetricInverse<zcomplex, true, false>, zcomplex>;
constexpr Kernel blkldl_inverse = invert_with<SymmetricInverse<double, false, true>, double>;
constexpr Kernel blkldl_32_inverse = invert_with<SymmetricInverse<float, false, true>, float>;
constexpr Kernel ch_blkldl_inverse = invert_with<SymmetricInverse<zcomplex, true, true>, zcomplex>;
constexpr Kernel c_blkldl_inverse = invert_with<SymmetricInverse<zcomplex, false, true>, zcomplex>;
constexpr Kernel blklu_unsym_inverse = invert_with<LuInverse<double>, double>;
constexpr Kernel blklu_32_unsym_inverse = invert_with<LuInverse<float>, float>;
constexpr Kernel c_blklu_unsym_inverse = invert_with<LuInverse<zcomplex>, zcomplex>;

Kernel choose_kernel(const MatrixType& type, bool single) {
  switch (type.family) {
    case Family::cholesky:
      return type.complex ? ch_blkl_inverse : blkl_inverse;
    case Family::ldlt:
      if (type.complex) return type.hermitian ? ch_blkldl_inverse : c_blkldl_inverse;
      return single ? blkldl_32_inverse : blkldl_inverse;
    case Family::lu:
    case Family::lu_complete:
    case Family::none:
      break;
  }
  if (type.complex) return c_blklu_unsym_inverse;
  return single ? blklu_32_unsym_inverse : blklu_unsym_inverse;
}

}  // namespace

void invert_factor(const InverseOptions& options, const Structure& structure, void* lu,
                   InverseTimes& times) {
  choose_kernel(options.type, options.single)(options, structure, lu, times);
}

}  // namespace vlm

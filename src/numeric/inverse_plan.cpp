// SPDX-License-Identifier: BSD-3-Clause
/// Plan of a selected inversion, see inverse_plan.hpp.
#include "numeric/inverse_plan.hpp"

#include <algorithm>
#include <numeric>

namespace vlm {
namespace {

/// Operations below which starting threads costs more than they save.
constexpr double worthwhile_work = 2e6;
/// Domains that a thread gets on average: enough that the last ones end together.
constexpr double domains_per_thread = 6;

/// Multiplications with one panel.
double panel_work(const Structure& st, int s) {
  const double width = st.xsuper(s + 1) - st.xsuper(s);
  const double below = st.xlindx(s + 1) - st.xlindx(s) - width;
  return width * (below + width) * (below + width);
}

/// Work of the subtrees.
Vector<double> subtree_work(const Structure& st) {
  Vector<double> store(static_cast<std::size_t>(st.nsuper), 0);
  const View<double> work(store);
  for (int s = 1; s <= st.nsuper; ++s) {
    work(s) += panel_work(st, s);
    if (st.sparent(s) != 0) work(st.sparent(s)) += work(s);
  }
  return store;
}

/// Orders panels by the earliest time at which their ancestors can be through: branches of the
/// tree side by side, and each panel behind its ancestors.
void order_separators(const Structure& st, Vector<int>& separators) {
  Vector<double> store(static_cast<std::size_t>(st.nsuper), 0);
  const View<double> earliest(store);
  for (const int s : separators)  // descending
    if (const int parent = st.sparent(s); parent != 0)
      earliest(s) = earliest(parent) + panel_work(st, parent);
  std::ranges::sort(separators, [&](int s, int t) {
    return earliest(s) < earliest(t) || (earliest(s) == earliest(t) && s > t);
  });
}

/// Numbers the domains from 0 by work, largest first.
/// @param roots   panels that are the roots of domains
/// @return [nsuper] number at each root
Vector<int> rank_domains(const Vector<double>& work, Vector<int>& roots) {
  std::ranges::sort(roots, [&](int s, int t) {
    const double a = work[static_cast<std::size_t>(s - 1)];
    const double b = work[static_cast<std::size_t>(t - 1)];
    return a > b || (a == b && s > t);
  });
  Vector<int> rank(work.size());
  for (std::size_t k = 0; k < roots.size(); ++k)
    rank[static_cast<std::size_t>(roots[k] - 1)] = static_cast<int>(k);
  return rank;
}

InversionPlan plan_for_one(const Structure& st) {
  InversionPlan plan;
  plan.panels.resize(static_cast<std::size_t>(st.nsuper));
  std::iota(plan.panels.rbegin(), plan.panels.rend(), 1);
  plan.start = {0, st.nsuper};
  return plan;
}

}  // namespace

InversionPlan plan_inversion(const Structure& st, int threads) {
  const std::size_t nsuper = static_cast<std::size_t>(st.nsuper);
  if (threads <= 1) return plan_for_one(st);
  const Vector<double> work_store = subtree_work(st);
  const View<const double> work(work_store);
  double total = 0;
  for (int s = 1; s <= st.nsuper; ++s)
    if (st.sparent(s) == 0) total += work(s);
  if (total < worthwhile_work) return plan_for_one(st);

  InversionPlan plan;
  plan.threads = threads;
  const double limit = total / (domains_per_thread * threads);
  Vector<int> roots, domain_store(nsuper);
  const View<int> domain(domain_store);  // root of a panel's domain, 0: a separator
  for (int s = st.nsuper; s >= 1; --s) {
    const int parent = st.sparent(s), above = parent != 0 ? domain(parent) : 0;
    domain(s) = above != 0 ? above : work(s) <= limit ? s : 0;
    if (domain(s) == s) roots.push_back(s);
    if (domain(s) == 0) plan.separators.push_back(s);
  }
  order_separators(st, plan.separators);

  const Vector<int> rank_store = rank_domains(work_store, roots);
  const View<const int> rank(rank_store);
  plan.start.assign(roots.size() + 1, 0);
  for (int s = 1; s <= st.nsuper; ++s)
    if (domain(s) != 0) ++plan.start[static_cast<std::size_t>(rank(domain(s))) + 1];
  std::partial_sum(plan.start.begin(), plan.start.end(), plan.start.begin());
  plan.panels.resize(static_cast<std::size_t>(plan.start.back()));
  Vector<int> next(plan.start);
  for (int s = st.nsuper; s >= 1; --s)
    if (domain(s) != 0)
      plan.panels[static_cast<std::size_t>(next[static_cast<std::size_t>(rank(domain(s)))]++)] = s;
  return plan;
}

}  // namespace vlm

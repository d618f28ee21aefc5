// SPDX-License-Identifier: BSD-3-Clause
#include "ordering/domains.hpp"

#include <algorithm>
#include <functional>
#include <numeric>
#include <utility>

namespace vlm {
namespace {

constexpr int none = -1;

// Part of the rate of as many threads that those at the separators reach together, and of the
// threads that take panels one by one.  Rough: the separators are few large fronts.
constexpr double shared_rate = 0.7;
// Shares count as even when the largest is this much above the mean.
constexpr double even_enough = 1.1;

class Dealer {
 public:
  Dealer(const Vector<int>& parent, const Vector<double>& work, const Vector<char>& held,
         int domains)
      : parent_(parent), held_(held), domains_(domains), total_(work.begin(), work.end()) {
    const int n = static_cast<int>(parent.size());
    child_.assign(n, none);
    sibling_.assign(n, none);
    for (int j = 0; j < n; ++j) {
      all_ += work[j];
      if (parent[j] == none) continue;
      total_[parent[j]] += total_[j];
      sibling_[j] = child_[parent[j]];
      child_[parent[j]] = j;
    }
    smallest_ = all_ / domains / 64;
    for (int j = 0; j < n; ++j)
      if (parent[j] == none) push(j);
  }

  // Splits subtrees while the predicted time falls; the subtrees of the best stage stay.
  bool divide(const Vector<double>& work) {
    double best = shared_time(all_);  // all panels shared: no domains
    double top = 0;
    for (;;) {
      const double largest = largest_share();
      if (const double time = largest + shared_time(top); time < best) {
        best = time;
        best_ = heap_;
        best_crumbs_ = crumbs_.size();
      }
      if (largest <= even_enough * (all_ - top) / domains_ || heap_.empty()) break;
      // Down the chain to the next branching; there the shares change.
      std::pop_heap(heap_.begin(), heap_.end());
      int j = heap_.back().second;
      heap_.pop_back();
      top += work[j];
      while (child_[j] != none && sibling_[child_[j]] == none) {
        j = child_[j];
        top += work[j];
      }
      for (int c = child_[j]; c != none; c = sibling_[c]) push(c);
      if (shared_time(top) >= best) break;
    }
    return !best_.empty() || best_crumbs_ > 0;
  }

  // The largest subtree goes to the least loaded domain; the number of these.
  int deal(Vector<int>& domain) {
    std::sort(best_.begin(), best_.end(), [](const auto& a, const auto& b) {
      return a.first != b.first ? a.first > b.first : a.second < b.second;
    });
    best_.insert(best_.end(), crumbs_.begin(), crumbs_.begin() + best_crumbs_);
    Vector<double> load(domains_, 0);
    for (const auto& [size, root] : best_) {
      const auto least = std::min_element(load.begin(), load.end());
      *least += size;
      domain[root] = static_cast<int>(least - load.begin()) + 1;
    }
    for (int j = static_cast<int>(parent_.size()) - 1; j >= 0; --j)
      if (domain[j] == 0 && parent_[j] != none) domain[j] = domain[parent_[j]];
    return std::min(domains_, static_cast<int>(best_.size()));
  }

 private:
  // Takes up a subtree, or those below held places: these are never part of one.
  void push(int root) {
    waiting_.assign(1, root);
    while (!waiting_.empty()) {
      const int j = waiting_.back();
      waiting_.pop_back();
      if (!held_.empty() && held_[j] != 0) {
        for (int c = child_[j]; c != none; c = sibling_[c]) waiting_.push_back(c);
        continue;
      }
      if (total_[j] < smallest_) {
        crumbs_.emplace_back(total_[j], j);
        crumb_work_ += total_[j];
        continue;
      }
      heap_.emplace_back(total_[j], j);
      std::push_heap(heap_.begin(), heap_.end());
    }
  }

  double shared_time(double work) const { return work / (shared_rate * domains_); }

  // Work of the fullest domain when the subtrees are dealt out, the largest first, and the crumbs
  // level the others.
  double largest_share() {
    sorted_.clear();
    for (const auto& entry : heap_) sorted_.push_back(entry.first);
    std::sort(sorted_.rbegin(), sorted_.rend());
    load_.assign(domains_, 0);  // a heap, the least loaded first
    for (const double size : sorted_) {
      std::pop_heap(load_.begin(), load_.end(), std::greater<>());
      load_.back() += size;
      std::push_heap(load_.begin(), load_.end(), std::greater<>());
    }
    const double even = std::accumulate(load_.begin(), load_.end(), crumb_work_) / domains_;
    return std::max(even, *std::max_element(load_.begin(), load_.end()));
  }

  const Vector<int>& parent_;
  const Vector<char>& held_;
  const int domains_;
  Vector<double> total_;  // work of a subtree
  double all_ = 0;
  Vector<int> child_, sibling_, waiting_;
  Vector<std::pair<double, int>> heap_, best_;
  Vector<std::pair<double, int>>
      crumbs_;  // too small to be split, in the sequence of their finding
  double smallest_ = 0, crumb_work_ = 0;
  std::size_t best_crumbs_ = 0;  // at the best stage
  Vector<double> sorted_, load_;
};

}  // namespace

int deal_out_domains(const Vector<int>& parent, const Vector<double>& work,
                     const Vector<char>& held, int domains, Vector<int>& domain) {
  const int n = static_cast<int>(parent.size());
  domain.assign(n, 0);
  if (domains > 1) {
    Dealer dealer(parent, work, held, domains);
    if (dealer.divide(work)) return dealer.deal(domain);
  }
  for (int j = 0; j < n; ++j)
    if (held.empty() || held[j] == 0) domain[j] = 1;
  return 1;
}

}  // namespace vlm

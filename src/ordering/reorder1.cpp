// SPDX-License-Identifier: BSD-3-Clause
/// First analysis stage: adjacency, fill-reducing order, trailing blocks, supernodes.
///
/// The order comes from the caller, from the symmetric matching, or from the routine that the
/// selector names.  Everything here but the ordering itself is linear in the matrix.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <vector>

#include "driver/stages.hpp"
#include "graph/adjacency.hpp"
#include "ordering/gepcmd.hpp"
#include "ordering/gepmetis.hpp"
#include "ordering/gepmmd.hpp"
#include "ordering/ordering.hpp"

namespace vlm {
namespace {

double seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// The matching takes part in the order of these types.
bool has_matched_order(const AnalysisRequest& request, const Control& control) {
  return request.given_order != nullptr && control.match_mode > 0 &&
         (control.mtype == -2 || control.mtype == -4 || control.mtype == 6);
}

int build_adjacency(const AnalysisRequest& request, Control& control, Adjacency& graph) {
  const InputMatrix& matrix = request.matrix;
  const auto n = static_cast<std::size_t>(matrix.n);
  const Pattern pattern{matrix.n, View<const int>(matrix.ia, n + 1),
                        View<const int>(matrix.ja, static_cast<std::size_t>(matrix.nnz()))};
  if (is_symmetric_storage(control.mtype)) return ladj_mod_velmora(pattern, graph);
  // The matching of an unsymmetric matrix permutes its rows before the pattern is symmetrised.
  const bool permuted = control.mtype >= 11 && control.match_mode > 0 && request.matching.perm;
  const View<const int> rows =
      permuted ? View<const int>(request.matching.perm, n) : View<const int>();
  return ladjun_velmora(pattern, rows, graph);
}

// Time of an operation of this factor against one of a real symmetric factor on one thread.
double flop_weight(const Control& control) {
  const double by_kind = is_complex_type(control.mtype) ? 3.5 : 1.0;
  const double by_storage = is_symmetric_storage(control.mtype) ? 1.0 : 2.0;
  return by_kind * by_storage / std::clamp(control.nthreads, 1, 8);
}

DissectionRequest dissection_request(const Control& control) {
  return {control.partial >= 1 ? 1 : control.nparts, flop_weight(control)};
}

int choose_order(const AnalysisRequest& request, const Control& control, const Adjacency& graph,
                 Ordering& order) {
  const int n = graph.n;
  if (control.user_perm > 0) {
    if (request.user_perm == nullptr) return status_structure;
    order.perm.assign(request.user_perm, request.user_perm + n);
    set_single_range(order, n);
    return invert_order(order) ? status_ok : status_structure;
  }
  if (has_matched_order(request, control)) {
    order = *request.given_order;
    for (int& node : order.perm) node = std::abs(node);
    return invert_order(order) ? status_ok : status_structure;
  }
  return order_by_selector(control, graph, order);
}

// Sends the marked nodes last, in the sequence they have.  The leaf domains would no longer
// be contiguous in what is left: one range remains.
void move_marked_last(const int* marks, Analysis& analysis) {
  const int n = analysis.graph.n;
  std::vector<int> group(n);
  std::transform(marks, marks + n, group.begin(), [](int mark) { return mark != 0 ? 2 : 1; });
  const Range marked = regroup(analysis.order, group, 2).back();
  set_single_range(analysis.order, n);
  analysis.trailing = marked.last - marked.first + 1;
  analysis.nfw = analysis.nbw = analysis.trailing;
}

}  // namespace

int order_by_selector(const Control& control, const Adjacency& graph, Ordering& order) {
  switch (control.order) {
    case 0:
      gepmmd_velmora(graph, order);
      return status_ok;
    case 1:
      return gepcmd_velmora(graph, control.nthreads, order);
    case 2:
      gepmetis_velmora(graph, dissection_request(control), order);
      return status_ok;
    default:
      set_identity(order, graph.n);
      return status_ok;
  }
}

bool order_with_pairs(const Control& control, const Adjacency& graph, Pairing& pairs,
                      Ordering& order) {
  return dissect_with_pairs(graph, dissection_request(control), pairs, order);
}

int reorder1_velmora(const AnalysisRequest& request, Control& control, Analysis& analysis) {
  analysis.trailing = analysis.nfw = analysis.nbw = 0;
  double mark = seconds();
  if (const int status = build_adjacency(request, control, analysis.graph); status != status_ok)
    return status;
  control.dpar.timer.fulladj = seconds() - mark;
  control.flags.fulladj = true;

  mark = seconds();
  if (const int status = choose_order(request, control, analysis.graph, analysis.order);
      status != status_ok)
    return status;
  if (control.partial >= 1 && request.user_perm != nullptr) {
    move_marked_last(request.user_perm, analysis);
  } else {
    analysis.trailing = std::max(control.nschur, 0);
    regroup_by_ranges(analysis.order, analysis.trailing);
  }
  control.nparts = analysis.order.nparts;
  control.dpar.timer.reorder = seconds() - mark;
  control.flags.reorder = true;

  mark = seconds();
  const int status = sfinit_velmora(control, analysis);
  control.dpar.timer.symbfct = seconds() - mark;  // the lists of the next stage add theirs
  control.flags.symbfct = true;
  return status;
}

}  // namespace vlm

// SPDX-License-Identifier: BSD-3-Clause
#include "metis/metis_calls.hpp"

#include <metis.h>

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <type_traits>

#include "base/memory.hpp"

namespace vlm {
namespace {

// METIS draws from the C library's generator, which it seeds, and catches signals while it runs:
// both belong to the process.  Calls in different threads take turns, so that each gets the
// partition that it would get alone.
std::mutex& metis_latch() {
  static std::mutex latch;
  return latch;
}

// METIS may be built with 64-bit indices; then the lists are converted on the way in and out.
class MetisArray {
 public:
  explicit MetisArray(const Vector<int>& source, int shift = 0) {
    if constexpr (std::is_same_v<idx_t, int>) {
      if (shift == 0) {
        // METIS takes non-const pointers but does not write to its input graph.
        data_ = const_cast<idx_t*>(source.data());
        return;
      }
    }
    copy_.resize(source.size());
    std::transform(source.begin(), source.end(), copy_.begin(),
                   [=](int v) { return static_cast<idx_t>(v) - shift; });
    data_ = copy_.data();
  }
  idx_t* data() { return data_; }

 private:
  Vector<idx_t> copy_;
  idx_t* data_ = nullptr;
};

// Most bytes that a call of METIS holds at a time, beside its arguments: so many for each vertex
// and each neighbour.  From the peak of malloc_usable_size() over all blocks, with malloc() and
// free() replaced in the process, on meshes of 4 to 72 neighbours and random graphs.
constexpr std::int64_t metis_vertex_bytes = 90, metis_neighbour_bytes = 12;

std::int64_t metis_bytes(std::size_t vertices, std::size_t neighbours) {
  return metis_vertex_bytes * static_cast<std::int64_t>(vertices) +
         metis_neighbour_bytes * static_cast<std::int64_t>(neighbours);
}

void copy_out(const Vector<idx_t>& from, Vector<int>& to) {
  to.resize(from.size());
  std::transform(from.begin(), from.end(), to.begin(), [](idx_t v) { return static_cast<int>(v); });
}

}  // namespace

bool metis_kway_parts(const Adjacency& graph, int parts, Vector<int>& part) {
  part.assign(graph.n, 0);
  if (parts < 2 || graph.adjncy.empty()) {
    // Nothing is cut: deal the nodes out in blocks.
    for (int i = 0; i < graph.n; ++i)
      part[i] = static_cast<int>(static_cast<std::int64_t>(i) * parts / graph.n);
    return true;
  }
  MetisArray xadj(graph.xadj, 1), adjncy(graph.adjncy, 1), weight(graph.weight);
  idx_t* weights = graph.weight.empty() ? nullptr : weight.data();
  Vector<idx_t> where(graph.n);
  idx_t options[METIS_NOPTIONS];
  METIS_SetDefaultOptions(options);
  options[METIS_OPTION_SEED] = 4321;
  idx_t n = graph.n, constraints = 1, nparts = parts, cut = 0;
  const std::lock_guard hold(metis_latch());
  const CountedScope counted(metis_bytes(where.size(), graph.adjncy.size()));
  const int result =
      METIS_PartGraphKway(&n, &constraints, xadj.data(), adjncy.data(), weights, nullptr, nullptr,
                          &nparts, nullptr, nullptr, options, &cut, where.data());
  copy_out(where, part);
  return result == METIS_OK;
}

}  // namespace vlm

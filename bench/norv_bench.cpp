// SPDX-License-Identifier: BSD-3-Clause
// The multilevel incomplete LDL^T: cost of its setup and of an application.
//
//   norv_bench [edge...]
//
// 7-point cubes of edge^3 points, 40 63 80 100 by default, with the parameters that velmora()
// starts with: setup, setup that keeps order and scaling, and an application.  The last columns
// compare the bytes of the factors that an application reads, each entry twice, with a copy of as
// many bytes.
//
// Times are processor seconds; set OMP_NUM_THREADS to 1.  Each is the least of several,
// applications and copies taking turns.  iterative_bench has whole solves.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <vector>

#include "NORV/multilevel/mildlt.hpp"
#include "gallery/gallery.hpp"

namespace {

using namespace vlm::norv;

double processor_seconds() {
  timespec t;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

template <class F>
double least_seconds(int repeats, F f) {
  double least = 1e300;
  for (int r = 0; r < repeats; ++r) {
    const double start = processor_seconds();
    f();
    least = std::min(least, processor_seconds() - start);
  }
  return least;
}

/// The gallery's matrix as an smat over the same arrays, which are base 0 afterwards.
struct FreeHeader {
  void operator()(smat* A) const { std::free(A); }
};
std::unique_ptr<smat, FreeHeader> wrap(gallery::Matrix& m) {
  const unsigned n = static_cast<unsigned>(m.n);
  return std::unique_ptr<smat, FreeHeader>(smat_new_from(
      n, n, m.ia.data(), m.ja.data(), m.a.data(), m.complex() ? NORV_CPX_SYM : NORV_REAL_SYM, 1));
}

// ---- setup and application ----------------------------------------------------------------------

void setup_row(int edge) {
  gallery::Matrix m = gallery::poisson3d(edge);
  const auto A = wrap(m);
  MildltOptions options;
  options.factor.drop = 0.01;
  options.factor.max_fill = 10;
  options.factor.kappa = 500;
  options.factor.pivot_2x2 = 0.616;
  options.schur_drop = 0.005;
  std::unique_ptr<Mildlt<double>> levels;
  const double full = least_seconds(3, [&] {
    levels.reset();
    levels = std::make_unique<Mildlt<double>>(A.get(), options, nullptr, KeptOrders());
  });
  const double again = least_seconds(3, [&] {
    KeptOrders orders = levels->take_orders();
    levels.reset();
    levels = std::make_unique<Mildlt<double>>(A.get(), options, nullptr, std::move(orders));
  });
  const auto bytes = static_cast<std::size_t>(levels->sweep_bytes());
  std::vector<double> x(A->m, 1.0), y(A->m);
  std::vector<char> from(bytes, 1), to(bytes, 2);
  double apply = 1e300, copy = 1e300;
  for (int r = 0; r < 15; ++r) {  // taking turns
    apply = std::min(apply, least_seconds(1, [&] { levels->apply(x.data(), y.data()); }));
    copy = std::min(copy, least_seconds(1, [&] { std::memcpy(to.data(), from.data(), bytes); }));
  }
  std::printf("%8d %9lld %8.3f %8.2f %8.3f %6.2f %9.2f %9.2f %6.2f\n", m.n,
              static_cast<long long>(levels->totals().entries), full, 1e6 * full / m.n, again,
              again / full, 1e3 * apply, 1e3 * copy, copy / apply);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<int> edges;
  for (int k = 1; k < argc; ++k) edges.push_back(std::atoi(argv[k]));
  if (edges.empty()) edges = {40, 63, 80, 100};
  std::printf("       n   entries  setup s   us/row  again s  ratio  apply ms   copy ms   part\n");
  for (const int edge : edges) setup_row(edge);
  return 0;
}

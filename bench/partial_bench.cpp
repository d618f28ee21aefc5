// SPDX-License-Identifier: BSD-3-Clause
// What a partial solve costs: the panels on the paths from the marked nodes to the roots against
// the whole factor, in entries and in time.
//
//   partial_bench
//
// Seconds are processor time of one thread, the least of several runs; whole and partial solves
// take turns.
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "driver/factor_store.hpp"
#include "gallery/gallery.hpp"
#include "velmora.h"

namespace vlm {
namespace {

double seconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

class Solver {
 public:
  Solver(const gallery::Matrix& m, std::vector<int> marks) : m_(m), marks_(std::move(marks)) {
    const int direct = 0;
    int error = 0;
    iparm[2] = 1;
    velmorainit(pt_, &m.mtype, &direct, iparm, dparm_, &error);
    iparm[7] = 0;
    iparm[30] = marks_.empty() ? 0 : 1;
  }
  ~Solver() { call(-1, nullptr, nullptr); }
  Solver(const Solver&) = delete;
  Solver& operator=(const Solver&) = delete;
  double call(int phase, double* b, double* x) {
    const int one = 1, quiet = 0;
    int error = 0;
    const double start = seconds();
    velmora(pt_, &one, &one, &m_.mtype, &phase, &m_.n, m_.a.data(), m_.ia.data(), m_.ja.data(),
            marks_.data(), &one, iparm, &quiet, b, x, &error, dparm_);
    if (error != 0) std::printf("error %d\n", error);
    return seconds() - start;
  }
  const Structure& structure() { return *static_cast<const Structure*>(slot(pt_, slot_structure)); }
  int iparm[64] = {};

 private:
  const gallery::Matrix& m_;
  std::vector<int> marks_;
  void* pt_[64] = {};
  double dparm_[64] = {};
};

void measure(const gallery::Matrix& m, int count) {
  std::vector<int> marks(static_cast<std::size_t>(m.n), 0);
  gallery::Rng rng(7);
  for (int left = count; left > 0;)
    if (int& mark = marks[static_cast<std::size_t>(rng.below(m.n))]; mark == 0) mark = 1, --left;
  std::vector<double> b(static_cast<std::size_t>(m.n) * m.nvals(), 1.0), x(b.size());
  Solver whole(m, {}), part(m, marks);
  double factor_whole = whole.call(12, nullptr, nullptr);
  double factor_part = part.call(12, nullptr, nullptr);
  factor_whole = whole.call(22, nullptr, nullptr);
  factor_part = part.call(22, nullptr, nullptr);
  const Structure& st = part.structure();
  const double entries = static_cast<double>(st.len_lnz + st.len_unz);
  double whole_time = 1e300, part_time = 1e300;
  for (int k = 0; k < 15; ++k) {
    whole_time = std::min(whole_time, whole.call(33, b.data(), x.data()));
    for (int j = 0; j < 5; ++j) part_time = std::min(part_time, part.call(33, b.data(), x.data()));
  }
  std::printf("| %s | %d | %d | %.2f | %.2f | %d | %.4f | %.3g | %.3g | %.4f |\n", m.name.c_str(),
              m.n, count, static_cast<double>(part.iparm[17]) / whole.iparm[17],
              factor_part / factor_whole, static_cast<int>(st.path.size()),
              st.path_entries / entries, whole_time, part_time, part_time / whole_time);
}

}  // namespace
}  // namespace vlm

int main() {
  std::puts(
      "| matrix | n | marked | nnz(L), marked/plain | factor time, marked/plain | panels of the "
      "path | entries, path/whole | whole solve s | partial solve s | partial/whole "
      "|\n|---|---|---|---|---|---|---|---|---|---|");
  for (const gallery::Matrix& m :
       {gallery::poisson2d(600), gallery::poisson3d(40), gallery::elasticity3d(24, 1),
        gallery::convection_diffusion(30, 4, 5)})
    for (const int count : {1, 10, 100, 1000, m.n / 10}) vlm::measure(m, count);
}

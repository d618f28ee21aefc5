// SPDX-License-Identifier: BSD-3-Clause
// The multilevel incomplete LDL^T: cost of its setup and of an application, and what it does as a
// preconditioner of SQMR beside the direct solver.
//
//   norv_bench setup [edge...]
//       7-point cubes of edge^3 points, 40 63 80 100 by default, with the parameters that velmora()
//       starts with: setup, setup that keeps order and scaling, and an application.  The last
//       columns compare the bytes of the factors that an application reads, each entry twice, with
//       a copy of as many bytes.
//   norv_bench solve PROBLEM EDGE [drop schur_drop kappa max_fill]
//       PROBLEM is poisson, elasticity, anderson, helmholtz (real, indefinite), damped (complex
//       symmetric) or kkt.  Solves to 1e-8 with a random right-hand side, by SQMR and by the direct
//       solver, each in a process of its own, so that their peaks of memory don't mix.  Parameters
//       as above by default.
//   norv_bench iterate PROBLEM EDGE ...
//       The same without the direct solver.
//
// Times are processor seconds of one thread; set OMP_NUM_THREADS to 1.  Short ones are the least of
// several.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "NORV/multilevel/mildlt.hpp"
#include "gallery/gallery.hpp"
#include "velmora.h"

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

/// Hopping on a periodic cube with random energies at its points, near the transition from metal to
/// insulator: as many eigenvalues below zero as above.
gallery::Matrix anderson(int g) {
  constexpr double disorder = 16.5;
  gallery::Builder b("anderson", -2, g * g * g);
  gallery::Rng rng(7);
  const auto node = [g](int x, int y, int z) { return ((z % g) * g + y % g) * g + x % g; };
  for (int z = 0; z < g; ++z)
    for (int y = 0; y < g; ++y)
      for (int x = 0; x < g; ++x) {
        const int i = node(x, y, z);
        b.add(i, i, disorder * rng.uniform(-0.5, 0.5));
        b.add(i, node(x + 1, y, z), 1);
        b.add(i, node(x, y + 1, z), 1);
        b.add(i, node(x, y, z + 1), 1);
      }
  return b.finish();
}

gallery::Matrix problem(const std::string& name, int g) {
  if (name == "poisson") return gallery::poisson3d(g);
  if (name == "elasticity") return gallery::elasticity3d(g, 1);
  if (name == "anderson") return anderson(g);
  if (name == "helmholtz") return gallery::shifted_laplacian(g, 0.3, false, 1);
  if (name == "damped") return gallery::helmholtz(g, 0.55, false, 1);
  if (name == "kkt") return gallery::interior_point_kkt(g, 8, 1);
  std::fprintf(stderr, "no such problem: %s\n", name.c_str());
  std::exit(2);
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

struct Parameters {
  double drop = 0.01, schur_drop = 0.005, kappa = 500, max_fill = 10;
};

precon* new_mildlt(const Parameters& p, int is_complex) {
  return precon_mildlt_create_param(p.kappa, p.max_fill, p.drop, std::min(p.drop, p.schur_drop),
                                    1e-8, 0.616, NORV_FILL_MAX_AVERAGE, 3, 10, 5000,
                                    NORV_DROP_INVERSE, 0, nullptr, 3, NORV_DELAY_SCHUR,
                                    NORV_2X2_TRIDIAGONAL, is_complex);
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
    levels = std::make_unique<Mildlt<double>>(A.get(), options, nullptr, LevelOrder());
  });
  const double again = least_seconds(3, [&] {
    LevelOrder order = levels->take_order();
    levels.reset();
    levels = std::make_unique<Mildlt<double>>(A.get(), options, nullptr, std::move(order));
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

// ---- solves -------------------------------------------------------------------------------------

/// What a process found.
struct Report {
  double setup = 0, solve = 0, residual = 1, megabytes = 0;
  long long entries = 0;
  int iterations = 0, positive = 0, negative = 0, status = -1000;
};

/// Runs f in a process of its own.
template <class F>
Report apart(F f) {
  int pipes[2];
  Report report;
  if (pipe(pipes) != 0) return report;
  const pid_t child = fork();
  if (child == 0) {
    f(report);
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    report.megabytes = static_cast<double>(usage.ru_maxrss) / 1024;
    const bool written = write(pipes[1], &report, sizeof report) == sizeof report;
    _exit(written ? 0 : 1);
  }
  close(pipes[1]);
  if (read(pipes[0], &report, sizeof report) != sizeof report) report = Report();
  close(pipes[0]);
  waitpid(child, nullptr, 0);
  return report;
}

std::vector<double> right_hand_side(const gallery::Matrix& m) {
  gallery::Rng rng(3);
  std::vector<double> b(static_cast<std::size_t>(m.n) * m.nvals());
  for (double& v : b) v = rng.uniform(-1, 1);
  return b;
}

double relative_residual(const smat* A, vec* x, const vec* b) {
  vec* const r = smat_calc_residual(nullptr, A, x, b);
  const double relative = vec_euclid_norm(r) / vec_euclid_norm(b);
  vec_release(r);
  return relative;
}

vec* new_vec(const gallery::Matrix& m, double* v) {
  const unsigned n = static_cast<unsigned>(m.n);
  return m.complex() ? vec_new_from_cpx(n, v) : vec_new_from(n, v);
}

void solve_iteratively(gallery::Matrix& m, const Parameters& p, Report& report) {
  const auto A = wrap(m);
  std::vector<double> bv = right_hand_side(m), xv(bv.size());
  vec *const b = new_vec(m, bv.data()), *const x = new_vec(m, xv.data());
  double start = processor_seconds();
  precon* const M = new_mildlt(p, m.complex());
  precon_setup(M, A.get());
  report.setup = processor_seconds() - start;
  report.entries = M->nnz;
  report.positive = M->npos;
  report.negative = M->nneg;
  start = processor_seconds();
  constexpr int most = 1000;
  report.iterations =
      solve_sqmr_param(1e-8, A.get(), x, nullptr, b, M, most, most, &report.status, 0, nullptr);
  report.solve = processor_seconds() - start;
  report.residual = relative_residual(A.get(), x, b);
}

void solve_directly(gallery::Matrix& m, Report& report) {
  void* pt[64] = {};
  int iparm[64] = {}, solver = 0, error = 0, one = 1, zero = 0, phase = 12;
  double dparm[64] = {};
  velmorainit(pt, &m.mtype, &solver, iparm, dparm, &error);
  iparm[2] = 1;
  std::vector<double> b = right_hand_side(m), x(b.size());
  const auto call = [&] {
    velmora(pt, &one, &one, &m.mtype, &phase, &m.n, m.a.data(), m.ia.data(), m.ja.data(), nullptr,
            &one, iparm, &zero, b.data(), x.data(), &error, dparm);
  };
  double start = processor_seconds();
  call();
  report.setup = processor_seconds() - start;
  report.status = error;
  if (error != 0) return;
  report.entries = iparm[17];
  report.positive = iparm[21];
  report.negative = iparm[22];
  phase = 33;
  start = processor_seconds();
  call();
  report.solve = processor_seconds() - start;
  report.iterations = iparm[6];
  const auto A = wrap(m);
  vec *const bv = new_vec(m, b.data()), *const xv = new_vec(m, x.data());
  report.residual = relative_residual(A.get(), xv, bv);
}

void print_row(const char* what, const gallery::Matrix& m, const Report& r) {
  std::printf("%-7s %8d %9d %12lld %7.1f %8.2f %8.2f %5d %9.1e %8.0f %8d %6d\n", what, m.n, m.nnz(),
              r.entries, static_cast<double>(r.entries) / m.nnz(), r.setup, r.solve, r.iterations,
              r.residual, r.megabytes, r.negative, r.status);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "setup") {
    std::vector<int> edges;
    for (int k = 2; k < argc; ++k) edges.push_back(std::atoi(argv[k]));
    if (edges.empty()) edges = {40, 63, 80, 100};
    std::printf(
        "       n   entries  setup s   us/row  again s  ratio  apply ms   copy ms   part\n");
    for (const int edge : edges) setup_row(edge);
    return 0;
  }
  if ((mode != "solve" && mode != "iterate") || argc < 4) {
    std::fprintf(stderr,
                 "norv_bench setup [edge...]\n"
                 "norv_bench solve|iterate PROBLEM EDGE [drop schur_drop kappa max_fill]\n");
    return 2;
  }
  Parameters p;
  double* const fields[] = {&p.drop, &p.schur_drop, &p.kappa, &p.max_fill};
  for (int k = 4; k < std::min(argc, 8); ++k) *fields[k - 4] = std::atof(argv[k]);
  gallery::Matrix m = problem(argv[2], std::atoi(argv[3]));
  std::printf(
      "               n  nnz(A)      entries   ratio  setup s  solve s steps  residual       MB "
      "negative status\n");
  print_row("sqmr", m, apart([&](Report& r) { solve_iteratively(m, p, r); }));
  if (mode == "solve") print_row("direct", m, apart([&](Report& r) { solve_directly(m, r); }));
  return 0;
}

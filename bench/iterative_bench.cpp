// SPDX-License-Identifier: BSD-3-Clause
// The iterative solver beside the direct one, on the same matrices: time and memory to the same
// residual; and beside hypre's incomplete LU and multigrid, where it is installed.
//
//   iterative_bench [-r repeats] [-t threads] [--tolerance T] [--dparm N=V]... [--also N=V,...]...
//                   [--settings ABC] [--page] [--no-peers] CLASS:SIZE...
//
// --dparm sets an entry, for the iterative solver; each --also adds a row with further settings,
// each letter of --settings one of the settings of docs/iterative.md, small letters with
// dparm(11) 1.
// --page prints the rows of its tables.
// Classes: those of velmora_bench with symmetric real or complex symmetric matrices, and
// anderson:EDGE, the tight-binding model of a disordered crystal at the middle of its spectrum.
// Without problems a fixed list runs.  Each solver runs in a process of its own; seconds are
// processor time with one thread, wall clock with more, the least of the repeats; memory is the
// growth of the peak of the resident set.  The residual is recomputed here.  The peers run once,
// on one thread, on real matrices.
#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "iterative_peers.hpp"
#include "problem.hpp"
#include "velmora.h"

namespace {

using bench::seconds;
using gallery::Matrix;
using Figures = bench::IterativeFigures;
using Entries = std::vector<std::pair<int, double>>;

struct Settings {
  int threads = 1, repeats = 1;
  double tolerance = 1e-8;
  Entries dparm;
};

double peak_megabytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with("VmHWM:")) return std::stod(line.substr(6)) / 1024;
  return 0;
}

/// Hopping -1 between neighbours of a periodic cube, energies at random within the width 16.5.
Matrix anderson(int edge) {
  std::mt19937_64 random(1);
  std::uniform_real_distribution<double> energy(-8.25, 8.25);
  Matrix m;
  m.mtype = -2;
  m.n = edge * edge * edge;
  m.ia.push_back(1);
  const auto node = [edge](int x, int y, int z) {
    return ((z % edge) * edge + y % edge) * edge + x % edge;
  };
  for (int i = 0; i < m.n; ++i) {
    const int x = i % edge, y = i / edge % edge, z = i / edge / edge;
    std::vector<int> columns = {node(x + 1, y, z), node(x + edge - 1, y, z),
                                node(x, y + 1, z), node(x, y + edge - 1, z),
                                node(x, y, z + 1), node(x, y, z + edge - 1)};
    std::sort(columns.begin(), columns.end());
    m.ja.push_back(i + 1);
    m.a.push_back(energy(random));
    for (const int j : columns)
      if (j > i) m.ja.push_back(j + 1), m.a.push_back(-1);
    m.ia.push_back(int(m.ja.size()) + 1);
  }
  return m;
}

bool is_complex(const Matrix& m) { return m.mtype == 6; }

/// y = A x for the stored triangle.
std::vector<double> product(const Matrix& m, const std::vector<double>& x) {
  std::vector<double> y(x.size(), 0.0);
  const int w = is_complex(m) ? 2 : 1;
  const auto add = [&](int i, int j, int k) {
    if (w == 1) {
      y[i] += m.a[k] * x[j];
    } else {
      y[2 * i] += m.a[2 * k] * x[2 * j] - m.a[2 * k + 1] * x[2 * j + 1];
      y[2 * i + 1] += m.a[2 * k] * x[2 * j + 1] + m.a[2 * k + 1] * x[2 * j];
    }
  };
  for (int i = 0; i < m.n; ++i)
    for (int k = m.ia[i] - 1; k < m.ia[i + 1] - 1; ++k) {
      add(i, m.ja[k] - 1, k);
      if (m.ja[k] - 1 != i) add(m.ja[k] - 1, i, k);
    }
  return y;
}

double norm(const std::vector<double>& v) {
  double sum = 0;
  for (const double x : v) sum += x * x;
  return std::sqrt(sum);
}

std::vector<double> right_hand_side(const Matrix& m) {
  std::vector<double> b(std::size_t(m.n) * (is_complex(m) ? 2 : 1));
  std::mt19937_64 random(2);
  for (double& value : b) value = std::uniform_real_distribution<double>(-1, 1)(random);
  return b;
}

double relative_residual(const Matrix& m, const std::vector<double>& x,
                         const std::vector<double>& b) {
  std::vector<double> r = product(m, x);
  for (std::size_t k = 0; k < r.size(); ++k) r[k] = b[k] - r[k];
  return norm(r) / norm(b);
}

Figures measure(const Matrix& m, bool iterative, const Settings& settings) {
  Figures best;
  const double before = peak_megabytes();
  for (int repeat = 0; repeat < settings.repeats; ++repeat) {
    std::array<void*, 64> pt{};
    std::array<int, 64> iparm{};
    std::array<double, 64> dparm{};
    int error = 0;
    const int solver = iterative ? 1 : 0, one = 1, quiet = 0;
    iparm[2] = settings.threads;
    velmorainit(pt.data(), &m.mtype, &solver, iparm.data(), dparm.data(), &error);
    dparm[1] = settings.tolerance;
    if (iterative)
      for (const auto& [number, value] : settings.dparm) dparm[std::size_t(number - 1)] = value;
    if (!iterative && m.mtype == -2) iparm[10] = iparm[20] = 1, iparm[12] = 2;
    std::vector<double> b = right_hand_side(m), x(b.size(), 0.0);
    const auto run = [&](int phase) {
      const double start = seconds(settings.threads);
      velmora(pt.data(), &one, &one, &m.mtype, &phase, &m.n, m.a.data(), m.ia.data(), m.ja.data(),
              nullptr, &one, iparm.data(), &quiet, b.data(), x.data(), &error, dparm.data());
      return seconds(settings.threads) - start;
    };
    Figures f;
    f.setup = run(12);
    f.entries = iparm[17];
    if (error == 0) f.resetup = run(22);
    if (error == 0) f.solve = run(33);
    f.error = error;
    f.iterations = iterative ? int(dparm[34]) : 0;
    f.residual = relative_residual(m, x, b);
    run(-1);
    if (repeat == 0) best = f;
    best.setup = std::min(best.setup, f.setup);
    best.resetup = std::min(best.resetup, f.resetup);
    best.solve = std::min(best.solve, f.solve);
  }
  best.megabytes = peak_megabytes() - before;
  return best;
}

Figures measure_peer(bench::Peer peer, const Matrix& m, bool definite, double tolerance) {
  const std::vector<double> b = right_hand_side(m);
  std::vector<double> x(b.size(), 0.0);
  const double before = peak_megabytes();
  Figures f = bench::run_peer(peer, m, definite, tolerance, b, x);
  f.residual = relative_residual(m, x, b);
  if (!(f.residual < 10 * tolerance)) f.error = -100;
  f.megabytes = peak_megabytes() - before;
  return f;
}

/// Measures in a process of its own; the figures come through a pipe.
Figures measure_apart(const std::function<Figures()>& work) {
  int ends[2];
  Figures figures;
  if (pipe(ends) != 0) return figures;
  const pid_t child = fork();
  if (child == 0) {
    const Figures f = work();
    const bool written = write(ends[1], &f, sizeof f) == sizeof f;
    _exit(written ? 0 : 1);
  }
  close(ends[1]);
  if (read(ends[0], &figures, sizeof figures) != sizeof figures) figures.error = -5;
  close(ends[0]);
  waitpid(child, nullptr, 0);
  return figures;
}

/// "N=V,N=V,..."
Entries entries_of(const std::string& text) {
  Entries entries;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find(',', at), text.size());
    const std::string each = text.substr(at, end - at);
    entries.emplace_back(std::stoi(each), std::stod(each.substr(each.find('=') + 1)));
    at = end + 1;
  }
  return entries;
}

Matrix load(const std::string& spec, bool& definite) {
  definite = false;
  if (spec.starts_with("anderson:")) return anderson(std::stoi(spec.substr(9)));
  Matrix m = bench::load(spec, 0).matrix;
  definite = m.mtype == 2;
  if (definite) m.mtype = -2;
  if (m.mtype != -2 && m.mtype != 6)
    throw std::runtime_error(spec + ": the matrix is not symmetric");
  return m;
}

/// The settings of the page by their letters; small ones order by minimum degree.
std::string settings_of(char letter) {
  const std::string order = letter >= 'a' ? "11=1" : "11=0";
  switch (letter >= 'a' ? letter - 'a' + 'A' : letter) {
    case 'A':
      return order;
    case 'B':
      return "4=10,5=0.01,6=0.003,7=0,8=5,10=0.1," + order;
    case 'C':
      return "4=2,5=0.005,6=0.001,7=0,8=10,10=0.1," + order;
    default:
      throw std::runtime_error(std::string("no settings ") + letter);
  }
}

void print_row(const char* solver, const Matrix& m, const Figures& f) {
  if (f.error != 0 && f.error > -100) {
    fmt::print("| | {} | | error {} | | | | | |\n", solver, f.error);
    return;
  }
  fmt::print("| | {} | {:.1f} | {:.2f} | {:.2f} | {:.2f} | {:.2f} | {} | {:.0f} | {:.1e}{} |\n",
             solver, f.entries / double(m.ja.size()), f.setup + f.solve, f.setup, f.resetup,
             f.solve, f.iterations, f.megabytes, f.residual,
             f.error != 0 ? fmt::format(" error {}", f.error) : "");
}

std::string outcome_of(const Figures& f) {
  return f.error == 0 ? fmt::format("{:.2f} | {}", f.setup + f.solve, f.iterations)
                      : fmt::format("fails | {}", f.error);
}

/// A problem's row of the page for each letter, and what the peers take.
void print_page(const std::string& spec, const Settings& settings, const std::string& letters,
                bool peers) {
  bool definite = false;
  const Matrix m = load(spec, definite);
  const Figures direct = measure_apart([&] { return measure(m, false, settings); });
  for (const char letter : letters) {
    Settings each = settings;
    for (const auto& entry : entries_of(settings_of(letter))) each.dparm.push_back(entry);
    const Figures f = measure_apart([&] { return measure(m, true, each); });
    fmt::print("| {} | {} | {} | {:.2f} | {} | ", spec, m.n, letter, direct.setup + direct.solve,
               outcome_of(f));
    if (f.error == 0)
      fmt::print("{:.2f} | {:.2f} | {:.2f} |\n",
                 (f.setup + f.solve) / (direct.setup + direct.solve),
                 f.megabytes / direct.megabytes, f.resetup / f.setup);
    else
      fmt::print("| | |\n");
    std::fflush(stdout);
  }
  if (!peers || !bench::has_peers() || is_complex(m)) return;
  for (const bench::Peer peer : {bench::Peer::ilu, bench::Peer::amg}) {
    const Figures f =
        measure_apart([&] { return measure_peer(peer, m, definite, settings.tolerance); });
    fmt::print("| {} | {} | {} | | {} | | | |\n", spec, m.n,
               peer == bench::Peer::ilu ? "hypre ILU" : "hypre multigrid", outcome_of(f));
  }
}

/// All rows of a problem.
void compare(const std::string& spec, const Settings& settings,
             const std::vector<std::string>& also, bool peers) {
  bool definite = false;
  const Matrix m = load(spec, definite);
  fmt::print("| {}, n {}, nnz {} | | | | | | | | | |\n", spec, m.n, m.ja.size());
  const Figures direct = measure_apart([&] { return measure(m, false, settings); });
  print_row("direct", m, direct);
  std::vector<std::string> rows = {""};
  rows.insert(rows.end(), also.begin(), also.end());
  for (const std::string& text : rows) {
    Settings each = settings;
    for (const auto& entry : entries_of(text)) each.dparm.push_back(entry);
    const Figures f = measure_apart([&] { return measure(m, true, each); });
    print_row(text.empty() ? "iterative" : text.c_str(), m, f);
    fmt::print("| | iterative / direct | | {:.2f} | {:.2f} | {:.2f} | {:.2f} | | {:.2f} | |\n",
               (f.setup + f.solve) / (direct.setup + direct.solve), f.setup / direct.setup,
               f.resetup / direct.resetup, f.solve / direct.solve, f.megabytes / direct.megabytes);
  }
  if (!peers || !bench::has_peers() || is_complex(m)) return;
  for (const bench::Peer peer : {bench::Peer::ilu, bench::Peer::amg}) {
    const Figures f =
        measure_apart([&] { return measure_peer(peer, m, definite, settings.tolerance); });
    print_row(peer == bench::Peer::ilu ? "hypre ILU" : "hypre AMG", m, f);
  }
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Iterative and direct solver on the same matrices");
  Settings settings;
  std::vector<std::string> problems, dparm, also;
  std::string letters;
  bool no_peers = false, page = false;
  app.add_option("problems", problems, "CLASS:SIZE or file");
  app.add_option("-t,--threads", settings.threads, "Threads")->check(CLI::Range(1, 64));
  app.add_option("-r,--repeats", settings.repeats, "Runs, of which the least counts")
      ->check(CLI::Range(1, 100));
  app.add_option("--tolerance", settings.tolerance, "dparm(2)");
  app.add_option("--dparm", dparm, "N=V, for the iterative solver")->take_all()->expected(1);
  app.add_option("--also", also, "N=V,N=V,..., a further row")->take_all()->expected(1);
  app.add_option("--settings", letters, "Letters of docs/iterative.md, a row each");
  app.add_flag("--page", page, "Rows for docs/iterative.md");
  app.add_flag("--no-peers", no_peers, "Without hypre");
  CLI11_PARSE(app, argc, argv);
  for (const std::string& text : dparm)
    for (const auto& entry : entries_of(text)) settings.dparm.push_back(entry);
  if (problems.empty())
    problems = {"anderson:30",   "shifted:40", "poisson3d:50",
                "elasticity:20", "kkt:150",    "helmholtz:30"};
  if (page && letters.empty()) letters = "ABC";
  fmt::print("{} thread{}, tolerance {:.0e}, seconds of {}\n\n", settings.threads,
             settings.threads == 1 ? "" : "s", settings.tolerance,
             settings.threads == 1 ? "processor time" : "wall clock");
  fmt::print("{}\n",
             page ? "| matrix | n | settings | direct s | iterative s | iterations | quotient | "
                    "memory, quotient | setup again |\n|---|---|---|---|---|---|---|---|---|"
                  : "| problem | solver | nnz(L)/nnz(A) | total s | setup | setup again | solve | "
                    "iterations | MB | residual |\n|---|---|---|---|---|---|---|---|---|---|");
  try {
    if (!page)
      for (const char letter : letters) also.push_back(settings_of(letter));
    for (const std::string& spec : problems) {
      if (page)
        print_page(spec, settings, letters, !no_peers);
      else
        compare(spec, settings, also, !no_peers);
      std::fflush(stdout);
    }
  } catch (const std::exception& failure) {
    fmt::print(stderr, "iterative_bench: {}\n", failure.what());
    return 1;
  }
  return 0;
}

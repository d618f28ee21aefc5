// SPDX-License-Identifier: BSD-3-Clause
// Times the phases of velmora, and of the peers that are installed, on the same matrices.
//
// Every measurement runs in a process of its own (this program calls itself with --measure), so
// that threads, BLAS settings and peak memory of one solver don't reach the next.  Solvers take
// turns pass by pass, since machines drift.  Tables are Markdown.
#include <fmt/core.h>
#include <omp.h>
#include <sys/resource.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "kernels/blas.hpp"
#include "problem.hpp"
#include "solver.hpp"

extern "C" char* openblas_get_config(void) __attribute__((weak));

namespace bench {
namespace {

struct Options {
  std::vector<std::string> problems = {"poisson2d:small", "poisson3d:small", "saddle:small"};
  std::vector<std::string> solvers = {"velmora", "cholmod", "mumps"};
  std::vector<std::string> iparm;
  int threads = 1, runs = 3, passes = 1, many = 64, mtype = 0;
  bool cpu = false;
  std::string measure;
};

/// What is timed, in the order of the table.
const char* const phases[] = {"analyse", "factor", "refactor", "solve1",
                              "solveN",  "sweep1", "sweepN"};

/// Samples and figures of one solver on one matrix.
struct Record {
  std::map<std::string, std::vector<double>> samples;  ///< seconds by phase; "dgemm": Gflop/s
  std::map<std::string, double> figures;
  std::string failure;
};

// --- one measurement, in the child ----------------------------------------------------------

/// max|b - A x| / (norm(A) max|x| + max|b|), worst column.
double residual(const Matrix& m, const std::vector<double>& x, const std::vector<double>& b,
                int nrhs) {
  const auto n = static_cast<std::size_t>(m.n);
  const auto part = [&](const std::vector<double>& v, std::size_t i) {
    return m.complex() ? gallery::cplx(v[2 * i], v[2 * i + 1]) : gallery::cplx(v[i]);
  };
  double worst = 0;
  std::vector<double> row_sum(n, 0.0);
  for (int c = 0; c < nrhs; ++c) {
    const std::size_t shift = n * static_cast<std::size_t>(c);
    std::vector<gallery::cplx> r(n);
    double norm_x = 0, norm_b = 0, norm_r = 0;
    for (std::size_t i = 0; i < n; ++i) {
      r[i] = part(b, shift + i);
      norm_b = std::max(norm_b, std::abs(r[i]));
      norm_x = std::max(norm_x, std::abs(part(x, shift + i)));
    }
    for (int i = 0; i < m.n; ++i)
      for (int k = m.ia[i] - 1; k < m.ia[i + 1] - 1; ++k) {
        const int j = m.ja[k] - 1;
        const auto v = m.value(k);
        r[i] -= v * part(x, shift + j);
        if (c == 0) row_sum[i] += std::abs(v);
        if (!m.triangle() || i == j) continue;
        r[j] -= (m.hermitian() ? std::conj(v) : v) * part(x, shift + i);
        if (c == 0) row_sum[j] += std::abs(v);
      }
    for (const auto& v : r)
      norm_r = std::isnan(std::abs(v)) ? INFINITY : std::max(norm_r, std::abs(v));
    const double norm_a = *std::max_element(row_sum.begin(), row_sum.end());
    worst = std::max(worst, norm_r / (norm_a * norm_x + norm_b));
  }
  return worst;
}

/// Seconds since some point in the past: of the wall clock or of this process's processors.
double now(bool cpu) {
  if (!cpu) return omp_get_wtime();
  return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

/// Gflop/s of a square dgemm with the threads of this process.
double dgemm_rate(bool cpu) {
  const int n = 1200;
  std::vector<double> a(static_cast<std::size_t>(n) * n, 0.5), b(a), c(a);
  double best = 0;
  for (int k = 0; k < 4; ++k) {
    const double start = now(cpu);
    vlm::blas::gemm('N', 'T', n, n, n, -1.0, a.data(), n, b.data(), n, 1.0, c.data(), n);
    best = std::max(best, 2e-9 * n * n * n / (now(cpu) - start));
  }
  return best;
}

double resident_mb() {
  rusage use;
  getrusage(RUSAGE_SELF, &use);
  return static_cast<double>(use.ru_maxrss) / 1024;
}

std::unique_ptr<Solver> make(const std::string& name, const Problem& p, const Settings& settings) {
  if (name == "velmora") return make_velmora(p, settings);
  if (name == "cholmod") return make_cholmod(p, settings);
  if (name == "mumps") return make_mumps(p, settings);
  throw std::runtime_error("no such solver: " + name);
}

/// Prints "sample PHASE VALUE" and "figure NAME VALUE" lines, or "failure TEXT".
void measure(const Options& o) {
  const Problem p = load(o.problems.front(), o.mtype);
  Settings settings{o.threads, {}};
  for (const std::string& text : o.iparm) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) throw std::runtime_error("--iparm takes ENTRY=VALUE");
    settings.iparm.emplace_back(std::stoi(text.substr(0, equals)),
                                std::stoi(text.substr(equals + 1)));
  }
  const Matrix& m = p.matrix;
  fmt::print("figure n {}\nfigure nnz {}\nfigure mtype {}\n", m.n, m.nnz(), m.mtype);
  if (!make(o.measure, p, settings)) {
    fmt::print("failure skipped\n");
    return;
  }
  const double before = resident_mb();
  gallery::Rng rng(99);
  std::vector<double> b(static_cast<std::size_t>(m.n) * m.nvals() * o.many), x(b.size());
  for (double& v : b) v = rng.uniform(-1, 1);

  for (int run = 0; run < o.runs; ++run) {
    const std::unique_ptr<Solver> solver = make(o.measure, p, settings);
    const auto time = [&](const char* phase, auto&& work) {
      const double start = now(o.cpu);
      work();
      fmt::print("sample {} {:.9g}\n", phase, now(o.cpu) - start);
    };
    double worst = 0;
    const auto check = [&](int nrhs) { worst = std::max(worst, residual(m, x, b, nrhs)); };
    time("analyse", [&] { solver->analyse(); });
    time("factor", [&] { solver->factor(); });
    if (run == 0) fmt::print("figure peak {:.1f}\n", resident_mb() - before);
    time("solve1", [&] { solver->solve(b.data(), x.data(), 1); });
    check(1);
    time("solveN", [&] { solver->solve(b.data(), x.data(), o.many); });
    check(o.many);
    time("refactor", [&] { solver->factor(); });
    time("sweep1", [&] { solver->sweep(b.data(), x.data(), 1); });
    time("sweepN", [&] { solver->sweep(b.data(), x.data(), o.many); });
    fmt::print("figure sweep_residual {:.3g}\n", residual(m, x, b, o.many));
    fmt::print("figure residual {:.3g}\nfigure entries {:.6g}\nfigure gflop {:.6g}\n", worst,
               solver->factor_entries(), solver->gflop());
  }
  fmt::print("sample dgemm {:.4g}\n", dgemm_rate(o.cpu));
}

// --- many measurements, in the parent -------------------------------------------------------

std::string quoted(const std::string& s) {
  std::string out = "'";
  for (const char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

void run_child(const Options& o, const std::string& solver, const std::string& problem,
               Record& record) {
  char self[4096];
  const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
  if (length < 0) throw std::runtime_error("cannot find this program");
  std::string command = fmt::format("OMP_NUM_THREADS={} ", o.threads);
  // CHOLMOD of this generation opens teams of four whatever it is told.
  if (solver == "cholmod") command += fmt::format("OMP_THREAD_LIMIT={} ", o.threads);
  command += quoted(std::string(self, static_cast<std::size_t>(length)));
  command += fmt::format(" --measure {} --threads {} --runs {} --many {} --type {} {}", solver,
                         o.threads, o.runs, o.many, o.mtype, quoted(problem));
  for (const std::string& text : o.iparm) command += " --iparm " + quoted(text);
  if (o.cpu) command += " --cpu";
  std::FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot start a measurement");
  char line[512];
  while (std::fgets(line, sizeof line, pipe) != nullptr) {
    std::istringstream words(line);
    std::string kind, name;
    double value = 0;
    words >> kind >> name;
    if (kind == "failure") {
      std::getline(words, record.failure);
      record.failure = name + record.failure;
    } else if (words >> value) {
      if (kind == "sample") record.samples[name].push_back(value);
      if (kind == "figure") record.figures[name] = value;
    }
  }
  if (pclose(pipe) != 0 && record.failure.empty()) record.failure = "died";
}

double least(const std::vector<double>& v) {
  return v.empty() ? NAN : *std::min_element(v.begin(), v.end());
}

double median(std::vector<double> v) {
  if (v.empty()) return NAN;
  std::sort(v.begin(), v.end());
  const std::size_t half = v.size() / 2;
  return v.size() % 2 == 1 ? v[half] : 0.5 * (v[half - 1] + v[half]);
}

double best_time(const Record& r, const std::string& phase) {
  if (phase == "total")
    return best_time(r, "analyse") + best_time(r, "factor") + best_time(r, "solve1");
  const auto found = r.samples.find(phase);
  return found == r.samples.end() ? NAN : least(found->second);
}

std::string machine_name() {
  std::ifstream info("/proc/cpuinfo");
  std::string line, model = "unknown processor";
  while (std::getline(info, line))
    if (line.rfind("model name", 0) == 0) {
      model = line.substr(line.find(':') + 2);
      break;
    }
  return fmt::format("{}, {} cores seen; {}", model, std::thread::hardware_concurrency(),
                     openblas_get_config != nullptr ? openblas_get_config() : "BLAS unknown");
}

void print_table(const std::string& problem, const Options& o,
                 const std::map<std::string, Record>& results) {
  const auto figure = [](const Record& r, const char* name) {
    const auto found = r.figures.find(name);
    return found == r.figures.end() ? NAN : found->second;
  };
  const Record& any = results.begin()->second;
  fmt::print("\n### {}: type {}, n {}, {} entries\n\n", problem, figure(any, "mtype"),
             figure(any, "n"), figure(any, "nnz"));
  fmt::print(
      "| solver | | analyse | factor | refactor | total | solve x1 | solve x{0} | sweep x1 | sweep "
      "x{0} "
      "| nnz(L) | Gflop | Gflop/s | of dgemm | peak MB | residual | of sweep |\n|---|---|{1}\n",
      o.many, "---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|");
  for (const std::string& name : o.solvers) {
    const Record& r = results.at(name);
    if (!r.failure.empty()) {
      if (r.failure != "skipped") fmt::print("| {} | {} |\n", name, r.failure);
      continue;
    }
    for (const bool minimum : {true, false}) {
      fmt::print("| {} | {} |", minimum ? name : "", minimum ? "min" : "median");
      for (const char* phase : phases) {
        const std::vector<double>& v = r.samples.at(phase);
        fmt::print(" {:.4g} |", minimum ? least(v) : median(v));
        if (std::string(phase) == "refactor")
          fmt::print(" {} |", minimum ? fmt::format("{:.4g}", best_time(r, "total")) : "");
      }
      if (!minimum) {
        fmt::print(" | | | | | | |\n");
        continue;
      }
      // A count that was cut to whole 10^9 is no base for a rate while it is small.
      const double gflop = figure(r, "gflop");
      const double rate = gflop / std::min(best_time(r, "factor"), best_time(r, "refactor"));
      const bool coarse = name == "velmora" && gflop < 10;
      fmt::print(" {:.4g} | {} | {} | {} | {:.0f} | {:.1e} | {:.1e} |\n", figure(r, "entries"),
                 coarse ? "< 10" : fmt::format("{:.4g}", gflop),
                 coarse ? "" : fmt::format("{:.3g}", rate),
                 coarse ? "" : fmt::format("{:.0f}%", 100 * rate / least(r.samples.at("dgemm"))),
                 figure(r, "peak"), figure(r, "residual"), figure(r, "sweep_residual"));
    }
  }
}

/// velmora's time over the best peer's, for every phase; NaN where there is no peer.
std::map<std::string, double> ratios(const std::map<std::string, Record>& results) {
  std::map<std::string, double> out;
  const auto own = results.find("velmora");
  if (own == results.end() || !own->second.failure.empty()) return out;
  std::vector<std::string> names(std::begin(phases), std::end(phases));
  names.insert(names.begin(), "total");
  for (const std::string& phase : names) {
    double peer = INFINITY;
    for (const auto& [name, record] : results)
      if (name != "velmora" && record.failure.empty())
        peer = std::min(peer, best_time(record, phase));
    if (std::isfinite(peer)) out[phase] = best_time(own->second, phase) / peer;
  }
  return out;
}

/// The class of a generated problem; files are a group of their own.
std::string family_of(const std::string& problem) {
  std::string family = problem.substr(0, problem.find(':'));
  for (const ProblemClass& c : problem_classes())
    if (family == c.name) return family;
  return "files";
}

/// Runs everything; the exit code.
int compare(const Options& o) {
  fmt::print(
      "Machine: {}\nThreads {}, {} runs in each of {} passes, seconds; total = analyse + factor + "
      "solve x1.\n",
      machine_name(), o.threads, o.runs, o.passes, o.cpu ? "processor" : "wall clock");
  std::map<std::string, std::map<std::string, std::vector<double>>> by_class;
  bool failed = false;
  for (const std::string& problem : o.problems) {
    std::map<std::string, Record> results;
    for (int pass = 0; pass < o.passes; ++pass)
      for (const std::string& solver : o.solvers) run_child(o, solver, problem, results[solver]);
    print_table(problem, o, results);
    const auto own = results.find("velmora");
    if (own != results.end()) failed = failed || !own->second.failure.empty();
    const auto ratio = ratios(results);
    if (ratio.empty()) continue;
    fmt::print("\nvelmora / best peer:");
    for (const auto& [phase, value] : ratio) {
      fmt::print(" {} {:.2f}", phase, value);
      by_class[family_of(problem)][phase].push_back(value);
    }
    fmt::print("\n");
    std::fflush(stdout);
  }
  fmt::print("\n### velmora / best peer, geometric mean over each class\n\n");
  for (const auto& [family, table] : by_class) {
    fmt::print("{}:", family);
    for (const auto& [phase, values] : table) {
      double sum = 0;
      for (const double v : values) sum += std::log(v);
      fmt::print(" {} {:.2f}", phase, std::exp(sum / static_cast<double>(values.size())));
    }
    fmt::print("\n");
  }
  return failed ? 1 : 0;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  bench::Options o;
  CLI::App app("Times the phases of velmora and of installed peers on generated matrices or files");
  std::string classes = "classes:";
  for (const auto& c : bench::problem_classes()) classes += std::string(" ") + c.name;
  app.footer(classes);
  app.add_option("problems", o.problems,
                 "CLASS:SIZE (small, medium, large or a number), or files: .mtx, .mtx.gz, .csr");
  app.add_option("-s,--solvers", o.solvers, "velmora, cholmod, mumps")
      ->delimiter(',')
      ->allow_extra_args(false);
  app.add_option("-t,--threads", o.threads, "threads")->check(CLI::PositiveNumber);
  app.add_option("-r,--runs", o.runs, "cycles per measurement")->check(CLI::PositiveNumber);
  app.add_option("-p,--passes", o.passes, "times that the solvers take turns")
      ->check(CLI::PositiveNumber);
  app.add_option("-m,--many", o.many, "right-hand sides of the block solve")
      ->check(CLI::PositiveNumber);
  app.add_option("--type", o.mtype, "matrix type of files, 0 to choose");
  app.add_option("--iparm", o.iparm, "ENTRY=VALUE for velmora, may be repeated")
      ->allow_extra_args(false);
  app.add_flag("--cpu", o.cpu,
               "processor seconds instead of wall clock; for one thread on a busy machine");
  app.add_option("--measure", o.measure, "")->group("");
  CLI11_PARSE(app, argc, argv);
  try {
    if (o.measure.empty()) return bench::compare(o);
    bench::measure(o);
    return 0;
  } catch (const std::exception& failure) {
    fmt::print("failure {}\n", failure.what());
    return o.measure.empty() ? 1 : 0;
  }
}

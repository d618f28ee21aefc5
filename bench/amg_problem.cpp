// SPDX-License-Identifier: BSD-3-Clause
/// Problems and clocks of amg_bench, see amg_problem.hpp.
#include "amg_problem.hpp"

#include <malloc.h>

#include <ctime>
#include <fstream>
#include <random>
#include <stdexcept>

#include "gallery/gallery.hpp"

namespace bench {
namespace {

double status_megabytes(const char* field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with(field)) return std::stod(line.substr(std::string(field).size())) / 1024;
  return 0;
}

gallery::Matrix make(const std::string& name, int edge) {
  if (name == "poisson2d") return gallery::poisson2d(edge);
  if (name == "poisson3d") return gallery::poisson3d(edge);
  if (name == "elasticity") return gallery::elasticity3d(edge, 1);
  throw std::runtime_error(name + ": no such problem");
}

}  // namespace

GridSystem grid_system(const std::string& spec) {
  const auto colon = spec.find(':');
  const std::string name = spec.substr(0, colon);
  const int edge = std::stoi(spec.substr(colon + 1));
  GridSystem s;
  {
    const gallery::Matrix upper = make(name, edge);
    s.n = upper.n;
    // Both triangles: the mirror images of a row stand before its own entries.
    std::vector<int> count(upper.ia.size(), 0);
    for (int i = 0; i < s.n; ++i)
      for (int k = upper.ia[i] - 1; k < upper.ia[i + 1] - 1; ++k) {
        ++count[i + 1];
        if (upper.ja[k] - 1 != i) ++count[upper.ja[k]];
      }
    s.ia = count;
    for (int i = 0; i < s.n; ++i) s.ia[i + 1] += s.ia[i];
    s.ja.resize(s.ia[s.n]);
    s.a.resize(s.ia[s.n]);
    std::vector<int> next(s.ia.begin(), s.ia.end() - 1);
    for (int i = 0; i < s.n; ++i)
      for (int k = upper.ia[i] - 1; k < upper.ia[i + 1] - 1; ++k) {
        const int j = upper.ja[k] - 1;
        s.ja[next[i]] = j, s.a[next[i]++] = upper.a[k];
        if (j != i) s.ja[next[j]] = i, s.a[next[j]++] = upper.a[k];
      }
  }
  if (name == "elasticity") {
    s.block_size = 3;
    for (int z = 0; z < edge; ++z)
      for (int y = 0; y < edge; ++y)
        for (int x = 0; x < edge; ++x)
          for (const int c : {x, y, z}) s.coordinates.push_back(c);
  }
  std::mt19937_64 random(2);
  s.b.resize(s.n);
  for (double& v : s.b) v = std::uniform_real_distribution<double>(-1, 1)(random);
  return s;
}

double wall_seconds() {
  timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

PeakGrowth::PeakGrowth() {
  malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << "5";  // the peak starts anew
  before_ = status_megabytes("VmRSS:");
}

double PeakGrowth::megabytes() const { return status_megabytes("VmHWM:") - before_; }

}  // namespace bench

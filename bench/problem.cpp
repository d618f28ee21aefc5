// SPDX-License-Identifier: BSD-3-Clause
#include "problem.hpp"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <utility>

#include "matrix_market.hpp"

namespace bench {

using namespace gallery;

const std::vector<ProblemClass>& problem_classes() {
  static const std::vector<ProblemClass> list = {
      {"poisson2d", 2, 200, 600, 1000, false, poisson2d},
      {"poisson3d", 2, 20, 45, 64, false, poisson3d},
      {"elasticity", 2, 9, 25, 35, false, [](int g) { return elasticity3d(g, 1); }},
      {"plate", 2, 120, 450, 900, false, [](int g) { return plate(g, 2); }},
      {"shifted", -2, 20, 44, 60, false, [](int g) { return shifted_laplacian(g, 0.4, false, 3); }},
      {"saddle", -2, 9, 24, 34, true, [](int g) { return saddle_point(g, 4); }},
      {"kkt", -2, 40, 220, 450, true, [](int g) { return interior_point_kkt(g, 16, 5); }},
      {"convdiff", 11, 18, 40, 56, false, [](int g) { return convection_diffusion(g, 20, 6); }},
      {"cfd", 11, 9, 21, 30, false, [](int g) { return cfd_blocks(g, 7); }},
      {"circuit", 11, 20000, 150000, 350000, false, [](int n) { return circuit(n, 8); }},
      {"structsym", 1, 14, 28, 41, false, [](int g) { return structurally_symmetric(g, 9); }},
      {"zstructsym", 3, 12, 23, 33, false, [](int g) { return structurally_symmetric(g, 9, 3); }},
      {"helmholtz", 6, 18, 36, 50, false, [](int g) { return helmholtz(g, 0.6, false, 10); }},
      {"hermitian", 4, 18, 36, 50, false, [](int g) { return magnetic_laplacian(g, 0, 11); }},
      {"hermindef", -4, 16, 30, 43, false, [](int g) { return magnetic_laplacian(g, 1.5, 12); }},
      {"zconvdiff", 13, 16, 30, 43, false,
       [](int g) { return convection_diffusion(g, 8, 13, 13); }},
  };
  return list;
}

namespace {

bool ends_with(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

/// Raw dump: 128-byte head (8 bytes magic, int32 mtype and n, int64 nnz, two int32, two names of
/// 48), then int32 ia [n+1], int32 ja [nnz], doubles; indices from 0.
struct RawHead {
  char magic[8];
  std::int32_t mtype, n;
  std::int64_t nnz;
  std::int32_t positive, negative;
  char name[48], family[48];
};
static_assert(sizeof(RawHead) == 128);

Problem read_raw(const std::string& path) {
  const auto close = [](std::FILE* f) { std::fclose(f); };
  const std::unique_ptr<std::FILE, decltype(close)> file(std::fopen(path.c_str(), "rb"), close);
  if (!file) throw std::runtime_error(path + ": cannot open");
  RawHead head;
  const auto read = [&](void* to, std::size_t size, std::size_t count) {
    if (std::fread(to, size, count, file.get()) != count)
      throw std::runtime_error(path + ": too short");
  };
  read(&head, sizeof head, 1);
  if (std::string(head.magic, 7) != "PBCSR01") throw std::runtime_error(path + ": not a .csr dump");
  Problem p;
  Matrix& m = p.matrix;
  m.mtype = head.mtype;
  m.n = head.n;
  m.positive = head.positive;
  m.negative = head.negative;
  head.name[47] = head.family[47] = '\0';
  p.name = head.name;
  p.family = head.family;
  m.ia.resize(static_cast<std::size_t>(m.n) + 1);
  m.ja.resize(static_cast<std::size_t>(head.nnz));
  m.a.resize(static_cast<std::size_t>(head.nnz) * m.nvals());
  read(m.ia.data(), sizeof(int), m.ia.size());
  read(m.ja.data(), sizeof(int), m.ja.size());
  read(m.a.data(), sizeof(double), m.a.size());
  for (int& v : m.ia) ++v;
  for (int& v : m.ja) ++v;
  p.hard = p.family == "symindef";
  return p;
}

int type_of(const tool::MarketFile& file) {
  switch (file.symmetry) {
    case tool::Symmetry::symmetric:
      return file.complex() ? 6 : -2;
    case tool::Symmetry::hermitian:
      return file.complex() ? -4 : -2;
    case tool::Symmetry::general:
      return file.complex() ? 13 : 11;
    default:
      throw std::runtime_error("skew-symmetric matrices are not supported");
  }
}

Problem read_market(const std::string& path, int mtype) {
  tool::MarketFile file = tool::read_market(path);
  tool::to_coordinates(file);
  if (file.rows != file.cols) throw std::runtime_error(path + ": not square");
  if (mtype == 0) mtype = type_of(file);
  const std::size_t slash = path.find_last_of('/');
  const std::string name = path.substr(slash == std::string::npos ? 0 : slash + 1);
  Builder b(name, mtype, file.rows);
  const bool mirrored = file.symmetry != tool::Symmetry::general, triangle = mtype % 2 == 0;
  for (std::size_t k = 0; k < file.entries(); ++k) {
    const int i = file.row[k] - 1, j = file.col[k] - 1;
    const cplx v = file.complex() ? cplx(file.value[2 * k], file.value[2 * k + 1]) : file.value[k];
    if (triangle && !mirrored && i > j) continue;  // a general file holds both halves
    b.add(i, j, v);
    if (mirrored && !triangle && i != j)
      b.add(j, i, file.symmetry == tool::Symmetry::hermitian ? std::conj(v) : v);
  }
  Problem p{name, "file", b.finish(), false};
  p.hard = mtype == -2 || mtype == -4 || mtype == 6;
  return p;
}

}  // namespace

Problem load(const std::string& spec, int mtype) {
  if (ends_with(spec, ".csr")) return read_raw(spec);
  if (ends_with(spec, ".mtx") || ends_with(spec, ".mtx.gz")) return read_market(spec, mtype);
  const std::size_t colon = spec.find(':');
  for (const ProblemClass& c : problem_classes()) {
    if (spec.substr(0, colon) != c.name) continue;
    const std::string size = colon == std::string::npos ? "small" : spec.substr(colon + 1);
    const int g = size == "small"    ? c.small
                  : size == "medium" ? c.medium
                  : size == "large"  ? c.large
                                     : std::atoi(size.c_str());
    if (g < 2) throw std::runtime_error(spec + ": bad size");
    return {std::string(c.name) + " " + size, c.name, c.make(g), c.hard};
  }
  throw std::runtime_error(spec + ": no such class or file type");
}

}  // namespace bench

// SPDX-License-Identifier: BSD-3-Clause
/// velmora-gallery: writes test systems of any size as Matrix Market files.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <string>

#include "bracket.hpp"
#include "gallery.hpp"
#include "matrix_market.hpp"
#include "text_output.hpp"

namespace {

using gallery::Matrix;

struct Kind {
  const char* name;
  const char* what;
  std::function<Matrix(int size, std::uint64_t seed)> make;
};

const Kind kinds[] = {
    {"bracket", "steel bracket, plane stress; size: elements across a leg",
     [](int size, std::uint64_t) { return gallery::bracket(size).stiffness; }},
    {"grid2d", "5-point Laplacian on size x size points",
     [](int size, std::uint64_t) { return gallery::poisson2d(size); }},
    {"grid3d", "7-point Laplacian on size^3 points",
     [](int size, std::uint64_t) { return gallery::poisson3d(size); }},
    {"elasticity", "elastic network on size^3 points, 3 unknowns each",
     [](int size, std::uint64_t seed) { return gallery::elasticity3d(size, seed); }},
    {"saddle", "mixed flow problem on size^3 cells, indefinite with zero diagonal",
     [](int size, std::uint64_t seed) { return gallery::saddle_point(size, seed); }},
    {"stokes", "Stokes flow on size x size cells, indefinite with zero diagonal",
     [](int size, std::uint64_t) { return gallery::stokes(size); }},
    {"kkt", "interior-point step over size x size cells, indefinite over 14 decades",
     [](int size, std::uint64_t seed) { return gallery::interior_point_kkt(size, 14, seed); }},
    {"shifted", "3D Laplacian with a shift, indefinite",
     [](int size, std::uint64_t seed) {
       return gallery::shifted_laplacian(size, 1.0, false, seed);
     }},
    {"convection", "upwind convection-diffusion on size^3 points, unsymmetric",
     [](int size, std::uint64_t seed) { return gallery::convection_diffusion(size, 2.0, seed); }},
    {"helmholtz", "Helmholtz equation on size x size points, complex symmetric",
     [](int size, std::uint64_t seed) { return gallery::helmholtz(size, 0.5, true, seed); }},
    {"magnetic", "magnetic Laplacian on size^3 points, Hermitian positive definite",
     [](int size, std::uint64_t seed) { return gallery::magnetic_laplacian(size, 0.0, seed); }},
};

/// Files hold the lower triangle; row i of the stored upper triangle is its column i.
void write_matrix(const std::string& path, const Matrix& matrix) {
  const bool complex = matrix.complex(), triangle = matrix.triangle();
  tool::TextOutput out(path);
  out.print("%%MatrixMarket matrix coordinate {} {}\n% velmora-gallery: {}\n{} {} {}\n",
            complex ? "complex" : "real",
            !triangle            ? "general"
            : matrix.hermitian() ? "hermitian"
                                 : "symmetric",
            matrix.name, matrix.n, matrix.n, matrix.nnz());
  for (int i = 1; i <= matrix.n; ++i) {
    for (int k = matrix.ia[static_cast<std::size_t>(i - 1)];
         k < matrix.ia[static_cast<std::size_t>(i)]; ++k) {
      const int j = matrix.ja[static_cast<std::size_t>(k - 1)];
      const gallery::cplx stored = matrix.value(k - 1);
      const gallery::cplx value = matrix.hermitian() ? std::conj(stored) : stored;
      out.print("{} {} {}", triangle ? j : i, triangle ? i : j, value.real());
      if (complex) out.print(" {}", i == j && matrix.hermitian() ? 0.0 : value.imag());
      out.print("\n");
    }
  }
  out.close();
}

std::string list_of_kinds() {
  std::string text = "Kinds:\n";
  for (const Kind& kind : kinds) text += fmt::format("  {:<12}{}\n", kind.name, kind.what);
  return text;
}

int run(int argc, char** argv) {
  CLI::App app{"Writes a test system as a Matrix Market file."};
  app.footer(list_of_kinds());
  std::string name, output, load;
  int size = 0;
  std::uint64_t seed = 1;
  app.add_option("kind", name, "Kind of system, see below")->required();
  app.add_option("-n,--size", size, "Size, whose meaning depends on the kind")
      ->required()
      ->check(CLI::Range(2, 4000));
  app.add_option("-o,--output", output, "File to write, gzipped if it ends in .gz")->required();
  app.add_option("--seed", seed, "Seed of the random kinds")->capture_default_str();
  app.add_option("--load", load, "File for the load vector of the bracket");
  CLI11_PARSE(app, argc, argv);
  for (const Kind& kind : kinds) {
    if (name != kind.name) continue;
    if (name == "bracket" && size < 4) throw tool::InputError("a bracket needs --size 4 or more");
    if (!load.empty() && name != "bracket") {
      throw tool::InputError("only the bracket has a load vector");
    }
    const Matrix matrix = kind.make(size, seed);
    write_matrix(output, matrix);
    if (!load.empty()) {
      tool::write_columns(load, {matrix.n, 1, false, gallery::bracket(size).load});
    }
    fmt::print("{}: {} equations, {} stored entries\n", output, matrix.n, matrix.nnz());
    return 0;
  }
  throw tool::InputError(fmt::format("unknown kind '{}'; --help lists them", name));
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    fmt::print(stderr, "velmora-gallery: {}\n", error.what());
    return 1;
  }
}

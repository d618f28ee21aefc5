// SPDX-License-Identifier: BSD-3-Clause
/// Matrix Market input of velmora-solve: every variant against the dense matrix it means, every
/// malformed file against the line that it must give.
#include <gtest/gtest.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <filesystem>
#include <fstream>
#include <limits>
#include <numeric>
#include <random>
#include <set>

#include "elimination.hpp"
#include "matrix_market.hpp"
#include "system.hpp"
#include "types.hpp"

namespace {

using Complex = std::complex<double>;
using Dense = std::vector<Complex>;  // row after row
using tool::BuildNotes;
using tool::Form;
using tool::SparseMatrix;

class ToolInput : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ =
        std::filesystem::temp_directory_path() / ("velmora_input_" + std::to_string(getpid()));
    std::filesystem::create_directories(folder_);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::string file(const std::string& text) {
    std::string path = (folder_ / "matrix.mtx").string();
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  std::string error_of(const std::string& text) {
    try {
      BuildNotes notes;
      tool::build_matrix(tool::read_market(file(text)), notes);
    } catch (const tool::InputError& error) {
      return error.what();
    }
    return "no error";
  }

  std::filesystem::path folder_;
};

SparseMatrix build(const std::string& path) {
  BuildNotes notes;
  return tool::build_matrix(tool::read_market(path), notes);
}

/// The matrix that the compressed rows mean, mirrored half included.
Dense dense(const SparseMatrix& matrix) {
  const auto n = static_cast<std::size_t>(matrix.n);
  Dense out(n * n, 0.0);
  for (std::size_t i = 0; i < n; ++i) {
    int before = 0;
    for (int k = matrix.ia[i]; k < matrix.ia[i + 1]; ++k) {
      const auto at = static_cast<std::size_t>(k - 1);
      const auto j = static_cast<std::size_t>(matrix.ja[at] - 1);
      EXPECT_GT(matrix.ja[at], before) << "row " << i + 1;
      before = matrix.ja[at];
      const Complex value =
          matrix.complex ? Complex(matrix.a[2 * at], matrix.a[2 * at + 1]) : matrix.a[at];
      out[i * n + j] = value;
      if (matrix.form != Form::full) {
        EXPECT_GE(j, i);
        if (i != j) out[j * n + i] = matrix.form == Form::hermitian ? std::conj(value) : value;
      }
    }
  }
  return out;
}

TEST_F(ToolInput, EveryVariantMeansItsMatrix) {
  const Complex i(0, 1);
  const struct {
    const char* text;
    Form form;
    Dense expected;
  } cases[] = {
      {"%%MatrixMarket matrix coordinate real general\n% note\n\n2 2 3\n2 1 -4\n1 1 1.5e0\n1 2 "
       "2D1\n",
       Form::full,
       {1.5, 20, -4, 0}},
      {"%%matrixmarket MATRIX Coordinate Integer General\r\n2 2 2\r\n1 1 7\r\n2 2 -3\r\n",
       Form::full,
       {7, 0, 0, -3}},
      {"%%MatrixMarket matrix coordinate pattern symmetric\n2 2 2\n1 1\n2 1",
       Form::symmetric,
       {1, 1, 1, 0}},
      {"%%MatrixMarket matrix coordinate real symmetric\n2 2 3\n1 2 +5\n2 2 3\n1 1 0\n",
       Form::symmetric,
       {0, 5, 5, 3}},
      {"%%MatrixMarket matrix coordinate complex general\n2 2 2\n1 2 1 2\n2 1 3 -4\n",
       Form::full,
       {0, 1.0 + 2.0 * i, 3.0 - 4.0 * i, 0}},
      {"%%MatrixMarket matrix coordinate complex symmetric\n2 2 2\n2 1 1 2\n1 1 0 1\n",
       Form::symmetric,
       {i, 1.0 + 2.0 * i, 1.0 + 2.0 * i, 0}},
      {"%%MatrixMarket matrix coordinate complex hermitian\n2 2 2\n2 1 1 2\n1 1 4 0\n",
       Form::hermitian,
       {4, 1.0 - 2.0 * i, 1.0 + 2.0 * i, 0}},
      {"%%MatrixMarket matrix coordinate complex hermitian\n2 2 2\n1 2 1 2\n1 1 4 0\n",
       Form::hermitian,
       {4, 1.0 + 2.0 * i, 1.0 - 2.0 * i, 0}},
      {"%%MatrixMarket matrix array real general\n2 2\n1\n2\n3 4\n", Form::full, {1, 3, 2, 4}},
      {"%%MatrixMarket matrix array integer symmetric\n2 2\n1\n2\n3\n",
       Form::symmetric,
       {1, 2, 2, 3}},
      {"%%MatrixMarket matrix coordinate real skew-symmetric\n2 2 2\n2 1 3\n1 1 0\n",
       Form::full,
       {0, -3, 3, 0}},
      {"%%MatrixMarket matrix array complex skew-symmetric\n2 2\n1 2\n",
       Form::full,
       {0, -1.0 - 2.0 * i, 1.0 + 2.0 * i, 0}},
      {"%%MatrixMarket matrix array complex hermitian\n2 2\n1 0\n2 5\n3 0\n",
       Form::hermitian,
       {1, 2.0 - 5.0 * i, 2.0 + 5.0 * i, 3}},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.text);
    const SparseMatrix matrix = build(file(item.text));
    EXPECT_EQ(matrix.form, item.form);
    EXPECT_EQ(dense(matrix), item.expected);
  }
}

TEST_F(ToolInput, MalformedFilesGiveOneLine) {
  const std::string real = "%%MatrixMarket matrix coordinate real general\n";
  const std::string symmetric = "%%MatrixMarket matrix coordinate real symmetric\n";
  const std::string hermitian = "%%MatrixMarket matrix coordinate complex hermitian\n";
  const std::pair<std::string, const char*> cases[] = {
      {"", "is empty"},
      {"1 2 3\n", ":1: not a Matrix Market file"},
      {"%%MatrixMarket matrix coordinate real\n", ":1: the first line must read"},
      {"%%MatrixMarket vector coordinate real general\n", "holds a 'vector'"},
      {"%%MatrixMarket matrix sparse real general\n", "unknown layout 'sparse'"},
      {"%%MatrixMarket matrix coordinate quaternion general\n", "unknown field"},
      {"%%MatrixMarket matrix coordinate real banded\n", "unknown symmetry"},
      {"%%MatrixMarket matrix array pattern general\n2 2\n", "array cannot be a pattern"},
      {"%%MatrixMarket matrix coordinate real hermitian\n1 1 1\n1 1 1\n",
       "a real one is symmetric"},
      {real, "ends before its line of sizes"},
      {real + "2 2\n", ":2: the line of sizes"},
      {real + "2 2 1 9\n1 1 1\n", ":2: the line of sizes"},
      {real + "0 0 0\n", "no rows"},
      {real + "2 2 -1\n", "negative number of entries"},
      {real + "99999999999999999999 2 1\n1 1 1\n", "the line of sizes"},
      {real + "3000000000 3000000000 1\n1 1 1\n", "beyond 32-bit"},
      {real + "2 3 1\n1 1 1\n", "2 by 3; only square"},
      {symmetric + "2 3 1\n1 1 1\n", "cannot be 2 by 3"},
      {real + "2 2 2\n1 1 1\n", "ends after 1 of 2 entries"},
      {real + "2 2 2147483647\n1 1 1\n", "ends after 1 of 2147483647 entries"},
      {real + "2 2 1\n1 1 1\n2 2 2\n", ":4: more entries than the 1 announced"},
      {real + "2 2 1\n1 3 1\n", ":3: position (1, 3) is outside"},
      {real + "2 2 1\n0 1 1\n", "position (0, 1) is outside"},
      {real + "2 2 1\n-1 1 1\n", "position (-1, 1) is outside"},
      {real + "2 2 1\n1 1\n", "expected 'row column value'"},
      {real + "2 2 1\n1 1 abc\n", "found '1 1 abc'"},
      {real + "2 2 1\n1 1 1e999\n", "found '1 1 1e999'"},
      {real + "2 2 1\n1 1 1 1\n", "expected 'row column value'"},
      {real + "2 2 1\n1.5 1 1\n", "expected 'row column value'"},
      {real + std::string("2 2 1\n1 1 \0\x01\n", 12), "found '1 1 ..'"},
      {"%%MatrixMarket matrix coordinate integer general\n1 1 1\n1 1 2.5\n", "row column integer"},
      {"%%MatrixMarket matrix coordinate complex general\n1 1 1\n1 1 2\n", "real imaginary"},
      {symmetric + "2 2 2\n1 2 1\n2 1 1\n", "both sides of the diagonal"},
      {hermitian + "1 1 1\n1 1 1 2\n", "diagonal entry 1 of a hermitian matrix is not real"},
      {"%%MatrixMarket matrix array complex hermitian\n1 1\n1 2\n", "is not real"},
      {"%%MatrixMarket matrix coordinate real skew-symmetric\n2 2 1\n1 1 1\n",
       ":3: the diagonal entry 1 of a skew-symmetric matrix is not zero"},
      {"%%MatrixMarket matrix coordinate pattern skew-symmetric\n2 2 1\n2 1\n", "no signs"},
      {"%%MatrixMarket matrix array real general\n2 2\n1 2 3\n", "ends after 3 of 4 values"},
      {"%%MatrixMarket matrix array real general\n1 1\n1 2\n", "more values than the 1"},
      {"%%MatrixMarket matrix array real general\n1 1\nx\n", "expected real values, found 'x'"},
      {real + "2 2 1\n" + std::string(3 << 20, '7'), "a million characters"},
  };
  for (const auto& [text, expected] : cases) {
    SCOPED_TRACE(text.substr(0, 200));
    const std::string error = error_of(text);
    EXPECT_NE(error.find(expected), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    EXPECT_LT(error.size(), 300U);
  }
}

TEST_F(ToolInput, DamagedFilesNeverCrash) {
  // Random changes of a good file: whatever they give, it is a matrix or one line of text.
  const std::string good =
      "%%MatrixMarket matrix coordinate real symmetric\n4 4 6\n1 1 4\n2 1 -1.25\n2 2 4\n"
      "3 3 5e-1\n4 3 1\n4 4 2\n";
  std::mt19937 random(20240611);
  const std::string alphabet = "0123456789 -+.eE\n\r\t%ax";
  int errors = 0;
  for (int trial = 0; trial < 500; ++trial) {
    std::string text = good;
    for (int change = 0; change < 3; ++change) {
      const std::size_t at = random() % text.size();
      switch (random() % 3) {
        case 0:
          text[at] = alphabet[random() % alphabet.size()];
          break;
        case 1:
          text.erase(at, random() % 5);
          break;
        default:
          text.insert(at, 1, alphabet[random() % alphabet.size()]);
      }
    }
    const std::string error = error_of(text);
    errors += error == "no error" ? 0 : 1;
    ASSERT_EQ(error.find('\n'), std::string::npos) << text;
  }
  EXPECT_GT(errors, 125);
}

TEST_F(ToolInput, ArchivesAreReadAndDamageIsSeen) {
  std::string text = "%%MatrixMarket matrix coordinate real general\n5000 5000 5000\n";
  for (int i = 1; i <= 5000; ++i) {
    text +=
        std::to_string(i) + " " + std::to_string(5001 - i) + " " + std::to_string(0.37 * i) + "\n";
  }
  const std::string path = (folder_ / "matrix.mtx.gz").string();
  gzFile out = gzopen(path.c_str(), "wb");
  ASSERT_EQ(gzwrite(out, text.data(), static_cast<unsigned>(text.size())),
            static_cast<int>(text.size()));
  gzclose(out);
  EXPECT_EQ(build(path).ja, build(file(text)).ja);
  EXPECT_EQ(build(path).a, build(file(text)).a);

  std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
  EXPECT_THROW(build(path), tool::InputError);
  EXPECT_THROW(build((folder_ / "absent.mtx").string()), tool::InputError);
  EXPECT_THROW(build(folder_.string()), tool::InputError);
}

TEST_F(ToolInput, DuplicatesAreSummedAndTheDiagonalFilled) {
  const std::string path = file(
      "%%MatrixMarket matrix coordinate real general\n3 3 5\n3 1 1\n1 2 2\n3 1 4\n1 2 -2\n2 3 7\n");
  BuildNotes notes;
  SparseMatrix matrix = tool::build_matrix(tool::read_market(path), notes);
  EXPECT_EQ(notes.duplicates, 2);
  const Dense expected = {0, 0, 0, 0, 0, 7, 5, 0, 0};
  EXPECT_EQ(dense(matrix), expected);
  EXPECT_EQ(tool::add_missing_diagonal(matrix), 3);
  EXPECT_EQ(matrix.ia, (std::vector<int>{1, 3, 5, 7}));
  EXPECT_EQ(matrix.ja, (std::vector<int>{1, 2, 2, 3, 1, 3}));
  EXPECT_EQ(dense(matrix), expected);
  EXPECT_EQ(tool::add_missing_diagonal(matrix), 0);
}

TEST_F(ToolInput, SymmetryIsSeenAndTrianglesUndone) {
  const std::string head =
      "%%MatrixMarket matrix coordinate complex general\n2 2 4\n1 1 4 0\n2 2 3 0\n";
  const auto look = [&](const std::string& text) { return tool::examine(build(file(text))); };
  const tool::Traits hermitian = look(head + "1 2 1 2\n2 1 1 -2\n");
  EXPECT_TRUE(hermitian.hermitian && !hermitian.symmetric);
  const tool::Traits symmetric = look(head + "1 2 1 2\n2 1 1 2\n");
  EXPECT_TRUE(!symmetric.hermitian && symmetric.symmetric);
  const tool::Traits structural = look(head + "1 2 1 2\n2 1 5 2\n");
  EXPECT_TRUE(structural.structurally_symmetric && !structural.symmetric && !structural.hermitian);

  for (const char* kind : {"symmetric", "hermitian"}) {
    const SparseMatrix half = build(file(std::string("%%MatrixMarket matrix coordinate complex ") +
                                         kind + "\n3 3 4\n1 1 1 0\n3 1 2 3\n3 2 4 5\n2 2 0 0\n"));
    const SparseMatrix whole = tool::expanded(half);
    EXPECT_EQ(whole.form, Form::full);
    EXPECT_EQ(dense(whole), dense(half));
    EXPECT_EQ(dense(tool::upper_triangle(whole, half.form)), dense(half));
    EXPECT_EQ(tool::choose_type(half).mtype, half.form == Form::symmetric ? 6 : -4);
    EXPECT_EQ(tool::choose_type(whole).mtype, tool::choose_type(half).mtype);
    EXPECT_EQ(tool::choose_type(whole).reason, tool::choose_type(half).reason);
  }
  const SparseMatrix real_one =
      build(file("%%MatrixMarket matrix coordinate complex hermitian\n1 1 1\n1 1 3 0\n"));
  EXPECT_FALSE(real_one.complex);
  EXPECT_EQ(real_one.form, Form::symmetric);
}

TEST_F(ToolInput, ResidualsAreThoseOfTheDenseMatrix) {
  std::mt19937 random(7);
  std::normal_distribution<double> normal;
  const std::size_t n = 6;
  for (const Form form : {Form::full, Form::symmetric, Form::hermitian}) {
    SparseMatrix full{static_cast<int>(n), true, Form::full, {1}, {}, {}};
    for (std::size_t i = 0; i < n; ++i) {
      for (std::size_t j = 0; j < n; ++j) {
        full.ja.push_back(static_cast<int>(j) + 1);
        full.a.push_back(normal(random));
        full.a.push_back(i == j && form == Form::hermitian ? 0.0 : normal(random));
      }
      full.ia.push_back(static_cast<int>(full.ja.size()) + 1);
    }
    const SparseMatrix matrix = form == Form::full ? full : tool::upper_triangle(full, form);
    const Dense a = dense(matrix);
    std::vector<double> x(2 * n), b(2 * n);
    for (double& value : x) value = normal(random);
    for (double& value : b) value = normal(random);
    for (const bool transposed : {false, true}) {
      double componentwise = 0;
      std::vector<double> product(2 * n);
      for (std::size_t i = 0; i < n; ++i) {
        Complex sum = 0;
        double size = std::abs(Complex(b[2 * i], b[2 * i + 1]));
        for (std::size_t j = 0; j < n; ++j) {
          const Complex entry = transposed ? a[j * n + i] : a[i * n + j];
          sum += entry * Complex(x[2 * j], x[2 * j + 1]);
          size += std::abs(entry) * std::abs(Complex(x[2 * j], x[2 * j + 1]));
        }
        componentwise =
            std::max(componentwise, std::abs(Complex(b[2 * i], b[2 * i + 1]) - sum) / size);
        product[2 * i] = sum.real();
        product[2 * i + 1] = sum.imag();
      }
      EXPECT_NEAR(tool::residual(matrix, transposed, 1, b, x).componentwise, componentwise, 1e-14);
      const std::vector<double> y = tool::multiply(matrix, transposed, x);
      for (std::size_t k = 0; k < 2 * n; ++k) EXPECT_NEAR(y[k], product[k], 1e-13);
      EXPECT_LT(tool::residual(matrix, transposed, 1, product, x).normwise, 1e-15);
    }
    x[3] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(std::isnan(tool::residual(matrix, false, 1, b, x).normwise));
    EXPECT_TRUE(std::isnan(tool::residual(matrix, false, 1, b, x).componentwise));
  }
}

TEST_F(ToolInput, FactorStructureIsThatOfEliminationOnSets) {
  std::mt19937 random(11);
  const std::size_t n = 40;
  std::string text = "%%MatrixMarket matrix coordinate pattern general\n40 40 60\n";
  for (int k = 0; k < 60; ++k) {
    text += std::to_string(1 + random() % n) + " " + std::to_string(1 + random() % n) + "\n";
  }
  const SparseMatrix matrix = build(file(text));
  std::vector<int> order(n);
  std::iota(order.begin(), order.end(), 1);
  std::shuffle(order.begin(), order.end(), random);

  std::vector<std::set<std::size_t>> below(n);  // rows below the diagonal, column by column
  const Dense a = dense(matrix);
  for (std::size_t p = 0; p < n; ++p) {
    for (std::size_t q = 0; q < n; ++q) {
      const auto i = static_cast<std::size_t>(order[p] - 1),
                 j = static_cast<std::size_t>(order[q] - 1);
      if (p != q && a[i * n + j] != 0.0) below[std::min(p, q)].insert(std::max(p, q));
    }
  }
  const auto original = below;
  std::size_t nonzeros = n;
  for (std::size_t k = 0; k < n; ++k) {
    nonzeros += below[k].size();
    for (std::size_t i : below[k]) {
      for (std::size_t j : below[k]) {
        if (j > i) below[i].insert(j);
      }
    }
  }
  const tool::Elimination elimination(matrix, order);
  EXPECT_EQ(elimination.nonzeros(), static_cast<std::int64_t>(nonzeros));
  std::vector<std::set<std::size_t>> seen(n);
  elimination.for_factor([&](int row, int column, bool of_matrix) {
    const auto i = static_cast<std::size_t>(row), j = static_cast<std::size_t>(column);
    EXPECT_TRUE(seen[j].insert(i).second);
    EXPECT_EQ(of_matrix, original[j].count(i) == 1);
  });
  EXPECT_EQ(seen, below);
  int next = 0;
  for (const tool::Range& run : elimination.supernodes()) {
    EXPECT_EQ(run.first, next);
    next = run.last + 1;
    for (auto j = static_cast<std::size_t>(run.first); static_cast<int>(j) < run.last; ++j) {
      std::set<std::size_t> expected = below[j + 1];
      expected.insert(j + 1);
      EXPECT_EQ(below[j], expected);
    }
  }
  EXPECT_EQ(next, static_cast<int>(n));
  for (const tool::Range& domain : elimination.domains(3)) {
    for (int row = domain.first; row <= domain.last; ++row) {
      for (int column = 0; column < domain.first; ++column) {
        EXPECT_EQ(below[static_cast<std::size_t>(column)].count(static_cast<std::size_t>(row)), 0U);
      }
    }
  }
}

TEST_F(ToolInput, ColumnsComeBackAsWritten) {
  tool::DenseColumns columns{2, 2, true, {1.0 / 3, -0.0, 1e-308, 5e300, 7, 8, 0.1, 1e22}};
  for (const char* name : {"x.mtx", "x.mtx.gz"}) {
    const std::string path = (folder_ / name).string();
    tool::write_columns(path, columns);
    const tool::DenseColumns back = tool::read_columns(path);
    EXPECT_TRUE(back.complex);
    EXPECT_EQ(back.rows, 2);
    EXPECT_EQ(back.value, columns.value);
  }
  EXPECT_EQ(tool::read_columns(file("1 2\n\n-3e2\n")).value, (std::vector<double>{1, 2, -300}));
  EXPECT_EQ(tool::read_columns(file("%%MatrixMarket matrix coordinate real general\n3 2 2\n"
                                    "3 1 9\n1 2 4\n"))
                .value,
            (std::vector<double>{0, 0, 9, 4, 0, 0}));
  EXPECT_THROW(tool::read_columns(file("1 2 three\n")), tool::InputError);
  EXPECT_THROW(tool::write_columns((folder_ / "no" / "x").string(), columns), tool::InputError);
}

}  // namespace

// SPDX-License-Identifier: BSD-3-Clause
#include "pictures.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <filesystem>

namespace tool {
namespace {

/// The matrix with each row in the place that the matching gave it.
SparseMatrix matched_rows(const SparseMatrix& matrix, const std::vector<int>& order) {
  const auto n = static_cast<std::size_t>(matrix.n);
  if (order.size() < 2 * n) return matrix;
  SparseMatrix out{matrix.n, false, matrix.form, {1}, {}, {}};
  for (std::size_t j = 0; j < n; ++j) {
    const auto row = static_cast<std::size_t>(order[n + j] - 1);
    out.ja.insert(out.ja.end(), matrix.ja.begin() + (matrix.ia[row] - 1),
                  matrix.ja.begin() + (matrix.ia[row + 1] - 1));
    out.ia.push_back(static_cast<int>(out.ja.size()) + 1);
  }
  return out;
}

/// A gnuplot process that reads its script from here.
class Gnuplot {
 public:
  explicit Gnuplot(const std::string& path) : path_(path) {
    check_picture(path);
    std::signal(SIGPIPE, SIG_IGN);  // a gnuplot that gives up shows in its status
    pipe_ = popen("gnuplot 2>/dev/null", "w");
    if (pipe_ == nullptr) throw InputError("cannot start gnuplot");
  }
  ~Gnuplot() {
    if (pipe_ != nullptr) pclose(pipe_);
  }
  Gnuplot(const Gnuplot&) = delete;
  Gnuplot& operator=(const Gnuplot&) = delete;

  template <typename... Args>
  void say(fmt::format_string<Args...> format, Args&&... args) {
    fmt::print(pipe_, format, std::forward<Args>(args)...);
  }
  void bytes(const std::vector<std::uint8_t>& data) {
    std::fwrite(data.data(), 1, data.size(), pipe_);
  }
  void finish() {
    const int status = pclose(pipe_);
    pipe_ = nullptr;
    std::error_code ignored;
    if (status != 0 || std::filesystem::file_size(path_, ignored) == 0) {
      throw InputError(fmt::format("gnuplot could not draw {}", path_));
    }
  }

 private:
  std::string path_;
  std::FILE* pipe_ = nullptr;
};

/// A text between single quotes of gnuplot.
std::string quoted(const std::string& text) {
  std::string out = "'";
  for (char c : text) {
    if (c == '\'') out += c;
    out += c == '\n' ? ' ' : c;
  }
  return out + "'";
}

/// Square of pixels in which the entries of a matrix are counted.
class Raster {
 public:
  explicit Raster(int n) : n_(n), side_(std::min(n, largest_side)) {
    count_.assign(static_cast<std::size_t>(side_) * static_cast<std::size_t>(side_), {0, 0});
  }
  /// @param layer  0 entries of the matrix, 1 fill
  void add(int row, int column, std::size_t layer) {
    ++count_[pixel(row) * width() + pixel(column)][layer];
  }

  /// Colours, row after row; a pixel shows which layer has more, and how full it is.
  std::vector<std::uint8_t> colours() const {
    constexpr double matrix_colour[3] = {22, 44, 92}, fill_colour[3] = {236, 112, 20};
    std::uint32_t most = 1;
    for (const auto& both : count_) most = std::max(most, both[0] + both[1]);
    std::vector<std::uint8_t> out;
    out.reserve(3 * count_.size());
    for (const auto& both : count_) {
      const std::uint32_t sum = both[0] + both[1];
      // Lonely entries must be seen too: half of the colour at least, the rest by logarithm.
      const double strength = sum == 0 ? 0
                                       : 0.5 + 0.5 * std::log1p(static_cast<double>(sum)) /
                                                   std::log1p(static_cast<double>(most));
      const double share = sum == 0 ? 0 : static_cast<double>(both[1]) / sum;
      for (std::size_t c = 0; c < 3; ++c) {
        const double ink = (1 - share) * matrix_colour[c] + share * fill_colour[c];
        out.push_back(static_cast<std::uint8_t>(255 - strength * (255 - ink)));
      }
    }
    return out;
  }
  int side() const { return side_; }
  double cell() const { return static_cast<double>(n_) / side_; }

 private:
  static constexpr int largest_side = 640;
  std::size_t width() const { return static_cast<std::size_t>(side_); }
  std::size_t pixel(int index) const {
    return static_cast<std::size_t>(static_cast<std::int64_t>(index) * side_ / n_);
  }
  int n_, side_;
  std::vector<std::array<std::uint32_t, 2>> count_;
};

/// A panel: the raster in coordinates of rows and columns, row 1 on top.
void draw_raster(Gnuplot& plot, const Raster& raster, int n, const std::string& title) {
  plot.say("set title {} noenhanced font 'sans,9'\n", quoted(title));
  plot.say("set xrange [0.5:{0}.5]\nset yrange [{0}.5:0.5]\n", n);
  plot.say(
      "plot '-' binary array=({0},{0}) dx={1} dy={1} origin=({2},{2}) format='%uchar' "
      "using 1:2:3 with rgbimage notitle\n",
      raster.side(), raster.cell(), 0.5 + raster.cell() / 2);
  plot.bytes(raster.colours());
}

void draw_square(Gnuplot& plot, const Range& range, const char* style) {
  plot.say("set object rectangle from {0},{0} to {1},{1} front fillstyle empty border {2}\n",
           range.first + 0.5, range.last + 1.5, style);
}

}  // namespace

void check_picture(const std::string& path) {
  if (std::system("command -v gnuplot >/dev/null 2>&1") != 0) {  // NOLINT(cert-env33-c)
    throw InputError(
        "pictures are drawn by gnuplot, which is not installed (apt-get install gnuplot-nox)");
  }
  std::error_code ignored;
  const bool was_there = std::filesystem::exists(path, ignored);
  std::FILE* probe = std::fopen(path.c_str(), "ab");
  if (probe == nullptr) throw InputError(fmt::format("cannot write {}", path));
  std::fclose(probe);
  if (!was_there) std::filesystem::remove(path, ignored);
}

void draw_spy(const std::string& path, const std::string& title, const SparseMatrix& matrix,
              const std::vector<int>& order, int domains) {
  Raster before(matrix.n), after(matrix.n);
  for (int i = 0; i < matrix.n; ++i) {
    for (int k = matrix.ia[static_cast<std::size_t>(i)];
         k < matrix.ia[static_cast<std::size_t>(i) + 1]; ++k) {
      const int j = matrix.ja[static_cast<std::size_t>(k - 1)] - 1;
      before.add(i, j, 0);
      if (i != j && matrix.form != Form::full) before.add(j, i, 0);
    }
  }
  const Elimination elimination(matched_rows(matrix, order), order);
  elimination.for_factor(
      [&](int row, int column, bool original) { after.add(row, column, original ? 0 : 1); });
  for (int i = 0; i < matrix.n; ++i) after.add(i, i, 0);

  Gnuplot plot(path);
  plot.say("set terminal pngcairo size 1500,820 font 'sans,11'\nset output {}\n", quoted(path));
  plot.say("set multiplot layout 1,2 title {} noenhanced\n", quoted(title));
  plot.say("set size ratio -1\nset tics out nomirror\nset xlabel 'column'\nset ylabel 'row'\n");
  draw_raster(plot, before, matrix.n, fmt::format("matrix: {} entries", matrix.entries()));
  // Supernodes narrower than a few pixels would only blacken the diagonal.
  for (const Range& run : elimination.supernodes()) {
    if (run.last - run.first + 1 >= 4 * after.cell() && run.last > run.first) {
      draw_square(plot, run, "linecolor rgb '#7a7a7a' linewidth 0.8");
    }
  }
  const std::vector<Range> marked = elimination.domains(domains);
  for (const Range& domain : marked)
    draw_square(plot, domain, "linecolor rgb '#1a7f37' linewidth 1.8");
  draw_raster(plot, after, matrix.n,
              fmt::format("factor in elimination order: {} entries in L (orange: fill); "
                          "green: {} domains, grey: supernodes",
                          elimination.nonzeros(), marked.size()));
  plot.say("unset multiplot\nunset output\n");
  plot.finish();
}

void draw_convergence(const std::string& path, const std::string& title,
                      const std::vector<RefinementPoint>& points) {
  Gnuplot plot(path);
  plot.say("set terminal pngcairo size 900,600 font 'sans,11'\nset output {}\n", quoted(path));
  plot.say(
      "set title {} noenhanced\nset xlabel 'steps of iterative refinement'\n"
      "set ylabel 'scaled residual'\nset logscale y\nset format y '10^{{%L}}'\nset grid\n"
      "set xtics 1\nset key top right\nset xrange [{}:{}]\n",
      quoted(title), points.front().steps - 0.25, points.back().steps + 0.25);
  plot.say(
      "plot '-' using 1:2 with linespoints pointtype 7 linewidth 2 title 'componentwise', "
      "'-' using 1:2 with linespoints pointtype 5 linewidth 2 title 'normwise'\n");
  constexpr double least = 1e-20;  // zero has no place on a logarithmic axis
  for (const RefinementPoint& point : points) {
    plot.say("{} {:e}\n", point.steps, std::max(least, point.residual.componentwise));
  }
  plot.say("e\n");
  for (const RefinementPoint& point : points) {
    plot.say("{} {:e}\n", point.steps, std::max(least, point.residual.normwise));
  }
  plot.say("e\nunset output\n");
  plot.finish();
}

void draw_iterations(const std::string& path, const std::string& title,
                     const std::vector<double>& history) {
  Gnuplot plot(path);
  plot.say("set terminal pngcairo size 900,600 font 'sans,11'\nset output {}\n", quoted(path));
  plot.say(
      "set title {} noenhanced\nset xlabel 'iterations'\nset ylabel 'relative residual'\n"
      "set logscale y\nset format y '10^{{%L}}'\nset grid\nset xrange [0:{}]\n",
      quoted(title), std::max<std::size_t>(history.size() - 1, 1));
  plot.say("plot '-' using 1:2 with lines linewidth 2 notitle\n");
  constexpr double least = 1e-20;  // zero has no place on a logarithmic axis
  for (std::size_t k = 0; k < history.size(); ++k)
    plot.say("{} {:e}\n", k, std::max(least, history[k]));
  plot.say("e\nunset output\n");
  plot.finish();
}

}  // namespace tool

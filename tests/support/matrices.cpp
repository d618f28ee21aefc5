// SPDX-License-Identifier: BSD-3-Clause
#include "matrices.hpp"

#include <cmath>
#include <cstddef>

namespace vlm::test {

std::vector<Matrix> divisible_by_pattern() {
  return {poisson3d(13),
          elasticity3d(7, 1),
          saddle_point(8, 2),
          shifted_laplacian(13, 1.1, false, 3),
          structurally_symmetric(9, 5),
          structurally_symmetric(8, 6, 3),
          helmholtz(12, 0.5, false, 7),
          magnetic_laplacian(12, 0, 8),
          magnetic_laplacian(12, 1.3, 9)};
}

Matrix moved(const Matrix& m, double change) {
  Matrix out = m;
  for (int i = 1; i <= m.n; ++i)
    for (int p = m.ia[i - 1]; p < m.ia[i]; ++p) {
      const double factor = 1 + change * std::sin(1.0 + 3 * i * m.ja[p - 1] + i + m.ja[p - 1]);
      for (int part = 0; part < m.nvals(); ++part)
        out.a[static_cast<std::size_t>((p - 1) * m.nvals() + part)] *= factor;
    }
  return out;
}

}  // namespace vlm::test

// SPDX-License-Identifier: BSD-3-Clause
/// Sets and variations of the gallery's matrices that several tests use.
#pragma once

#include <vector>

#include "gallery.hpp"

namespace vlm::test {

/// Large enough for threads to share the work, and for several domains; all families but LU of
/// unsymmetric patterns.
std::vector<Matrix> divisible_by_pattern();

/// Every entry moves by its own part of `change`, the two of a pair alike.
Matrix moved(const Matrix& m, double change);

}  // namespace vlm::test

// SPDX-License-Identifier: BSD-3-Clause
/// The gallery of matrices, under the names that tests use.
#pragma once

#include "gallery/gallery.hpp"

namespace vlm::test {
using namespace gallery;
}  // namespace vlm::test

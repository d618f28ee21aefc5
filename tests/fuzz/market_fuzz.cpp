// SPDX-License-Identifier: BSD-3-Clause
// Matrix Market and plain text files of any content: a message, or a matrix that is one.
#include <cstddef>
#include <cstdint>
#include <new>

#include "matrix_market.hpp"
#include "sound_matrix.hpp"
#include "temporary_file.hpp"

namespace {

/// Orders for which a few bytes of a file do not ask for gigabytes.
constexpr int most = 100000;

void read_matrix(const std::string& path) {
  tool::MarketFile file = tool::read_market(path);
  if (file.rows > most || file.cols > most) return;
  tool::BuildNotes notes;
  tool::SparseMatrix matrix = tool::build_matrix(std::move(file), notes);
  const tool::Traits traits = tool::examine(matrix);
  const tool::TypeChoice choice = tool::choose_type(matrix);
  tool::convert(matrix, traits, choice.mtype);
  fuzz::require_sound(matrix, choice.mtype);
}

void read_rhs(const std::string& path) {
  const tool::DenseColumns columns = tool::read_columns(path);
  const auto values =
      static_cast<std::size_t>(columns.rows) * static_cast<std::size_t>(columns.cols);
  fuzz::require(columns.value.size() == values * (columns.complex ? 2 : 1),
                "as many values as told");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::TemporaryFile file(data, size);
  for (const auto read : {read_matrix, read_rhs}) try {
      read(file.path());
    } catch (const tool::InputError&) {
    } catch (const std::bad_alloc&) {
    }
  return 0;
}

// SPDX-License-Identifier: BSD-3-Clause
// Dumps of any content: a message, or a matrix that is one.  The first byte chooses the type.
#include <cstddef>
#include <cstdint>
#include <new>
#include <optional>

#include "replay.hpp"
#include "sound_matrix.hpp"
#include "temporary_file.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  constexpr std::size_t count = std::size(tool::types);
  std::optional<int> mtype;
  if (data[0] % (count + 1) < count) mtype = tool::types[data[0] % (count + 1)].mtype;
  const fuzz::TemporaryFile file(data + 1, size - 1);
  try {
    tool::Dump dump = tool::read_dump(file.path(), mtype);
    tool::SparseMatrix& matrix = dump.matrix;
    const tool::Traits traits = tool::examine(matrix);
    const int chosen = mtype ? *mtype : tool::choose_type(matrix).mtype;
    tool::convert(matrix, traits, chosen);
    fuzz::require_sound(matrix, chosen);
    const auto values = static_cast<std::size_t>(matrix.n) * (matrix.complex ? 2 : 1);
    fuzz::require(dump.rhs.empty() || matrix.complex || dump.rhs.size() == values,
                  "a whole right-hand side");
  } catch (const tool::InputError&) {
  } catch (const std::bad_alloc&) {
  }
  return 0;
}

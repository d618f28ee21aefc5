// SPDX-License-Identifier: BSD-3-Clause
/// What the incomplete factorizations tell through the log, and the members of their family.
#pragma once

#include "NORV/precons/ildlt.hpp"

namespace vlm::norv {

/// Which texts a member of the family uses.
enum class MemberKind { pivoting, bunch_kaufman, permuted, plain, cholesky, parallel };

struct IldltMember {
  const char* banner;  ///< name in the banner
  const char* title;   ///< name in the closing line
  const char* source;  ///< its name in debug messages
  MemberKind kind = MemberKind::pivoting;
};

/// The member of the multilevel form.
const IldltMember& stpiv_member();

/// Names of the drop styles; [3].
extern const char* const drop_style_names[3];

/// Banner and the options.
/// @param per_row  fill limit
void ildlt_setup_messages(const IldltMember& member, const IldltOptions& options, int per_row);

/// Counts of a finished factorization.
/// @param matrix_entries  stored ones
template <class T>
void ildlt_statistics_messages(const IldltMember& member, const IldltResult<T>& result,
                               std::int64_t matrix_entries);

}  // namespace vlm::norv

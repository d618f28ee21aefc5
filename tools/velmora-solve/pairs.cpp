// SPDX-License-Identifier: BSD-3-Clause
#include "pairs.hpp"

#include <fmt/format.h>
#include <strings.h>

namespace tool {
namespace {

constexpr MethodInfo methods[] = {
    {"PCG", MethodNeeds::definite, false, "conjugate gradients: symmetric (Hermitian) definite"},
    {"PCG2", MethodNeeds::definite, false, "the same under another name"},
    {"SQMR", MethodNeeds::symmetric, false, "symmetric indefinite, preconditioner too"},
    {"MINRES", MethodNeeds::definite, false,
     "symmetric (Hermitian) indefinite, preconditioner definite"},
    {"SYMMLQ", MethodNeeds::definite, false, "the same, where the solution may not be unique"},
    {"BICGSTAB", MethodNeeds::nothing, false, "any matrix, short recurrence"},
    {"GMRES", MethodNeeds::nothing, false, "any matrix, restarted after 100 steps"},
    {"GMRESDR", MethodNeeds::nothing, false, "the same, deflated, restarted after 50"},
    {"QMR", MethodNeeds::transpose, false, "any matrix, by products with its transpose as well"},
    {"GS", MethodNeeds::no_preconditioner, true, "Gauss-Seidel sweeps: a dominant diagonal"},
    {"LSQR", MethodNeeds::no_preconditioner, false, "least squares: any matrix, singular ones too"},
};

constexpr OwnTranspose never = OwnTranspose::never, symmetric = OwnTranspose::symmetric,
                       hermitian_too = OwnTranspose::hermitian_too;
constexpr PreconInfo precons[] = {
    {"DUMMY", Reads::either, hermitian_too, false, "none"},
    {"DIAG", Reads::either, hermitian_too, false, "the diagonal"},
    {"MPS_DIAG", Reads::either, symmetric, false, "entries or scaling of a weighted matching"},
    {"SOR", Reads::full, never, false, "a sweep of successive over-relaxation"},
    {"ILU0", Reads::full, never, false, "incomplete LU without fill"},
    {"ILUT", Reads::full, never, false, "incomplete LU, by threshold and count"},
    {"ILUC", Reads::full, never, false, "incomplete LU in Crout's form"},
    {"LU", Reads::either, hermitian_too, false, "the direct solver"},
    {"ICHOL", Reads::upper, symmetric, false, "incomplete Cholesky"},
    {"ILDLT", Reads::upper, symmetric, false, "incomplete LDL^T, 1x1 pivots"},
    {"ILDLT_BK", Reads::upper, symmetric, false, "incomplete LDL^T, tridiagonal pivoting"},
    {"ILDLT_CP", Reads::upper, symmetric, false, "incomplete LDL^T, pairs from a column"},
    {"ILDLT_SP", Reads::upper, symmetric, false, "incomplete LDL^T, static pairs"},
    {"ILDLT_WS", Reads::upper, symmetric, false, "incomplete LDL^T, without delays"},
    {"MILDLT", Reads::upper, symmetric, false, "incomplete LDL^T level by level"},
    {"PARILDLT", Reads::upper, symmetric, false, "incomplete LDL^T, subtrees side by side"},
    {"XFSAI", Reads::symmetric, symmetric, false, "factored approximate inverse"},
    {"MFSAI", Reads::symmetric, symmetric, false, "the same, pivots and rows watched"},
    {"SPAIONE", Reads::either, symmetric, false, "approximate inverse on the pattern"},
    {"SPAINDIAG", Reads::either, symmetric, false, "approximate inverse on a band"},
    {"AMG", Reads::full, symmetric, false, "multigrid after Ruge and Stueben; i0 block size"},
    {"SMAGGR", Reads::full, symmetric, false, "smoothed aggregation; i0 block size"},
    {"AML", Reads::full, symmetric, false, "block elimination; i0 levels"},
    {"BLOCKLU", Reads::full, never, false, "LU of up to 4 diagonal blocks; i0 blocks"},
    {"BLOCKGS", Reads::full, never, false, "Gauss-Seidel over diagonal blocks; i0 blocks"},
    {"CP_DIRECT", Reads::upper, symmetric, true, "saddle points: constraint preconditioner"},
    {"SCHILDERS", Reads::upper, symmetric, true,
     "saddle points: by the constraints; i0 other rows"},
    {"AUGBLOCK", Reads::upper, symmetric, true, "saddle points: augmented leading block"},
};

template <class Info, std::size_t count>
const Info* find(const Info (&table)[count], const std::string& name) {
  for (const Info& info : table)
    if (strcasecmp(info.name, name.c_str()) == 0) return &info;
  return nullptr;
}

constexpr const char* storage_words(Reads reads) {
  return reads == Reads::upper || reads == Reads::symmetric ? "symmetric" : "any";
}

}  // namespace

const MethodInfo* find_method(const std::string& name) { return find(methods, name); }
const PreconInfo* find_precon(const std::string& name) { return find(precons, name); }

std::string list_of_pairs() {
  std::string text = "Methods (--method):\n";
  for (const MethodInfo& each : methods) text += fmt::format("  {:<10}{}\n", each.name, each.line);
  text +=
      "\nPreconditioners (--preconditioner), for which matrices, and whether a symmetric matrix\n"
      "has a symmetric one:\n";
  for (const PreconInfo& each : precons)
    text += fmt::format("  {:<10}{:<11}{:<5}{}\n", each.name, storage_words(each.reads),
                        each.own == never ? "no" : "yes", each.line);
  return text;
}

Storage storage_for(const MethodInfo& method, const PreconInfo* precon,
                    const SparseMatrix& matrix) {
  const auto refuse = [](const std::string& why) { throw InputError(why); };
  const bool is_symmetric = matrix.form == Form::symmetric,
             is_hermitian = matrix.form == Form::hermitian;
  const bool wants_symmetric =
      method.needs == MethodNeeds::symmetric || method.needs == MethodNeeds::definite;
  if (wants_symmetric && matrix.form == Form::full)
    refuse(fmt::format("{} needs a symmetric or Hermitian type of matrix", method.name));
  if (method.needs == MethodNeeds::symmetric && is_hermitian)
    refuse(fmt::format("{} needs a symmetric matrix, not a Hermitian one", method.name));
  const std::string name = method.name;
  if (is_symmetric && matrix.complex && (name == "MINRES" || name == "SYMMLQ"))
    refuse(fmt::format("{} needs a Hermitian matrix where it is complex", name));
  if (precon == nullptr)
    return method.full || is_hermitian ? Storage::all_entries : Storage::as_it_is;
  if (method.needs == MethodNeeds::no_preconditioner)
    refuse(fmt::format("{} takes no preconditioner", method.name));
  if (wants_symmetric && (precon->own == never || (is_hermitian && precon->own == symmetric)))
    refuse(fmt::format("{} needs a {} preconditioner, and {} is none", method.name,
                       is_hermitian ? "Hermitian" : "symmetric", precon->name));
  if ((precon->reads == Reads::upper || precon->reads == Reads::symmetric) && !is_symmetric)
    refuse(fmt::format("{} needs a symmetric type of matrix", precon->name));
  if (precon->real_only && matrix.complex)
    refuse(fmt::format("{} needs a real matrix", precon->name));
  return precon->reads == Reads::full || method.full || is_hermitian ? Storage::all_entries
                                                                     : Storage::as_it_is;
}

}  // namespace tool

# SPDX-License-Identifier: BSD-3-Clause
"""From a SciPy matrix to the arrays that the library reads, and the choice of the type.

The library reads rows counted from 1 with ascending columns, of symmetric and Hermitian types the
upper triangle with a full diagonal.  Columns of a CSC matrix are the rows of its transpose: they are
taken as they are, and solves are then turned.
"""

import ctypes

import numpy as np
import scipy.sparse as sp

from ._library import lib
from .errors import InputError, OutOfMemoryError

#: Names of the types, as velmora-solve has them.
TYPES = {
    "struct": 1, "spd": 2, "sym": -2, "complex-struct": 3, "hpd": 4, "hermitian": -4,
    "complex-sym": 6, "unsym": 11, "complex-unsym": 13,
}
LABELS = {
    1: "real structurally symmetric", 2: "real symmetric positive definite",
    -2: "real symmetric indefinite", 3: "complex structurally symmetric",
    4: "complex Hermitian positive definite", -4: "complex Hermitian indefinite",
    6: "complex symmetric", 11: "real unsymmetric", 13: "complex unsymmetric",
}


def is_complex(mtype):
    return mtype not in (1, 2, -2, 11)


def is_triangular(mtype):
    """Half of the matrix is stored."""
    return mtype % 2 == 0


def is_hermitian(mtype):
    return mtype in (4, -4)


def refuse(why):
    raise InputError(-1, why)


def type_number(word):
    """Type named by a word of TYPES or its number."""
    if word in TYPES:
        return TYPES[word]
    if word in LABELS:
        return int(word)
    return refuse(f"unknown type {word!r}: one of {', '.join(TYPES)}")


class Lines:
    """The three arrays of a matrix, sorted, without duplicates: lines are rows or columns."""

    def __init__(self, A):
        if not sp.issparse(A):
            A = sp.csr_matrix(np.atleast_2d(np.asarray(A)))
        if A.shape[0] != A.shape[1]:
            refuse(f"the matrix is {A.shape[0]} by {A.shape[1]}; only square systems are solved")
        if A.shape[0] == 0:
            refuse("the matrix is empty")
        if A.format not in ("csr", "csc"):
            A = A.tocsr()
        if not A.has_canonical_format:
            A = A.copy()
            A.sum_duplicates()
        self.n = A.shape[0]
        self.by_columns = A.format == "csc"
        self.dtype = A.dtype
        self.start, self.index, data = A.indptr, A.indices, A.data
        entries = int(self.start[-1])
        if entries + self.n >= 2**31:
            refuse("the matrix has more entries than 32-bit positions can count")
        if self.index.dtype != np.int32 or self.start.dtype != np.int32:
            self.start = self.start.astype(np.int32)
            self.index = self.index.astype(np.int32)
        if len(data) != entries:
            data, self.index = data[:entries], self.index[:entries]
        wide = np.complex128 if data.dtype.kind == "c" else np.float64
        self.data = np.ascontiguousarray(data, dtype=wide)
        if wide is np.complex128 and not self.data.imag.any():
            self.data = np.ascontiguousarray(self.data.real)
        self._line = None

    @property
    def complex(self):
        return self.data.dtype == np.complex128

    @property
    def line(self):
        """The line of each entry, from 0."""
        if self._line is None:
            self._line = np.repeat(np.arange(self.n, dtype=np.int32), np.diff(self.start))
        return self._line

    def find_type(self):
        """Cheapest type that is safe for the matrix, and the reason in one clause."""
        reason = ctypes.c_char_p()
        mtype = lib.velmora_find_type(self.n, int(self.complex), 0, self.start.ctypes.data,
                                      self.index.ctypes.data, self.data.ctypes.data,
                                      ctypes.byref(reason))
        if mtype == 0:
            raise OutOfMemoryError(-2, "no memory to examine the matrix")
        return mtype, reason.value.decode()


class Stored:
    """A matrix in the library's form, and the way from new values of its pattern to it.

    n, ia, ja, a   what the library reads
    mtype, reason  the type, and why it was chosen
    turned         the rows are the columns of the caller's matrix
    """

    def __init__(self, A, type=None):
        lines = Lines(A)
        self.dtype = lines.dtype
        self.chosen = type is None
        if self.chosen:
            self.mtype, self.reason = lines.find_type()
        else:
            self.mtype, self.reason = type_number(type), "as asked for"
        if lines.complex and not is_complex(self.mtype):
            refuse(f"complex values cannot be solved as {LABELS[self.mtype]}")
        if self.mtype in (1, 3) and not self.chosen:
            _, reason = lines.find_type()
            if reason == "the pattern is not symmetric":
                refuse(reason)
        self.n = lines.n
        self.by_columns = lines.by_columns
        self.turned = self.by_columns and not is_triangular(self.mtype)
        self.start, self.index = lines.start, lines.index
        self._pick = self._place = None
        self._upper = self._conjugated = False
        if is_triangular(self.mtype):
            self._take_triangle(lines)
        else:
            self.ia, self.ja = lines.start + np.int32(1), lines.index + np.int32(1)
            # A structurally symmetric type is only found where the diagonal is there.
            if self.mtype in (1, 3) and not self.chosen or len(lines.index) <= lines.n:
                self._add_diagonal()
            self._take_values(lines)

    def _take_triangle(self, lines):
        entries = len(lines.index)
        self._upper, self._conjugated = True, is_hermitian(self.mtype) and self.by_columns
        self.ia = np.empty(self.n + 1, dtype=np.int32)
        # Where the type was found there are two triangles.
        self.ja = np.empty((entries // 2 if self.chosen else entries) + self.n, dtype=np.int32)
        self._take_upper(lines)
        above = len(self.a) - self.n
        self.ja = self.ja[:len(self.a)]
        if self.chosen or 2 * above == entries - self.n and self.a[self.ia[:-1] - 1].all():
            return
        below = int(np.count_nonzero(lines.index < lines.line))
        if above and below and above != below:
            refuse("the triangles have different numbers of entries: the matrix is not symmetric")
        if above or not below:
            return
        # The rows of the transpose, with where their entries came from.
        self._upper, self._conjugated = False, is_hermitian(self.mtype) and not self.by_columns
        A = sp.csr_matrix((np.arange(entries), lines.index, lines.start), (self.n, self.n))
        T = A.tocsc()
        self.ia, self.ja, self._pick = T.indptr + np.int32(1), T.indices + np.int32(1), T.data
        self._add_diagonal()
        self._take_values(lines)

    def _take_upper(self, lines, pattern=True):
        """The values of the upper triangle, and at first its pattern."""
        values = self._values_of(lines)
        self.a = np.empty(len(self.ja), dtype=values.dtype)
        count = lib.velmora_upper_triangle(
            self.n, int(is_complex(self.mtype)), int(self._conjugated), lines.start.ctypes.data,
            lines.index.ctypes.data, values.ctypes.data, self.ia.ctypes.data if pattern else None,
            self.ja.ctypes.data if pattern else None, self.a.ctypes.data)
        self.a = self.a[:count]

    def _values_of(self, lines):
        """As the type has them: real or complex."""
        if is_complex(self.mtype) and not lines.complex:
            return lines.data.astype(np.complex128)
        return lines.data

    def _add_diagonal(self):
        rows = np.repeat(np.arange(1, self.n + 1, dtype=np.int32), np.diff(self.ia))
        has = np.zeros(self.n, dtype=bool)
        has[rows[rows == self.ja] - 1] = True
        if has.all():
            return
        missing = np.flatnonzero(~has).astype(np.int32)
        entries = len(self.ja)
        marked = sp.csr_matrix(
            (np.concatenate([np.arange(1, entries + 1), np.zeros(len(missing), dtype=int)]),
             (np.concatenate([rows - 1, missing]), np.concatenate([self.ja - 1, missing]))),
            shape=(self.n, self.n))
        marked.sort_indices()
        self.ia, self.ja = marked.indptr + np.int32(1), marked.indices + np.int32(1)
        self._place = np.empty(entries, dtype=np.int64)
        held = np.flatnonzero(marked.data)
        self._place[marked.data[held] - 1] = held

    def _take_values(self, lines):
        values = self._values_of(lines)
        if self._pick is not None:
            values = values[self._pick]
        if self._conjugated:
            values = values.conj()
        if self._place is not None:
            placed = np.zeros(len(self.ja), dtype=values.dtype)
            placed[self._place] = values
            values = placed
        self.a = np.ascontiguousarray(values)

    def renew(self, A):
        """Takes other values on the same pattern."""
        lines = Lines(A)
        if lines.by_columns != self.by_columns:
            lines = Lines(A.tocsc() if self.by_columns else A.tocsr())
        same = lines.start is self.start and lines.index is self.index
        if not same and not (np.array_equal(lines.start, self.start)
                             and np.array_equal(lines.index, self.index)):
            refuse("the pattern is not that of the analysis")
        if lines.complex and not is_complex(self.mtype):
            refuse(f"complex values cannot be solved as {LABELS[self.mtype]}")
        if self.chosen and is_triangular(self.mtype):
            found, _ = lines.find_type()
            if not is_triangular(found) or (found == 6) != (self.mtype == 6) and lines.complex:
                refuse("the new values are not symmetric, as those of the analysis were; "
                       "name the type, or analyse anew")
        self.dtype = lines.dtype
        if self._upper:
            self._take_upper(lines, pattern=False)
        else:
            self._take_values(lines)

    def has_zero_diagonal(self):
        return is_triangular(self.mtype) and not self.a[self.ia[:-1] - 1].all()

    def is_diagonal(self):
        """n entries: the library solves it at once, without a factor."""
        return len(self.ja) == self.n

# SPDX-License-Identifier: BSD-3-Clause
"""Direct solution: factorizations, and what is read off them."""

import typing
import warnings

import numpy as np
import scipy.sparse as sp
from scipy.sparse.linalg import LinearOperator

from . import _library, _matrix
from ._settings import configure, settings_of
from .errors import AccuracyWarning, NotPositiveDefiniteError, SingularMatrixError

VERDICTS = {0: "good", 1: "solution of a nearby system", 2: "useless", -1: "not measured"}


class Inertia(typing.NamedTuple):
    """Eigenvalues by sign.  uncertain: signs that rounding decided; 0: none is zero."""
    positive: int
    negative: int
    uncertain: int


class Accuracy(typing.NamedTuple):
    """What the last solve was measured to be; docs/accuracy.md explains the figures."""
    verdict: int
    normwise: float
    componentwise: float
    condition: float      # 0: not measured
    error_bound: float    # 0: not measured
    rung: int
    refinement_steps: int


def _columns(b, kind):
    """b as the library has it; Ctrl-C acts between the columns of a large one."""
    if b.ndim == 1 or (b.flags.f_contiguous and b.dtype == kind):
        return np.asfortranarray(b, dtype=kind)
    columns = np.empty(b.shape, dtype=kind, order="F")
    for k in range(0, b.shape[1], 4):
        columns[:, k:k + 4] = b[:, k:k + 4]
    return columns


class Factorization(LinearOperator):
    """Analysis and factor of a matrix; as a LinearOperator it is the inverse of the matrix.

    Made by factorize() and analyse().  Two threads may work with two factorizations at the same
    time; one factorization takes one call after the other.

    n, shape, dtype   of the matrix; dtype is that of solutions of real or complex right-hand sides
    mtype, type       the library's type and its name; reason says why it was chosen
    """

    def __init__(self, A, settings, factor):
        self._settings = settings
        self._matrix = _matrix.Stored(A, settings.type)
        if not 0 <= settings.keep < self._matrix.n:
            _matrix.refuse("keep is not between 0 and n - 1")
        self._handle = None
        self._factored = self._condition_known = False
        self._analyse()
        super().__init__(self._solution_dtype(np.float32), (self.n, self.n))
        if factor:
            self._factor()

    # --- what it is -----------------------------------------------------------------------

    @property
    def n(self) -> int:
        return self._matrix.n

    @property
    def mtype(self) -> int:
        return self._matrix.mtype

    @property
    def type(self) -> str:
        return next(word for word, number in _matrix.TYPES.items() if number == self.mtype)

    @property
    def reason(self) -> str:
        return self._matrix.reason

    @property
    def nnz(self) -> int:
        """Nonzeros of the factors."""
        told = int(self.iparm(18))
        return -1000 * told if told < 0 else told

    @property
    def memory(self) -> int:
        """KB of the factor and its work space; after the analysis a forecast."""
        return self.iparm(17)

    @property
    def perturbed_pivots(self) -> int:
        """Pivots that were too small and have been replaced."""
        return int(self.iparm(14)) if self._factored else 0

    @property
    def seconds_in_library(self) -> float:
        """Time that calls of the library took so far; the rest is Python's."""
        return self._handle.seconds

    def iparm(self, number: int) -> int:
        """An integer entry of velmora.h by its number, as the last call left it."""
        return int(self._handle.integers[number])

    def dparm(self, number: int) -> float:
        """A real entry of velmora.h by its number, as the last call left it."""
        return float(self._handle.reals[number])

    def close(self):
        """Releases the factor; also at the end of a with block, or with the object itself."""
        self._handle.close()
        self._factored = False

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    # --- factoring ------------------------------------------------------------------------

    def factorize(self):
        """Factors the values that analyse() was given."""
        self._factor()
        return self

    def refactorize(self, A):
        """Factors other values on the same pattern, without a new analysis."""
        self._factored = False
        self._matrix.renew(A)
        self._factor()
        return self

    def _analyse(self):
        before = self._handle
        self._handle = _library.Handle(self.mtype)
        if before is not None:
            before.close()
            self._handle.seconds = before.seconds
        self._handle.progress = self._settings.progress
        self._has_memory = False
        configure(self._handle, self._matrix, self._settings)
        self._call(11)

    def _factor(self):
        self._factored = self._condition_known = False
        self._require_memory()
        try:
            self._call(22)
        except NotPositiveDefiniteError:
            if not self._matrix.chosen:
                raise
            self._matrix.mtype = -self.mtype
            self._matrix.reason = "Cholesky found that it is not definite"
            self._analyse()
            self._require_memory()
            self._call(22)
        self._factored = self._has_memory = True

    def _require_memory(self):
        """Once for each analysis; later factors take the place of the first."""
        if self._settings.heed_memory and not self._has_memory:
            if _library.lib.velmora_require_memory(self.memory, None):
                raise _library.failure(-2, False)

    def _call(self, phase, b=None, x=None, nrhs=1, **arrays):
        """One call; raises for its errors."""
        error = self._handle.run(phase, self._matrix, b, x, nrhs, verbose=self._settings.verbose,
                                 **arrays)
        if error:
            raise _library.failure(error, self.mtype in (2, 4) and phase == 22)
        told = self.iparm(40) > 0 or self.iparm(42) > 0 or self.iparm(4) != 0
        if phase == 33 and not told and _library.last_message()[0]:
            raise _library.failure(-4, False)

    def measures(self, wanted):
        """Whether solves with this factor are measured and refined, as the settings say, or plain."""
        configure(self._handle, self._matrix, self._settings)
        if not wanted:
            i, s = self._handle.integers, self._settings
            i[8], i[40], i[42] = s.refinement or 0, s.accuracy or 0, 0

    def _need_factor(self):
        if not self._factored:
            _matrix.refuse("there is no factor: call factorize() or refactorize(A)")

    # --- solving --------------------------------------------------------------------------

    def solve(self, b, trans: str = "N") -> np.ndarray:
        """Solves A x = b, A^T x = b (trans "T") or A^H x = b ("H").

        b  array of shape (n,) or (n, k), or a sparse matrix, real or complex
        Returns x of the same shape.  Raises SingularMatrixError where no solution is good, and
        warns where one is to be used with care.
        """
        self._need_factor()
        if trans not in ("N", "T", "H"):
            _matrix.refuse(f"trans is {trans!r}, not 'N', 'T' or 'H'")
        b = b.toarray() if sp.issparse(b) else np.asarray(b)
        if b.ndim not in (1, 2) or b.shape[0] != self.n:
            _matrix.refuse(f"b has the shape {b.shape}, the matrix {self.n} rows")
        dtype = self._solution_dtype(b.dtype)
        if b.size == 0:
            return np.zeros(b.shape, dtype=dtype)
        complex_ = _matrix.is_complex(self.mtype)
        if np.iscomplexobj(b) and not complex_:  # a real factor solves both parts side by side
            columns = b.reshape(self.n, -1)
            parts = self._solve_columns(np.hstack([columns.real, columns.imag]), trans)
            width = columns.shape[1]
            x = (parts[:, :width] + 1j * parts[:, width:]).reshape(b.shape)
        else:
            x = self._solve_columns(b, trans)
        return x if x.dtype == dtype else x.astype(dtype)

    def _solution_dtype(self, other):
        wanted = np.result_type(self._matrix.dtype, other, np.float32)
        return np.dtype({"f": np.float32, "F": np.complex64}.get(
            wanted.char, np.complex128 if wanted.kind == "c" else np.float64))

    def _solve_columns(self, b, trans):
        kind = np.complex128 if _matrix.is_complex(self.mtype) else np.float64
        b = _columns(b, kind)
        turn, conjugate = self._way(trans)
        if conjugate:
            b = b.conj()
        self._handle.integers[12] = int(turn)
        self._handle.integers[26] = 0
        x = np.empty(b.shape, dtype=kind, order="F")
        nrhs = 1 if b.ndim == 1 else b.shape[1]
        try:
            self._call(33, b, x, nrhs)
        except SingularMatrixError:
            if self._settings.old_factor <= 0:
                raise
            self._handle.integers[20] = -1  # the kept factor did not serve
            self._call(22)
            self._call(33, b, x, nrhs)
        if self._is_suspicious():
            self._condition_known = True
            level = self._handle.integers[40]
            self._handle.integers[40] = 2
            try:
                self._call(33, b, x, nrhs)
            finally:
                self._handle.integers[40] = level
        self._warn_of_accuracy()
        return x.conj() if conjugate else x

    def _way(self, trans):
        """Whether the stored matrix is to be transposed, and b and x conjugated."""
        if trans == "N":
            return self._matrix.turned, False
        adjoint, complex_ = trans == "H", _matrix.is_complex(self.mtype)
        if not _matrix.is_triangular(self.mtype):
            return not self._matrix.turned, adjoint and complex_
        return False, complex_ and adjoint != _matrix.is_hermitian(self.mtype)

    def _is_suspicious(self):
        """Small backward errors, but the condition had better be known."""
        return (self._settings.robust and self._settings.accuracy is None and
                self.iparm(40) == 1 and self.iparm(41) == 1 and not self._condition_known)

    def _warn_of_accuracy(self):
        accuracy = self.accuracy
        if accuracy.verdict == 1 and (accuracy.componentwise > 1e-12 or accuracy.error_bound > 1e-6):
            warnings.warn(
                f"the solution is that of a nearby system: backward error "
                f"{accuracy.componentwise:.1e}, error bound {accuracy.error_bound:.1e}, "
                f"{self.perturbed_pivots} perturbed pivots", AccuracyWarning, stacklevel=5)

    def _matvec(self, b):
        return self.solve(b)

    def _matmat(self, b):
        return self.solve(b)

    def _rmatvec(self, b):
        return self.solve(b, "H")

    def _rmatmat(self, b):
        return self.solve(b, "H")

    # --- what the factor tells ------------------------------------------------------------

    @property
    def inertia(self) -> Inertia:
        """Signs of the eigenvalues, of symmetric and Hermitian types."""
        self._need_factor()
        if not _matrix.is_triangular(self.mtype) or self.mtype == 6:
            _matrix.refuse(f"there is no inertia of type {self.type}")
        return Inertia(self.iparm(22), self.iparm(23), self.iparm(44))

    @property
    def logdet(self) -> float:
        """log |det A|."""
        self._need_factor()
        if self._matrix.is_diagonal() and not self._settings.keep:
            return float(np.log(np.abs(self._matrix.a)).sum())
        return self.dparm(33)

    @property
    def accuracy(self) -> Accuracy:
        """Of the last solve."""
        if self.iparm(40) == 0 and self.iparm(42) == 0:
            return Accuracy(-1, 0.0, 0.0, 0.0, 0.0, 0, self.iparm(7))
        return Accuracy(self.iparm(41), *(self.dparm(k) for k in range(40, 44)), self.iparm(43),
                        self.iparm(7))

    def inverse(self):
        """The entries of the inverse where A has entries, in A's format, CSR or CSC.

        With perturbed pivots they are those of the inverse of a perturbed matrix.
        """
        self._need_factor()
        if self.perturbed_pivots:
            warnings.warn(f"{self.perturbed_pivots} pivots were perturbed: the inverse is that of "
                          "the perturbed matrix", AccuracyWarning, stacklevel=2)
        matrix, half = self._matrix, _matrix.is_triangular(self.mtype)
        count = len(matrix.ja)
        room = 2 * count - self.n if half else count
        ia, ja = matrix.ia.copy(), np.zeros(room, dtype=np.int32)
        a = np.zeros(room, dtype=matrix.a.dtype)
        ja[:count], a[:count] = matrix.ja, matrix.a
        self._handle.integers[36] = 1
        self._handle.integers[37] = int(half)
        self._call(-22, values=a, ia=ia, ja=ja)
        kind = sp.csc_matrix if matrix.turned else sp.csr_matrix
        full = kind((a, ja - 1, ia - 1), shape=self.shape)
        return full.asformat("csc" if matrix.by_columns else "csr")

    def schur(self, keep):
        """The Schur complement of the unknowns `keep`: schur(A, keep) of this matrix."""
        rows = sp.csr_matrix((self._matrix.a, self._matrix.ja - 1, self._matrix.ia - 1), self.shape)
        if _matrix.is_triangular(self.mtype):
            strict = sp.triu(rows, 1, format="csr")
            rows = rows + (strict.conj().T if _matrix.is_hermitian(self.mtype) else strict.T)
        if self._matrix.turned:
            rows = rows.T
        return SchurComplement(rows, keep, self._settings._replace(type=self.type))

    @property
    def report(self) -> str:
        """What was done, in a few lines."""
        lines = [f"matrix         {self.n} equations, {len(self._matrix.ja)} entries stored",
                 f"type           {self.mtype} ({_matrix.LABELS[self.mtype]}): {self.reason}",
                 f"factor         {self.nnz} nonzeros, {self.iparm(19)} Gflop, "
                 f"{self.iparm(3)} threads, {self.iparm(17)} KB"]
        if self._factored:
            lines.append(f"pivots         {self.perturbed_pivots} perturbed")
            if _matrix.is_triangular(self.mtype) and self.mtype != 6:
                lines.append("inertia        {} positive, {} negative, {} uncertain".format(
                    *self.inertia))
            lines.append(f"log |det|      {self.logdet:.10g}")
            a = self.accuracy
            if a.verdict >= 0:
                lines.append(f"last solve     {VERDICTS[a.verdict]}: backward error "
                             f"{a.componentwise:.1e}, {a.refinement_steps} refinement steps, "
                             f"rung {a.rung}" +
                             (f", error at most {a.error_bound:.1e}, condition {a.condition:.1e}"
                              if a.condition else ""))
        lines.append(f"in the library {self.seconds_in_library:.3f} s")
        return "\n".join(lines)

    def __repr__(self):
        state = f"{self.nnz} nonzeros" if self._factored else "analysed"
        return f"<velmora.Factorization: {self.n} equations, {_matrix.LABELS[self.mtype]}, {state}>"


class SchurComplement:
    """A22 - A21 A11^-1 A12 of the kept unknowns, and the way through it to whole solutions.

    matrix  the complement, sparse, numbered as in `kept`
    kept    the unknowns that were kept, as given
    """

    def __init__(self, A, keep, settings):
        A = A if sp.issparse(A) else sp.csr_matrix(A)
        n = A.shape[0]
        self.kept = np.atleast_1d(np.asarray(keep))
        if self.kept.dtype == bool:
            self.kept = np.flatnonzero(self.kept)
        if len(np.unique(self.kept)) != len(self.kept) or not len(self.kept):
            _matrix.refuse("keep names no unknown, or one of them twice")
        others = np.setdiff1d(np.arange(n), self.kept)
        self._order = np.concatenate([others, self.kept])
        permuted = A.tocsr()[self._order][:, self._order]
        settings = settings._replace(keep=len(self.kept))
        self._factor = Factorization(permuted, settings, True)
        self.matrix = self._read()

    def _read(self):
        f, k = self._factor, len(self.kept)
        count = f.iparm(39)
        if count < 0:
            _matrix.refuse("the complement has more entries than 32 bits can count")
        ia, ja = np.zeros(k + 1, dtype=np.int32), np.zeros(count, dtype=np.int32)
        a = np.zeros(count, dtype=f._matrix.a.dtype)
        at, handle = f._handle._at, f._handle
        _library.lib.velmora_schur(handle.pt.ctypes.data, at[0], at[1], at[2], a.ctypes.data,
                                   ia.ctypes.data, ja.ctypes.data)
        message, advice = _library.last_message()
        if message:
            raise _library.failure(-1, False)
        S = sp.csr_matrix((a, ja - 1, ia - 1), shape=(k, k))
        if _matrix.is_triangular(f.mtype):
            strict = sp.triu(S, 1, format="csr")
            S = S + (strict.conj().T if _matrix.is_hermitian(f.mtype) else strict.T)
        return sp.csr_matrix(S)

    def condense(self, b):
        """b2 - A21 A11^-1 b1, and what expand() needs beside the kept unknowns."""
        f = self._factor
        b = np.asarray(b, dtype=f._matrix.a.dtype)
        if b.shape != (f.n,):
            _matrix.refuse(f"b has the shape {b.shape}, not ({f.n},)")
        half = self._step(1, np.ascontiguousarray(b[self._order]))
        return half[-len(self.kept):].copy(), half

    def expand(self, half, kept):
        """The whole solution from what condense() left and the kept unknowns."""
        half = half.copy()
        half[-len(self.kept):] = kept
        x = np.empty_like(half)
        x[self._order] = self._step(2, half)
        return x

    def solve(self, b):
        """The whole system, the complement by dense elimination."""
        condensed, half = self.condense(b)
        return self.expand(half, np.linalg.solve(self.matrix.toarray(), condensed))

    def _step(self, which, b):
        f = self._factor
        x = np.empty_like(b)
        f._handle.integers[12] = 0
        f._handle.integers[26] = which
        f._call(33, b, x)
        f._handle.integers[26] = 0
        return x


def analyse(A, **options) -> Factorization:
    """Orders the pattern of A and forms the structure of its factor, and no more.

    Takes the options of factorize().  The result tells nnz, and factors by factorize() with the
    values of A or by refactorize(A_new) with others.
    """
    return Factorization(A, settings_of(options), False)


def factorize(A, **options) -> Factorization:
    """Factors A, any SciPy sparse or dense matrix of any type of numbers.

    type        a name of velmora.TYPES or its number; None: found from the values
    threads     0: as many as OpenMP gives
    robust      True: solves are measured, and go on until the solution is good; 2x2 pivots, and
                matching where the diagonal has zeros.  False: the plain, slightly quicker solves
    heed_memory True: raises OutOfMemoryError where the machine has less memory left than the factor
                is forecast to take
    accuracy    0 to 2, what is measured of a solution; None: 1 with robust, and 2 once for a factor
                whose solution is suspicious
    ordering    "nd", "mmd" or "cmd"
    progress    called with the name of a phase and the share of it that is done, some twenty times a
                second; an exception from it ends the call and is raised from there
    The others, by their names in velmora.Settings, set one entry of velmora.h each; iparm and dparm
    are mappings from numbers to values for any other.
    """
    return Factorization(A, settings_of(options), True)


def splu(A, **options) -> Factorization:
    """factorize() under the name that programs with SciPy call."""
    return factorize(A, **options)


def spsolve(A, b, **options) -> np.ndarray:
    """Solves A x = b; b of shape (n,) or (n, k), dense or sparse.  Options as for factorize()."""
    with factorize(A, **options) as factor:
        return factor.solve(b)


def schur(A, keep, **options) -> SchurComplement:
    """Eliminates all unknowns but `keep`, an array of their numbers or of truth values."""
    return SchurComplement(A, keep, settings_of(options))

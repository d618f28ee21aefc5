# SPDX-License-Identifier: BSD-3-Clause
"""The iterative solver, for symmetric systems whose factor does not fit into memory."""

import ctypes

import numpy as np

from . import _library, _matrix

#: Names of the settings dparm(1) to dparm(9); docs/iterative.md says which to try.
PARAMETERS = {"maxiter": 1, "tolerance": 2, "direct_below": 3, "levels": 4, "drop": 5,
              "schur_drop": 6, "fill": 7, "growth": 8, "stagnation": 9}


class IterativeSolver:
    """A preconditioner for a symmetric matrix, and the iteration with it.

    history     relative residual of every step of the last solve, of the last right-hand side
    iterations  of the last solve, of all right-hand sides
    """

    def __init__(self, A, type, threads, verbose, parameters):
        unknown = set(parameters) - set(PARAMETERS)
        if unknown:
            raise TypeError(f"unknown settings {sorted(unknown)}; there are {', '.join(PARAMETERS)}")
        chosen = type is None
        self._matrix = _matrix.Stored(A, type)
        if chosen and self._matrix.mtype == 2:
            self._matrix.mtype, self._matrix.reason = -2, "symmetric, for the iterative solver"
        if self._matrix.mtype == 2:
            self._matrix.mtype = -2
        if self._matrix.mtype not in (-2, 6):
            _matrix.refuse("the iterative solver does not cover matrices that are "
                           f"{_matrix.LABELS[self._matrix.mtype]}")
        self._verbose = verbose
        self._handle = _library.Handle(self._matrix.mtype, iterative=True)
        self._handle.integers[3] = threads
        for name, value in parameters.items():
            self._handle.reals[PARAMETERS[name]] = value
        self.history = np.zeros(0)
        self._run(12)

    def _run(self, phase, b=None, x=None, nrhs=1):
        error = self._handle.run(phase, self._matrix, b, x, nrhs, verbose=self._verbose)
        if error:
            raise _library.failure(error, False)

    @property
    def shape(self):
        return self._matrix.n, self._matrix.n

    @property
    def iterations(self) -> int:
        return int(self._handle.reals[35])

    @property
    def nnz(self) -> int:
        """Nonzeros of the preconditioner."""
        return int(self._handle.integers[18])

    @property
    def inertia(self):
        """Positive and negative eigenvalues of the preconditioner, a guess at those of A."""
        return int(self._handle.integers[22]), int(self._handle.integers[23])

    def refactorize(self, A):
        """Sets up the preconditioner for other values of the pattern, with the order there is."""
        self._matrix.renew(A)
        self._run(22)
        return self

    def solve(self, b, x0=None) -> np.ndarray:
        """Iterates from x0, or from 0, until the relative residual is below the tolerance.

        Raises ConvergenceError, whose x is the last iterate.
        """
        kind = self._matrix.a.dtype
        b = np.asfortranarray(b, dtype=kind)
        if b.ndim not in (1, 2) or b.shape[0] != self._matrix.n:
            _matrix.refuse(f"b has the shape {b.shape}, the matrix {self._matrix.n} rows")
        x = np.zeros(b.shape, dtype=kind, order="F")
        if x0 is not None:
            x[...] = x0
        history = []

        def follow(_, iteration, residual):
            if iteration == 0:
                history.clear()
            history.append(residual)

        follower = _library.FOLLOW(follow)
        _library.lib.norv_set_progress(ctypes.cast(follower, ctypes.c_void_p), None)
        try:
            self._run(33, b, x, 1 if b.ndim == 1 else b.shape[1])
        except _library.errors.ConvergenceError as failed:
            failed.x = x
            raise
        finally:
            _library.lib.norv_set_progress(None, None)
            self.history = np.array(history)
        return x


def iterative(A, *, type=None, threads=0, verbose=False, **parameters) -> IterativeSolver:
    """Sets up the iterative solver: real symmetric and complex symmetric matrices.

    maxiter     iterations at most (300)
    tolerance   relative residual at which a solve ends (1e-6)
    drop, schur_drop, fill, growth, levels, direct_below, stagnation: see docs/iterative.md
    """
    return IterativeSolver(A, type, threads, verbose, parameters)

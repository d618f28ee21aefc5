# SPDX-License-Identifier: BSD-3-Clause
"""Velmora: direct and iterative solution of large sparse linear systems.

    x = velmora.spsolve(A, b)
    f = velmora.factorize(A)       # f.solve(b), f.refactorize(A2), f.inertia, f.logdet, f.inverse()

A is any SciPy matrix.  Nothing is compiled: the installed shared library is found beside the
package, where the loader looks, or at the path in VELMORA_LIBRARY.
"""

from ._iterative import IterativeSolver, iterative
from ._library import version
from ._matrix import TYPES
from ._settings import Settings
from ._solver import (Accuracy, Factorization, Inertia, SchurComplement, analyse, factorize, schur,
                      splu, spsolve)
from .errors import (AccuracyWarning, ConvergenceError, InputError, NotPositiveDefiniteError,
                     OutOfMemoryError, SingularMatrixError, VelmoraError)

__version__ = version()
__all__ = [
    "Accuracy", "AccuracyWarning", "ConvergenceError", "Factorization", "Inertia", "InputError",
    "IterativeSolver", "NotPositiveDefiniteError", "OutOfMemoryError", "SchurComplement",
    "Settings", "SingularMatrixError", "TYPES", "VelmoraError", "analyse",
    "factorize", "iterative", "schur", "splu", "spsolve", "version",
]

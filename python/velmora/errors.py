# SPDX-License-Identifier: BSD-3-Clause
"""Exceptions and warnings, with the library's own words."""

import numpy as np


class VelmoraError(RuntimeError):
    """A call of the library failed.

    code     the library's error; velmora.h lists them
    message  what went wrong
    advice   what to do about it, or an empty text
    """

    def __init__(self, code: int, message: str, advice: str = ""):
        super().__init__(f"error {code}: {message}" + (f"; {advice}" if advice else ""))
        self.code = code
        self.message = message
        self.advice = advice


class InputError(VelmoraError, ValueError):
    """An argument is wrong, or does not fit the earlier calls."""


class OutOfMemoryError(VelmoraError, MemoryError):
    """The machine does not have the memory that the call needs."""


class SingularMatrixError(VelmoraError, np.linalg.LinAlgError):
    """No factor solves the system: the matrix is singular, or singular to working precision."""


class NotPositiveDefiniteError(VelmoraError, np.linalg.LinAlgError):
    """A matrix that was said to be positive definite is not."""


class ConvergenceError(VelmoraError):
    """The iterative solver did not converge; x is its last iterate."""

    x: np.ndarray


class AccuracyWarning(UserWarning):
    """The solution, or what was asked of the factor, should be used with care."""

# SPDX-License-Identifier: BSD-3-Clause
"""The examples run, and the optima of the interior-point method are those of other methods."""

import pathlib
import runpy

import numpy as np
import pytest
import scipy.optimize as opt

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples" / "python"


@pytest.mark.parametrize("name", ["eigenvalues", "newton", "time_steps", "variances"])
def test_example(name):
    runpy.run_path(str(EXAMPLES / f"{name}.py"))


def test_interior_point():
    program = runpy.run_path(str(EXAMPLES / "interior_point.py"))
    path = EXAMPLES / "plants.mps"
    Q, c, A, b, own = program["read_mps"](path)
    value, x = program["main"](path, True)
    reference = opt.linprog(c, A_eq=A, b_eq=b, bounds=(0, None))
    assert value == pytest.approx(reference.fun, rel=1e-7)
    value, x = program["main"](path, False)
    full, y, _ = program["minimise"](Q, c, A, b)
    # Optimality: a gradient that no feasible direction improves.
    gradient = c + Q @ full - A.T @ y
    assert np.allclose(A @ full, b, atol=1e-6) and (full > 0).all()
    assert gradient.min() > -1e-6 and np.abs(gradient * full).max() < 1e-4
    assert value < c @ reference.x + reference.x @ (Q @ reference.x) / 2

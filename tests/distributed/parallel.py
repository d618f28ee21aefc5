# SPDX-License-Identifier: BSD-3-Clause
"""Checks on several processes; mpirun starts it, and a failure on any process ends all."""
import pathlib
import runpy
import sys

import petsc4py

petsc4py.init(sys.argv[:1])

import numpy as np  # noqa: E402
from petsc4py import PETSc  # noqa: E402

import velmora  # noqa: E402
import velmora.petsc  # noqa: E402

EXAMPLE = pathlib.Path(__file__).resolve().parents[2] / "examples" / "python" / "distributed.py"


def relative_residual(A, x, b):
    return (b - A * x).norm() / b.norm()


def solver(A, prefix, method="gmres", **options):
    """A KSP whose options are those named."""
    database = PETSc.Options()
    for name, value in options.items():
        database[f"{prefix}_{name}"] = value
    ksp = PETSc.KSP().create()
    ksp.setOptionsPrefix(f"{prefix}_")
    ksp.setOperators(A)
    ksp.setType(method)
    if method == "gmres":
        ksp.setPCSide(PETSc.PC.Side.RIGHT)
    ksp.setNormType(PETSc.KSP.NormType.UNPRECONDITIONED)
    ksp.setTolerances(rtol=1e-9, max_it=500)
    ksp.setFromOptions()
    return ksp


PYTHON = "velmora.petsc.PC"


def check_subdomains(example):
    """The iterations are those with PETSc's own LU, as both solve the pieces exactly."""
    for fields in (1, 3):
        A, b = example["assemble"](fields, 5)
        counts = [example["solve"](A, b, name, 1)[0] for name in ("lu", "velmora")]
        assert abs(counts[0] - counts[1]) <= 1, counts
        x = b.duplicate()
        ksp = solver(A, f"blocks{fields}", pc_type="bjacobi", sub_pc_type="python",
                     sub_pc_python_type=PYTHON)
        ksp.solve(b, x)
        assert relative_residual(A, x, b) < 1e-7
        # Other values on the pattern: the pieces are factored anew.
        A.scale(2.0)
        A.shift(1.0)
        ksp.solve(b, x)
        assert relative_residual(A, x, b) < 1e-7


def check_transposed():
    """Solves with the transpose of an unsymmetric matrix."""
    n, comm = 40, PETSc.COMM_WORLD
    A = PETSc.Mat().createAIJ([n, n], nnz=3, comm=comm)
    for i in range(*A.getOwnershipRange()):
        for j, value in ((i - 1, -2.0), (i, 4.0), (i + 1, -0.5)):
            if 0 <= j < n:
                A[i, j] = value
    A.assemble()
    b, x = A.createVecs()
    b.set(1.0)
    ksp = solver(A, "transposed", pc_type="bjacobi", sub_pc_type="python", sub_pc_python_type=PYTHON)
    ksp.solveTranspose(b, x)
    assert relative_residual(A.copy().transpose(), x, b) < 1e-8


def check_coarse(example):
    """PETSc's own multigrid with the coarse solver on every process; and the coarse space."""
    A, b = example["assemble"](1, 6)
    x = b.duplicate()
    ksp = solver(A, "gamg", "cg", pc_type="gamg", mg_coarse_pc_type="redundant",
                 mg_coarse_redundant_pc_type="python", mg_coarse_redundant_pc_python_type=PYTHON)
    ksp.solve(b, x)
    assert relative_residual(A, x, b) < 1e-7
    # A beam: one level needs steps for each piece, two do not.
    PETSc.Options()["beam"] = True
    A, b = example["assemble"](3, 4)
    one, two = (example["solve"](A, b, name, 1)[0] for name in ("velmora", "two_level"))
    assert b.comm.size < 8 or 2 * two < one, (one, two)
    assert two < 25
    # The preconditioner is symmetric, and follows new values.
    x = b.duplicate()
    ksp = solver(A, "two", "cg", pc_type="python", pc_python_type="velmora.petsc.TwoLevel")
    ksp.solve(b, x)
    pc, u, v = ksp.getPC(), b.duplicate(), b.duplicate()
    u.setRandom()
    v.setRandom()
    v.pointwiseMult(v, b)
    Mu, Mv = u.duplicate(), v.duplicate()
    pc.apply(u, Mu)
    pc.apply(v, Mv)
    assert abs(Mu.dot(v) - Mv.dot(u)) < 1e-10 * Mu.norm() * v.norm()
    A.scale(3.0)
    A.shift(0.5)
    ksp.solve(b, x)
    assert relative_residual(A, x, b) < 1e-6 and ksp.getIterationNumber() < 25


def check_refusal():
    """A matrix on several processes is no piece."""
    A, _ = runpy.run_path(str(EXAMPLE))["assemble"](1, 2)
    try:
        solver(A, "whole", pc_type="python", pc_python_type=PYTHON).setUp()
    except velmora.InputError as error:
        assert "processes" in str(error)
    else:
        raise AssertionError("a distributed matrix was taken")


if __name__ == "__main__":
    program = runpy.run_path(str(EXAMPLE))
    check_subdomains(program)
    check_transposed()
    check_coarse(program)
    check_refusal()
    np.testing.assert_equal(PETSc.COMM_WORLD.size, int(sys.argv[1]))
    PETSc.Sys.Print("all checks passed")

# SPDX-License-Identifier: BSD-3-Clause
"""The PETSc context on one process, against NumPy; and parallel.py on several."""

import os
import pathlib
import subprocess
import sys

import numpy as np
import pytest
from petsc4py import PETSc

import velmora
import velmora.petsc

HERE = pathlib.Path(__file__).resolve().parent


def random_matrix(kind, n=60):
    rng = np.random.default_rng(3)
    a = rng.uniform(-1, 1, (n, n)) * (rng.random((n, n)) < 0.1)
    if kind != "unsym":
        a = a + a.T
    np.fill_diagonal(a, 0 if kind == "sym" else np.abs(a).sum(axis=1) + 1)
    if kind == "sym":
        a += np.diag(np.where(np.arange(n) % 2, 1.0, -1.0))
    return a


def to_petsc(a, form="aij"):
    A = PETSc.Mat().createDense(a.shape, array=a.copy(), comm=PETSc.COMM_SELF)
    A.assemble()
    if form != "dense":
        A.convert("aij")
        A.setOption(PETSc.Mat.Option.SYMMETRIC, bool((a == a.T).all()))
    return A if form in ("aij", "dense") else A.convert(form)


def preconditioner(A, context=None, prefix=None):
    pc = PETSc.PC().create(PETSc.COMM_SELF)
    pc.setOptionsPrefix(prefix)
    pc.setOperators(A)
    pc.setType("python")
    pc.setPythonContext(context or velmora.petsc.PC())
    pc.setFromOptions()
    return pc


def apply(pc, b, transposed=False):
    x = PETSc.Vec().createWithArray(b.copy(), comm=PETSc.COMM_SELF)
    y = x.duplicate()
    (pc.applyTranspose if transposed else pc.apply)(x, y)
    return y.getArray().copy()


@pytest.mark.parametrize("kind", ["spd", "sym", "unsym"])
def test_solves_of_every_kind_and_form(kind):
    a, b = random_matrix(kind), np.linspace(1, 2, 60)
    for form in ("aij", "dense", "baij") + (("sbaij",) if kind != "unsym" else ()):
        pc = preconditioner(to_petsc(a, form))
        pc.setUp()
        context = pc.getPythonContext()
        assert context.factor.type == kind
        assert np.allclose(a @ apply(pc, b), b, atol=1e-9)
        assert np.allclose(a.T @ apply(pc, b, True), b, atol=1e-9)
    X = PETSc.Mat().createDense((60, 3), array=np.outer(b, [1, 2, 3]), comm=PETSc.COMM_SELF)
    X.assemble()
    Y = X.duplicate()
    pc.matApply(X, Y)
    assert np.allclose(a @ Y.getDenseArray(), np.outer(b, [1, 2, 3]), atol=1e-8)


def test_changed_matrices():
    a, b = random_matrix("spd"), np.ones(60)
    A = to_petsc(a)
    pc = preconditioner(A)
    pc.setUp()
    first = pc.getPythonContext().factor
    A.scale(2.0)
    pc.setUp()
    assert pc.getPythonContext().factor is first  # the analysis stays
    assert np.allclose(2 * a @ apply(pc, b), b)
    skewed = a.copy()
    skewed[np.nonzero(np.triu(a, 1))] *= 1.5
    for other, kind in ((skewed, "unsym"), (random_matrix("unsym"), "unsym"), (a, "spd")):
        pc.setOperators(to_petsc(other))
        pc.setUp()
        assert np.allclose(other @ apply(pc, b), b)
    assert pc.getPythonContext().factor.type == "spd"


def test_options_of_the_database():
    a, b = random_matrix("spd"), np.ones(60)
    database = PETSc.Options()
    database["piece_pc_velmora_type"] = "sym"
    database["piece_pc_velmora_ordering"] = "mmd"
    database["piece_pc_velmora_robust"] = True
    database["piece_pc_velmora_target"] = 1e-9
    pc = preconditioner(to_petsc(a), velmora.petsc.PC(type="unsym", threads=2), "piece_")
    pc.setUp()
    factor = pc.getPythonContext().factor
    assert factor.type == "sym" and factor.iparm(2) == 0 and factor.iparm(3) == 2
    assert np.allclose(a @ apply(pc, b), b) and factor.accuracy.verdict == 0
    assert factor.dparm(44) == 1e-9
    database["piece_pc_velmora_thread"] = 3
    with pytest.raises(velmora.InputError, match="pc_velmora_thread"):
        preconditioner(to_petsc(a), prefix="piece_")
    database.delValue("piece_pc_velmora_thread")
    with pytest.raises(TypeError, match="thread"):
        velmora.petsc.PC(thread=3)


def test_failures_are_exceptions():
    singular = np.ones((2, 2))
    pc = preconditioner(to_petsc(singular))
    with pytest.raises(velmora.SingularMatrixError):
        pc.setUp()
        apply(pc, np.array([1.0, 2.0]))
    pc = preconditioner(to_petsc(-random_matrix("spd")), velmora.petsc.PC(type="spd"))
    with pytest.raises(velmora.NotPositiveDefiniteError):
        pc.setUp()


@pytest.mark.parametrize("processes", [2, 4])
def test_on_several_processes(processes):
    starter = ["mpirun", "-n", str(processes), "--oversubscribe"]
    starter += ["--allow-run-as-root"] if os.getuid() == 0 else []
    # This process has started MPI, and a child would take itself for a part of it.
    clean = {name: value for name, value in os.environ.items()
             if not name.startswith(("OMPI_", "PMIX_", "PRTE_")) or name.startswith("OMPI_MCA_rmaps")}
    done = subprocess.run([*starter, sys.executable, "-B", str(HERE / "parallel.py"), str(processes)],
                          text=True, capture_output=True, timeout=300, env=clean)
    assert done.returncode == 0 and "all checks passed" in done.stdout, done.stdout + done.stderr

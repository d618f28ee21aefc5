# SPDX-License-Identifier: BSD-3-Clause
"""The Python package against dense references of NumPy."""

import resource
import signal
import threading
import warnings

import numpy as np
import pytest
import scipy.sparse as sp
import scipy.sparse.linalg as sla

import velmora

FORMATS = ("csr", "csc", "coo", "lil", "dia")


def random_matrix(kind, n=40, seed=1):
    """A dense matrix of a kind, with the type that it should be found to be."""
    rng = np.random.default_rng(seed)
    mask = rng.random((n, n)) < 0.12
    a = rng.uniform(-1, 1, (n, n)) * mask
    if kind in ("hpd", "hermitian", "complex-sym", "complex-struct", "complex-unsym"):
        a = a + 1j * rng.uniform(-1, 1, (n, n)) * mask
    if kind in ("spd", "sym", "hpd", "hermitian"):
        a = a + a.conj().T
    elif kind == "complex-sym":
        a = a + a.T
    elif kind in ("struct", "complex-struct"):
        a = np.where(mask | mask.T, a + 0.25, 0)
    np.fill_diagonal(a, 0)
    if kind in ("spd", "hpd", "struct", "complex-struct"):
        np.fill_diagonal(a, np.abs(a).sum(axis=1) + 1)
    elif kind != "complex-unsym":  # some of the diagonal is missing
        np.fill_diagonal(a, rng.uniform(1, 2, n) * (rng.random(n) < 0.7))
    else:
        np.fill_diagonal(a, 3)
    return a


def backward_error(a, x, b):
    return np.abs(b - a @ x).max() / (np.abs(a) @ np.abs(x) + np.abs(b)).max()


@pytest.mark.parametrize("kind", velmora.TYPES)
def test_every_type_in_every_format(kind):
    a = random_matrix(kind)
    rng = np.random.default_rng(2)
    b = rng.uniform(-1, 1, (len(a), 2))
    for form in FORMATS:
        f = velmora.factorize(sp.csr_matrix(a).asformat(form), threads=1)
        assert f.type == kind, f.reason
        for trans, operator in (("N", a), ("T", a.T), ("H", a.conj().T)):
            for rhs in (b[:, 0], b, b + 1j * b[::-1]):
                x = f.solve(rhs, trans)
                assert x.shape == rhs.shape
                assert backward_error(operator, x, rhs) < 1e-13
    halves = {"upper": sp.triu(a), "lower": sp.tril(a)}
    if velmora.TYPES[kind] % 2 == 0:
        for half in halves.values():
            for form in ("csr", "csc"):
                f = velmora.factorize(half.asformat(form), type=kind, threads=1)
                assert backward_error(a, f.solve(b[:, 0]), b[:, 0]) < 1e-13


def test_types_of_numbers_come_back():
    a = np.array([[4, 1, 0], [1, 3, 1], [0, 1, 5]])
    for dtype, b_type, expected in ((np.int32, np.int64, np.float64), (bool, np.float32, np.float32),
                                    (np.float32, np.float32, np.float32),
                                    (np.float64, np.float32, np.float64),
                                    (np.complex64, np.float32, np.complex64),
                                    (np.float64, np.complex128, np.complex128)):
        matrix = np.eye(3, dtype=bool) if dtype is bool else a.astype(dtype)
        x = velmora.spsolve(sp.csr_matrix(matrix), np.array([1, 2, 3], dtype=b_type), threads=1)
        assert x.dtype == expected
        assert np.allclose(matrix @ x, [1, 2, 3], atol=1e-5)
    wide = sp.csr_matrix(a.astype(float))
    wide.indices, wide.indptr = wide.indices.astype(np.int64), wide.indptr.astype(np.int64)
    assert np.allclose(a @ velmora.spsolve(wide, np.ones(3)), 1)
    assert np.allclose(a @ velmora.spsolve(a, sp.csc_matrix(np.ones((3, 1)))), 1)  # dense, sparse b
    assert velmora.spsolve(a, np.zeros((3, 0))).shape == (3, 0)
    # Unsorted rows and two entries in one place.
    twice = sp.csr_matrix((np.array([1., 4, 2, 1, 1]), [1, 0, 1, 0, 1], [0, 2, 5]))
    assert np.allclose(velmora.spsolve(twice, [6, 7]), np.linalg.solve([[4, 1], [1, 3]], [6, 7]))
    imaginary = sp.csr_matrix(a.astype(complex))
    assert velmora.factorize(imaginary).type == "spd"


@pytest.mark.parametrize("kind", velmora.TYPES)
def test_results_of_the_factor(kind):
    a = random_matrix(kind)
    f = velmora.factorize(sp.csc_matrix(a), threads=1, pivoting=1 if "sym" in kind else None)
    assert f.logdet == pytest.approx(np.linalg.slogdet(a)[1], abs=1e-9)
    if kind in ("spd", "sym", "hpd", "hermitian"):
        eigenvalues = np.linalg.eigvalsh(a)
        assert f.inertia == ((eigenvalues > 0).sum(), (eigenvalues < 0).sum(), 0)
    else:
        with pytest.raises(velmora.InputError):
            _ = f.inertia
    inverse, dense = f.inverse().tocoo(), np.linalg.inv(a)
    assert set(zip(inverse.row, inverse.col)) >= set(zip(*np.nonzero(a)))
    assert np.allclose(inverse.data, dense[inverse.row, inverse.col], atol=1e-8)
    assert f.solve(np.ones(len(a))).shape == (len(a),)  # the factor is still there
    assert kind in velmora.TYPES and f.nnz > 0 and "nonzeros" in f.report


@pytest.mark.parametrize("kind", velmora.TYPES)
def test_schur_complement(kind):
    a = random_matrix(kind) + 2 * np.eye(40)
    keep = np.array([7, 3, 31, 20])
    others = np.setdiff1d(np.arange(40), keep)
    expected = a[np.ix_(keep, keep)] - a[np.ix_(keep, others)] @ np.linalg.solve(
        a[np.ix_(others, others)], a[np.ix_(others, keep)])
    b = np.linspace(1, 2, 40)
    for s in (velmora.schur(sp.csr_matrix(a), keep, threads=1),
              velmora.factorize(sp.csc_matrix(a), threads=1).schur(keep)):
        assert np.allclose(s.matrix.toarray(), expected, atol=1e-9)
        assert np.allclose(a @ s.solve(b), b, atol=1e-9)


def test_refactorization_keeps_pattern_and_kind():
    a = random_matrix("spd")
    for form in ("csr", "csc"):
        A = sp.csr_matrix(a).asformat(form)
        f = velmora.analyse(A, threads=1)
        with pytest.raises(velmora.InputError, match="no factor"):
            f.solve(np.ones(40))
        f.factorize()
        nonzeros = f.nnz
        b = np.ones(40)
        for step in range(1, 3):
            new = A.copy()
            new.setdiag(A.diagonal() + step)
            f.refactorize(new)
            assert backward_error(new.toarray(), f.solve(b), b) < 1e-14 and f.nnz == nonzeros
        f.refactorize(new.asformat("csc" if form == "csr" else "csr"))
        f.refactorize(-A)
        assert f.type == "sym" and "not definite" in f.reason and f.inertia.negative == 40
        skewed = A.copy()
        skewed.data[1] += 1
        with pytest.raises(velmora.InputError, match="not symmetric"):
            f.refactorize(skewed)
        with pytest.raises(velmora.InputError, match="pattern"):
            f.refactorize(sp.identity(40, format=form))


def test_as_operator_and_in_scipy():
    a = random_matrix("sym", 60)
    A = sp.csc_matrix(a)
    shift = 0.3
    f = velmora.factorize(A - shift * sp.identity(60), threads=1)
    values = sla.eigsh(A, 3, sigma=shift, OPinv=f, return_eigenvectors=False)
    exact = np.linalg.eigvalsh(a)
    nearest = exact[np.argsort(np.abs(exact - shift))[:3]]
    assert np.allclose(np.sort(values), np.sort(nearest))
    assert f.inertia.negative == (exact < shift).sum()
    u = sp.csr_matrix(random_matrix("complex-unsym"))
    g = velmora.splu(u, threads=1)
    x = np.arange(40) + 1j
    assert np.allclose(u.T @ g.solve(x, trans="T"), x)
    assert np.allclose(g.H @ (u.conj().T @ x), x)
    y, info = sla.gmres(u + 0.01 * sp.identity(40), x, M=g, tol=1e-10, atol=0)
    assert info == 0


def test_errors_and_warnings():
    indefinite, singular = sp.csr_matrix([[1., 2], [2, 1]]), sp.csr_matrix([[1., 1], [1, 1]])
    with pytest.raises(velmora.NotPositiveDefiniteError) as caught:
        velmora.factorize(indefinite, type="spd")
    assert caught.value.code == -4 and caught.value.advice
    with pytest.raises(np.linalg.LinAlgError):
        velmora.spsolve(singular, [1, 2])
    for wrong in (np.ones((2, 3)), np.zeros((0, 0))):
        with pytest.raises(velmora.InputError):
            velmora.factorize(wrong)
    with pytest.raises(ValueError):
        velmora.factorize(indefinite, type="best")
    with pytest.raises(TypeError, match="threads"):
        velmora.factorize(indefinite, thread=2)
    with pytest.raises(velmora.VelmoraError):
        velmora.factorize(sp.csr_matrix([[1., np.nan], [np.nan, 1]]))
    f = velmora.factorize(indefinite)
    for b in (np.ones(3), np.ones((3, 2)), np.float64(1)):
        with pytest.raises(velmora.InputError):
            f.solve(b)
    with pytest.raises(velmora.InputError):
        f.solve(np.ones(2), "C")
    f.close()
    with pytest.raises(velmora.InputError):
        f.solve(np.ones(2))
    # A system whose solution has few certain digits is solved with a warning.
    hilbert = 1 / (np.arange(9)[:, None] + np.arange(9) + 1.0)
    with pytest.warns(velmora.AccuracyWarning):
        velmora.spsolve(hilbert, np.ones(9), type="sym", accuracy=2)
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        velmora.spsolve(sp.csr_matrix(random_matrix("sym")), np.ones(40))


def test_what_the_machine_has_no_memory_for_is_refused():
    line = sp.diags([-1.0, 2.1, -1.0], [-1, 0, 1], (120, 120))
    A = sp.csr_matrix(sp.kron(line, sp.identity(120)) + sp.kron(sp.identity(120), line))
    f = velmora.analyse(sp.kron(A, np.ones((3, 3))) + sp.identity(3 * A.shape[0]), threads=1)
    assert f.memory > 20000
    before = resource.getrlimit(resource.RLIMIT_AS)
    with open("/proc/self/statm") as statm:
        space = int(statm.read().split()[0]) * resource.getpagesize()
    resource.setrlimit(resource.RLIMIT_AS, (space + 2**23, before[1]))
    try:
        with pytest.raises(velmora.OutOfMemoryError, match="needs .* the machine has .* left"):
            f.factorize()
    finally:
        resource.setrlimit(resource.RLIMIT_AS, before)
    assert f.factorize().solve(np.ones(f.n)).shape == (f.n,)


def test_progress_is_told_and_ends_calls():
    told = []
    A = sp.csr_matrix(random_matrix("spd", 200))
    f = velmora.factorize(A, threads=1, progress=lambda *word: told.append(word))
    b = np.ones(200)
    x = f.solve(b)
    phases = list(dict.fromkeys(phase for phase, share in told if share == 0))
    assert phases == ["analysis", "factorization", "solution"]

    class Enough(Exception):
        pass

    def end(phase, share):
        raise Enough

    f._handle.progress = end
    with pytest.raises(Enough):
        f.refactorize(A)
    f._handle.progress = None
    assert np.array_equal(f.refactorize(A).solve(b), x)


def test_interrupt_ends_a_long_factorization():
    line = sp.diags([-1.0, 2.0, -1.0], [-1, 0, 1], (44, 44))
    eye = sp.identity(44)
    A = sp.csr_matrix(sp.kron(sp.kron(line, eye), eye) + sp.kron(sp.kron(eye, line), eye) +
                      sp.kron(sp.kron(eye, eye), line))
    f = velmora.analyse(A, type="spd", threads=1)
    for signals in range(2):
        timer = threading.Timer(0.1, signal.raise_signal, [signal.SIGINT])
        timer.start()
        with pytest.raises(KeyboardInterrupt):
            while True:
                f.factorize()
        timer.join()
    f.factorize()
    b = np.ones(A.shape[0])
    assert np.allclose(A @ f.solve(b), b)


def test_diagonal_systems():
    f = velmora.factorize(sp.diags([4.0, -2, 8]))
    assert np.array_equal(f.solve([1, 2, 3]), [0.25, -1, 0.375])
    assert f.inertia == (2, 1, 0) and f.logdet == pytest.approx(np.log(64))
    assert np.array_equal(f.inverse().diagonal(), [0.25, -0.5, 0.125])


def test_two_threads_and_one_factor_for_both():
    matrices = [random_matrix("spd", 80), random_matrix("unsym", 80, 5) + 3 * np.eye(80)]
    shared = velmora.factorize(matrices[0], threads=1)
    failures = []

    def work(a):
        b = np.ones(80)
        for _ in range(20):
            with velmora.factorize(sp.csr_matrix(a), threads=1) as f:
                if backward_error(a, f.solve(b), b) > 1e-13:
                    failures.append(a)
            if backward_error(matrices[0], shared.solve(b), b) > 1e-13:
                failures.append("shared")

    threads = [threading.Thread(target=work, args=(a,)) for a in matrices]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not failures


def test_iterations_and_their_history(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)  # the iterative library may write a log
    line = sp.diags([-1., 2.2, -1], [-1, 0, 1], (30, 30))
    A = sp.csr_matrix(sp.kron(sp.kron(line, sp.identity(30)), sp.identity(12)) +
                      sp.kron(sp.kron(sp.identity(30), line), sp.identity(12)))
    b = np.ones(A.shape[0])
    solver = velmora.iterative(A, tolerance=1e-9, direct_below=100, threads=1)
    x = solver.solve(b)
    assert np.linalg.norm(b - A @ x) / np.linalg.norm(b) < 1e-8
    assert solver.iterations > 1 and len(solver.history) >= solver.iterations
    assert solver.history[-1] < 1e-9 <= solver.history[1]
    assert len(solver.solve(b, x0=x)) == len(b) and solver.iterations <= 1
    solver.refactorize(2 * A)
    assert np.allclose(solver.solve(2 * b), x, atol=1e-7)
    with pytest.raises(velmora.ConvergenceError) as caught:
        velmora.iterative(A, maxiter=1, tolerance=1e-12, direct_below=100, drop=0.5,
                          threads=1).solve(b)
    assert caught.value.x.shape == b.shape
    with pytest.raises(velmora.InputError):
        velmora.iterative(random_matrix("unsym"))
    with pytest.raises(TypeError):
        velmora.iterative(A, tol=1e-9)

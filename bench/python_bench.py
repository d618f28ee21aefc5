# SPDX-License-Identifier: BSD-3-Clause
"""Velmora from Python beside SciPy's splu, and what the crossing into the library costs.

    PYTHONPATH=python VELMORA_LIBRARY=build/release/libvelmora.so python3 bench/python_bench.py

For each matrix: the least seconds of several runs for factorization and one solve, of the whole and
of what lies outside of the library: reading the matrix, finding its type, bringing it to the
library's form.  One thread; options are the repetitions (5), the largest and the smallest number of equations.
"""

import sys
import time

import numpy as np
import scipy.sparse as sp
from scipy.sparse.linalg import splu

import velmora


def grid(*edges):
    """Laplacian with 5 or 7 points."""
    A = sp.csr_matrix((1, 1))
    for edge in edges:
        line = sp.diags([-1, 2, -1], [-1, 0, 1], (edge, edge))
        A = sp.kron(A, sp.identity(edge)) + sp.kron(sp.identity(A.shape[0]), line)
    return A


def wind(edge):
    """Convection and diffusion on a square, upwind."""
    down = sp.diags([-1, 1], [-1, 0], (edge, edge))
    return grid(edge, edge) + 3 * sp.kron(down, sp.identity(edge))


def shifted(edge):
    """Indefinite: below and above the shift."""
    return grid(edge, edge) - 0.7 * sp.identity(edge * edge)


CASES = [("2D Poisson", grid(100, 100)), ("2D Poisson", grid(300, 300)),
         ("3D Poisson", grid(22, 22, 22)), ("3D Poisson", grid(36, 36, 36)),
         ("2D shifted, indefinite", shifted(100)), ("2D shifted, indefinite", shifted(300)),
         ("2D convection", wind(100)), ("2D convection", wind(300)),
         ("2D damped, complex", shifted(100) + 0.1j * sp.identity(10000))]


def best(repetitions, run):
    """Least total, and what of it was outside of the library, of that run."""
    return min((run() for _ in range(repetitions)), key=lambda pair: pair[0])


def main(repetitions=5, largest=10**9, smallest=0):
    print("| matrix | n | velmora s | outside s | share % | named type, share % | refactor s |"
          " share % | splu s |\n|---|---|---|---|---|---|---|---|---|")
    for name, A in CASES:
        A = sp.csc_matrix(A)
        n = A.shape[0]
        if not smallest <= n <= largest:
            continue
        b = np.ones(n)

        def whole(kind=None):
            start = time.perf_counter()
            f = velmora.factorize(A, threads=1, type=kind)
            f.solve(b)
            total = time.perf_counter() - start
            return total, total - f.seconds_in_library, f.type

        def again():
            held.refactorize(A)
            held.solve(b)
            before, start = held.seconds_in_library, time.perf_counter()
            held.refactorize(A)
            held.solve(b)
            total = time.perf_counter() - start
            return total, total - (held.seconds_in_library - before)

        def peer():
            start = time.perf_counter()
            splu(A).solve(b)
            return time.perf_counter() - start, 0

        total, outside, kind = best(repetitions, whole)
        named = best(repetitions, lambda: whole(kind))
        held = velmora.factorize(A, threads=1)
        refactor = best(repetitions, again)
        print(f"| {name}, {kind} | {n} | {total:.4f} | {outside:.4f} | {100 * outside / total:.1f} | "
              f"{100 * named[1] / named[0]:.1f} | {refactor[0]:.4f} | "
              f"{100 * refactor[1] / refactor[0]:.1f} | {best(1, peer)[0]:.4f} |", flush=True)


if __name__ == "__main__":
    main(*map(int, sys.argv[1:]))

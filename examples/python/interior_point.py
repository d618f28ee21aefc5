# SPDX-License-Identifier: BSD-3-Clause
"""An interior-point method for linear and quadratic programs, which reads them from an MPS file.

    python3 interior_point.py plants.mps             the quadratic program of the file
    python3 interior_point.py plants.mps --linear    without its quadratic part

    minimise c'x + x'Qx/2   with   A x = b,  x >= 0

Predictor and corrector after Mehrotra (On the implementation of a primal-dual interior point method,
1992).  Each step solves two systems with the symmetric indefinite matrix

    [ -(Q + Z/X)  A' ]
    [     A       0  ]

whose pattern stays: one analysis, a factorization for each step.  Its inertia is known, as many
positive eigenvalues as constraints, which shows a factor that can't be trusted.
"""
import pathlib
import sys

import numpy as np
import scipy.sparse as sp

import velmora


def read_mps(path):
    """The program of an MPS file with sections ROWS, COLUMNS, RHS, BOUNDS (UP), QUADOBJ, in the form
    above: inequalities and upper bounds get slack variables.  Also: how many variables are the
    file's own."""
    rows, columns, entries, rhs, upper, quadratic = {}, {}, [], {}, {}, []
    section = ""
    for text in pathlib.Path(path).read_text().splitlines():
        words = text.split()
        if not words or text.startswith("*"):
            continue
        if not text[0].isspace():
            section = words[0]
        elif section == "ROWS":
            rows[words[1]] = words[0]
        elif section == "COLUMNS":
            columns.setdefault(words[0], len(columns))
            entries += [(row, words[0], float(value)) for row, value in zip(words[1::2], words[2::2])]
        elif section == "RHS":
            rhs.update(zip(words[1::2], map(float, words[2::2])))
        elif section == "BOUNDS" and words[0] == "UP":
            upper[words[2]] = float(words[3])
        elif section == "QUADOBJ":
            quadratic.append((words[0], words[1], float(words[2])))
        else:
            raise ValueError(f"{path}: section {section} with {words[0]} is not read")
    objective = next(row for row, kind in rows.items() if kind == "N")
    constraints = [row for row, kind in rows.items() if kind != "N"]
    number = {row: k for k, row in enumerate(constraints)}
    n, m = len(columns), len(constraints) + len(upper)
    A, b, c = sp.lil_matrix((m, n)), np.zeros(m), np.zeros(n)
    for row, column, value in entries:
        if row == objective:
            c[columns[column]] = value
        else:
            A[number[row], columns[column]] = value
    for row, value in rhs.items():
        b[number[row]] = value
    slack = [(number[row], 1.0 if rows[row] == "L" else -1.0)
             for row in constraints if rows[row] in "LG"]
    for k, (column, value) in enumerate(upper.items(), len(constraints)):
        A[k, columns[column]], b[k] = 1, value
        slack.append((k, 1.0))
    S = sp.csr_matrix(([value for _, value in slack],
                       ([row for row, _ in slack], range(len(slack)))), shape=(m, len(slack)))
    Q = sp.lil_matrix((n + len(slack), n + len(slack)))
    for i, j, value in quadratic:
        Q[columns[i], columns[j]] = Q[columns[j], columns[i]] = value
    return (sp.csr_matrix(Q), np.concatenate([c, np.zeros(len(slack))]),
            sp.hstack([A, S], format="csr"), b, n)


def longest_step(v, change):
    """How far v + step * change stays positive, at most 1."""
    falls = change < 0
    return min(1.0, 0.995 * np.min(-v[falls] / change[falls], initial=np.inf))


def minimise(Q, c, A, b, tolerance=1e-9):
    """x, the multipliers of A x = b, and the number of steps."""
    m, n = A.shape
    x, z, y = np.full(n, 1.0 + np.abs(b).max()), np.full(n, 1.0 + np.abs(c).max()), np.zeros(m)
    D = sp.identity(n, format="csr")
    kkt = sp.bmat([[-(Q + D), A.T], [A, sp.csr_matrix((m, m))]], format="csr")
    factor = velmora.analyse(kkt, type="sym", matching=2, scaling=1, threads=1)
    for step in range(60):
        dual, primal = c + Q @ x - A.T @ y - z, b - A @ x
        gap = x @ z / n
        if max(np.abs(dual).max() / (1 + np.abs(c).max()),
               np.abs(primal).max() / (1 + np.abs(b).max()), gap / (1 + abs(c @ x))) < tolerance:
            return x, y, step
        kkt = sp.bmat([[-(Q + sp.diags(z / x)), A.T], [A, sp.csr_matrix((m, m))]], format="csr")
        factor.refactorize(kkt)
        assert factor.inertia.positive == m or factor.inertia.uncertain

        def direction(target):
            """Newton step towards x z = target."""
            move = factor.solve(np.concatenate([dual - target / x + z, primal]))
            return move[:n], move[n:], (target - z * move[:n]) / x - z

        dx, dy, dz = direction(np.zeros(n))
        after = (x + longest_step(x, dx) * dx) @ (z + longest_step(z, dz) * dz) / n
        dx, dy, dz = direction((after / gap) ** 3 * gap - dx * dz)
        alpha, beta = longest_step(x, dx), longest_step(z, dz)
        if Q.nnz:
            alpha = beta = min(alpha, beta)
        x, y, z = x + alpha * dx, y + beta * dy, z + beta * dz
    raise RuntimeError("no convergence")


def main(path, linear):
    Q, c, A, b, own = read_mps(path)
    if linear:
        Q = sp.csr_matrix(Q.shape)
    x, y, steps = minimise(Q, c, A, b)
    value = c @ x + x @ (Q @ x) / 2
    print(f"{path}: {A.shape[0]} constraints, {own} variables; {steps} steps, optimum {value:.8f}")
    return value, x[:own]


if __name__ == "__main__":
    here = pathlib.Path(__file__).parent
    files = [a for a in sys.argv[1:] if not a.startswith("-")] or [here / "plants.mps"]
    for file in files:
        main(file, "--linear" in sys.argv)

# SPDX-License-Identifier: BSD-3-Clause
"""The interior-point method of the examples on larger programs, beside SciPy's.

    PYTHONPATH=python VELMORA_LIBRARY=build/release/libvelmora.so python3 bench/interior_point_bench.py

Plants deliver to customers over roads of limited capacity: linear programs in standard form, with
one block of constraints a period that stocks connect.  Optimum and seconds of the example, with one
thread, and what of them the library took; of SciPy's `linprog` with HiGHS's interior-point method and
with its simplex method, no longer than a minute each; and of the example with a convex quadratic part,
which `linprog` does not take.  Options are the numbers of periods.
"""

import pathlib
import runpy
import sys
import time

import numpy as np
import scipy.optimize as opt
import scipy.sparse as sp

import velmora

PROGRAM = runpy.run_path(str(pathlib.Path(__file__).resolve().parents[1] / "examples" / "python" /
                             "interior_point.py"))


def deliveries(periods, plants=12, customers=30, seed=1):
    """c, A, b of a program x >= 0, A x = b: what each plant sends to each customer in a period, what
    it keeps, and what its capacities leave."""
    rng = np.random.default_rng(seed)
    roads = plants * customers
    sent = sp.kron(sp.identity(plants), np.ones((1, customers)))
    received = sp.kron(np.ones((1, plants)), sp.identity(customers))
    here = sp.bmat([[sent, sp.identity(plants), sp.identity(plants)],  # sent + kept + unmade
                    [received, None, None],
                    [sp.identity(roads), None, None]], format="csr")
    slack = sp.vstack([sp.csr_matrix((plants + customers, roads)), sp.identity(roads)])
    here = sp.hstack([here, slack], format="csr")
    width = here.shape[1]
    before = sp.csr_matrix((-np.ones(plants), (range(plants), range(roads, roads + plants))),
                           shape=here.shape)  # what was kept is there to be sent
    A = (sp.kron(sp.identity(periods), here) +
         sp.kron(sp.diags([1.0], [-1], (periods, periods)), before)).tocsr()
    demand = rng.uniform(1, 10, (periods, customers))
    capacity = 1.3 * demand.sum(axis=1).mean() / plants * rng.uniform(0.8, 1.4, (periods, plants))
    capacity[0] *= 3
    limit = rng.uniform(3, 12, (periods, roads))
    b = np.hstack([capacity, demand, limit]).ravel()
    cost = np.hstack([rng.uniform(1, 5, (periods, roads)), rng.uniform(0.1, 0.3, (periods, plants)),
                      np.zeros((periods, plants + roads))])
    assert cost.shape[1] == width
    return cost.ravel(), A, b


def timed(run):
    start = time.perf_counter()
    result = run()
    return result, time.perf_counter() - start


def example(Q, c, A, b):
    """x, steps, seconds, and those of the library."""
    made, analyse = [], velmora.analyse
    velmora.analyse = lambda *args, **options: made.append(analyse(*args, **options)) or made[-1]
    try:
        (x, _, steps), seconds = timed(lambda: PROGRAM["minimise"](Q, c, A, b))
    finally:
        velmora.analyse = analyse
    return x, steps, seconds, made[0].seconds_in_library


def peer(c, A, b, method):
    found, seconds = timed(lambda: opt.linprog(c, A_eq=A, b_eq=b, bounds=(0, None), method=method,
                                               options={"time_limit": 60.0}))
    return (f"{seconds:.2f}", found.fun) if found.status == 0 else ("over 60", None)


def main(sizes):
    print("| periods | variables | constraints | steps | example s | in the library s | optimum | HiGHS, interior point s |"
          " HiGHS, simplex s | largest difference of optima | quadratic: steps | example s |\n"
          "|---|---|---|---|---|---|---|---|---|---|---|---|")
    for periods in sizes:
        c, A, b = deliveries(periods)
        none = sp.csr_matrix((len(c), len(c)))
        x, steps, seconds, inside = example(none, c, A, b)
        peers = [peer(c, A, b, method) for method in ("highs-ipm", "highs-ds")]
        apart = max((abs(value / (c @ x) - 1) for _, value in peers if value is not None), default=0)
        Q = 0.1 * sp.diags(c, format="csr")
        _, more, quadratic, _ = example(Q, c, A, b)
        print(f"| {periods} | {len(c)} | {len(b)} | {steps} | {seconds:.2f} | {inside:.2f} | {c @ x:.6g} | "
              f"{peers[0][0]} | {peers[1][0]} | {apart:.0e} | {more} | {quadratic:.2f} |", flush=True)


if __name__ == "__main__":
    main([int(a) for a in sys.argv[1:]] or [4, 16, 64])

# SPDX-License-Identifier: BSD-3-Clause
"""Implicit time steps of a plate whose conductivity depends on its temperature.

The matrix changes a little from step to step: the factor of an earlier one serves as preconditioner
of conjugate gradients (old_factor=2), and the library factors anew when that pays.
"""
import numpy as np
import scipy.sparse as sp

import velmora

edge, step_length = 70, 0.5
forward = sp.diags([-1, 1], [0, 1], (edge - 1, edge))
gradient = sp.vstack([sp.kron(forward, sp.identity(edge)), sp.kron(sp.identity(edge), forward)])
gradient = gradient.tocsr()
average = abs(gradient) / 2
temperature = np.zeros(edge**2)
heat = np.zeros((edge, edge))
heat[edge // 2, edge // 2] = 5
factor = None
solves = []
for step in range(15):
    conductivity = 1 + 0.05 * (average @ temperature)
    A = (sp.identity(edge**2) / step_length +
         gradient.T @ sp.diags(conductivity) @ gradient).tocsr()
    b = temperature / step_length + heat.ravel()
    if factor is None:
        factor = velmora.factorize(A, type="spd", old_factor=2, threads=1)
    else:
        factor.refactorize(A)  # keeps the factor while that pays
    temperature = factor.solve(b)
    residual = np.linalg.norm(b - A @ temperature) / np.linalg.norm(b)
    solves.append(factor.iparm(20))
    assert residual < 1e-10, residual
print("iterations of each step, 1 where the factor is exact enough by itself:", solves)
print(f"temperature at the centre {temperature.max():.3f}, total {temperature.sum():.3f}")
assert np.isclose(temperature.sum(), 15 * step_length * 5)  # nothing is lost through the rim

# SPDX-License-Identifier: BSD-3-Clause
"""Newton's method for -Laplace(u) = 6 exp(u) on a square: one analysis, a factor for each step."""
import numpy as np
import scipy.sparse as sp

import velmora

edge = 60
line = sp.diags([-1, 2, -1], [-1, 0, 1], (edge, edge)) * (edge + 1) ** 2
laplacian = (sp.kron(line, sp.identity(edge)) + sp.kron(sp.identity(edge), line)).tocsr()
u = np.zeros(edge**2)
tangent = laplacian.copy()
factor = velmora.analyse(tangent, threads=1)
for step in range(12):
    residual = 6 * np.exp(u) - laplacian @ u
    size = np.abs(residual).max()
    print(f"step {step}: residual {size:.1e}, centre {u.max():.6f}")
    if size < 1e-9:
        break
    tangent.setdiag(laplacian.diagonal() - 6 * np.exp(u))
    u += factor.refactorize(tangent).solve(residual)
assert size < 1e-9 and step < 8
assert factor.inertia.negative == 0  # the lower branch of solutions is stable

# SPDX-License-Identifier: BSD-3-Clause
"""Variances of a random field on a grid, whose precision matrix is sparse, without its inverse."""
import numpy as np
import scipy.sparse as sp

import velmora

edge = 80
n = edge**2
line = sp.diags([-1, 2, -1], [-1, 0, 1], (edge, edge))
grid = sp.kron(line, sp.identity(edge)) + sp.kron(sp.identity(edge), line)
stiff = (grid + 0.05 * sp.identity(n)).tocsr()
observed = np.random.default_rng(1).choice(n, 300, replace=False)
seen = sp.csr_matrix((np.full(300, 25.0), (observed, observed)), shape=(n, n))
precision = (stiff + seen).tocsr()

factor = velmora.factorize(precision, threads=1)
inverse = factor.inverse()
variances = inverse.diagonal()

# Single entries by solves; and the sum over all entries of A times its inverse is n.
for node in (0, n // 2, observed[0]):
    unit = np.zeros(n)
    unit[node] = 1
    assert np.isclose(variances[node], factor.solve(unit)[node])
assert np.isclose(precision.multiply(inverse.T).sum(), n)
unseen = np.setdiff1d(np.arange(n), observed)
print(f"standard deviations: {np.sqrt(variances[observed].mean()):.3f} where the field is seen, "
      f"{np.sqrt(variances[unseen].mean()):.3f} elsewhere; log det {factor.logdet:.3f}")

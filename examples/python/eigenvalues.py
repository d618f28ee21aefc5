# SPDX-License-Identifier: BSD-3-Clause
"""Eigenvalues of a membrane in the middle of its spectrum, by shift and invert.

The inertia of A - s I says how many eigenvalues lie below s: two of them count those of an interval,
and so tell whether eigsh found all.
"""
import numpy as np
import scipy.sparse as sp
from scipy.sparse.linalg import eigsh

import velmora

edge = 60
line = sp.diags([-1, 2, -1], [-1, 0, 1], (edge, edge))
A = (sp.kron(line, sp.identity(edge)) + sp.kron(sp.identity(edge), line) +
     sp.diags(0.1 * np.cos(np.arange(edge**2)))).tocsc()
identity = sp.identity(edge**2, format="csc")

low, high = 1.0, 1.02
below = [velmora.factorize(A - s * identity, threads=1).inertia.negative for s in (low, high)]
count = below[1] - below[0]

middle = velmora.factorize(A - 0.5 * (low + high) * identity, threads=1, robust=False)
values = np.sort(eigsh(A, k=count + 4, sigma=0.5 * (low + high), OPinv=middle,
                       return_eigenvectors=False))
inside = values[(values > low) & (values < high)]
print(f"{count} eigenvalues between {low} and {high} by inertia, eigsh found {len(inside)}:")
print(inside)
assert len(inside) == count

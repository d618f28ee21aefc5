# SPDX-License-Identifier: BSD-3-Clause
"""Velmora inside PETSc: PETSc distributes a system, Velmora solves the pieces on each process.

PC is a context for PETSc's preconditioner type "python": subdomain solver of "bjacobi" and "asm",
coarse solver of "mg", or the whole solver on one process.  From the command line:

    -pc_type asm -sub_pc_type python -sub_pc_python_type velmora.petsc.PC

TwoLevel is a context for all processes: additive Schwarz with a coarse space.  Needs petsc4py;
docs/distributed.md has more.
"""

import atexit

import numpy as np
import scipy.sparse as sp
from scipy.sparse import csgraph
from petsc4py import PETSc

from . import _matrix
from ._settings import Settings
from ._solver import Factorization
from .errors import InputError

# PETSc calls the contexts that are left when it ends.  By itself it ends after the interpreter.
atexit.register(PETSc._finalize)

#: Options of PETSc's database behind PREFIXpc_velmora_, and how each is read.
OPTIONS = {"type": "getString", "threads": "getInt", "robust": "getBool", "accuracy": "getInt",
           "target": "getReal", "ordering": "getString", "refinement": "getInt",
           "perturbation": "getInt", "matching": "getInt", "scaling": "getInt",
           "pivoting": "getInt", "single_precision": "getBool", "old_factor": "getInt",
           "verbose": "getBool"}


def matrix_of(mat):
    """The matrix of one process as SciPy's csr_matrix; a copy.

    Any type of PETSc that converts to "aij".  Raises InputError where it lies on several processes.
    """
    if mat.getComm().getSize() > 1:
        _matrix.refuse(f"the matrix lies on {mat.getComm().getSize()} processes: Velmora solves the "
                       "pieces below bjacobi, asm, redundant or telescope")
    if "aij" not in mat.getType() or "baij" in mat.getType():
        mat = mat.convert("aij", PETSc.Mat())
    start, index, data = mat.getValuesCSR()
    return sp.csr_matrix((data, index, start), shape=mat.getSize())


class PC:
    """Context of a PETSc preconditioner that solves with a factor of the matrix of one process.

    Options are those of velmora.factorize() but for iparm, dparm, keep and progress, and overruled
    by the options database behind the preconditioner's prefix: -sub_pc_velmora_type sym.  Two have
    defaults of their own: threads 1, as other processes share the machine, and robust False, which
    here is the factor of robust with solves that are measured only where pivots were perturbed: the
    iteration around them measures.  A matrix with the pattern of the last one is factored without a
    new analysis.  Failures are exceptions, those of velmora.

    factor  the velmora.Factorization, after setUp; None where the process has no rows
    """

    def __init__(self, **options):
        unknown = set(options) - set(OPTIONS)
        if unknown:
            raise TypeError(f"unknown options {sorted(unknown)}; there are {', '.join(OPTIONS)}")
        self.options = options
        self.factor = None

    # --- what PETSc calls -----------------------------------------------------------------

    def setFromOptions(self, pc):
        """Reads PREFIXpc_velmora_NAME of the options database."""
        database = PETSc.Options((pc.getOptionsPrefix() or "") + "pc_velmora_")
        unknown = set(database.getAll()) - set(OPTIONS)
        if unknown:
            _matrix.refuse(f"unknown options pc_velmora_{', pc_velmora_'.join(sorted(unknown))}; "
                           f"there are {', '.join(OPTIONS)}")
        for name, read in OPTIONS.items():
            if database.hasName(name):
                self.options[name] = getattr(database, read)(name)

    def setUp(self, pc):
        """Factors the matrix that the preconditioner is made from."""
        A = matrix_of(pc.getOperators()[1])
        if A.shape[0] == 0:
            self.factor = None
            return
        if self.factor is not None:
            try:
                self.factor.refactorize(A)
            except InputError:  # another pattern, or no longer of the type that was found
                self.release()
        if self.factor is None:
            self.factor = Factorization(A, self._settings(), True)
        self.factor.measures(self.options.get("robust") or self.factor.perturbed_pivots > 0)

    def apply(self, pc, x, y):
        self._solve(x, y, "N")

    def applyTranspose(self, pc, x, y):
        self._solve(x, y, "T")

    def matApply(self, pc, X, Y):
        """Several right-hand sides, the columns of a dense matrix."""
        if self.factor is not None:
            Y.getDenseArray()[...] = self.factor.solve(X.getDenseArray())
        Y.assemble()

    def view(self, pc, viewer):
        text = "no rows" if self.factor is None else self.factor.report
        for line in text.splitlines():
            viewer.printfASCII(f"  {line}\n")

    def reset(self, pc):
        self.release()

    def destroy(self, pc):
        self.release()

    def release(self):
        """Lets the factor go."""
        if self.factor is not None:
            self.factor.close()
        self.factor = None

    # --- how ------------------------------------------------------------------------------

    def _settings(self):
        return Settings(**{"threads": 1, **self.options, "robust": True})

    def _solve(self, x, y, trans):
        if self.factor is not None:
            y.setArray(self.factor.solve(x.getArray(readonly=True), trans))


def coarse_space(A, modes=None, pieces=8):
    """Interpolation from a coarse space, a matrix of PETSc.

    Each process cuts its rows into connected pieces of equal size, and each of the modes - vectors,
    or the near null space of A, or the constants of each unknown of a node - at their bounds.  A step
    of damped Jacobi smooths the cuts, as in smoothed aggregation (Vanek, Mandel, Brezina, Computing
    56, 1996).
    """
    first, last = A.getOwnershipRange()
    rows = last - first
    fields = A.getBlockSize()
    if modes is None:
        space = A.getNearNullSpace()
        modes = space.getVecs() if space else None
    if modes:
        local = np.column_stack([mode.getArray(readonly=True) for mode in modes])
    else:
        local = np.tile(np.eye(fields), (rows // fields, 1))
    inside = matrix_of(A.getDiagonalBlock())
    blocks = []
    for nodes in _pieces(inside[::fields, ::fields], pieces):
        at = (nodes[:, None] * fields + np.arange(fields)).ravel()
        # Orthonormal, as modes that depend on each other there would make the coarse matrix singular.
        basis, sizes, _ = np.linalg.svd(local[at], full_matrices=False)
        blocks.append((at, basis[:, sizes > 1e-10 * sizes.max(initial=0)]))
    at = np.concatenate([at for at, _ in blocks]) if blocks else np.zeros(0, dtype=int)
    bases = [basis for _, basis in blocks] or [np.zeros((0, 0))]
    local = sp.block_diag(bases, format="csr")
    local = local[np.argsort(at)]
    cut = PETSc.Mat().create(A.getComm())
    cut.setSizes(((rows, None), (local.shape[1], None)))
    cut.setType("aij")
    cut.setUp()
    start = cut.getOwnershipRangeColumn()[0]
    cut.setPreallocationCSR((local.indptr.astype(PETSc.IntType),
                             (local.indices + start).astype(PETSc.IntType), local.data))
    cut.assemble()
    inverse = A.getDiagonal()
    inverse.reciprocal()
    step = A.matMult(cut)
    step.diagonalScale(inverse)
    cut.axpy(-4 / (3 * _largest_eigenvalue(A, inverse)), step)
    return cut


def _pieces(graph, count):
    """Nodes of so many connected pieces, by halving in the order of a breadth-first search."""
    pieces = [np.arange(graph.shape[0])] if graph.shape[0] else []
    while len(pieces) < count and max(map(len, pieces), default=1) > 1:
        largest = max(range(len(pieces)), key=lambda k: len(pieces[k]))
        nodes = pieces.pop(largest)
        part = graph[nodes][:, nodes]
        seen = csgraph.breadth_first_order(part, 0, False, False)
        order = csgraph.breadth_first_order(part, seen[-1], False, False)
        order = np.concatenate([order, np.setdiff1d(np.arange(len(nodes)), order)])
        half = len(order) // 2
        pieces += [np.sort(nodes[order[:half]]), np.sort(nodes[order[half:]])]
    return pieces


def _largest_eigenvalue(A, inverse):
    """Of D^-1 A, by ten steps of the power method."""
    x, y = A.createVecs()
    generator = np.random.default_rng(A.getComm().getRank())
    x.setArray(generator.uniform(-1, 1, x.getLocalSize()))
    size = 1.0
    for _ in range(10):
        x.normalize()
        A.mult(x, y)
        x.pointwiseMult(inverse, y)
        size = x.norm()
    return size


class TwoLevel:
    """Context of a PETSc preconditioner: additive Schwarz, balanced with a coarse space.

    What Schwarz leaves is made orthogonal to the coarse space before and after (Mandel, Comm. Numer.
    Meth. Engng. 9, 1993): for symmetric positive definite matrices the preconditioner is, too.  The
    two parts are PETSc's and take its options, behind the prefixes fine_ (an "asm" with the basic
    type and overlap 1) and coarse_ ("redundant"); both solve by PC where no option says otherwise.
    An application costs one of the fine part, two coarse solves, and two products with the matrix.

    modes, pieces  for coarse_space()
    """

    def __init__(self, modes=None, pieces=8):
        self.modes, self.pieces = modes, pieces
        self.fine = self.coarse = self._space = self._matrix = None

    def setUp(self, pc):
        """Sets up both parts; the coarse space is that of the first matrix."""
        A, B = pc.getOperators()
        if self.fine is None:
            self._create(pc, A)
            self._space = coarse_space(B, self.modes, self.pieces)
            self._matrix = B.ptap(self._space)
            self._residual, self._work = A.createVecs()
            self._right, self._small = self._space.createVecRight(), self._space.createVecRight()
        else:
            B.ptap(self._space, result=self._matrix)
        self._operator = A
        self.fine.setOperators(A, B)
        self.fine.setUp()
        self.fine.setUpOnBlocks()
        self.coarse.setOperators(self._matrix)
        self.coarse.setUp()

    def apply(self, pc, x, y):
        """y = Q x + (I - Q A) M (I - A Q) x, of Q the coarse and M the fine part."""
        r, z = self._residual, self._work
        self._correct(x, y)
        self._operator.mult(y, r)
        r.aypx(-1, x)
        self.fine.apply(r, z)
        y.axpy(1, z)
        self._operator.mult(z, r)
        self._correct(r, z)
        y.axpy(-1, z)

    def view(self, pc, viewer):
        viewer.printfASCII(f"  coarse space of {self._matrix.getSize()[0]} unknowns\n")
        self.fine.view(viewer)
        self.coarse.view(viewer)

    def destroy(self, pc):
        """Lets all go that setUp() made."""
        for held in (self.fine, self.coarse, self._space, self._matrix):
            if held is not None:
                held.destroy()
        self.__init__(self.modes, self.pieces)

    def _create(self, pc, A):
        prefix, solver = pc.getOptionsPrefix() or "", f"{__name__}.PC"
        database = PETSc.Options()
        for name, value in {"fine_pc_type": "asm", "fine_pc_asm_type": "basic",
                            "fine_sub_pc_type": "python", "fine_sub_pc_python_type": solver,
                            "coarse_pc_type": "redundant", "coarse_redundant_pc_type": "python",
                            "coarse_redundant_pc_python_type": solver}.items():
            if not database.hasName(prefix + name):
                database.setValue(prefix + name, value)
        self.fine, self.coarse = (PETSc.PC().create(A.getComm()) for _ in range(2))
        for part, name in ((self.fine, "fine_"), (self.coarse, "coarse_")):
            part.setOptionsPrefix(prefix + name)
            part.setFromOptions()

    def _correct(self, r, z):
        """z = Q r."""
        self._space.multTranspose(r, self._right)
        self.coarse.apply(self._right, self._small)
        self._space.mult(self._small, z)

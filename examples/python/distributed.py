# SPDX-License-Identifier: BSD-3-Clause
"""Poisson and elasticity in three dimensions, assembled and solved on several processes by PETSc.

    mpirun -n 4 python3 distributed.py [poisson|elasticity] [-edge 12] [-overlap 1] [-beam]

The body grows with the processes, EDGE nodes along each edge of a process's cube; it is held at one
end.  The cubes form a block, or a beam.  Conjugate gradients with overlapping additive Schwarz: PETSc's own LU on the subdomains, then
Velmora, then Velmora with a coarse space.  Prints a row of a table for each.
"""
import sys
import time

import numpy as np
import petsc4py

petsc4py.init(sys.argv)

import scipy.sparse as sp  # noqa: E402
from petsc4py import PETSc  # noqa: E402

import velmora.petsc  # noqa: E402

CORNERS = np.array([(i, j, k) for k in (0, 1) for j in (0, 1) for i in (0, 1)])


def element_matrix(fields):
    """Of a trilinear brick with edges 1, by Gauss points: 1 field is Poisson, 3 are elasticity."""
    young, poisson = 1.0, 0.3
    lame = young * poisson / ((1 + poisson) * (1 - 2 * poisson))
    shear = young / (2 * (1 + poisson))
    D = np.diag([2 * shear] * 3 + [shear] * 3)
    D[:3, :3] += lame
    K = np.zeros((8 * fields, 8 * fields))
    for point in 0.5 + (CORNERS - 0.5) / np.sqrt(3):
        factors = np.where(CORNERS == 1, point, 1 - point)
        slopes = 2 * CORNERS - 1
        gradient = np.array([slopes[:, d] * np.prod(np.delete(factors, d, axis=1), axis=1)
                             for d in range(3)])
        if fields == 1:
            K += gradient.T @ gradient / 8
            continue
        B = np.zeros((6, 24))
        for d in range(3):
            B[d, d::3] = gradient[d]
        for row, (d, e) in enumerate(((0, 1), (1, 2), (0, 2)), 3):
            B[row, d::3], B[row, e::3] = gradient[e], gradient[d]
        K += B.T @ D @ B / 8
    return K


def assemble(fields, edge):
    """Matrix with its near null space, and load; each process forms its own rows alone.

    The nodes of the face that is held are left out: the element before the first node has four.
    """
    processes = process_grid(PETSc.COMM_WORLD.size)
    grid = PETSc.DMDA().create(dim=3, dof=fields, stencil_width=1, proc_sizes=processes,
                               stencil_type=PETSc.DMDA.StencilType.BOX,
                               sizes=[edge * p for p in processes])
    size = np.array(grid.getSizes())
    start, count = np.array(grid.getCorners())
    ghost, ghosts = np.array(grid.getGhostCorners())
    numbers = grid.getLGMap().getBlockIndices().reshape(ghosts[::-1])
    # Elements by their lowest corners: all that touch a node of this process.
    low = np.maximum(start - 1, (-1, 0, 0))
    high = np.minimum(start + count, size - 1)
    elements = np.stack(np.meshgrid(*map(np.arange, low, high), indexing="ij"), -1).reshape(-1, 3)
    nodes = elements[:, None, :] + CORNERS
    held = nodes[..., 0] < 0
    inside = np.where(held[..., None], ghost, nodes) - ghost
    global_nodes = numbers[inside[..., 2], inside[..., 1], inside[..., 0]]
    unknowns = (global_nodes[..., None] * fields + np.arange(fields)).reshape(len(elements), -1)
    known = np.repeat(held, fields, axis=1)
    K = element_matrix(fields)
    shape = (len(elements), len(K), len(K))
    rows = np.broadcast_to(unknowns[:, :, None], shape)
    columns = np.broadcast_to(unknowns[:, None, :], shape)
    first, last = grid.createGlobalVec().getOwnershipRange()
    mine = ((rows >= first) & (rows < last) & ~known[:, :, None] & ~known[:, None, :])
    local = sp.csr_matrix((np.broadcast_to(K, shape)[mine], (rows[mine] - first, columns[mine])),
                          shape=(last - first, int(np.prod(size)) * fields))
    A = PETSc.Mat().createAIJ(((last - first, None), (last - first, None)), bsize=fields,
                              csr=(local.indptr, local.indices, local.data))
    A.setOption(PETSc.Mat.Option.SYMMETRIC, True)
    b = A.createVecRight()
    b.set(0)
    b.getArray()[fields - 1::fields] = -1.0
    if fields == 3:
        place = A.createVecRight()
        own = np.stack(np.meshgrid(*(np.arange(s, s + c) for s, c in zip(start, count)),
                                   indexing="ij"), -1).transpose(2, 1, 0, 3)
        place.setBlockSize(3)
        place.setArray(own.reshape(-1).astype(float))
        A.setNearNullSpace(PETSc.NullSpace().createRigidBody(place))
    return A, b


def process_grid(processes):
    """Processes along each axis, as equal as they get, or all along one."""
    if PETSc.Options().getBool("beam", False):
        return [processes, 1, 1]
    grid = [1, 1, 1]
    divisor = 2
    factors = []
    while processes > 1:
        while processes % divisor == 0:
            factors.append(divisor)
            processes //= divisor
        divisor += 1
    for factor in reversed(factors):
        grid[grid.index(min(grid))] *= factor
    return grid


def solve(A, b, name, overlap, rtol=1e-8):
    """Iterations, seconds of setup and solve, and the relative residual."""
    database = PETSc.Options()
    ksp = PETSc.KSP().create()
    ksp.setOptionsPrefix(f"{name}_")
    ksp.setOperators(A)
    ksp.setType("cg")
    ksp.setNormType(PETSc.KSP.NormType.UNPRECONDITIONED)
    ksp.setTolerances(rtol=rtol, max_it=2000)
    pc = ksp.getPC()
    started = time.perf_counter()
    if name == "two_level":
        database[f"{name}_fine_pc_asm_overlap"] = overlap
        pc.setType("python")
        pc.setPythonContext(velmora.petsc.TwoLevel())
    else:
        pc.setType("asm")
        pc.setASMType(PETSc.PC.ASMType.BASIC)
        pc.setASMOverlap(overlap)
        if name == "velmora":
            database[f"{name}_sub_pc_type"] = "python"
            database[f"{name}_sub_pc_python_type"] = "velmora.petsc.PC"
        else:
            database[f"{name}_sub_pc_type"] = "lu"
    ksp.setFromOptions()
    ksp.setUp()
    ksp.setUpOnBlocks()
    b.comm.barrier()
    ready = time.perf_counter()
    x = b.duplicate()
    ksp.solve(b, x)
    done = time.perf_counter()
    residual = (b - A * x).norm() / b.norm()
    assert ksp.getConvergedReason() > 0 and residual < 10 * rtol, (name, residual)
    return ksp.getIterationNumber(), ready - started, done - ready, residual


def main():
    options = PETSc.Options()
    edge, overlap = options.getInt("edge", 12), options.getInt("overlap", 1)
    wanted = [word for word in sys.argv[1:] if word in ("poisson", "elasticity")]
    say = PETSc.Sys.Print
    say("| problem | processes | unknowns | subdomains by | iterations | setup s | solve s |")
    say("|---|---|---|---|---|---|---|")
    for problem in wanted or ("poisson", "elasticity"):
        A, b = assemble(3 if problem == "elasticity" else 1, edge)
        for name in ("lu", "velmora", "two_level"):
            iterations, setup, solution, _ = solve(A, b, name, overlap)
            say(f"| {problem} | {b.comm.size} | {b.size} | {name} | {iterations} | {setup:.3f} | "
                f"{solution:.3f} |")


if __name__ == "__main__":
    main()

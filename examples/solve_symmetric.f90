! SPDX-License-Identifier: BSD-3-Clause
! Solves a symmetric positive definite system in Fortran: the five-point Laplacian on a line.
!
!   gfortran solve_symmetric.f90 $(pkg-config --libs velmora)
program solve_symmetric
  use iso_c_binding, only: c_intptr_t
  implicit none
  integer, parameter :: n = 10, nnz = 2*n - 1
  integer(c_intptr_t) :: pt(64)              ! the handle: one pointer-sized word an entry
  integer :: iparm(64), ia(n+1), ja(nnz), perm(n)
  double precision :: dparm(64), a(nnz), b(n), x(n), r(n)
  integer :: mtype, solver, maxfct, mnum, phase, nrhs, msglvl, error, i

  ! Upper triangle, row after row, diagonal first
  do i = 1, n
    ia(i) = 2*i - 1
    ja(2*i-1) = i
    a(2*i-1) = 2d0
    if (i < n) then
      ja(2*i) = i + 1
      a(2*i) = -1d0
    end if
  end do
  ia(n+1) = nnz + 1
  b = 1d0

  mtype = 2
  solver = 0
  iparm = 0
  call velmorainit(pt, mtype, solver, iparm, dparm, error)
  iparm(3) = 1                               ! threads

  maxfct = 1
  mnum = 1
  nrhs = 1
  msglvl = 0
  phase = 13                                 ! analyse, factor, solve
  call velmora(pt, maxfct, mnum, mtype, phase, n, a, ia, ja, perm, nrhs, iparm, msglvl, b, x, &
               error, dparm)
  if (error /= 0) then
    print *, 'error ', error
    stop 1
  end if

  r = b - 2d0*x
  r(1:n-1) = r(1:n-1) + x(2:n)
  r(2:n) = r(2:n) + x(1:n-1)
  print '(a, 10f6.2)', ' x =', x
  print '(a, es9.2)', ' residual', maxval(abs(r))

  phase = -1                                 ! release all memory
  call velmora(pt, maxfct, mnum, mtype, phase, n, a, ia, ja, perm, nrhs, iparm, msglvl, b, x, &
               error, dparm)
  if (maxval(abs(r)) > 1d-12) stop 1
end program solve_symmetric

! SPDX-License-Identifier: BSD-3-Clause
! Solves symmetric positive definite systems in Fortran: the five-point Laplacian on a line, then
! with other values on the same pattern.
!
!   gfortran velmora.f90 solve_symmetric.f90 $(pkg-config --libs velmora)
!
! velmora.f90 lies in the folder of the headers: $(pkg-config --variable=includedir velmora).
program solve_symmetric
  use velmora
  use iso_fortran_env, only: real64, int32
  implicit none
  integer(int32), parameter :: n = 10, nnz = 2*n - 1
  type(velmora_handle) :: handle
  integer(int32) :: iparm(64), ia(n+1), ja(nnz), perm(n), error, i
  real(real64) :: dparm(64), a(nnz), b(n), x(n)

  ! Upper triangle, row after row, diagonal first
  ja(1::2) = [(i, i = 1, n)]
  ja(2::2) = [(i, i = 2, n)]
  ia(1:n) = [(2*i - 1, i = 1, n)]
  a(1::2) = 2d0
  a(2::2) = -1d0
  ia(n+1) = nnz + 1
  b = 1d0

  iparm = 0
  call velmora_init(handle, mtype_positive_definite, solver_direct, iparm, dparm, error)
  iparm(ip_threads) = 1
  iparm(ip_accuracy) = 1
  iparm(ip_determinant) = 1
  call run(phase_all)                        ! analyse, factor, solve
  call show('a line')

  a(1::2) = 3d0                              ! other values, the same pattern
  call run(phase_factorization_solution)
  call show('with friction')
  call velmora_release(handle)

contains

  subroutine run(phase)
    integer(int32), intent(in) :: phase
    call velmora_run(handle, 1, 1, mtype_positive_definite, phase, n, a, ia, ja, perm, 1, iparm, 0, &
                     b, x, error, dparm)
    if (error /= error_none) then
      print '(a, i0, 2a)', 'error ', error, ': ', velmora_message()
      stop 1
    end if
  end subroutine run

  subroutine show(what)
    character(len=*), intent(in) :: what
    real(real64) :: r(n)
    r = b - a(1)*x
    r(1:n-1) = r(1:n-1) + x(2:n)
    r(2:n) = r(2:n) + x(1:n-1)
    print '(2a, 10f6.2)', what, ': x =', x
    print '(a, es8.1, a, f8.4)', '  residual', maxval(abs(r)), ', log det', dparm(dp_log_determinant)
    if (maxval(abs(r)) > 1d-12 .or. iparm(ip_verdict) /= 0) stop 1
  end subroutine show
end program solve_symmetric

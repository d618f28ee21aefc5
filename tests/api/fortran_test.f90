! SPDX-License-Identifier: BSD-3-Clause
! The Fortran module beyond its example: complex values, Schur complement, checker, messages.
program fortran_test
  use velmora
  use iso_fortran_env, only: real64, int64
  implicit none
  complex(real64), parameter :: i = (0d0, 1d0)
  type(velmora_handle) :: handle
  integer :: iparm(64) = 0, ia(4) = [1, 3, 5, 6], ja(5) = [1, 2, 2, 3, 3], perm(3), is(2), js(1), error
  real(real64) :: dparm(64)
  integer(int64) :: left
  complex(real64) :: a(5), b(3), x(3), s(1)

  ! Hermitian, upper triangle: [ 2 i 0; -i 3 1; 0 1 -4 ]
  a = [(2d0, 0d0), i, (3d0, 0d0), (1d0, 0d0), (-4d0, 0d0)]
  call velmora_check(mtype_hermitian, 3, a, ia, ja, error)
  call expect(error == 0, 'a good matrix passes the checker')
  call velmora_init(handle, mtype_hermitian, solver_direct, iparm, dparm, error)
  iparm(ip_threads) = 1
  b = [2d0 + i*(1 + i), -i + 3d0*(1 + i) + 2d0, (1 + i) - 8d0]   ! x = (1, 1 + i, 2)
  call velmora_run(handle, 1, 1, mtype_hermitian, phase_all, 3, a, ia, ja, perm, 1, iparm, 0, b, x, &
                   error, dparm)
  call expect(error == error_none, 'a complex solve')
  call expect(maxval(abs(x - [(1d0, 0d0), 1 + i, (2d0, 0d0)])) < 1d-14, 'its solution')
  call expect(iparm(ip_positive) == 2 .and. iparm(ip_negative) == 1, 'its inertia')
  call velmora_release(handle)
  call expect(all(handle%pt == 0), 'an empty handle')

  iparm(ip_eliminate) = 2                    ! -4 - 1 / (3 - 1/2)
  call velmora_run(handle, 1, 1, mtype_hermitian, phase_analysis_factorization, 3, a, ia, ja, perm, &
                   1, iparm, 0, b, x, error, dparm)
  call expect(error == error_none .and. iparm(ip_schur_entries) == 1, 'a Schur complement')
  call velmora_get_schur(handle, 1, 1, mtype_hermitian, s, is, js)
  call expect(abs(s(1) + 4.4d0) < 1d-14 .and. js(1) == 1, 'its entry')

  call velmora_run(handle, 1, 1, mtype_hermitian, 44, 3, a, ia, ja, perm, 1, iparm, 0, b, x, error, &
                   dparm)
  call expect(error /= 0 .and. index(velmora_message(), 'phase') > 0, 'the message of a wrong phase')
  call velmora_release(handle)

  call expect(velmora_require_memory(1_int64, left) == error_none .and. left >= 0, 'memory for a factor')
  call expect(left == 0 .or. velmora_require_memory(huge(left), left) == error_memory, 'too much memory')

contains

  subroutine expect(holds, what)
    logical, intent(in) :: holds
    character(len=*), intent(in) :: what
    if (.not. holds) then
      print '(2a)', 'FAILED: ', what
      stop 1
    end if
  end subroutine expect
end program fortran_test

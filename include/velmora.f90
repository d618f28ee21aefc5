! SPDX-License-Identifier: BSD-3-Clause
!> Velmora for Fortran: explicit interfaces of the operations in velmora.h, and names for the options.
!>
!>   use velmora
!>   type(velmora_handle) :: handle
!>   call velmora_init(handle, mtype_symmetric, solver_direct, iparm, dparm, error)
!>   call velmora_run(handle, 1, 1, mtype_symmetric, phase_all, n, a, ia, ja, perm, 1, iparm, 0, b, x, &
!>                    error, dparm)
!>
!> velmora_run takes real values, or complex ones; for an array that a phase does not read any array
!> will do.  iparm and dparm have the numbers of velmora.h.  The module is compiled with the program
!> that uses it, so that it fits every compiler.
module velmora
  use, intrinsic :: iso_c_binding, only: c_int, c_double, c_double_complex, c_char, c_intptr_t, c_long_long
  implicit none
  private :: c_int, c_double, c_double_complex, c_char, c_intptr_t, c_long_long

  !> The handle; empty at first.
  type, bind(c) :: velmora_handle
    integer(c_intptr_t) :: pt(64) = 0
  end type velmora_handle

  ! Types of matrices
  integer(c_int), parameter :: mtype_structurally_symmetric = 1
  integer(c_int), parameter :: mtype_positive_definite = 2
  integer(c_int), parameter :: mtype_symmetric = -2
  integer(c_int), parameter :: mtype_complex_structurally_symmetric = 3
  integer(c_int), parameter :: mtype_hermitian_positive_definite = 4
  integer(c_int), parameter :: mtype_hermitian = -4
  integer(c_int), parameter :: mtype_complex_symmetric = 6
  integer(c_int), parameter :: mtype_unsymmetric = 11
  integer(c_int), parameter :: mtype_complex_unsymmetric = 13

  ! Solvers
  integer(c_int), parameter :: solver_direct = 0, solver_iterative = 1

  ! Phases
  integer(c_int), parameter :: phase_analysis = 11
  integer(c_int), parameter :: phase_analysis_factorization = 12
  integer(c_int), parameter :: phase_all = 13
  integer(c_int), parameter :: phase_factorization = 22
  integer(c_int), parameter :: phase_factorization_solution = 23
  integer(c_int), parameter :: phase_solution = 33
  integer(c_int), parameter :: phase_inversion = -22
  integer(c_int), parameter :: phase_release_factor = 0
  integer(c_int), parameter :: phase_release = -1

  ! Errors
  integer(c_int), parameter :: error_none = 0
  integer(c_int), parameter :: error_input = -1
  integer(c_int), parameter :: error_memory = -2
  integer(c_int), parameter :: error_analysis = -3
  integer(c_int), parameter :: error_numeric = -4
  integer(c_int), parameter :: error_matching = -6
  integer(c_int), parameter :: error_overflow = -8

  ! Places in iparm: options
  integer, parameter :: ip_own_settings = 1, ip_ordering = 2, ip_threads = 3, ip_old_factor = 4
  integer, parameter :: ip_user_order = 5, ip_solution_in_b = 6, ip_refinement = 8
  integer, parameter :: ip_perturbation = 10, ip_scaling = 11, ip_transposed = 12, ip_matching = 13
  integer, parameter :: ip_pivoting = 21, ip_factor_scheme = 24, ip_solve_scheme = 25
  integer, parameter :: ip_solve_step = 26, ip_single_precision = 29, ip_panel = 30
  integer, parameter :: ip_partial = 31, ip_iterative = 32, ip_determinant = 33
  integer, parameter :: ip_fixed_order = 34, ip_inverse_store = 36, ip_inverse_full = 37
  integer, parameter :: ip_eliminate = 38, ip_accuracy = 40, ip_robust = 42, ip_expected_negative = 48
  ! Places in iparm: results
  integer, parameter :: ip_refinement_steps = 7, ip_perturbed = 14, ip_analysis_kb = 15
  integer, parameter :: ip_permanent_kb = 16, ip_factor_kb = 17, ip_nonzeros = 18, ip_gigaflop = 19
  integer, parameter :: ip_iterations = 20, ip_positive = 22, ip_negative = 23
  integer, parameter :: ip_schur_entries = 39, ip_verdict = 41, ip_rung = 43, ip_uncertain = 44
  ! Places in dparm
  integer, parameter :: dp_maxiter = 1, dp_tolerance = 2, dp_log_determinant = 33
  integer, parameter :: dp_residual = 34, dp_iterations = 35, dp_normwise = 40
  integer, parameter :: dp_componentwise = 41, dp_condition = 42, dp_error_bound = 43, dp_target = 44

  interface
    !> velmorainit(): an empty handle, and the defaults of a type.
    subroutine velmora_init(handle, mtype, solver, iparm, dparm, error) bind(c, name='VELMORAINIT')
      import :: velmora_handle, c_int, c_double
      type(velmora_handle), intent(out) :: handle
      integer(c_int), intent(in) :: mtype, solver
      integer(c_int), intent(inout) :: iparm(64)
      real(c_double), intent(inout) :: dparm(64)
      integer(c_int), intent(out) :: error
    end subroutine velmora_init

    !> velmora_last_message(), as an array of characters with a zero at its end.
    subroutine velmora_last_message_c(text, length) bind(c, name='velmora_last_message')
      import :: c_int, c_char
      integer(c_int), value :: length
      character(kind=c_char), intent(out) :: text(length)
    end subroutine velmora_last_message_c
  end interface

  !> velmora(): runs a phase; values, right-hand sides and solutions are real or complex.
  interface velmora_run
    subroutine velmora_run_real(handle, maxfct, mnum, mtype, phase, n, a, ia, ja, perm, nrhs, iparm, &
                                msglvl, b, x, error, dparm) bind(c, name='VELMORA')
      import :: velmora_handle, c_int, c_double
      type(velmora_handle), intent(inout) :: handle
      integer(c_int), intent(in) :: maxfct, mnum, mtype, phase, n, nrhs, msglvl
      real(c_double), intent(inout) :: a(*), b(*), x(*)
      integer(c_int), intent(inout) :: ia(*), ja(*), perm(*)
      integer(c_int), intent(inout) :: iparm(64)
      integer(c_int), intent(out) :: error
      real(c_double), intent(inout) :: dparm(64)
    end subroutine velmora_run_real
    subroutine velmora_run_complex(handle, maxfct, mnum, mtype, phase, n, a, ia, ja, perm, nrhs, &
                                   iparm, msglvl, b, x, error, dparm) bind(c, name='velmora_')
      import :: velmora_handle, c_int, c_double, c_double_complex
      type(velmora_handle), intent(inout) :: handle
      integer(c_int), intent(in) :: maxfct, mnum, mtype, phase, n, nrhs, msglvl
      complex(c_double_complex), intent(inout) :: a(*), b(*), x(*)
      integer(c_int), intent(inout) :: ia(*), ja(*), perm(*)
      integer(c_int), intent(inout) :: iparm(64)
      integer(c_int), intent(out) :: error
      real(c_double), intent(inout) :: dparm(64)
    end subroutine velmora_run_complex
  end interface velmora_run

  !> velmora_schur(): the Schur complement of a factor, compressed rows from 1.
  interface velmora_get_schur
    subroutine velmora_schur_real(handle, maxfct, mnum, mtype, s, is, js) bind(c, name='VELMORA_SCHUR')
      import :: velmora_handle, c_int, c_double
      type(velmora_handle), intent(inout) :: handle
      integer(c_int), intent(in) :: maxfct, mnum, mtype
      real(c_double), intent(inout) :: s(*)
      integer(c_int), intent(inout) :: is(*), js(*)
    end subroutine velmora_schur_real
    subroutine velmora_schur_complex(handle, maxfct, mnum, mtype, s, is, js) &
        bind(c, name='velmora_schur_')
      import :: velmora_handle, c_int, c_double_complex
      type(velmora_handle), intent(inout) :: handle
      integer(c_int), intent(in) :: maxfct, mnum, mtype
      complex(c_double_complex), intent(inout) :: s(*)
      integer(c_int), intent(inout) :: is(*), js(*)
    end subroutine velmora_schur_complex
  end interface velmora_get_schur

  interface
    !> 0, or error_memory where the machine has less memory left than a factorization needs, in KB
    !> (iparm(17) after the analysis); left receives what there is, 0 where the system does not tell.
    function velmora_require_memory(kilobytes, left) result(error) bind(c)
      import :: c_int, c_long_long
      integer(c_long_long), value :: kilobytes
      integer(c_long_long), intent(out) :: left
      integer(c_int) :: error
    end function velmora_require_memory
  end interface

  !> The checker: 0, or what is wrong with a matrix; velmora.h lists the numbers.
  interface velmora_check
    subroutine velmora_check_real(mtype, n, a, ia, ja, error) bind(c, name='VELMORA_CHKMATRIX')
      import :: c_int, c_double
      integer(c_int), intent(in) :: mtype, n, ia(*), ja(*)
      real(c_double), intent(in) :: a(*)
      integer(c_int), intent(out) :: error
    end subroutine velmora_check_real
    subroutine velmora_check_complex(mtype, n, a, ia, ja, error) bind(c, name='VELMORA_CHKMATRIX_Z')
      import :: c_int, c_double_complex
      integer(c_int), intent(in) :: mtype, n, ia(*), ja(*)
      complex(c_double_complex), intent(in) :: a(*)
      integer(c_int), intent(out) :: error
    end subroutine velmora_check_complex
  end interface velmora_check

contains

  !> What the calling thread's last failed call said, and what to do about it.
  function velmora_message() result(message)
    character(len=:), allocatable :: message
    character(kind=c_char) :: text(1024)
    integer :: k
    call velmora_last_message_c(text, size(text, kind=c_int))
    message = ''
    do k = 1, size(text)
      if (iachar(text(k)) == 0) exit
      message = message // text(k)
    end do
  end function velmora_message

  !> Releases all that a handle holds.
  subroutine velmora_release(handle)
    type(velmora_handle), intent(inout) :: handle
    integer(c_int) :: iparm(64), none(1), error
    real(c_double) :: dparm(64), nothing(1)
    iparm = 0
    dparm = 0
    none = 0
    nothing = 0
    call velmora_run_real(handle, 1_c_int, 1_c_int, 2_c_int, phase_release, 1_c_int, nothing, none, &
                          none, none, 1_c_int, iparm, 0_c_int, nothing, nothing, error, dparm)
  end subroutine velmora_release
end module velmora

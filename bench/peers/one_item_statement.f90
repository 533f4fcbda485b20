! Peer of BM_OneItemStatement: DO I = 1, N; WRITE(10,*) I; END DO.
! Prints the nanoseconds per statement of the timed loop.
program one_item_statement
  use, intrinsic :: iso_fortran_env, only: int64, real64
  implicit none
  integer :: i, statements
  integer(int64) :: t0, t1, rate
  character(len=32) :: arg

  statements = 1000000
  if (command_argument_count() >= 1) then
    call get_command_argument(1, arg)
    read (arg, *) statements
  end if

  write (10, *) 0
  call system_clock(t0, rate)
  do i = 1, statements
    write (10, *) i
  end do
  call system_clock(t1)
  print '(f0.3)', real(t1 - t0, real64) * 1.0e9_real64 / real(rate, real64) / statements
end program one_item_statement

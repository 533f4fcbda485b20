! Peer of BM_FormattedFourItems: WRITE(10,'(4I12)') of four scalar integers
! per statement.  Prints the nanoseconds per item of the timed loop.
program formatted_items
  use, intrinsic :: iso_fortran_env, only: int64, real64
  implicit none
  integer :: a(1000), i, s, k, statements
  integer(int64) :: t0, t1, rate
  character(len=32) :: arg

  statements = 1000000
  if (command_argument_count() >= 1) then
    call get_command_argument(1, arg)
    read (arg, *) statements
  end if
  do i = 1, 1000
    a(i) = mod(i * 7919, 1000000000)
  end do

  write (10, '(4I12)') a(1), a(2), a(3), a(4)
  call system_clock(t0, rate)
  k = 0
  do s = 1, statements
    write (10, '(4I12)') a(k+1), a(k+2), a(k+3), a(k+4)
    k = mod(k + 4, 1000)
  end do
  call system_clock(t1)
  print '(f0.3)', real(t1 - t0, real64) * 1.0e9_real64 / real(rate, real64) &
                  / (real(statements, real64) * 4)
end program formatted_items

! Peer of the real-output benchmarks: one double per statement, written
! with the format given as the first argument ('*' for list-directed),
! the second argument the number of statements.  Prints nanoseconds per
! statement of the timed loop.
program formatted_reals
  use, intrinsic :: iso_fortran_env, only: int64, real64
  implicit none
  real(real64) :: v(1000)
  integer :: i, s, k, statements
  integer(int64) :: t0, t1, rate
  character(len=32) :: fmt, arg

  call get_command_argument(1, fmt)
  statements = 400000
  if (command_argument_count() >= 2) then
    call get_command_argument(2, arg)
    read (arg, *) statements
  end if
  do i = 1, 1000
    v(i) = real(mod(i * 7919, 1000000000), real64) * 10.0_real64**(mod(i, 41) - 20) / 997
  end do

  if (fmt == '*') then
    write (10, *) v(1)
  else
    write (10, fmt) v(1)
  end if
  call system_clock(t0, rate)
  k = 1
  if (fmt == '*') then
    do s = 1, statements
      write (10, *) v(k)
      k = mod(k, 1000) + 1
    end do
  else
    do s = 1, statements
      write (10, fmt) v(k)
      k = mod(k, 1000) + 1
    end do
  end if
  call system_clock(t1)
  print '(f0.3)', real(t1 - t0, real64) * 1.0e9_real64 / real(rate, real64) / real(statements, real64)
end program formatted_reals

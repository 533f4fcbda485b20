! Peer of BM_TenItems: WRITE(10,*) of ten scalar integers per statement, so
! that every item is its own transfer, as in our interface.  Prints the
! nanoseconds per item of the timed loop.
program ten_items
  use, intrinsic :: iso_fortran_env, only: int64, real64
  implicit none
  integer :: a(1000), i, s, k, statements
  integer(int64) :: t0, t1, rate
  character(len=32) :: arg

  statements = 400000
  if (command_argument_count() >= 1) then
    call get_command_argument(1, arg)
    read (arg, *) statements
  end if
  do i = 1, 1000
    a(i) = mod(i * 7919, 1000000000)
  end do

  write (10, *) a(1)
  call system_clock(t0, rate)
  k = 0
  do s = 1, statements
    write (10, *) a(k+1), a(k+2), a(k+3), a(k+4), a(k+5), a(k+6), a(k+7), a(k+8), a(k+9), a(k+10)
    k = mod(k + 10, 1000)
  end do
  call system_clock(t1)
  print '(f0.3)', real(t1 - t0, real64) * 1.0e9_real64 / real(rate, real64) &
                  / (real(statements, real64) * 10)
end program ten_items

! Peer of BM_ListItems: WRITE(10,*) of 1000 integers per statement, repeated.
! Prints the nanoseconds per item of the timed loop.  Unit 10 is connected
! implicitly to fort.10 by the first, untimed statement.
program list_items
  use, intrinsic :: iso_fortran_env, only: int64, real64
  implicit none
  integer, parameter :: per_statement = 1000
  integer :: a(per_statement), i, s, statements
  integer(int64) :: t0, t1, rate
  character(len=32) :: arg

  statements = 4000
  if (command_argument_count() >= 1) then
    call get_command_argument(1, arg)
    read (arg, *) statements
  end if
  do i = 1, per_statement
    a(i) = mod(i * 7919, 1000000000)
  end do

  write (10, *) (a(i), i = 1, per_statement)
  call system_clock(t0, rate)
  do s = 1, statements
    write (10, *) (a(i), i = 1, per_statement)
  end do
  call system_clock(t1)
  print '(f0.3)', real(t1 - t0, real64) * 1.0e9_real64 / real(rate, real64) &
                  / (real(statements, real64) * per_statement)
end program list_items

! Peer of the formatted-read benchmarks: reads the file given as the first
! argument with the format given as the second, for the number of records
! given as the third; one double a record under ES25.16, or four integers
! under 4I12.  Prints nanoseconds per value of the timed loop, then the sum
! of what it read.
program formatted_read
  use, intrinsic :: iso_fortran_env, only: int64, real64
  implicit none
  integer :: s, records
  integer :: a(4)
  real(real64) :: x, rsum
  integer(int64) :: t0, t1, rate, isum
  character(len=64) :: file, fmt, arg

  call get_command_argument(1, file)
  call get_command_argument(2, fmt)
  call get_command_argument(3, arg)
  read (arg, *) records
  open (10, file=file, status='old')
  rsum = 0
  isum = 0
  call system_clock(t0, rate)
  if (fmt == '(ES25.16)') then
    do s = 1, records
      read (10, fmt) x
      rsum = rsum + x
    end do
  else
    do s = 1, records
      read (10, fmt) a
      isum = isum + a(1) + a(2) + a(3) + a(4)
    end do
  end if
  call system_clock(t1)
  if (fmt == '(ES25.16)') then
    print '(f0.3)', real(t1 - t0, real64) * 1.0e9_real64 / real(rate, real64) / real(records, real64)
    print '(es25.17)', rsum
  else
    print '(f0.3)', real(t1 - t0, real64) * 1.0e9_real64 / real(rate, real64) / &
      real(4 * records, real64)
    print '(i0)', isum
  end if
end program formatted_read

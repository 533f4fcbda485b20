! gfortran peer of bench/unformatted.cc: the same unformatted statements on
! the same files, timed around the loop and the CLOSE that ends it.
!
!   unformatted ws FILE   WRITE(10) I, J   a million records
!   unformatted rs FILE   READ(10) I, J    the same records back
!   unformatted wb FILE   WRITE(10) A      one record of 64 MiB
!   unformatted rb FILE   READ(10) A       the same record back
!
! Prints "<mode> <ns per record> <check>".
program unformatted
  implicit none
  integer, parameter :: records = 1000000
  integer(8), parameter :: big = 64 * 1024 * 1024
  character(len=4) :: mode
  character(len=256) :: fname
  integer(8) :: t0, t1, rate, check
  integer :: i, j, k
  integer(1), allocatable :: a(:)
  call get_command_argument(1, mode)
  call get_command_argument(2, fname)
  check = 0
  select case (mode)
  case ('ws')
    open(10, file=fname, form='unformatted', status='replace')
    call system_clock(t0, rate)
    do k = 1, records
      write(10) k, k + 1
    end do
    close(10)
    call system_clock(t1)
  case ('rs')
    open(10, file=fname, form='unformatted', status='old')
    call system_clock(t0, rate)
    do k = 1, records
      read(10) i, j
      check = check + i + j
    end do
    close(10)
    call system_clock(t1)
  case ('wb')
    allocate(a(big))
    do k = 1, int(big)
      a(k) = int(mod(k, 127), 1)
    end do
    open(10, file=fname, form='unformatted', status='replace')
    call system_clock(t0, rate)
    write(10) a
    close(10)
    call system_clock(t1)
  case default
    allocate(a(big))
    open(10, file=fname, form='unformatted', status='old')
    call system_clock(t0, rate)
    read(10) a
    close(10)
    call system_clock(t1)
    check = sum(int(a, 8))
  end select
  if (mode(2:2) == 's') then
    print '(a,1x,f0.2,1x,i0)', mode, dble(t1 - t0) * 1d9 / rate / records, check
  else
    print '(a,1x,f0.0,1x,i0)', mode, dble(t1 - t0) * 1d9 / rate, check
  end if
end program

! The gfortran peer of bench_positioning: the same workloads, the same
! output line "<mode> <ns> <check>".
!   positioning rd|br F|U FILE     positioning iq|iqt FILE
program positioning
  implicit none
  integer, parameter :: reads = 1000000, backspaces = 200000, inquiries = 1000000
  character(len=8) :: mode, kind
  character(len=256) :: name
  character(len=79) :: line
  integer(1) :: rec(80)
  integer(8) :: t0, t1, rate, sum, k8
  integer :: k, j, num
  logical :: op
  character(len=256) :: nm
  character(len=16) :: acc, frm
  call get_command_argument(1, mode)
  if (mode(1:2) == 'iq') then
    call get_command_argument(2, name)
    open(10, file=name, status='old')
    sum = 0
    call system_clock(t0, rate)
    do k = 1, inquiries
      if (mode == 'iqt') then
        inquire(unit=10, name=nm, access=acc, form=frm)
        sum = sum + iachar(acc(1:1)) + iachar(frm(1:1))
      else
        inquire(unit=10, opened=op, number=num)
        sum = sum + merge(1, 0, op) + num
      end if
    end do
    call system_clock(t1)
    close(10)
    call report(real(t1 - t0, 8) / rate * 1d9 / inquiries, sum / inquiries)
    stop
  end if
  call get_command_argument(2, kind)
  call get_command_argument(3, name)
  if (kind == 'F') then
    if (mode == 'br') then
      open(10, file=name, status='old', position='append')
    else
      open(10, file=name, status='old')
    end if
  else
    if (mode == 'br') then
      open(10, file=name, status='old', form='unformatted', position='append')
    else
      open(10, file=name, status='old', form='unformatted')
    end if
  end if
  sum = 0
  call system_clock(t0, rate)
  if (mode == 'rd') then
    do k = 1, reads
      call read_one()
    end do
  else
    do k = 1, backspaces
      backspace(10)
      call read_one()
    end do
  end if
  call system_clock(t1)
  close(10)
  if (mode == 'rd') then
    call report(real(t1 - t0, 8) / rate * 1d9 / reads, sum)
  else
    call report(real(t1 - t0, 8) / rate * 1d9 / backspaces, sum / backspaces)
  end if
contains
  subroutine read_one()
    if (kind == 'F') then
      read(10, '(A)') line
      k8 = 0
      do j = 61, 79
        k8 = k8 * 10 + (iachar(line(j:j)) - 48)
      end do
    else
      read(10) rec
      k8 = transfer(rec(1:8), k8)
    end if
    sum = sum + k8
  end subroutine
  subroutine report(ns, check)
    real(8) :: ns
    integer(8) :: check
    write(*, '(A,1X,F0.2,1X,I0)') trim(mode), ns, check
  end subroutine
end program

! Start-up peer for information: the gfortran twin of examples/hello_print.c.
program hello
  print *, 'Hello', 42, .true.
end program hello

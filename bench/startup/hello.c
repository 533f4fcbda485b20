/* The plain C twin of examples/hello_print.c: the same line through stdio. */
#include <stdio.h>

int main(void) {
  fputs(" Hello 42 T\n", stdout);
  return 0;
}

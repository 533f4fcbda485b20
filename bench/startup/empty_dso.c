/* A shared object with nothing in it: the control that shows what loading
 * any one more library costs at start-up, libqal or not. */
int bench_empty_dso_marker(void) { return 0; }

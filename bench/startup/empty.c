/* The smallest program: start-up and exit, nothing else. */
int main(void) { return 0; }

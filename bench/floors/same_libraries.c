/* The floor of the footprint: a program that is linked with the agent's libraries, says that it has
   started and sleeps. Less is not possible: the loader maps and relocates each of them for whoever
   names them, used or not. */

#include <unistd.h>

int main(void) {
  if (write(STDERR_FILENO, "found\n", 6) != 6) return 1;
  pause();
  return 0;
}

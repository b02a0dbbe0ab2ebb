#include "reliability/Hostile.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  bool const full = argc > 1 && std::strcmp(argv[1], "full") == 0;
  return RunHostile(full, argc > 2 ? unsigned(std::atoi(argv[2])) : 1) == 0 ? 0 : 1;
}

// noxsim, the simulated forwarding agent: runs scenario files against the library's machines.

#include <iostream>

#include "tools/noxsim/Runner.h"

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  return Noxsim::runMain(argc, argv, std::cin, std::cout, std::cerr);
}

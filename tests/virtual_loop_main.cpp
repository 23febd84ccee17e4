// Joins the wires of the virtual port, until standard input ends: bytes come back, DTR is fed to
// DSR and DCD, and RTS to CTS. Prints "ready" when that is so.
#include <cstdio>
#include <exception>

#include "tests/virtual_port.h"

int main() {
  try {
    system_test::VirtualPort port;
    port.LoopBack();
    std::puts("ready");
    std::fflush(stdout);
    while (std::getchar() != EOF)
      continue;
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}

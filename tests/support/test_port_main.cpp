// A stand-in for a device, for as long as this program's standard input stays open:
// tarnwheel-test-port COM5 "Friendly name" puts a serial port into the system's device list, so that
// servers list it; tarnwheel-test-port loop puts a loop plug on the virtual serial port.
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include "tests/support/test_port.h"
#include "tests/support/virtual_port.h"

namespace {

std::wstring Widen(const std::string& ascii) {
  return {ascii.begin(), ascii.end()};
}

}  // namespace

int main(int argc, char** argv) try {
  std::unique_ptr<system_test::VirtualPort> plug;
  std::unique_ptr<system_test::TestPort> listed;
  if (argc == 2) {
    plug = std::make_unique<system_test::VirtualPort>();
    plug->LoopBack();
  } else if (argc == 3) {
    listed = std::make_unique<system_test::TestPort>(Widen(argv[1]), Widen(argv[2]));
  } else {
    return 2;
  }
  std::puts("ready");
  std::fflush(stdout);
  while (std::getchar() != EOF)
    continue;
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}

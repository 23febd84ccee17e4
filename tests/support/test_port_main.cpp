// What a script needs of Windows, for as long as this program's standard input stays open:
// tarnwheel-test-port COM5 "Friendly name" puts a serial port into the system's device list, so that
// servers list it; tarnwheel-test-port loop puts a loop plug on the virtual serial port; and
// tarnwheel-test-port joins standard input and output to the server's pipe.
#include <cstdio>
#include <optional>
#include <thread>

#include "tests/support/test_port.h"
#include "tests/support/virtual_port.h"

namespace {

void Relay() {
  system_test::RawClient pipe;
  std::thread([&pipe] {
    DWORD written = 1;
    for (auto bytes = pipe.ReceiveSome(INFINITE); !bytes.empty() && written != 0;
         bytes = pipe.ReceiveSome(INFINITE))
      ::WriteFile(::GetStdHandle(STD_OUTPUT_HANDLE), bytes.data(), static_cast<DWORD>(bytes.size()),
                  &written, nullptr);
    ::ExitProcess(0);  // the main thread's input cannot be interrupted
  }).detach();
  system_test::Bytes buffer(4096);
  DWORD size = 0;
  while (::ReadFile(::GetStdHandle(STD_INPUT_HANDLE), buffer.data(), 4096, &size, nullptr) &&
         size != 0 && pipe.Send({buffer.begin(), buffer.begin() + size})) {
  }
  ::ExitProcess(0);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  std::optional<system_test::VirtualPort> plug;
  std::optional<system_test::TestPort> listed;
  if (argc == 1)
    Relay();
  if (argc == 2)
    plug.emplace().LoopBack();
  if (argc == 3)
    listed.emplace(argv[1], argv[2]);
  std::puts("ready");
  std::fflush(stdout);
  while (std::getchar() != EOF)
    continue;
  return 0;
}

// Gives scripts access to Windows, for as long as this program's standard input stays open:
// tarnwheel-test-port COM5 "Friendly name" puts a serial port into the system's device list, so
// that servers list it; tarnwheel-test-port [PIPE] connects standard input and output to that pipe,
// by default the server's.
#include <cstdio>
#include <thread>

#include "tests/support/raw_client.h"
#include "tests/support/test_port.h"

namespace {

void Relay(const wchar_t* name) {
  system_test::RawClient pipe(name);
  std::thread([&pipe] {
    DWORD written = 1;
    for (auto bytes = pipe.ReceiveSome(INFINITE); !bytes.empty() && written != 0;
         bytes = pipe.ReceiveSome(INFINITE))
      ::WriteFile(::GetStdHandle(STD_OUTPUT_HANDLE), bytes.data(), static_cast<DWORD>(bytes.size()),
                  &written, nullptr);
    ::ExitProcess(0);  // the main thread's read cannot be interrupted
  }).detach();
  system_test::Bytes buffer(0x10000, '\0');
  DWORD size = 0;
  while (::ReadFile(::GetStdHandle(STD_INPUT_HANDLE), buffer.data(), 0x10000, &size, nullptr) &&
         size != 0 && pipe.Send(buffer.substr(0, size), INFINITE)) {
  }
  ::ExitProcess(0);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc < 3)
    Relay(argc == 2 ? argv[1] : system_test::kPipeName);
  const system_test::TestPort listed(argv[1], argv[2]);
  std::puts("ready");
  std::fflush(stdout);
  while (std::getchar() != EOF)
    continue;
  return 0;
}

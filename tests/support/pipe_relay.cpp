// Joins standard input and output to the server's pipe, for clients that cannot open it themselves.
// Ends when either side ends.
#include <thread>

#include "tests/support/raw_client.h"

int main() {
  system_test::RawClient pipe;
  std::thread([&pipe] {
    const HANDLE output = ::GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD written = 1;
    for (auto bytes = pipe.ReceiveSome(); !bytes.empty() && written != 0;
         bytes = pipe.ReceiveSome())
      ::WriteFile(output, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    ::ExitProcess(0);  // the main thread's input cannot be interrupted
  }).detach();
  system_test::Bytes buffer(4096);
  DWORD size = 0;
  while (::ReadFile(::GetStdHandle(STD_INPUT_HANDLE), buffer.data(), 4096, &size, nullptr) &&
         size != 0 && pipe.Send({buffer.begin(), buffer.begin() + size})) {
  }
  ::ExitProcess(0);
}

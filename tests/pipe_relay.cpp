// Joins standard input and output to the server's pipe, for clients that cannot open it themselves:
// every byte of the input goes into the pipe, every byte of the pipe to the output. Ends when
// either side ends.
#include <array>
#include <functional>
#include <span>
#include <thread>

#include "platform/unique_resource.h"
#include "tests/patience.h"
#include "tests/raw_client.h"

namespace {

using system_test::Require;

class Pipe {
 public:
  Pipe() {
    const auto open = [this] {
      pipe_.reset(::CreateFileW(system_test::kPipeName, GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
      return static_cast<bool>(pipe_);
    };
    Require(system_test::Eventually(open), "connecting to the server's pipe");
  }

  // Both give the number of bytes, 0 when the pipe has ended.
  DWORD Read(std::span<char> buffer) const {
    return Finish([&](OVERLAPPED* overlapped) {
      return ::ReadFile(pipe_.get(), buffer.data(), static_cast<DWORD>(buffer.size()), nullptr,
                        overlapped);
    });
  }
  DWORD Write(std::span<const char> bytes) const {
    return Finish([&](OVERLAPPED* overlapped) {
      return ::WriteFile(pipe_.get(), bytes.data(), static_cast<DWORD>(bytes.size()), nullptr,
                         overlapped);
    });
  }

 private:
  template <class Start>
  DWORD Finish(Start start) const {
    const Tamrin::unique_handle event(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    Require(static_cast<bool>(event), "CreateEventW");
    OVERLAPPED overlapped = {};
    overlapped.hEvent = event.get();
    DWORD size = 0;
    const bool started = start(&overlapped) || ::GetLastError() == ERROR_IO_PENDING;
    return started && ::GetOverlappedResult(pipe_.get(), &overlapped, &size, TRUE) ? size : 0;
  }

  Tamrin::unique_file pipe_;
};

// Ends the process, since the input of the main thread cannot be interrupted.
void CopyToOutput(const Pipe& pipe) {
  std::array<char, 4096> buffer;
  const HANDLE output = ::GetStdHandle(STD_OUTPUT_HANDLE);
  while (const DWORD size = pipe.Read(buffer)) {
    DWORD written = 0;
    if (!::WriteFile(output, buffer.data(), size, &written, nullptr))
      break;
  }
  ::ExitProcess(0);
}

}  // namespace

int main() {
  const Pipe pipe;
  std::thread(CopyToOutput, std::cref(pipe)).detach();
  std::array<char, 4096> buffer;
  const HANDLE input = ::GetStdHandle(STD_INPUT_HANDLE);
  DWORD size = 0;
  while (::ReadFile(input, buffer.data(), static_cast<DWORD>(buffer.size()), &size, nullptr) &&
         size != 0 && pipe.Write(std::span(buffer).first(size)) == size) {
  }
  ::ExitProcess(0);
}

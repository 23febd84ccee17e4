#include "client/output_stream.h"

#include <span>
#include <utility>

namespace tarnwheel::client {

void output_stream::state::write(const std::vector<std::byte>& bytes) {
  for (auto rest = std::span(bytes); !rest.empty() && error == ERROR_SUCCESS;) {
    DWORD written = 0;
    if (::WriteFile(output, rest.data(), static_cast<DWORD>(rest.size()), &written, nullptr))
      rest = rest.subspan(written);
    else
      error = ::GetLastError();
  }
}

output_stream::output_stream(HANDLE output) : state_(std::make_shared<state>(output)) {}

ostra::future<void> output_stream::write(std::vector<std::byte> bytes) {
  return writes_.post([stream = state_, block = std::move(bytes)] { stream->write(block); });
}

}  // namespace tarnwheel::client

// Shared by the tests of the RPC layer.
#pragma once

#include <atomic>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "async/test_support.h"
#include "platform/unique_resource.h"
#include "rpc/pipe_transport.h"

namespace tether::test {

using ostra::test::code_of;

inline std::wstring unique_pipe_name() {
  static std::atomic<unsigned> serial = 0;
  return L"rpc_test_" + std::to_wstring(::GetCurrentProcessId()) + L"_" + std::to_wstring(++serial);
}

// A client end that knows nothing of messages: blocking writes of raw bytes.
class raw_client {
 public:
  explicit raw_client(const std::wstring& pipe)
      : pipe_(ostra::details::check_file(::CreateFileW((LR"(\\.\pipe\)" + pipe).c_str(),
                                                       GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                                       OPEN_EXISTING, 0, nullptr))) {}

  void write(std::span<const std::byte> bytes) const {
    DWORD written = 0;
    ostra::details::check_bool(::WriteFile(pipe_.get(), bytes.data(),
                                           static_cast<DWORD>(bytes.size()), &written, nullptr));
  }

  // Blocks until `size` bytes have come; fewer when the pipe breaks.
  [[nodiscard]] std::vector<std::byte> read(std::size_t size) const {
    std::vector<std::byte> bytes(size);
    std::size_t arrived = 0;
    DWORD piece = 0;
    while (arrived < size && ::ReadFile(pipe_.get(), bytes.data() + arrived,
                                        static_cast<DWORD>(size - arrived), &piece, nullptr)) {
      arrived += piece;
    }
    bytes.resize(arrived);
    return bytes;
  }

  void disconnect() { pipe_.reset(); }

 private:
  Tamrin::unique_file pipe_;
};

// A listening server end.
struct listening_pipe {
  listening_pipe() { ostra::details::check_hresult(transport->Listen(name, nullptr)); }

  const std::wstring name = unique_pipe_name();
  std::shared_ptr<PipeTransport> transport = PipeTransport::Create();
};

inline std::shared_ptr<message_t> make_message(message_header header,
                                               std::span<const std::byte> payload = {}) {
  auto message = std::make_shared<message_t>(header);
  message->append(payload.data(), payload.size());
  return message;
}

}  // namespace tether::test

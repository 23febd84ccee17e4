// What the other end of a connection may send: requests for the server's methods and replies to
// calls of this end, in a byte stream as it comes through the pipe.
#include <algorithm>
#include <cstring>

#include "fuzz_input.h"
#include "rpc/client_iclient.h"
#include "rpc/connection.h"
#include "rpc/marshalling.h"
#include "rpc/server_iserver.h"

namespace {

using tether::message_header;
using bytes = std::vector<std::byte>;

constexpr std::uint16_t kOwnCode = 1;

void append(bytes& to, std::uint32_t value) {
  const auto* const first = reinterpret_cast<const std::byte*>(&value);
  to.insert(to.end(), first, first + sizeof value);
}

std::uint32_t integer_at(std::span<const std::byte> from, std::size_t position) {
  std::uint32_t value = 0;
  std::memcpy(&value, from.data() + position, sizeof value);
  return value;
}

// Answers with what it was asked.
class EchoingServer final : public tether::IServer_Remote {
 public:
  ostra::future<std::vector<tether::port_record>> EnumeratePorts() override {
    std::vector<tether::port_record> ports(1);
    ports[0].friendly_name = L"P";
    ports[0].number = 7;
    co_return ports;
  }
  ostra::future<HRESULT> OpenPort(std::uint32_t number) override {
    co_return static_cast<HRESULT>(number);
  }
  ostra::future<tether::bytes_result> IoControl(std::uint32_t code, std::uint32_t output_size,
                                                bytes input) override {
    tether::bytes_result result;
    result.code = static_cast<HRESULT>(code ^ output_size);
    result.bytes = std::move(input);
    co_return result;
  }
  ostra::future<HRESULT> Write(bytes data) override { co_return static_cast<HRESULT>(data.size()); }
  ostra::future<tether::bytes_result> Read(std::uint32_t size) override {
    tether::bytes_result result;
    result.code = static_cast<HRESULT>(size);
    co_return result;
  }
};

// The result that a request has to bring; empty when it may bring none.
bytes expected_result(std::uint16_t method, std::span<const std::byte> payload) {
  bytes result;
  const auto has_bytes_at = [&](std::size_t position) {
    return payload.size() >= position + 4 &&
           integer_at(payload, position) <= payload.size() - position - 4;
  };
  if (method == 0) {
    for (const std::uint32_t value : {1u, 1u})
      append(result, value);
    result.insert(result.end(), {std::byte{'P'}, std::byte{0}});
    append(result, 7);
  } else if (method == 1 && payload.size() >= 4) {
    append(result, integer_at(payload, 0));
  } else if (method == 2 && has_bytes_at(8)) {
    append(result, integer_at(payload, 0) ^ integer_at(payload, 4));
    append(result, integer_at(payload, 8));
    const auto input = payload.subspan(12, integer_at(payload, 8));
    result.insert(result.end(), input.begin(), input.end());
  } else if (method == 3 && has_bytes_at(0)) {
    append(result, integer_at(payload, 0));
  } else if (method == 4 && payload.size() >= 4) {
    append(result, integer_at(payload, 0));
    append(result, 0);
  }
  return result;
}

// Reads messages from the input until it ends, and compares each reply with what it has to be.
class InputTransport final : public tether::ITransport {
 public:
  explicit InputTransport(fuzz::input input) : input_(std::as_bytes(input)) {}

  ostra::future<std::shared_ptr<tether::Message>> ReadMessage() override {
    require_all_answered();
    message_header header;
    std::memcpy(&header, take(sizeof header).data(), sizeof header);
    const auto payload = take(header.length);
    auto message = tether::Message::allocate(header);
    std::ranges::copy(payload, message->payload().begin());
    if (header.code != kOwnCode && header.code != tether::kNoConnection) {
      expected_ = expected_result(header.method, payload);
      request_ = header;
    }
    co_return message;
  }

  // Replies come at once, before the next message is read; calls come before the first one.
  ostra::future<void> WriteMessage(std::shared_ptr<tether::message_t> message) override {
    const auto block = message->bytes();
    message_header header;
    std::memcpy(&header, block.data(), sizeof header);
    fuzz::require(header.length == block.size() - sizeof header);
    if (header.code != kOwnCode) {
      fuzz::require(!expected_.empty() && header.call == request_.call &&
                    header.code == request_.code && header.method == request_.method);
      fuzz::require(std::ranges::equal(block.subspan(sizeof header), expected_));
      expected_.clear();
    }
    co_return;
  }

  void require_all_answered() const { fuzz::require(expected_.empty()); }

  void LinkCancellation(const ostra::cancellation_source&) override {}
  ostra::cancellation_source& GetCancellation() override { return cancellation_; }
  void Cancel() override { cancellation_.cancel(); }
  void Disconnect() override {}
  HRESULT Listen(std::wstring_view, PSECURITY_DESCRIPTOR) override { return E_NOTIMPL; }
  ostra::future<std::uint32_t> WaitClient(bool, std::function<void()>) override { return {}; }
  HRESULT Impersonate() override { return E_NOTIMPL; }
  HRESULT Revert() override { return E_NOTIMPL; }
  tether::CToken GetClientToken(DWORD, bool, bool) override { return {}; }
  HRESULT Connect(std::wstring_view, std::wstring_view, DWORD, DWORD) override { return E_NOTIMPL; }

 private:
  std::span<const std::byte> take(std::size_t size) {
    if (size > input_.size())
      throw ostra::hresult_error(static_cast<HRESULT>(0x8007006D));
    const auto taken = input_.first(size);
    input_ = input_.subspan(size);
    return taken;
  }

  std::span<const std::byte> input_;
  message_header request_;
  bytes expected_;
  ostra::cancellation_source cancellation_;
};

// A call either has its result, or failed in one of the ways that are its contract.
template <class Result>
void require_ended(const ostra::future<Result>& call) {
  fuzz::require(call.is_complete());
  try {
    static_cast<void>(call.get());
  } catch (const ostra::operation_cancelled&) {
    // The input had no reply to it.
  } catch (const ostra::hresult_error& error) {
    fuzz::require(error.code() == tether::kMalformedPayload);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto server = std::make_shared<EchoingServer>();
  const auto transport = std::make_shared<InputTransport>(fuzz::input(data, size));
  using connection = tether::Connection<tether::Client_IClient, tether::Server_IServer>;
  const auto end = std::make_shared<connection>(transport, kOwnCode,
                                                std::weak_ptr<tether::IServer_Remote>(server));
  const auto ports = end->Remote().EnumeratePorts();
  const auto opened = end->Remote().OpenPort(1);
  const auto read = end->Remote().Read(1);
  const auto ran = end->Run();
  fuzz::require(ran.is_complete() && end->RequestsInProgress() == 0);
  transport->require_all_answered();
  require_ended(ports);
  require_ended(opened);
  require_ended(read);
  return 0;
}

#include "tests/support/raw_client.h"

#include <algorithm>
#include <utility>

#include "platform/serial.h"

namespace system_test {
namespace {

constexpr std::size_t kHeaderSize = 12;

PortResult ToPortResult(const Bytes& payload) {
  Require(payload.size() >= 8 && U32At(payload, 4) == payload.size() - 8,
          "reading an HRESULT and a byte vector");
  return {U32At(payload, 0), payload.substr(8)};
}

std::uint32_t ToCode(const Bytes& payload) {
  return payload.size() == 4 ? U32At(payload, 0) : 0xFFFFFFFF;
}

std::uint32_t CodeAndMethod(std::uint16_t method) {
  return kClientCode | std::uint32_t{method} << 16;
}

}  // namespace

Bytes U32(std::uint32_t value) {
  return Bytes(reinterpret_cast<const char*>(&value), sizeof value);
}

Bytes Vector(const Bytes& content) {
  return U32(static_cast<std::uint32_t>(content.size())) + content;
}

Bytes ControlArguments(std::uint32_t code, std::uint32_t output_size, const Bytes& input) {
  return U32(code) + U32(output_size) + Vector(input);
}

Bytes Pattern(std::size_t size, std::uint32_t state) {
  Bytes result(size, '\0');
  for (char& byte : result) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<char>(state >> 24);
  }
  return result;
}

std::uint32_t U32At(const Bytes& bytes, std::size_t offset) {
  std::uint32_t value = 0;
  Require(bytes.copy(reinterpret_cast<char*>(&value), sizeof value, offset) == sizeof value,
          "reading a number");
  return value;
}

Bytes Header(std::uint32_t call, std::uint16_t method, std::uint32_t length) {
  return U32(call) + U32(CodeAndMethod(method)) + U32(length);
}

Bytes Request(std::uint32_t call, std::uint16_t method, const Bytes& payload) {
  return Header(call, method, static_cast<std::uint32_t>(payload.size())) + payload;
}

// The pipe may not exist yet, or all its instances may be taken at the moment.
RawClient::RawClient(const wchar_t* pipe)
    : read_event_(::CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      write_event_(::CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
  Require(Eventually([&] {
            pipe_.reset(::CreateFileW(pipe, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_OVERLAPPED, nullptr));
            return pipe_ || (::GetLastError() == ERROR_PIPE_BUSY &&
                             ::WaitNamedPipeW(pipe, kPatience) && false);
          }),
          "connecting to the server's pipe");
}

RawClient::RawClient(std::uint32_t port) : RawClient() {
  Require(OpenPort(port) == 0, "opening a port");
  if (port != kFilePort)
    MakeReadsWait();
}

template <class Function, class Buffer>
bool RawClient::Transfer(Function function, const Tamrin::unique_handle& event, Buffer* buffer,
                         DWORD& size, DWORD milliseconds) const {
  OVERLAPPED overlapped = {};
  overlapped.hEvent = event.get();
  if (!function(pipe_.get(), buffer, size, nullptr, &overlapped) &&
      ::GetLastError() != ERROR_IO_PENDING)
    return false;
  if (::WaitForSingleObject(event.get(), milliseconds) != WAIT_OBJECT_0)
    ::CancelIoEx(pipe_.get(), &overlapped);
  return ::GetOverlappedResult(pipe_.get(), &overlapped, &size, TRUE);
}

bool RawClient::Send(const Bytes& bytes, DWORD milliseconds) const {
  DWORD size = 0;
  for (std::size_t sent = 0; sent < bytes.size(); sent += size) {
    size = static_cast<DWORD>(std::min(bytes.size() - sent, piece_.size()));
    if (!Transfer(::WriteFile, write_event_, bytes.data() + sent, size, milliseconds))
      return false;
  }
  return true;
}

bool RawClient::Fetch(DWORD milliseconds) {
  auto size = static_cast<DWORD>(piece_.size());
  if (!Transfer(::ReadFile, read_event_, piece_.data(), size, milliseconds))
    return false;
  inbox_.append(piece_, 0, size);
  return true;
}

Bytes RawClient::ReceiveSome(DWORD milliseconds) {
  Fetch(milliseconds);
  return std::exchange(inbox_, {});
}

std::optional<Message> RawClient::TryReceive(DWORD milliseconds) {
  const auto size = [this] {
    return kHeaderSize + (inbox_.size() < kHeaderSize ? 0 : U32At(inbox_, 8));
  };
  while (inbox_.size() < size()) {
    if (!Fetch(milliseconds))
      return std::nullopt;
  }
  Message message = {U32At(inbox_, 0), U32At(inbox_, 4),
                     inbox_.substr(kHeaderSize, size() - kHeaderSize)};
  inbox_.erase(0, size());
  return message;
}

Message RawClient::Receive() {
  auto message = TryReceive(kPatience);
  Require(message.has_value(), "waiting for a reply");
  return *std::move(message);
}

bool RawClient::ServerHangsUp() {
  while (Fetch(kPatience))
    inbox_.clear();
  return ::GetLastError() != ERROR_OPERATION_ABORTED;
}

Bytes RawClient::Call(std::uint16_t method, const Bytes& payload) {
  Require(Send(Request(++last_call_, method, payload)), "sending a request");
  Message reply = Receive();
  Require(reply.call == last_call_ && reply.code_and_method == CodeAndMethod(method),
          "the next reply's identity");
  return std::move(reply.payload);
}

std::uint32_t RawClient::OpenPort(std::uint32_t number) {
  return ToCode(Call(kOpenPort, U32(number)));
}

PortResult RawClient::IoControl(std::uint32_t code, std::uint32_t output_size, const Bytes& input) {
  return ToPortResult(Call(kIoControl, ControlArguments(code, output_size, input)));
}

std::uint32_t RawClient::Write(const Bytes& data) {
  return ToCode(Call(kWrite, Vector(data)));
}

PortResult RawClient::Read(std::uint32_t size) {
  return ToPortResult(Call(kRead, U32(size)));
}

void RawClient::MakeReadsWait() {
  const Bytes timeouts(20, '\0');
  Require(IoControl(IOCTL_SERIAL_SET_TIMEOUTS, 0, timeouts) == PortResult{0, {}},
          "setting read time-outs");
}

}  // namespace system_test

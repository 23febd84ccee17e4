#include "tests/support/raw_client.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "platform/serial.h"

namespace system_test {
namespace {

constexpr std::size_t kHeaderSize = 12;

PortResult ToPortResult(const Bytes& payload) {
  Require(payload.size() >= 8 && U32At(payload, 4) == payload.size() - 8,
          "reading an HRESULT and a byte vector");
  return {U32At(payload, 0), Bytes(payload.begin() + 8, payload.end())};
}

std::uint32_t ToCode(const Bytes& payload) {
  return payload.size() == 4 ? U32At(payload, 0) : 0xFFFFFFFF;
}

std::uint32_t CodeAndMethod(std::uint16_t method) {
  return kClientCode | std::uint32_t{method} << 16;
}

}  // namespace

std::uint32_t LoopbackPort() {
  const char* const number = std::getenv("TARNWHEEL_LOOPBACK");
  return number == nullptr ? 5 : static_cast<std::uint32_t>(std::atoi(number));
}

Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes result;
  for (const Bytes& part : parts)
    result.insert(result.end(), part.begin(), part.end());
  return result;
}

Bytes U32(std::uint32_t value) {
  const auto byte = [&](int shift) { return static_cast<std::uint8_t>(value >> shift); };
  return {byte(0), byte(8), byte(16), byte(24)};
}

Bytes ToBytes(std::string_view text) {
  return Bytes(text.begin(), text.end());
}

Bytes Vector(const Bytes& content) {
  return Join({U32(static_cast<std::uint32_t>(content.size())), content});
}

Bytes ControlArguments(std::uint32_t code, std::uint32_t output_size, const Bytes& input) {
  return Join({U32(code), U32(output_size), Vector(input)});
}

Bytes Pattern(std::size_t size, std::uint32_t state) {
  Bytes result(size);
  for (auto& byte : result) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<std::uint8_t>(state >> 24);
  }
  return result;
}

std::uint32_t U32At(const Bytes& bytes, std::size_t offset) {
  return bytes.at(offset) | std::uint32_t{bytes.at(offset + 1)} << 8 |
         std::uint32_t{bytes.at(offset + 2)} << 16 | std::uint32_t{bytes.at(offset + 3)} << 24;
}

Bytes Header(std::uint32_t call, std::uint16_t method, std::uint32_t length) {
  return Join({U32(call), U32(CodeAndMethod(method)), U32(length)});
}

Bytes Request(std::uint32_t call, std::uint16_t method, const Bytes& payload) {
  return Join({Header(call, method, static_cast<std::uint32_t>(payload.size())), payload});
}

// Besides a pipe that is not there yet, every instance may just be taken.
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

template <class Start>
RawClient::Transfer RawClient::Perform(const Tamrin::unique_handle& event, DWORD& size,
                                       DWORD milliseconds, Start start) const {
  OVERLAPPED overlapped = {};
  overlapped.hEvent = event.get();
  if (!start(&overlapped) && ::GetLastError() != ERROR_IO_PENDING)
    return Transfer::kBroken;
  const bool late = ::WaitForSingleObject(event.get(), milliseconds) != WAIT_OBJECT_0;
  if (late)
    ::CancelIoEx(pipe_.get(), &overlapped);
  if (::GetOverlappedResult(pipe_.get(), &overlapped, &size, TRUE))
    return Transfer::kDone;
  return late ? Transfer::kTimedOut : Transfer::kBroken;
}

bool RawClient::Send(const Bytes& bytes, DWORD milliseconds) const {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const auto piece = static_cast<DWORD>(std::min(bytes.size() - sent, piece_.size()));
    DWORD written = 0;
    const auto write = [&](OVERLAPPED* overlapped) {
      return ::WriteFile(pipe_.get(), bytes.data() + sent, piece, nullptr, overlapped);
    };
    if (Perform(write_event_, written, milliseconds, write) != Transfer::kDone)
      return false;
    sent += written;
  }
  return true;
}

void RawClient::Fetch(DWORD milliseconds) {
  inbox_.erase(inbox_.begin(), inbox_.begin() + static_cast<std::ptrdiff_t>(taken_));
  taken_ = 0;
  DWORD arrived = 0;
  last_ = Perform(read_event_, arrived, milliseconds, [&](OVERLAPPED* overlapped) {
    const auto size = static_cast<DWORD>(piece_.size());
    return ::ReadFile(pipe_.get(), piece_.data(), size, nullptr, overlapped);
  });
  inbox_.insert(inbox_.end(), piece_.begin(),
                piece_.begin() + static_cast<std::ptrdiff_t>(arrived));
}

Bytes RawClient::ReceiveSome(DWORD milliseconds) {
  Fetch(milliseconds);
  return std::exchange(inbox_, {});
}

std::optional<Message> RawClient::TryReceive(DWORD milliseconds) {
  const auto whole = [this] {
    const std::size_t size = inbox_.size() - taken_;
    return size >= kHeaderSize && size - kHeaderSize >= U32At(inbox_, taken_ + 8);
  };
  while (!whole()) {
    Fetch(milliseconds);
    if (last_ != Transfer::kDone)
      return std::nullopt;
  }
  const auto begin = inbox_.begin() + static_cast<std::ptrdiff_t>(taken_ + kHeaderSize);
  const std::uint32_t length = U32At(inbox_, taken_ + 8);
  Message message = {U32At(inbox_, taken_), U32At(inbox_, taken_ + 4),
                     Bytes(begin, begin + static_cast<std::ptrdiff_t>(length))};
  taken_ += kHeaderSize + length;
  return message;
}

Message RawClient::Receive() {
  auto message = TryReceive(kPatience);
  Require(message.has_value(), "waiting for a reply");
  return *std::move(message);
}

bool RawClient::ServerHangsUp() {
  while (last_ == Transfer::kDone)
    ReceiveSome();
  return last_ == Transfer::kBroken;
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

void RawClient::ReadsWait(std::uint32_t milliseconds) {
  const Bytes timeouts = Join({Bytes(8), U32(milliseconds), Bytes(8)});
  Require(IoControl(IOCTL_SERIAL_SET_TIMEOUTS, 0, timeouts) == PortResult{0, {}},
          "setting read time-outs");
}

}  // namespace system_test

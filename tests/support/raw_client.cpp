#include "tests/support/raw_client.h"

#include <algorithm>

#include "platform/serial.h"

namespace system_test {
namespace {

constexpr DWORD kPiece = 0x10000;

PortResult ToPortResult(const Bytes& payload) {
  Require(payload.size() >= 8 && U32At(payload, 4) == payload.size() - 8,
          "reading an HRESULT and a byte vector");
  return {U32At(payload, 0), Bytes(payload.begin() + 8, payload.end())};
}

std::uint32_t ToCode(const Bytes& payload) {
  Require(payload.size() == 4, "reading an HRESULT");
  return U32At(payload, 0);
}

}  // namespace

// Besides a pipe that is not there yet, every instance may just be taken.
RawClient::RawClient(const wchar_t* pipe) {
  Require(Eventually([&] {
            pipe_.reset(::CreateFileW(pipe, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_OVERLAPPED, nullptr));
            return static_cast<bool>(pipe_);
          }),
          "connecting to the server's pipe");
}

template <class Start>
RawClient::Transfer RawClient::Perform(Start start, DWORD& size, DWORD milliseconds) {
  const Tamrin::unique_handle event(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
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

bool RawClient::Send(const Bytes& bytes) {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const auto piece = static_cast<DWORD>(std::min<std::size_t>(bytes.size() - sent, kPiece));
    const auto write = [&](OVERLAPPED* overlapped) {
      return ::WriteFile(pipe_.get(), bytes.data() + sent, piece, nullptr, overlapped);
    };
    DWORD written = 0;
    if (Perform(write, written, kPatience) != Transfer::kDone)
      return false;
    sent += written;
  }
  return true;
}

bool RawClient::Request(std::uint32_t call, std::uint16_t method, const Bytes& payload) {
  return Send(Encode({call, kClientCode, method, payload}));
}

Bytes RawClient::ReceiveSome(DWORD milliseconds) {
  Bytes piece(kPiece);
  DWORD arrived = 0;
  const auto read = [&](OVERLAPPED* overlapped) {
    return ::ReadFile(pipe_.get(), piece.data(), kPiece, nullptr, overlapped);
  };
  last_ = Perform(read, arrived, milliseconds);
  piece.resize(arrived);
  return piece;
}

std::optional<Message> RawClient::TryReceive(DWORD milliseconds) {
  while (inbox_.size() < kHeaderSize || inbox_.size() - kHeaderSize < U32At(inbox_, 8)) {
    inbox_ = Join({inbox_, ReceiveSome(milliseconds)});
    if (last_ != Transfer::kDone)
      return std::nullopt;
  }
  const auto end = inbox_.begin() + static_cast<std::ptrdiff_t>(kHeaderSize + U32At(inbox_, 8));
  Message message = {U32At(inbox_, 0), U16At(inbox_, 4), U16At(inbox_, 6),
                     Bytes(inbox_.begin() + kHeaderSize, end)};
  inbox_.erase(inbox_.begin(), end);
  return message;
}

Message RawClient::Receive() {
  auto message = TryReceive(kPatience);
  Require(message.has_value(), "waiting for a reply");
  return *std::move(message);
}

bool RawClient::ServerHangsUp() {
  while (last_ == Transfer::kDone)
    ReceiveSome(kPatience);
  return last_ == Transfer::kBroken;
}

Bytes RawClient::Call(std::uint16_t method, const Bytes& payload) {
  const std::uint32_t call = ++last_call_;
  Require(Request(call, method, payload), "sending a request");
  Message reply = Receive();
  Require(reply == Message{call, kClientCode, method, reply.payload}, "the next reply's identity");
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
  const Bytes timeouts = ReadTimeouts(0, 0, milliseconds);
  Require(IoControl(IOCTL_SERIAL_SET_TIMEOUTS, 0, timeouts) == PortResult{0, {}},
          "setting read time-outs");
}

}  // namespace system_test

#include "tests/raw_client.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/serial.h"

namespace system_test {
namespace {

constexpr DWORD kPiece = 0x10000;

Tamrin::unique_file OpenPipe() {
  Tamrin::unique_file pipe;
  // Besides a pipe that is not there yet, every instance may just be taken.
  const auto open = [&pipe] {
    pipe.reset(::CreateFileW(kPipeName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                             FILE_FLAG_OVERLAPPED, nullptr));
    return static_cast<bool>(pipe);
  };
  Eventually(open);
  Require(static_cast<bool>(pipe), "connecting to the server's pipe");
  return pipe;
}

PortResult ToPortResult(const Bytes& payload) {
  if (payload.size() < 8 || U32At(payload, 4) != payload.size() - 8) {
    ADD_FAILURE() << "not an HRESULT and a byte vector: " << Message{0, 0, 0, payload};
    return {};
  }
  return {U32At(payload, 0), Bytes(payload.begin() + 8, payload.end())};
}

std::uint32_t ToCode(const Bytes& payload) {
  if (payload.size() == 4)
    return U32At(payload, 0);
  ADD_FAILURE() << "not an HRESULT: " << Message{0, 0, 0, payload};
  return 0xFFFFFFFF;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const PortResult& result) {
  return out << std::hex << "0x" << result.code << std::dec << " with "
             << Message{0, 0, 0, result.data};
}

RawClient::RawClient() : pipe_(OpenPipe()), event_(::CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
  Require(static_cast<bool>(event_), "CreateEventW");
}

RawClient::~RawClient() = default;

template <class Start>
RawClient::Transfer RawClient::Perform(Start start, DWORD& size, DWORD milliseconds) {
  OVERLAPPED overlapped = {};
  overlapped.hEvent = event_.get();
  if (!start(&overlapped) && ::GetLastError() != ERROR_IO_PENDING)
    return Transfer::kBroken;
  const bool late = ::WaitForSingleObject(event_.get(), milliseconds) != WAIT_OBJECT_0;
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
    if (Perform(write, written) != Transfer::kDone)
      return false;
    sent += written;
  }
  return true;
}

bool RawClient::Request(std::uint32_t call, std::uint16_t method, const Bytes& payload,
                        std::uint16_t code) {
  return Send(Encode({call, code, method, payload}));
}

RawClient::Transfer RawClient::FillInbox(DWORD milliseconds) {
  Bytes piece(kPiece);
  const auto read = [&](OVERLAPPED* overlapped) {
    return ::ReadFile(pipe_.get(), piece.data(), kPiece, nullptr, overlapped);
  };
  DWORD arrived = 0;
  const Transfer outcome = Perform(read, arrived, milliseconds);
  if (outcome == Transfer::kDone)
    inbox_.insert(inbox_.end(), piece.begin(), piece.begin() + arrived);
  return outcome;
}

Bytes RawClient::Take(std::size_t size) {
  const auto end = inbox_.begin() + static_cast<std::ptrdiff_t>(size);
  const Bytes taken(inbox_.begin(), end);
  inbox_.erase(inbox_.begin(), end);
  return taken;
}

bool RawClient::HasMessage() const {
  return inbox_.size() >= kHeaderSize && inbox_.size() - kHeaderSize >= U32At(inbox_, 8);
}

Message RawClient::TakeMessage() {
  const Bytes header = Take(kHeaderSize);
  Bytes payload = Take(U32At(header, 8));
  return {U32At(header, 0), U16At(header, 4), U16At(header, 6), std::move(payload)};
}

Message RawClient::Receive() {
  while (!HasMessage()) {
    const Transfer outcome = FillInbox();
    if (outcome == Transfer::kDone)
      continue;
    ADD_FAILURE() << (outcome == Transfer::kBroken ? "the connection broke" : "no reply in time")
                  << ", with " << inbox_.size() << " bytes of a message there";
    return {};
  }
  return TakeMessage();
}

std::optional<Message> RawClient::TryReceive(DWORD milliseconds) {
  while (!HasMessage()) {
    if (FillInbox(milliseconds) != Transfer::kDone)
      return std::nullopt;
  }
  return TakeMessage();
}

bool RawClient::ServerHangsUp() {
  Transfer outcome = Transfer::kDone;
  while (outcome == Transfer::kDone)
    outcome = FillInbox();
  return outcome == Transfer::kBroken;
}

Bytes RawClient::Call(std::uint16_t method, const Bytes& payload) {
  const std::uint32_t call = ++last_call_;
  EXPECT_TRUE(Request(call, method, payload));
  Message reply = Receive();
  EXPECT_EQ(reply, (Message{call, kClientCode, method, reply.payload}));
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

void RawClient::SetReadTimeouts(std::uint32_t interval, std::uint32_t multiplier,
                                std::uint32_t constant) {
  const Bytes timeouts = ReadTimeouts(interval, multiplier, constant);
  EXPECT_EQ(IoControl(IOCTL_SERIAL_SET_TIMEOUTS, 0, timeouts), (PortResult{0, {}}));
}

void RawClient::Disconnect() {
  pipe_.reset();
}

Bytes ControlArguments(std::uint32_t code, std::uint32_t output_size, const Bytes& input) {
  return Join({U32(code), U32(output_size), Vector(input)});
}

Bytes ReadTimeouts(std::uint32_t interval, std::uint32_t multiplier, std::uint32_t constant) {
  const Bytes write_without_limit(8);
  return Join({U32(interval), U32(multiplier), U32(constant), write_without_limit});
}

}  // namespace system_test

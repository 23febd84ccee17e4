#include "bench/blocking_client.h"

#include <cstring>

#include "async/errors.h"
#include "rpc/message_format.h"

namespace bench {
namespace {

using ostra::details::check_bool;
using ostra::details::throw_win32;

constexpr std::uint16_t kClientCode = 7;

// A port that another session holds, on Windows and, for the device that is a file, under Wine.
bool IsHeld(HRESULT code) {
  return code == E_ACCESSDENIED || code == ostra::details::to_hresult(ERROR_SHARING_VIOLATION);
}

}  // namespace

Bytes Integer(std::uint32_t value) {
  Bytes bytes(sizeof value);
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

Bytes Join(const Bytes& first, const Bytes& second) {
  Bytes joined = first;
  joined.insert(joined.end(), second.begin(), second.end());
  return joined;
}

Bytes Vector(std::span<const std::byte> content) {
  return Join(Integer(static_cast<std::uint32_t>(content.size())),
              Bytes(content.begin(), content.end()));
}

BlockingClient::BlockingClient(const std::wstring& pipe) {
  const std::wstring path = LR"(\\.\pipe\)" + pipe;
  for (;;) {
    pipe_.reset(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                              0, nullptr));
    if (pipe_)
      return;
    const DWORD error = ::GetLastError();
    if (error == ERROR_PIPE_BUSY)
      ::WaitNamedPipeW(path.c_str(), 1000);
    else if (error == ERROR_FILE_NOT_FOUND)
      ::Sleep(0);
    else
      throw_win32(error);
  }
}

void BlockingClient::Send(tether::method method, const Bytes& arguments) {
  const tether::message_header header = {++last_call_, kClientCode,
                                         static_cast<std::uint16_t>(method),
                                         static_cast<std::uint32_t>(arguments.size())};
  request_.resize(sizeof header + arguments.size());
  std::memcpy(request_.data(), &header, sizeof header);
  std::memcpy(request_.data() + sizeof header, arguments.data(), arguments.size());
  SendBytes(request_);
}

void BlockingClient::SendBytes(std::span<const std::byte> bytes) {
  DWORD written = 0;
  check_bool(
      ::WriteFile(pipe_.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
}

std::span<const std::byte> BlockingClient::Receive() {
  tether::message_header header;
  ReadExactly(static_cast<std::byte*>(static_cast<void*>(&header)), sizeof header);
  reply_.resize(header.length);
  ReadExactly(reply_.data(), reply_.size());
  return reply_;
}

void BlockingClient::ReadExactly(std::byte* buffer, std::size_t size) {
  while (size != 0) {
    DWORD arrived = 0;
    check_bool(::ReadFile(pipe_.get(), buffer, static_cast<DWORD>(size), &arrived, nullptr));
    buffer += arrived;
    size -= arrived;
  }
}

std::span<const std::byte> BlockingClient::Call(tether::method method, const Bytes& arguments) {
  Send(method, arguments);
  return Receive();
}

void BlockingClient::OpenPort(std::uint32_t number) {
  HRESULT code = S_OK;
  do {
    const auto reply = Call(tether::method::OpenPort, Integer(number));
    std::memcpy(&code, reply.data(), sizeof code);
  } while (IsHeld(code));
  ostra::details::check_hresult(code);
}

void BlockingClient::NullCall() {
  static const Bytes arguments = Integer(1);
  Call(tether::method::Read, arguments);
}

}  // namespace bench

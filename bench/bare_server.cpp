// The yardstick: a server with the same pipe, framing and device calls, and nothing else. One state
// machine per client on the thread pool; no coroutines, no owners, no log, no concurrency within a
// client. Any further cost of the real server is the price of its features.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/measure.h"
#include "platform/win32.h"
#include "rpc/iserver_remote.h"
#include "rpc/message_format.h"

namespace {

constexpr DWORD kPipeBuffer = 0x400000;
constexpr std::uint32_t kNoOpenPort = 0x800708CA;
constexpr DWORD kPiece = tether::kPiece;

class Client {
 public:
  // Waits for a client on a further instance of the pipe.
  static void Listen() {
    auto& client = *new Client;
    client.Bind(client.pipe_, client.pipe_io_);
    const auto connect = [&] {
      return ::ConnectNamedPipe(client.pipe_, &client.overlapped_) ||
             ::GetLastError() == ERROR_PIPE_CONNECTED;
    };
    if (client.Start(client.pipe_io_, connect))
      client.Run(0);
  }

 private:
  enum class State { kConnecting, kHeader, kPayload, kDevice, kReply };

  void Bind(HANDLE handle, PTP_IO& io) {
    ::SetFileCompletionNotificationModes(handle, FILE_SKIP_COMPLETION_PORT_ON_SUCCESS);
    io = ::CreateThreadpoolIo(handle, &OnCompletion, this, nullptr);
  }

  static void CALLBACK OnCompletion(PTP_CALLBACK_INSTANCE, void* context, void*, ULONG result,
                                    ULONG_PTR bytes, PTP_IO) {
    auto& self = *static_cast<Client*>(context);
    if (result != ERROR_SUCCESS)
      delete &self;
    else
      self.Run(static_cast<DWORD>(bytes));
  }

  // True when the call has completed already; otherwise `this` may have been destroyed.
  template <class Call>
  bool Start(PTP_IO io, Call call) {
    ::StartThreadpoolIo(io);
    if (call()) {
      ::CancelThreadpoolIo(io);
      return true;
    }
    if (::GetLastError() != ERROR_IO_PENDING) {
      ::CancelThreadpoolIo(io);
      delete this;
    }
    return false;
  }

  void Run(DWORD moved) {
    while (Step(moved))
      moved = static_cast<DWORD>(overlapped_.InternalHigh);
  }

  // Accounts for the bytes that the last call moved and starts the next call.
  bool Step(DWORD moved) {
    done_ += moved;
    switch (state_) {
      case State::kConnecting:
        Listen();
        done_ = 0;
        state_ = State::kHeader;
        return Read(&header_, sizeof header_, sizeof header_);
      case State::kHeader:
        if (done_ < sizeof header_)
          return Read(&header_, sizeof header_, sizeof header_);
        payload_.resize(header_.length);
        done_ = 0;
        state_ = State::kPayload;
        return Read(payload_.data(), payload_.size(), kPiece - sizeof header_);
      case State::kPayload:
        return done_ < payload_.size() ? Read(payload_.data(), payload_.size(), kPiece) : Serve();
      case State::kDevice:
        return Reply();
      case State::kReply:
        if (done_ < reply_.size())
          return Write();
        done_ = 0;
        state_ = State::kHeader;
        return Read(&header_, sizeof header_, sizeof header_);
    }
    return false;
  }

  bool Read(void* buffer, std::size_t size, std::size_t piece) {
    const auto rest = static_cast<DWORD>(std::min(size - done_, piece));
    return Start(pipe_io_, [&] {
      return ::ReadFile(pipe_, static_cast<std::byte*>(buffer) + done_, rest, nullptr,
                        &overlapped_);
    });
  }

  bool Write() {
    const auto rest = static_cast<DWORD>(std::min<std::size_t>(reply_.size() - done_, kPiece));
    return Start(pipe_io_, [&] {
      return ::WriteFile(pipe_, reply_.data() + done_, rest, nullptr, &overlapped_);
    });
  }

  [[nodiscard]] std::uint32_t FirstArgument() const {
    std::uint32_t value = 0;
    std::memcpy(&value, payload_.data(), sizeof value);
    return value;
  }

  bool Serve() {
    done_ = 0;
    state_ = State::kDevice;
    overlapped_.InternalHigh = 0;
    if (header_.method == static_cast<std::uint16_t>(tether::method::OpenPort)) {
      const std::wstring path = LR"(\\.\COM)" + std::to_wstring(FirstArgument());
      device_ = ::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                              FILE_FLAG_OVERLAPPED, nullptr);
      result_ = device_ == INVALID_HANDLE_VALUE ? 0x80070000u | ::GetLastError() : 0u;
      if (result_ == 0)
        Bind(device_, device_io_);
      return true;
    }
    result_ = device_ == INVALID_HANDLE_VALUE ? kNoOpenPort : 0u;
    reply_.resize(kReplyHeader);
    if (result_ != 0)
      return true;
    if (header_.method == static_cast<std::uint16_t>(tether::method::Write)) {
      return Start(device_io_, [&] {
        return ::WriteFile(device_, payload_.data() + sizeof(std::uint32_t), FirstArgument(),
                           nullptr, &overlapped_);
      });
    }
    reply_.resize(kReplyHeader + FirstArgument());
    return Start(device_io_, [&] {
      return ::ReadFile(device_, reply_.data() + kReplyHeader, FirstArgument(), nullptr,
                        &overlapped_);
    });
  }

  bool Reply() {
    const bool with_bytes = header_.method == static_cast<std::uint16_t>(tether::method::Read);
    const std::uint32_t count = with_bytes && result_ == 0 ? done_ : 0;
    const std::size_t size = with_bytes ? kReplyHeader + count : kReplyHeader - sizeof count;
    reply_.resize(size);
    header_.length = static_cast<std::uint32_t>(size - sizeof header_);
    std::memcpy(reply_.data(), &header_, sizeof header_);
    std::memcpy(reply_.data() + sizeof header_, &result_, sizeof result_);
    if (with_bytes)
      std::memcpy(reply_.data() + sizeof header_ + sizeof result_, &count, sizeof count);
    done_ = 0;
    state_ = State::kReply;
    return Write();
  }

  Client()
      : pipe_(::CreateNamedPipeW(bench::kBarePipe, FILE_FLAG_OVERLAPPED | PIPE_ACCESS_DUPLEX,
                                 PIPE_TYPE_BYTE, PIPE_UNLIMITED_INSTANCES, kPipeBuffer, kPipeBuffer,
                                 0, nullptr)) {}

  ~Client() {
    if (device_io_ != nullptr)
      ::CloseThreadpoolIo(device_io_);
    if (device_ != INVALID_HANDLE_VALUE)
      ::CloseHandle(device_);
    ::CloseThreadpoolIo(pipe_io_);
    ::CloseHandle(pipe_);
  }

  static constexpr std::size_t kReplyHeader = sizeof(tether::message_header) + 8;

  const HANDLE pipe_;
  PTP_IO pipe_io_ = nullptr;
  HANDLE device_ = INVALID_HANDLE_VALUE;
  PTP_IO device_io_ = nullptr;
  OVERLAPPED overlapped_ = {};
  State state_ = State::kConnecting;
  DWORD done_ = 0;  // bytes of the current transfer
  std::uint32_t result_ = 0;
  tether::message_header header_;
  std::vector<std::byte> payload_;
  std::vector<std::byte> reply_;
};

}  // namespace

int main() {
  for (int listening = 0; listening < 4; ++listening)
    Client::Listen();
  ::Sleep(INFINITE);
}

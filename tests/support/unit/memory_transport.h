// For tests: a transport with both ends in this process, and a server to run on one of them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "async/async_queue.h"
#include "async/cancellation.h"
#include "async/errors.h"
#include "rpc/iserver_remote.h"
#include "rpc/itransport.h"

namespace tether::test {

using bytes = std::vector<std::byte>;

// One end of a pair. A read that finds the bytes it needs completes at once, on the caller's
// thread; any other resumes on a pool thread. Destroying an end disconnects its peer, which can
// still read the bytes sent before.
class MemoryTransport final : public ITransport,
                              public std::enable_shared_from_this<MemoryTransport> {
  using stream = ostra::async_queue<bytes, ostra::pool_resumption>;

 public:
  [[nodiscard]] static auto MakePair() {
    const auto there = std::make_shared<stream>(), back = std::make_shared<stream>();
    return std::pair(std::make_shared<MemoryTransport>(back, there),
                     std::make_shared<MemoryTransport>(there, back));
  }
  MemoryTransport(std::shared_ptr<stream> in, std::shared_ptr<stream> out)
      : in_(std::move(in)), out_(std::move(out)) {}
  ~MemoryTransport() override {
    in_->close();
    EndWriting();
  }

  // Sends raw bytes, which need not be whole messages.
  void WriteBytes(std::span<const std::byte> sent) {
    if (!out_->push(bytes(sent.begin(), sent.end())))
      ostra::details::throw_win32(ERROR_BROKEN_PIPE);
  }
  // The peer finds this end gone once it has read all bytes sent before.
  void EndWriting() { out_->finish(); }

  ostra::future<std::shared_ptr<const Message>> ReadMessage() override {
    const auto self = shared_from_this();
    message_header header;
    auto head = Fill(std::as_writable_bytes(std::span(&header, 1)));
    co_await head;
    MessageReceiver message(header);
    while (!message.is_complete()) {
      const auto room = message.room();
      auto piece = Fill(room);
      co_await piece;
      message.advance(room.size());
    }
    co_return message.take();
  }

  ostra::future<void> WriteMessage(std::shared_ptr<message_t> message) override {
    WriteBytes(message->bytes());
    co_return;
  }

  [[nodiscard]] bool PeerHasGone() const noexcept override { return in_.use_count() == 1; }
  ostra::cancellation_source& GetCancellation() override { return cancellation_; }
  void Cancel() override { cancellation_.cancel(); }

  // Not needed by a pair.
  void LinkCancellation(const ostra::cancellation_source&) override {}
  void Disconnect() override {}
  HRESULT Listen(std::wstring_view, PSECURITY_DESCRIPTOR) override { return E_NOTIMPL; }
  ostra::future<std::uint32_t> WaitClient(bool, std::function<void()>) override { return {}; }
  HRESULT Impersonate() override { return E_NOTIMPL; }
  HRESULT Revert() override { return E_NOTIMPL; }
  CToken GetClientToken(DWORD, bool, bool) override { throw ostra::hresult_error(E_NOTIMPL); }
  HRESULT Connect(std::wstring_view, std::wstring_view, DWORD, DWORD) override { return E_NOTIMPL; }

 private:
  ostra::future<void> Fill(std::span<std::byte> room) {
    while (arrived_.size() < room.size()) {
      const ostra::cancellation_subscription end(cancellation_.token(), [this] { in_->finish(); });
      auto arrival = in_->pop();
      const auto more = co_await arrival;
      if (!more)
        ostra::details::throw_win32(ERROR_BROKEN_PIPE);
      arrived_.insert(arrived_.end(), more->begin(), more->end());
    }
    const auto rest = arrived_.begin() + static_cast<std::ptrdiff_t>(room.size());
    std::copy(arrived_.begin(), rest, room.begin());
    arrived_.erase(arrived_.begin(), rest);
  }

  const std::shared_ptr<stream> in_, out_;
  bytes arrived_;  // received, not yet consumed; accessed only by the read in progress
  ostra::cancellation_source cancellation_;
};

// Answers at once, echoing the arguments of the request.
class EchoServer : public IServer_Remote {
 public:
  ostra::future<std::vector<port_record>> EnumeratePorts() override {
    co_return std::vector<port_record>(2, {L"P\x20AC", 70'000});
  }
  ostra::future<HRESULT> OpenPort(std::uint32_t number) override { co_return HRESULT(number); }
  ostra::future<bytes_result> IoControl(std::uint32_t code, std::uint32_t, bytes input) override {
    co_return bytes_result{HRESULT(code), std::move(input)};
  }
  ostra::future<HRESULT> Write(bytes data) override { co_return HRESULT(data.size()); }
  ostra::future<bytes_result> Read(std::uint32_t size) override {
    co_return bytes_result{HRESULT(size), {}};
  }
};

// Bytes of which adjacent ones differ.
[[nodiscard]] inline bytes Pattern(std::size_t size) {
  bytes pattern(size);
  for (std::size_t i = 0; i < size; ++i)
    pattern[i] = static_cast<std::byte>(i * 7 + i / 251);
  return pattern;
}

[[nodiscard]] inline std::shared_ptr<message_t> MakeMessage(
    message_header header, std::span<const std::byte> payload = {}) {
  auto message = std::make_shared<message_t>(header);
  message->append(payload.data(), payload.size());
  return message;
}

}  // namespace tether::test

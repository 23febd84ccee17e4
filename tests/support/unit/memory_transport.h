// For tests: a transport whose two ends lie in this process, and a server to stand behind one.
#pragma once

#include <algorithm>
#include <chrono>
#include <mutex>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "async/auto_reset_event.h"
#include "async/errors.h"
#include "rpc/iserver_remote.h"
#include "rpc/itransport.h"

namespace tether::test {

using bytes = std::vector<std::byte>;

// One end of a pair. A read that finds what it needs ends at once, on the caller's thread; the others
// go on on a pool thread. An end that is destroyed is gone for its peer, which can still read what it
// has sent.
class MemoryTransport final : public ITransport,
                              public std::enable_shared_from_this<MemoryTransport> {
 public:
  using pointer = std::shared_ptr<MemoryTransport>;

  [[nodiscard]] static std::pair<pointer, pointer> MakePair() {
    const auto first = std::make_shared<MemoryTransport>();
    const auto second = std::make_shared<MemoryTransport>();
    first->peer_ = second;
    second->peer_ = first;
    return {first, second};
  }
  ~MemoryTransport() override { Tell({}, true); }

  // Sends any bytes. The peer finds this end gone when it has read the last ones.
  void WriteBytes(std::span<const std::byte> sent, bool last = false) {
    if (!Tell(sent, last))
      ostra::details::throw_win32(ERROR_BROKEN_PIPE);
  }

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
    token_.throw_if_cancelled();
    WriteBytes(message->bytes());
    co_return;
  }

  [[nodiscard]] bool PeerHasGone() const noexcept override { return peer_.expired(); }
  ostra::cancellation_source& GetCancellation() override { return cancellation_; }
  void Cancel() override { cancellation_.cancel(); }

  // Of no use to a pair.
  void LinkCancellation(const ostra::cancellation_source&) override {}
  void Disconnect() override {}
  HRESULT Listen(std::wstring_view, PSECURITY_DESCRIPTOR) override { return E_NOTIMPL; }
  ostra::future<std::uint32_t> WaitClient(bool, std::function<void()>) override { return {}; }
  HRESULT Impersonate() override { return E_NOTIMPL; }
  HRESULT Revert() override { return E_NOTIMPL; }
  CToken GetClientToken(DWORD, bool, bool) override { throw ostra::hresult_error(E_NOTIMPL); }
  HRESULT Connect(std::wstring_view, std::wstring_view, DWORD, DWORD) override { return E_NOTIMPL; }

 private:
  // False when the peer has gone.
  bool Tell(std::span<const std::byte> sent, bool last) {
    const auto peer = peer_.lock();
    if (!peer)
      return false;
    const std::lock_guard guard(peer->lock_);
    peer->inbox_.insert(peer->inbox_.end(), sent.begin(), sent.end());
    peer->peer_gone_ = peer->peer_gone_ || last;
    if (peer->arrived_)
      peer->arrived_->set();  // whose waiter goes on on a thread of the pool
    return true;
  }

  ostra::future<void> Fill(std::span<std::byte> room) {
    token_.throw_if_cancelled();
    while (!Take(room)) {
      auto arrival = arrived_->wait_for(std::chrono::hours(1));
      co_await arrival;
    }
  }

  // False when there is not enough. Throws when there never will be.
  [[nodiscard]] bool Take(std::span<std::byte> room) {
    const std::lock_guard guard(lock_);
    if (inbox_.size() - read_ < room.size()) {
      if (peer_gone_)
        ostra::details::throw_win32(ERROR_BROKEN_PIPE);
      if (!arrived_)
        arrived_.emplace(token_);
      return false;
    }
    std::copy_n(inbox_.data() + read_, room.size(), room.data());
    read_ += room.size();
    return true;
  }

  std::weak_ptr<MemoryTransport> peer_;  // constant once paired
  ostra::cancellation_source cancellation_;
  const ostra::cancellation_token token_ = cancellation_.token();

  // Guarded by lock_.
  ostra::srw_lock lock_;
  std::optional<ostra::auto_reset_event> arrived_;  // made by the first read that waits
  bytes inbox_;
  std::size_t read_ = 0;  // of the inbox
  bool peer_gone_ = false;
};

// Answers at once, with what it was asked.
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

// Bytes in which neighbours differ.
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

// For tests: a transport whose two ends lie in this process.
#pragma once

#include <algorithm>
#include <chrono>
#include <mutex>
#include <utility>

#include "async/auto_reset_event.h"
#include "async/errors.h"
#include "rpc/itransport.h"

namespace tether::test {

// One end of a pair. An operation that finds what it needs ends at once, on the caller's thread; the
// others go on on a pool thread. An end that is destroyed is gone for its peer, which can still read
// what it has sent.
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
  ~MemoryTransport() override { EndWriting(); }

  // Sends any bytes.
  void WriteBytes(std::span<const std::byte> bytes) {
    peer_.lock()->Change([&](MemoryTransport& peer) {
      peer.inbox_.insert(peer.inbox_.end(), bytes.begin(), bytes.end());
    });
  }

  // The peer finds this end gone when it has read everything.
  void EndWriting() {
    if (const auto peer = peer_.lock())
      peer->Change([](MemoryTransport& end) { end.peer_gone_ = true; });
  }

  // Writes of this end wait from now on, until they may go on.
  void HoldWrites(bool held) {
    Change([&](MemoryTransport& self) { self.is_held_ = held; });
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
    const auto self = shared_from_this();
    if (is_writing_.exchange(true))
      std::terminate();  // two writes at a time
    token_.throw_if_cancelled();
    while (is_held_) {
      auto release = release_.wait_for(std::chrono::hours(1));
      co_await release;
    }
    if (peer_.expired())
      ostra::details::throw_win32(ERROR_BROKEN_PIPE);
    is_writing_ = false;
    WriteBytes(message->bytes());
  }

  [[nodiscard]] bool PeerHasGone() const noexcept override { return peer_gone_; }
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
  template <class Action>
  void Change(Action action) {
    {
      const std::lock_guard guard(lock_);
      action(*this);
    }
    arrived_.set();
    release_.set();
  }

  ostra::future<void> Fill(std::span<std::byte> room) {
    token_.throw_if_cancelled();
    while (!Take(room)) {
      auto arrival = arrived_.wait_for(std::chrono::hours(1));
      co_await arrival;
    }
  }

  // False when there is not enough. Throws when there never will be.
  [[nodiscard]] bool Take(std::span<std::byte> room) {
    const std::lock_guard guard(lock_);
    if (inbox_.size() - read_ < room.size()) {
      if (peer_gone_)
        ostra::details::throw_win32(ERROR_BROKEN_PIPE);
      return false;
    }
    std::copy_n(inbox_.data() + read_, room.size(), room.data());
    read_ += room.size();
    if (read_ == inbox_.size())
      inbox_.resize(read_ = 0);
    return true;
  }

  std::weak_ptr<MemoryTransport> peer_;  // constant once paired
  ostra::cancellation_source cancellation_;
  const ostra::cancellation_token token_ = cancellation_.token();
  ostra::auto_reset_event arrived_{token_};
  ostra::auto_reset_event release_{token_};
  std::atomic<bool> is_writing_ = false;
  std::atomic<bool> is_held_ = false;
  std::atomic<bool> peer_gone_ = false;

  // Guarded by lock_.
  ostra::srw_lock lock_;
  std::vector<std::byte> inbox_;
  std::size_t read_ = 0;  // of the inbox
};

// Bytes in which neighbours differ.
[[nodiscard]] inline std::vector<std::byte> Pattern(std::size_t size) {
  std::vector<std::byte> bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<std::byte>(i * 7 + i / 251);
  return bytes;
}

[[nodiscard]] inline std::shared_ptr<message_t> MakeMessage(
    message_header header, std::span<const std::byte> payload = {}) {
  auto message = std::make_shared<message_t>(header);
  message->append(payload.data(), payload.size());
  return message;
}

}  // namespace tether::test

// Messages in memory: the received Message and the message_t that is built for sending.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/win32.h"
#include "rpc/message_format.h"

namespace tether {

// Thrown, as hresult_error, for the announcement of a longer message than kMaxPayload.
inline constexpr HRESULT kMessageTooLong =
    static_cast<HRESULT>(0x800710F0);  // ERROR_MESSAGE_EXCEEDS_MAX_SIZE

// A received message: header and payload in one heap block. A MessageReceiver makes it; nobody
// changes it afterwards.
class Message {
 public:
  [[nodiscard]] const message_header& header() const noexcept { return header_; }
  [[nodiscard]] std::span<const std::byte> payload() const noexcept {
    return {const_cast<Message*>(this)->data(), header_.length};
  }

 private:
  friend class MessageReceiver;
  explicit Message(const message_header& header) noexcept : header_(header) {}

  // The block goes on behind the header.
  [[nodiscard]] std::byte* data() noexcept {
    return static_cast<std::byte*>(static_cast<void*>(this)) + sizeof(message_header);
  }

  message_header header_;
};

// Puts a message together as its payload arrives. The header only announces a length, so the block
// grows with what has come: it has room for at most twice that and kPiece more. While it grows, the
// block that it outgrew may exist beside it. Not synchronised.
class MessageReceiver {
 public:
  // Throws hresult_error with kMessageTooLong when the announced payload is longer than
  // kMaxPayload; std::bad_alloc.
  explicit MessageReceiver(const message_header& header);

  [[nodiscard]] bool is_complete() const noexcept;

  // Where the next bytes of an incomplete message go: what is left of it, at most as much as makes
  // a whole piece. Valid until the next call. Throws std::bad_alloc.
  [[nodiscard]] std::span<std::byte> room();

  // Says how much of the room has been filled.
  void advance(std::size_t size) noexcept { arrived_ += size; }

  // Gives the message away, once it is complete.
  [[nodiscard]] std::shared_ptr<const Message> take();

 private:
  struct free_block {
    void operator()(Message* message) const noexcept;
  };

  void reserve(std::size_t capacity);

  // In bytes of payload.
  std::size_t capacity_ = 0;
  std::size_t arrived_ = 0;
  std::unique_ptr<Message, free_block> message_;
};

// A message to be sent, as it goes on the pipe: one contiguous block. One thread builds it; once it
// has been given to a transport it stays as it is.
class message_t {
 public:
  // Begins with `header`, whose length is not looked at, and no payload.
  explicit message_t(message_header header);

  // Appends to the payload and keeps the header's length true. Throws std::length_error when the
  // payload would be longer than kMaxPayload.
  void append(const void* data, std::size_t size);

  // Sets the call identifier, which is known only when the message is sent.
  void set_call(std::uint32_t call) noexcept;

  [[nodiscard]] std::span<const std::byte> bytes() const noexcept { return bytes_; }

 private:
  std::vector<std::byte> bytes_;
};

}  // namespace tether

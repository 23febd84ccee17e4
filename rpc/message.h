// Messages in memory: Message as received, and message_t as built for sending.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/win32.h"
#include "rpc/message_format.h"

namespace tether {

// Thrown, as hresult_error, when a header announces a payload longer than kMaxPayload.
inline constexpr HRESULT kMessageTooLong =
    static_cast<HRESULT>(0x800710F0);  // ERROR_MESSAGE_EXCEEDS_MAX_SIZE

// A received message: header and payload in one heap block. Built by a MessageReceiver and
// immutable afterwards.
class Message {
 public:
  [[nodiscard]] const message_header& header() const noexcept { return header_; }
  [[nodiscard]] std::span<const std::byte> payload() const noexcept {
    return {const_cast<Message*>(this)->data(), header_.length};
  }

 private:
  friend class MessageReceiver;
  explicit Message(const message_header& header) noexcept : header_(header) {}

  // The payload follows the header in the same block.
  [[nodiscard]] std::byte* data() noexcept {
    return static_cast<std::byte*>(static_cast<void*>(this)) + sizeof(message_header);
  }

  message_header header_;
};

// Assembles a message as its payload arrives. The header only announces a length, so the block
// grows with the data received: its capacity is at most twice that plus about kPiece. While it
// grows, the old block may exist beside the new one. Not synchronised.
class MessageReceiver {
 public:
  // Throws hresult_error with kMessageTooLong when the announced payload is longer than
  // kMaxPayload, and std::bad_alloc.
  explicit MessageReceiver(const message_header& header);

  [[nodiscard]] bool is_complete() const noexcept;

  // The buffer for the next bytes of an incomplete message: at most the rest of the message, and at
  // most one piece. Valid until the next call. Throws std::bad_alloc.
  [[nodiscard]] std::span<std::byte> room();

  // Records that `size` bytes of the room have been filled.
  void advance(std::size_t size) noexcept { arrived_ += size; }

  // Hands over the complete message.
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

// A message to be sent, exactly as it goes on the pipe: one contiguous block. Built by one thread;
// must not change once it has been given to a transport.
class message_t {
 public:
  // Begins with `header`, whose length is ignored, and an empty payload.
  explicit message_t(message_header header);

  // Appends to the payload and updates the header's length. Throws std::length_error when the
  // payload would be longer than kMaxPayload.
  void append(const void* data, std::size_t size);

  // Sets the call identifier, which is known only when the message is sent.
  void set_call(std::uint32_t call) noexcept;

  [[nodiscard]] std::span<const std::byte> bytes() const noexcept { return bytes_; }

 private:
  std::vector<std::byte> bytes_;
};

}  // namespace tether

// Messages in memory: the received Message and the message_t that is built for sending.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "rpc/message_format.h"

namespace tether {

// A received message: header and payload in one heap block. Written by the transport that receives
// it, constant for everybody else.
class Message {
 public:
  // The payload is not initialised. Throws std::bad_alloc.
  static std::shared_ptr<Message> allocate(const message_header& header);

  [[nodiscard]] const message_header& header() const noexcept { return header_; }
  [[nodiscard]] std::span<std::byte> payload() noexcept { return {data(), header_.length}; }
  [[nodiscard]] std::span<const std::byte> payload() const noexcept {
    return const_cast<Message*>(this)->payload();
  }

 private:
  explicit Message(const message_header& header) noexcept : header_(header) {}

  // The block goes on behind the header.
  [[nodiscard]] std::byte* data() noexcept {
    return static_cast<std::byte*>(static_cast<void*>(this)) + sizeof(message_header);
  }

  message_header header_;
};

// A message to be sent, as it goes on the pipe: one contiguous block. One thread builds it; once it
// has been given to a transport it stays as it is.
class message_t {
 public:
  // Begins with `header`, whose length is not looked at, and no payload.
  explicit message_t(message_header header);

  // Appends to the payload and keeps the header's length true. Throws std::length_error when the
  // payload would pass 4,294,967,295 bytes.
  void append(const void* data, std::size_t size);

  // Sets the call identifier, which is known only when the message is sent.
  void set_call(std::uint32_t call) noexcept;

  [[nodiscard]] std::span<const std::byte> bytes() const noexcept { return bytes_; }

 private:
  std::vector<std::byte> bytes_;
};

}  // namespace tether

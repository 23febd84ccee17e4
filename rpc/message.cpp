#include "rpc/message.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "async/errors.h"

namespace tether {

namespace {

// Most messages are short: one allocation suffices.
constexpr std::size_t kUsualSize = 64;

}  // namespace

static_assert(sizeof(Message) == sizeof(message_header) && std::is_trivially_copyable_v<Message>,
              "the payload follows the header, and the block is moved and freed as it is");

MessageReceiver::MessageReceiver(const message_header& header) {
  if (header.length > kMaxPayload)
    throw ostra::hresult_error(kMessageTooLong);
  // Enough for the most common long message, a write of 64 KiB.
  reserve(std::min<std::size_t>(header.length, kPiece + sizeof header));
  new (message_.get()) Message(header);
}

bool MessageReceiver::is_complete() const noexcept {
  return arrived_ == message_->header_.length;
}

std::span<std::byte> MessageReceiver::room() {
  const std::size_t length = message_->header_.length;
  if (arrived_ == capacity_)
    reserve(std::min(length, std::max(2 * arrived_, arrived_ + kPiece)));
  // The header is part of the first piece.
  const std::size_t piece = arrived_ == 0 ? kPiece - sizeof(message_header) : kPiece;
  const std::size_t size = std::min(capacity_ - arrived_, piece);
  return {message_->data() + arrived_, size};
}

std::shared_ptr<const Message> MessageReceiver::take() {
  return std::move(message_);
}

void MessageReceiver::reserve(std::size_t capacity) {
  void* const block = std::realloc(message_.get(), sizeof(message_header) + capacity);
  if (block == nullptr)
    throw std::bad_alloc();
  static_cast<void>(message_.release());  // realloc has reused or freed it
  message_.reset(static_cast<Message*>(block));
  capacity_ = capacity;
}

void MessageReceiver::free_block::operator()(Message* message) const noexcept {
  std::free(message);
}

message_t::message_t(message_header header) {
  bytes_.reserve(kUsualSize);
  bytes_.resize(sizeof header);
  header.length = 0;
  std::memcpy(bytes_.data(), &header, sizeof header);
}

void message_t::append(const void* data, std::size_t size) {
  const std::size_t payload = bytes_.size() - sizeof(message_header) + size;
  if (payload > kMaxPayload)
    throw std::length_error("message payload");
  const auto* const first = static_cast<const std::byte*>(data);
  bytes_.insert(bytes_.end(), first, first + size);
  const auto length = static_cast<std::uint32_t>(payload);
  std::memcpy(&bytes_[offsetof(message_header, length)], &length, sizeof length);
}

void message_t::set_call(std::uint32_t call) noexcept {
  std::memcpy(&bytes_[offsetof(message_header, call)], &call, sizeof call);
}

}  // namespace tether

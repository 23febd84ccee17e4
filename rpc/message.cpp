#include "rpc/message.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <type_traits>

namespace tether {

namespace {

// Most messages are short: one allocation does for them.
constexpr std::size_t kUsualSize = 64;

}  // namespace

static_assert(sizeof(Message) == sizeof(message_header) &&
                  std::is_trivially_destructible_v<Message>,
              "the payload follows the header, and the block is freed as it is");

std::shared_ptr<Message> Message::allocate(const message_header& header) {
  void* const block = std::malloc(sizeof(message_header) + std::size_t{header.length});
  if (block == nullptr)
    throw std::bad_alloc();
  return {new (block) Message(header), [](Message* message) { std::free(message); }};
}

message_t::message_t(message_header header) {
  bytes_.reserve(kUsualSize);
  bytes_.resize(sizeof header);
  header.length = 0;
  std::memcpy(bytes_.data(), &header, sizeof header);
}

void message_t::append(const void* data, std::size_t size) {
  const std::size_t payload = bytes_.size() - sizeof(message_header) + size;
  if (payload > std::numeric_limits<std::uint32_t>::max()) {
    throw std::length_error("message payload");
  }
  const auto* const first = static_cast<const std::byte*>(data);
  bytes_.insert(bytes_.end(), first, first + size);
  const auto length = static_cast<std::uint32_t>(payload);
  std::memcpy(&bytes_[offsetof(message_header, length)], &length, sizeof length);
}

void message_t::set_call(std::uint32_t call) noexcept {
  std::memcpy(&bytes_[offsetof(message_header, call)], &call, sizeof call);
}

}  // namespace tether

// What a program may send to a bridge. The input's first byte is where the rest is cut in two, as a
// network may cut it.
#include "client/telnet/telnet.h"

#include <algorithm>
#include <string>

#include "fuzz_input.h"

namespace {

using tarnwheel::client::telnet;
using tarnwheel::client::telnet_item;
using bytes = std::vector<std::byte>;

void append(std::vector<telnet_item>& items, std::vector<telnet_item> more) {
  for (telnet_item& item : more) {
    const bool joins = !items.empty() && items.back().what == item.what &&
                       item.what != telnet_item::kind::com_port;
    if (joins)
      items.back().bytes.insert(items.back().bytes.end(), item.bytes.begin(), item.bytes.end());
    else
      items.push_back(std::move(item));
  }
}

bool equal(const telnet_item& one, const telnet_item& other) {
  return one.what == other.what && one.bytes == other.bytes;
}

// Agrees to binary data from `sender`.
void agree(telnet& sender, telnet& receiver) {
  constexpr std::uint8_t kDoBinary[] = {255, 253, 0};
  constexpr std::uint8_t kWillBinary[] = {255, 251, 0};
  static_cast<void>(sender.receive(std::as_bytes(std::span(kDoBinary))));
  static_cast<void>(receiver.receive(std::as_bytes(std::span(kWillBinary))));
}

// What one end encodes, the other one receives.
void require_carried(std::span<const std::byte> data, bool binary) {
  telnet sender;
  telnet receiver;
  if (binary)
    agree(sender, receiver);
  bytes arrived;
  for (const telnet_item& item : receiver.receive(sender.encode(data)))
    arrived.insert(arrived.end(), item.bytes.begin(), item.bytes.end());
  fuzz::require(std::ranges::equal(arrived, data));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0)
    return 0;
  const auto input = std::as_bytes(fuzz::input(data + 1, size - 1));
  const auto cut = std::min<std::size_t>(data[0], input.size());
  telnet whole;
  std::vector<telnet_item> expected;
  append(expected, whole.receive(input));
  telnet parts;
  std::vector<telnet_item> items;
  append(items, parts.receive(input.first(cut)));
  append(items, parts.receive(input.subspan(cut)));
  fuzz::require(std::ranges::equal(items, expected, equal));

  std::size_t total = 0;
  for (const telnet_item& item : items) {
    fuzz::require(item.what != telnet_item::kind::com_port ||
                  item.bytes.size() <= telnet::kLongestSubnegotiation);
    total += item.bytes.size();
  }
  fuzz::require(total <= input.size());
  require_carried(input, false);
  require_carried(input, true);
  return 0;
}

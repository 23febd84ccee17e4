// What a program may send to a bridge. The input's first byte is where the rest is cut in two, as a
// network may cut it.
#include <algorithm>

#include "client/telnet/telnet.h"
#include "fuzz.h"

namespace {

using tarnwheel::client::telnet;
using tarnwheel::client::telnet_item;

// The items' kinds and bytes; neighbours of a kind are one, but for what controls the port.
std::vector<std::vector<std::byte>> joined(const std::vector<telnet_item>& items) {
  std::vector<std::vector<std::byte>> all;
  for (const telnet_item& item : items) {
    const auto kind = static_cast<std::byte>(item.what);
    if (all.empty() || all.back()[0] != kind || item.what == telnet_item::kind::com_port)
      all.push_back({kind});
    all.back().insert(all.back().end(), item.bytes.begin(), item.bytes.end());
    fuzz::require(item.what != telnet_item::kind::com_port ||
                  item.bytes.size() <= telnet::kLongestSubnegotiation);
  }
  return all;
}

}  // namespace

void fuzz::run(input bytes) {
  if (bytes.empty())
    return;
  const auto data = std::as_bytes(bytes.subspan(1));
  const auto cut = std::min<std::size_t>(bytes[0], data.size());
  telnet whole, parts;
  auto items = parts.receive(data.first(cut));
  for (telnet_item& item : parts.receive(data.subspan(cut)))
    items.push_back(std::move(item));
  require(joined(items) == joined(whole.receive(data)));
  // What one end encodes, the other one receives.
  telnet receiver;
  std::vector<std::byte> arrived;
  for (const telnet_item& item : receiver.receive(telnet().encode(data)))
    arrived.insert(arrived.end(), item.bytes.begin(), item.bytes.end());
  require(std::ranges::equal(arrived, data));
}

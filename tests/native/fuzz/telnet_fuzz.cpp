// What a program may send to a bridge. The input's first byte is where the rest is cut in two, as a
// network may cut it.
#include <algorithm>
#include <iterator>

#include "client/telnet/telnet.h"
#include "fuzz.h"

namespace {

using tarnwheel::client::telnet;
using tarnwheel::client::telnet_item;
using bytes = std::vector<std::byte>;

// The items' kinds and bytes; neighbours of a kind are one, but for what controls the port.
std::vector<bytes> joined(std::initializer_list<std::vector<telnet_item>> parts) {
  std::vector<bytes> all;
  for (const auto& items : parts) {
    for (const telnet_item& item : items) {
      const auto kind = static_cast<std::byte>(item.what);
      const bool controls = item.what == telnet_item::kind::com_port;
      fuzz::require(!controls || item.bytes.size() <= telnet::kLongestSubnegotiation);
      if (all.empty() || all.back()[0] != kind || controls)
        all.push_back({kind});
      all.back().insert(all.back().end(), item.bytes.begin(), item.bytes.end());
    }
  }
  return all;
}

}  // namespace

void fuzz::run(input given) {
  if (given.empty())
    return;
  const auto data = std::as_bytes(given.subspan(1));
  const auto cut = std::min<std::size_t>(given[0], data.size());
  telnet whole, parts;
  require(joined({parts.receive(data.first(cut)), parts.receive(data.subspan(cut))}) ==
          joined({whole.receive(data)}));
  // What one end encodes, the other one receives.
  telnet sender;
  bytes arrived, encoded = sender.encode(data.first(cut));
  std::ranges::copy(sender.encode(data.subspan(cut)), std::back_inserter(encoded));
  for (const telnet_item& item : telnet().receive(encoded))
    arrived.insert(arrived.end(), item.bytes.begin(), item.bytes.end());
  require(std::ranges::equal(arrived, data));
}

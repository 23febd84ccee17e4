#include "client/streams/insertion_decoder.h"

namespace tarnwheel::client {
namespace {

constexpr std::size_t kHead = 2;  // the escape character and the number

std::size_t value_size(insertion what) {
  switch (what) {
    case insertion::line_status:
    case insertion::modem_status:
      return 1;
    case insertion::line_status_with_data:
      return 2;
    case insertion::line_control:
      return 3;
    case insertion::baud_rate:
      return 4;
    default:
      return 0;
  }
}

void add_data(std::byte byte, std::vector<received_item>& items) {
  if (items.empty() || items.back().what != insertion::data)
    items.push_back({insertion::data, {}});
  items.back().bytes.push_back(byte);
}

}  // namespace

std::vector<received_item> insertion_decoder::decode(std::span<const std::byte> input) {
  std::vector<received_item> items;
  for (const std::byte byte : input) {
    if (!insertion_.empty() || byte == kInsertionEscape)
      continue_insertion(byte, items);
    else
      add_data(byte, items);
  }
  return items;
}

void insertion_decoder::continue_insertion(std::byte byte, std::vector<received_item>& items) {
  insertion_.push_back(byte);
  if (insertion_.size() < kHead)
    return;
  const auto what = static_cast<insertion>(insertion_[1]);
  if (insertion_.size() < kHead + value_size(what))
    return;
  if (what == insertion::line_status_with_data)
    items.push_back({insertion::line_status, {insertion_[kHead]}});
  else if (value_size(what) != 0)
    items.push_back({what, {insertion_.begin() + kHead, insertion_.end()}});
  if (what == insertion::data || what == insertion::line_status_with_data)
    add_data(what == insertion::data ? kInsertionEscape : byte, items);
  insertion_.clear();
}

}  // namespace tarnwheel::client

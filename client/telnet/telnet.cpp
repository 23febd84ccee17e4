#include "client/telnet/telnet.h"

#include <algorithm>
#include <initializer_list>
#include <utility>

namespace tarnwheel::client {
namespace {

constexpr std::uint8_t kSe = 240;
constexpr std::uint8_t kBreak = 243;
constexpr std::uint8_t kSb = 250;
constexpr std::uint8_t kWill = 251;
constexpr std::uint8_t kWont = 252;
constexpr std::uint8_t kDo = 253;
constexpr std::uint8_t kDont = 254;
constexpr std::uint8_t kIac = 255;

constexpr std::byte kCr{'\r'};
constexpr std::byte kLf{'\n'};
constexpr std::byte kNul{0};

void append(std::vector<std::byte>& bytes, std::initializer_list<std::uint8_t> more) {
  for (const std::uint8_t byte : more)
    bytes.push_back(std::byte{byte});
}

void append_doubling_iac(std::vector<std::byte>& bytes, std::byte byte) {
  bytes.push_back(byte);
  if (byte == std::byte{kIac})
    bytes.push_back(byte);
}

}  // namespace

class telnet::output {
 public:
  // Adjacent pieces of one kind form one item, except for subnegotiations and breaks.
  void add(telnet_item::kind what, std::initializer_list<std::uint8_t> bytes) {
    if (items_.empty() || items_.back().what != what)
      items_.push_back({what, {}});
    append(items_.back().bytes, bytes);
  }

  void add_com_port(std::vector<std::byte> payload) {
    items_.push_back({telnet_item::kind::com_port, std::move(payload)});
  }

  void add_break() { items_.push_back({telnet_item::kind::break_request, {}}); }

  [[nodiscard]] std::vector<telnet_item> take() { return std::move(items_); }

 private:
  std::vector<telnet_item> items_;
};

std::vector<std::byte> telnet::offer() {
  std::vector<std::byte> bytes;
  const auto ask = [&](option_states& states, std::uint8_t verb) {
    for (option_state& option : states) {
      option.asked = true;
      append(bytes, {kIac, verb, option.number});
    }
  };
  ask(ours_, kWill);
  ask(theirs_, kDo);
  return bytes;
}

bool telnet::controls_port() const noexcept {
  return std::ranges::find(theirs_, telnet_option::kComPort, &option_state::number)->on;
}

std::vector<telnet_item> telnet::receive(std::span<const std::byte> input) {
  output out;
  for (const std::byte byte : input)
    take(std::to_integer<std::uint8_t>(byte), out);
  return out.take();
}

void telnet::take(std::uint8_t byte, output& out) {
  switch (state_) {
    case state::data:
    case state::data_after_cr:
      return take_data(byte, out);
    case state::command:
      return take_command(byte, out);
    case state::negotiation:
      state_ = state::data;
      return negotiate(verb_, byte, out);
    case state::option:
      option_ = byte;
      subnegotiation_.clear();
      too_long_ = false;
      state_ = state::subnegotiation;
      return;
    case state::subnegotiation:
      return take_in_subnegotiation(byte);
    case state::subnegotiation_command:
      if (byte == kIac) {
        state_ = state::subnegotiation;
        return keep(byte);
      }
      if (byte == kSe) {
        state_ = state::data;
        return end_subnegotiation(out);
      }
      return take_command(byte, out);  // which cuts the subnegotiation short
  }
}

void telnet::take_data(std::uint8_t byte, output& out) {
  const bool padded = !theirs_[kBinaryIndex].on;
  const bool after_cr = std::exchange(state_, state::data) == state::data_after_cr;
  if (byte == kIac) {
    state_ = state::command;
    return;
  }
  if (padded && after_cr && byte == 0)
    return;
  if (byte == std::to_integer<std::uint8_t>(kCr))
    state_ = state::data_after_cr;
  out.add(telnet_item::kind::data, {byte});
}

void telnet::take_command(std::uint8_t byte, output& out) {
  state_ = state::data;
  switch (byte) {
    case kIac:
      out.add(telnet_item::kind::data, {byte});
      return;
    case kBreak:
      return out.add_break();
    case kSb:
      state_ = state::option;
      return;
    case kWill:
    case kWont:
    case kDo:
    case kDont:
      verb_ = byte;
      state_ = state::negotiation;
      return;
    default:
      return;  // means nothing to a serial line
  }
}

void telnet::take_in_subnegotiation(std::uint8_t byte) {
  if (byte == kIac)
    state_ = state::subnegotiation_command;
  else
    keep(byte);
}

void telnet::keep(std::uint8_t byte) {
  if (subnegotiation_.size() < kMaxSubnegotiation)
    subnegotiation_.push_back(std::byte{byte});
  else
    too_long_ = true;
}

void telnet::end_subnegotiation(output& out) {
  if (option_ == telnet_option::kComPort && !too_long_)
    out.add_com_port(std::exchange(subnegotiation_, {}));
}

void telnet::negotiate(std::uint8_t verb, std::uint8_t option, output& out) {
  const bool about_theirs = verb == kWill || verb == kWont;
  const bool wanted = verb == kWill || verb == kDo;
  const std::uint8_t yes = about_theirs ? kDo : kWill;
  const std::uint8_t no = about_theirs ? kDont : kWont;
  auto& states = about_theirs ? theirs_ : ours_;
  const auto found = std::ranges::find(states, option, &option_state::number);
  if (found == states.end()) {
    if (wanted)
      out.add(telnet_item::kind::reply, {kIac, no, option});
    return;
  }
  const bool was_on = std::exchange(found->on, wanted);
  const bool was_asked = std::exchange(found->asked, false);
  if (wanted != was_on && !was_asked)
    out.add(telnet_item::kind::reply, {kIac, wanted ? yes : no, option});
  sends_binary_ = ours_[kBinaryIndex].on;
}

std::vector<std::byte> telnet::encode(std::span<const std::byte> data) {
  const bool padded = !sends_binary_;
  std::vector<std::byte> bytes;
  bytes.reserve(data.size() + 16);
  for (const std::byte byte : data) {
    if (std::exchange(sent_cr_, byte == kCr) && padded && byte != kLf)
      bytes.push_back(kNul);
    append_doubling_iac(bytes, byte);
  }
  return bytes;
}

std::vector<std::byte> telnet::encode_com_port(std::span<const std::byte> payload) {
  std::vector<std::byte> bytes;
  append(bytes, {kIac, kSb, telnet_option::kComPort});
  for (const std::byte byte : payload)
    append_doubling_iac(bytes, byte);
  append(bytes, {kIac, kSe});
  return bytes;
}

}  // namespace tarnwheel::client

// One end of a Telnet connection that carries a serial line: RFC 854, 855 and 856.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tarnwheel::client {

namespace telnet_option {
inline constexpr std::uint8_t kBinary = 0;
inline constexpr std::uint8_t kEcho = 1;  // RFC 857
inline constexpr std::uint8_t kSuppressGoAhead = 3;
inline constexpr std::uint8_t kComPort = 44;  // RFC 2217
}  // namespace telnet_option

// A piece of the peer's input, or of the reply to it.
struct telnet_item {
  enum class kind {
    data,
    com_port,       // a subnegotiation of the option kComPort, without the option's number
    break_request,  // the command BREAK, without bytes
    reply,          // to be sent to the peer unchanged
  };

  kind what;
  std::vector<std::byte> bytes;
};

// Decodes the peer's bytes into items, and encodes bytes for the peer. Both ends may use the
// options above, except for the echo, which only this end offers: echoing is up to the device, and
// a terminal must not do it too. Every other option is refused. Any input is legal: what cannot be
// understood is skipped, and no input makes this keep more than kMaxSubnegotiation bytes.
//
// An option is answered only when its state changes, so two ends that agree exchange nothing more.
// Not synchronised: receive() and offer() belong to one thread at a time, encode() to another.
class telnet {
 public:
  static constexpr std::size_t kMaxSubnegotiation = 512;

  // The opening offer: the options that this end wants.
  [[nodiscard]] std::vector<std::byte> offer();

  // Returns the items in the order of the input; commands may be split anywhere between two calls.
  [[nodiscard]] std::vector<telnet_item> receive(std::span<const std::byte> input);

  // True when the peer has agreed to control the port.
  [[nodiscard]] bool controls_port() const noexcept;

  // Encodes data for the peer. Until the peer has agreed to binary data, a NUL follows each
  // carriage return that is not followed by a line feed; it is sent together with the next byte.
  [[nodiscard]] std::vector<std::byte> encode(std::span<const std::byte> data);

  // A subnegotiation of the option kComPort.
  [[nodiscard]] static std::vector<std::byte> encode_com_port(std::span<const std::byte> payload);

 private:
  enum class state {
    data,
    data_after_cr,
    command,      // after IAC
    negotiation,  // after IAC and one of WILL, WONT, DO, DONT
    option,       // after IAC SB
    subnegotiation,
    subnegotiation_command,  // after IAC in a subnegotiation
  };

  // The state of one option at one end.
  struct option_state {
    std::uint8_t number;
    bool on = false;
    bool asked = false;  // by this end, and still unanswered
  };
  using option_states = std::vector<option_state>;

  class output;  // collects items

  void take(std::uint8_t byte, output& out);
  void take_data(std::uint8_t byte, output& out);
  void take_command(std::uint8_t byte, output& out);
  void take_in_subnegotiation(std::uint8_t byte);
  void keep(std::uint8_t byte);
  void end_subnegotiation(output& out);
  void negotiate(std::uint8_t verb, std::uint8_t option, output& out);

  state state_ = state::data;
  std::uint8_t verb_ = 0;
  std::uint8_t option_ = 0;
  std::vector<std::byte> subnegotiation_;
  bool too_long_ = false;

  std::atomic<bool> sends_binary_ = false;
  bool sent_cr_ = false;  // encode()'s last byte was a carriage return

  static constexpr std::size_t kBinaryIndex = 0;
  option_states ours_ = {{telnet_option::kBinary},  // WILL and WONT of this end
                         {telnet_option::kEcho},
                         {telnet_option::kSuppressGoAhead},
                         {telnet_option::kComPort}};
  option_states theirs_ = {{telnet_option::kBinary},  // DO and DONT of this end
                           {telnet_option::kSuppressGoAhead},
                           {telnet_option::kComPort}};
};

}  // namespace tarnwheel::client

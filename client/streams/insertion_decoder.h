// What a virtual null modem inserts into the bytes that one end receives: the state of the other end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tarnwheel::client {

// Introduces an insertion. Rare as data: no UTF-8 text has it, nor does empty or erased memory.
inline constexpr std::byte kInsertionEscape{0xF5};

// The number behind the escape character.
enum class insertion : std::uint8_t {
  data = 0,                   // the escape character itself, as data
  line_status_with_data = 1,  // and the byte that had the error
  line_status = 2,
  modem_status = 3,
  baud_rate = 16,     // 32 bits, the lowest first
  line_control = 17,  // data bits, parity and stop bits, a byte each, in the driver's terms
};

struct received_item {
  insertion what;
  std::vector<std::byte> bytes;  // of data as many as there are, otherwise the insertion's value
};

// Takes the two apart again. Any input is legal: an unknown insertion is skipped with its number, and
// no input makes this keep more than six bytes. Not synchronised.
class insertion_decoder {
 public:
  // In the order of the input; insertions may be cut anywhere between two calls. None of the items is
  // line_status_with_data: its byte is data.
  [[nodiscard]] std::vector<received_item> decode(std::span<const std::byte> input);

 private:
  void continue_insertion(std::byte byte, std::vector<received_item>& items);

  std::vector<std::byte> insertion_;  // what has come of one, from its escape character on
};

}  // namespace tarnwheel::client

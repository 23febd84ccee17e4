// The state of one end of a virtual null modem, inserted into the bytes for the other end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tarnwheel::client {

// Introduces an insertion. Rare as data: it is in no UTF-8 text and no empty or erased memory.
inline constexpr std::byte kInsertionEscape{0xF5};

// The number after the escape character.
enum class insertion : std::uint8_t {
  data = 0,                   // the escape character itself, as data
  line_status_with_data = 1,  // followed by the byte that had the error
  line_status = 2,
  modem_status = 3,
  baud_rate = 16,     // 32 bits, little-endian
  line_control = 17,  // data bits, parity and stop bits, a byte each, in the driver's terms
};

struct received_item {
  insertion what;
  std::vector<std::byte> bytes;  // any number for data, otherwise the insertion's value
};

// Separates data from insertions. Any input is legal: of an unknown insertion the escape character
// and the number are skipped, and no input makes this keep more than six bytes. Not synchronised.
class insertion_decoder {
 public:
  // Returns the items in the order of the input; insertions may be split anywhere between two
  // calls. No item is line_status_with_data: it becomes a line_status and a byte of data.
  [[nodiscard]] std::vector<received_item> decode(std::span<const std::byte> input);

 private:
  void continue_insertion(std::byte byte, std::vector<received_item>& items);

  std::vector<std::byte> insertion_;  // the incomplete one, from its escape character on
};

}  // namespace tarnwheel::client

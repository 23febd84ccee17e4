// The numbers of RFC 2217, Telnet's option for the control of a serial port.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarnwheel::client::com_port_option {

// Commands of a client; the server's answer or notification has the same number plus kToClient.
enum command : std::uint8_t {
  kSignature = 0,
  kSetBaudRate = 1,
  kSetDataSize = 2,
  kSetParity = 3,
  kSetStopSize = 4,
  kSetControl = 5,
  kNotifyLineState = 6,
  kNotifyModemState = 7,
  kFlowControlSuspend = 8,
  kFlowControlResume = 9,
  kSetLineStateMask = 10,
  kSetModemStateMask = 11,
  kPurgeData = 12,
};
inline constexpr std::uint8_t kToClient = 100;

// The payload of the server's answer or notification with one value.
inline std::vector<std::byte> answer(std::uint8_t command, std::uint8_t value) {
  return {std::byte(command + kToClient), std::byte(value)};
}

// The value of kSetBaudRate (four bytes, big-endian), kSetDataSize, kSetParity and kSetStopSize
// that queries the present one.
inline constexpr std::uint8_t kQuery = 0;

enum parity : std::uint8_t { kNone = 1, kOdd = 2, kEven = 3, kMark = 4, kSpace = 5 };
enum stop_size : std::uint8_t { kOne = 1, kTwo = 2, kOneAndAHalf = 3 };

enum control : std::uint8_t {
  kQueryFlow = 0,
  kFlowNone = 1,
  kFlowXonXoff = 2,
  kFlowRtsCts = 3,
  kQueryBreak = 4,
  kBreakOn = 5,
  kBreakOff = 6,
  kQueryDtr = 7,
  kDtrOn = 8,
  kDtrOff = 9,
  kQueryRts = 10,
  kRtsOn = 11,
  kRtsOff = 12,
  kQueryInputFlow = 13,
  kInputFlowNone = 14,
  kInputFlowXonXoff = 15,
  kInputFlowRtsCts = 16,
  kFlowDcd = 17,
  kInputFlowDtr = 18,
  kFlowDsr = 19,
};

enum purge : std::uint8_t { kPurgeInput = 1, kPurgeOutput = 2, kPurgeBoth = 3 };

// Bits of kNotifyLineState.
enum line_state : std::uint8_t {
  kOverrun = 0x02,
  kParityError = 0x04,
  kFramingError = 0x08,
  kBreakDetected = 0x10,
};

// Bits of kNotifyModemState. The upper half holds the lines as a driver's modem status does; a bit
// of the lower half says that the line four bits above has changed or, for ring, has ended.
inline constexpr std::uint8_t kLines = 0xF0;
inline constexpr std::uint8_t kRing = 0x40;

}  // namespace tarnwheel::client::com_port_option

// The serial ports that the machine under test has for these tests.
#pragma once

#include <cstdint>
#include <cstdlib>

namespace system_test {

// The port that sends back what is written to it.
inline std::uint32_t LoopbackPort() {
  const char* const number = std::getenv("TARNWHEEL_LOOPBACK");
  return number == nullptr ? 5 : static_cast<std::uint32_t>(std::atoi(number));
}

// A port whose device is a file of zeros: it knows no serial control, and a second open is refused,
// which Wine does not do for the ports that have a terminal behind them. The refusal has the code
// ERROR_SHARING_VIOLATION where Windows has ERROR_ACCESS_DENIED. Made by make_file_port.sh.
constexpr std::uint32_t kFilePort = TARNWHEEL_FILE_PORT;
constexpr std::uint32_t kFilePortSize = 0x100000;
constexpr std::uint32_t kPortInUse = 0x80070020;

// Its device sends nothing by itself.
constexpr std::uint32_t kSilentPort = 9;

constexpr std::uint32_t kMissingPort = 77;

// Results.
constexpr std::uint32_t kFileNotFound = 0x80070002;
constexpr std::uint32_t kAccessDenied = 0x80070005;
constexpr std::uint32_t kAlreadyHoldsPort = 0x800700B7;
constexpr std::uint32_t kNotConnected = 0x800708CA;  // no port is open

}  // namespace system_test

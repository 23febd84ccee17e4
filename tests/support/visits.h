// The ways in which clients come and go; the fault tests and the soak have servers visited so.
#pragma once

#include "tests/support/raw_client.h"
#include "tests/support/serial_ports.h"

namespace system_test {

// `make` gets a connection of its own, which ends after it; `random` is different each time.
struct Visit {
  const char* name;
  void (*make)(RawClient& client, std::uint32_t random);
};

inline constexpr Visit kVisits[] = {
    {"leaves at once", [](RawClient&, std::uint32_t) {}},
    {"calls",
     [](RawClient& client, std::uint32_t random) {
       for (std::uint32_t calls = random % 100; calls != 0; --calls)
         Require(client.Read(1).code == kNotConnected, "reading without a port");
     }},
    {"leaves within a header",
     [](RawClient& client, std::uint32_t) { client.Send(ToBytes("12345")); }},
    {"leaves within a payload",
     [](RawClient& client, std::uint32_t random) {
       client.Send(Join({Header(1, kClientCode, kWrite, 99), Bytes(random % 99)}));
     }},
    {"sends what cannot be read",
     [](RawClient& client, std::uint32_t random) {
       client.Request(1, kWrite, Join({U32(1000), U32(1)}));
       client.Request(2, static_cast<std::uint16_t>(random), Pattern(random % 60, random));
     }},
    {"is refused",
     [](RawClient& client, std::uint32_t) {
       Require(client.OpenPort(kMissingPort) == kFileNotFound, "opening a port that is missing");
     }},
    {"leaves reads pending",
     [](RawClient& client, std::uint32_t) {
       Require(client.OpenPort(kSilentPort) == 0, "opening the silent port");
       client.ReadsWait();
       for (std::uint32_t call = 1; call <= 5; ++call)
         client.Request(call, kRead, U32(100));
     }},
    {"leaves its answers",
     [](RawClient& client, std::uint32_t) {
       for (std::uint32_t call = 1; call <= 5; ++call)
         client.Request(call, kEnumeratePorts, {});
     }},
};

}  // namespace system_test

// The ways in which clients come and go, for the fault tests and the soak.
#pragma once

#include "tests/support/raw_client.h"

namespace system_test {

// `make` gets a connection of its own, which ends when it returns; `random` differs each time.
struct Visit {
  const char* name;
  void (*make)(RawClient& client, std::uint32_t random);
};

inline void SendFive(const RawClient& client, std::uint16_t method, const Bytes& payload) {
  for (std::uint32_t call = 1; call <= 5; ++call)
    client.Send(Request(call, method, payload));
}

inline constexpr Visit kVisits[] = {
    {"leaves at once", [](RawClient&, std::uint32_t) {}},
    {"calls",
     [](RawClient& client, std::uint32_t random) {
       for (std::uint32_t calls = random % 100; calls != 0; --calls)
         Require(client.Read(1).code == kNotConnected, "reading without a port");
     }},
    {"leaves within a message",
     [](RawClient& client, std::uint32_t random) {
       Bytes request = Request(1, kWrite, Bytes(99, '\0'));
       request.resize(random % request.size());
       client.Send(request);
     }},
    {"sends what cannot be read",
     [](RawClient& client, std::uint32_t random) {
       client.Send(Request(1, kWrite, U32(1000)));
       client.Send(Request(2, static_cast<std::uint16_t>(random), Pattern(random % 60, random)));
     }},
    {"is refused", [](RawClient& client, std::uint32_t) { client.OpenPort(kMissingPort); }},
    {"leaves reads pending",
     [](RawClient& client, std::uint32_t) {
       client = RawClient(kSilentPort);
       SendFive(client, kRead, U32(100));
     }},
    {"leaves its answers",
     [](RawClient& client, std::uint32_t) { SendFive(client, kEnumeratePorts, {}); }},
};

}  // namespace system_test

// Lets one client call each method as fast as it can, and shows the effect on another client, on
// the server's memory and on Ctrl+C.
//
// flood [SECONDS]: the time for each method, 10 by default. Exit code 0: every goal is met.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "bench/measure.h"
#include "tests/support/raw_client.h"

namespace bench {
namespace {

using namespace system_test;  // the system tests' vocabulary

constexpr double kMaxCall = 0.1;                      // seconds
constexpr double kMaxStop = 2;                        // seconds
constexpr double kMaxMemory = 42.0 * 1024 * 1024;     // of one session, in bytes
constexpr double kThreadMemory = 32.0 * 1024 * 1024;  // of the pool's threads
constexpr std::size_t kPipelined = 1000;              // requests in the pipe at a time

struct Flood {
  const char* name;
  std::uint16_t method;
  Bytes arguments;
  bool opens;    // opens the port first
  bool replies;  // awaits replies; a control that the device refuses is never answered
};

std::vector<Flood> Floods() {
  return {{"EnumeratePorts", kEnumeratePorts, {}, false, true},
          {"EnumeratePorts, never reads", kEnumeratePorts, {}, false, false},
          {"OpenPort", kOpenPort, U32(kMissingPort), false, true},
          {"IoControl", kIoControl, ControlArguments(0x001B0050, 4, {}), true, false},
          {"Write", kWrite, Vector(Bytes(1000, '\0')), true, true},
          {"Read", kRead, U32(1000), true, true},
          {"Read of 1 MiB, never reads", kRead, U32(1 << 20), true, false},
          {"unknown method", 99, {}, false, false}};
}

// Runs until the server ends.
void Pour(const Flood& flood, std::atomic<std::uint64_t>& requests) try {
  RawClient client;
  if (flood.opens)
    client.OpenPort(kFilePort);
  Bytes burst;
  for (std::uint32_t call = 0; call < kPipelined; ++call) {
    const Bytes request = Request(call, flood.method, flood.arguments);
    burst.insert(burst.end(), request.begin(), request.end());
  }
  for (; client.Send(burst, INFINITE); requests += kPipelined) {
    for (std::size_t i = 0; flood.replies && i < kPipelined; ++i)
      client.Receive();
  }
} catch (const std::exception&) {
  // The server has ended.
}

bool Report(const char* what, double value, const char* unit, double limit) {
  const bool met = value <= limit;
  std::printf("    %-28s %10.1f %-4s at most %.0f: %s\n", what, value, unit, limit,
              met ? "met" : "MISSED");
  return met;
}

bool Endure(const Flood& flood, double seconds) {
  const Program server(L"tarnwheel-server", L"--nologo --no-discovery --no-screen-log");
  RawClient bystander;
  bystander.Read(1);
  const double memory = MemoryInUse(server);
  std::atomic<std::uint64_t> requests = 0;
  std::jthread flooder([&] { Pour(flood, requests); });
  double longest = 0;
  double most_memory = 0;
  for (const double start = Now(); Now() - start < seconds; ::Sleep(5)) {
    longest = std::max(longest, Seconds([&] { bystander.Read(1); }));
    most_memory = std::max(most_memory, MemoryInUse(server) - memory);
  }
  const double stop = Seconds([&] {
    server.SendConsoleEvent(CTRL_C_EVENT);
    server.ExitCode();
  });
  std::printf("  %s: %llu requests sent\n", flood.name,
              static_cast<unsigned long long>(requests.load()));
  bool met = Report("another client's longest call", longest * 1000, "ms", kMaxCall * 1000);
  met &=
      Report("memory growth", most_memory / 1048576, "MiB", (kMaxMemory + kThreadMemory) / 1048576);
  met &= Report("Ctrl+C to the end", stop * 1000, "ms", kMaxStop * 1000);
  return met;
}

int Main(double seconds) {
  std::printf("One client floods the server, %.0f seconds each\n", seconds);
  bool met = true;
  for (const Flood& flood : Floods())
    met &= Endure(flood, seconds);
  return met ? 0 : 1;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  return bench::Main(argc > 1 ? std::strtod(argv[1], nullptr) : 10);
}

// Has one client ask for each method as fast as it can, and shows what another client, the server's
// memory and Ctrl+C notice of it.
//
// flood [SECONDS]: so long with each method (10). Exit code 0: every goal is met.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "async/errors.h"
#include "bench/blocking_client.h"
#include "bench/measure.h"
#include "bench/process.h"

namespace bench {
namespace {

constexpr std::uint32_t kFilePort = 6;
constexpr double kLongestCall = 0.1;                  // seconds
constexpr double kLongestStop = 2;                    // seconds
constexpr double kMostMemory = 42.0 * 1024 * 1024;    // of one session, in bytes
constexpr double kThreadMemory = 32.0 * 1024 * 1024;  // of the pool's threads
constexpr std::size_t kPipelined = 1000;              // requests in the pipe at a time

struct Flood {
  const char* name;
  tether::method method;
  Bytes arguments;
  bool opens;  // the port first
  bool reads;  // the replies
};

std::vector<Flood> Floods() {
  using enum tether::method;
  const Bytes control = Join(Join(Integer(0x001B0050), Integer(4)), Vector({}));
  const Bytes data = Vector(Bytes(1000));
  return {{"EnumeratePorts", EnumeratePorts, {}, false, true},
          {"EnumeratePorts, never reads", EnumeratePorts, {}, false, false},
          {"OpenPort", OpenPort, Integer(77), false, true},
          {"IoControl", IoControl, control, true, true},
          {"Write", Write, data, true, true},
          {"Read", Read, Integer(1000), true, true},
          {"Read of 1 MiB, never reads", Read, Integer(1 << 20), true, false},
          {"unknown method", static_cast<tether::method>(99), {}, false, false}};
}

// Ends when the server does. A control that the device refuses is never answered, so only those
// replies are read that come.
void Pour(const Flood& flood, std::atomic<std::uint64_t>& requests) {
  try {
    BlockingClient client(tether::kServerPipe);
    if (flood.opens)
      client.OpenPort(kFilePort);
    const bool answered = flood.reads && flood.method != tether::method::IoControl;
    for (;;) {
      for (std::size_t i = 0; i < kPipelined; ++i)
        client.Send(flood.method, flood.arguments);
      requests += kPipelined;
      for (std::size_t i = 0; answered && i < kPipelined; ++i)
        static_cast<void>(client.Receive());
    }
  } catch (const ostra::hresult_error&) {
    // The server has gone.
  }
}

bool Report(const char* what, double value, const char* unit, double limit) {
  const bool met = value <= limit;
  std::printf("    %-28s %10.1f %-4s at most %.0f: %s\n", what, value, unit, limit,
              met ? "met" : "MISSED");
  return met;
}

bool Endure(const Flood& flood, double seconds) {
  Process server(L"tarnwheel-server", L"--nologo --no-discovery --no-screen-log");
  BlockingClient bystander(tether::kServerPipe);
  bystander.NullCall();
  const auto memory = static_cast<double>(server.PrivateBytes());
  std::atomic<std::uint64_t> requests = 0;
  std::jthread flooder([&] { Pour(flood, requests); });
  double longest = 0;
  double most_memory = 0;
  for (const double start = Now(); Now() - start < seconds; ::Sleep(5)) {
    longest = std::max(longest, Seconds([&] { bystander.NullCall(); }));
    most_memory = std::max(most_memory, static_cast<double>(server.PrivateBytes()) - memory);
  }
  const double stop = Seconds([&] {
    server.SendCtrlC();
    server.WaitForEnd();
  });
  std::printf("  %s: %llu requests sent\n", flood.name,
              static_cast<unsigned long long>(requests.load()));
  bool met = Report("another client's longest call", longest * 1000, "ms", kLongestCall * 1000);
  met &= Report("memory more than before", most_memory / 1048576, "MiB",
                (kMostMemory + kThreadMemory) / 1048576);
  met &= Report("Ctrl+C to the end", stop * 1000, "ms", kLongestStop * 1000);
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
  try {
    return bench::Main(argc > 1 ? std::strtod(argv[1], nullptr) : 10);
  } catch (const ostra::hresult_error& error) {
    std::fprintf(stderr, "flood: error 0x%08lX\n", static_cast<unsigned long>(error.code()));
    return 1;
  }
}

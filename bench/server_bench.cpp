// What the server costs: each figure beside that of a bare server of the same protocol, or of the
// device used directly, taken in turn within one run.
//
// server-bench [PART ...]: all parts, or those that are named, of start, memory, calls, transfers,
// clients, visits and loopback.
#include <algorithm>
#include <barrier>
#include <cstdio>
#include <list>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "async/errors.h"
#include "bench/bare_pipe.h"
#include "bench/blocking_client.h"
#include "bench/local_port.h"
#include "bench/measure.h"
#include "bench/process.h"

namespace bench {
namespace {

constexpr wchar_t kServerArguments[] = L"--nologo --no-discovery --no-screen-log";
// A port whose device is a file of at least 64 KiB, so that it costs next to nothing, and one whose
// device sends back what is written to it.
constexpr std::uint32_t kFilePort = 6;
constexpr std::uint32_t kLoopbackPort = 5;

constexpr std::size_t kSmall = 64;
constexpr std::size_t kLarge = 64 * 1024;

const std::wstring kOurs = tether::kServerPipe;
const std::wstring kBare = kBarePipe;

const Bytes kOneByte = Integer(1);

// Many short pairs: what else the machine does then falls on both sides alike.
constexpr int kManyRounds = 75;

// Microseconds a call.
double CallTime(const std::wstring& pipe, int calls, std::uint32_t port, tether::method method,
                const Bytes& arguments) {
  BlockingClient client(pipe);
  if (port != 0)
    client.OpenPort(port);
  client.Call(method, arguments);
  return 1e6 / calls * Seconds([&] {
           for (int call = 0; call < calls; ++call)
             client.Call(method, arguments);
         });
}

void CompareCalls(const std::string& name, int calls, std::uint32_t port, tether::method method,
                  const Bytes& arguments, std::optional<Goal> goal) {
  const auto time = [&](const std::wstring& pipe) {
    return CallTime(pipe, calls, port, method, arguments);
  };
  Comparison{name, "us", "bare server", goal, kManyRounds}.Run([&] { return time(kOurs); },
                                                               [&] { return time(kBare); });
}

// Megabytes a second in calls of 64 KiB.
void CompareThroughput(const std::string& name, tether::method method, const Bytes& arguments) {
  const auto rate = [&](const std::wstring& pipe) {
    return static_cast<double>(kLarge) / CallTime(pipe, 100, kFilePort, method, arguments);
  };
  Comparison{name, "MB/s", "bare server", Goal{Goal::kAtLeast, 0.9}, kManyRounds}.Run(
      [&] { return rate(kOurs); }, [&] { return rate(kBare); });
}

void MeasureCalls() {
  PrintHeading("One client, one call after another; the device is a file");
  CompareCalls("null call", 400, 0, tether::method::Read, kOneByte, Goal{Goal::kAtMost, 1.15});
  CompareCalls("write of 64 bytes", 200, kFilePort, tether::method::Write, Vector(Bytes(kSmall)),
               {});
  CompareCalls("read of 64 bytes", 200, kFilePort, tether::method::Read, Integer(kSmall), {});
}

void MeasureTransfers() {
  PrintHeading("One client, 64 KiB a call; the device is a file");
  CompareThroughput("write of 64 KiB", tether::method::Write, Vector(Bytes(kLarge)));
  CompareThroughput("read of 64 KiB", tether::method::Read, Integer(kLarge));
}

// Calls a second of that many clients together.
double CallRate(const std::wstring& pipe, int clients) {
  constexpr int kCalls = 6'400;
  std::barrier start(clients + 1);
  std::list<std::jthread> threads;
  for (int i = 0; i < clients; ++i) {
    threads.emplace_back([&] {
      BlockingClient client(pipe);
      client.NullCall();
      start.arrive_and_wait();
      for (int call = 0; call < kCalls / clients; ++call)
        client.NullCall();
    });
  }
  start.arrive_and_wait();
  return kCalls / Seconds([&] { threads.clear(); });
}

void MeasureManyClients() {
  PrintHeading("Clients at once, null calls");
  for (const int clients : {1, 4, 16, 64}) {
    Comparison{std::to_string(clients) + " clients", "calls/s", "bare server", {}, 7}.Run(
        [&] { return CallRate(kOurs, clients); }, [&] { return CallRate(kBare, clients); });
  }
  const auto compare = [](const std::wstring& pipe, const std::string& name, auto goal) {
    Comparison{name, "calls/s", "4 clients", goal, 25}.Run([&] { return CallRate(pipe, 64); },
                                                           [&] { return CallRate(pipe, 4); });
  };
  compare(kOurs, "64 clients", std::optional(Goal{Goal::kAtLeast, 1.0}));
  compare(kBare, "64 of the bare server", std::optional<Goal>());
}

// Microseconds to connect, open the port and disconnect.
double VisitTime(const std::wstring& pipe) {
  constexpr int kVisits = 100;
  return 1e6 / kVisits * Seconds([&] {
           for (int visit = 0; visit < kVisits; ++visit)
             BlockingClient(pipe).OpenPort(kFilePort);
         });
}

void MeasureVisits() {
  PrintHeading("Connect, open the port, disconnect");
  Comparison{"visit", "us", "bare server"}.Run([&] { return VisitTime(kOurs); },
                                               [&] { return VisitTime(kBare); });
}

// Microseconds until so many bytes have gone through the loopback and come back.
double RemoteEcho(std::size_t size, int times) {
  BlockingClient client(kOurs);
  client.OpenPort(kLoopbackPort);
  const Bytes write = Vector(Bytes(size)), read = Integer(static_cast<std::uint32_t>(size));
  client.Call(tether::method::IoControl, LocalPort::WaitForAllOfARead());
  return 1e6 / times * Seconds([&] {
           for (int i = 0; i < times; ++i) {
             client.Send(tether::method::Read, read);
             client.Send(tether::method::Write, write);
             client.Receive();
             client.Receive();
           }
         });
}

double LocalEcho(std::size_t size, int times) {
  LocalPort local(kLoopbackPort);
  return 1e6 / times * Seconds([&] {
           for (int i = 0; i < times; ++i)
             local.Echo(size);
         });
}

void MeasureLoopback() {
  PrintHeading("There and back through a loopback device; the yardstick opens the device itself");
  Comparison{"64 bytes", "us", "local program"}.Run([&] { return RemoteEcho(kSmall, 200); },
                                                    [&] { return LocalEcho(kSmall, 200); });
  Comparison{"64 KiB", "us", "local program"}.Run([&] { return RemoteEcho(kLarge, 10); },
                                                  [&] { return LocalEcho(kLarge, 10); });
}

// KiB that each of many connected clients adds to the server.
double MemoryOfAClient(const Process& server, const std::wstring& pipe) {
  constexpr std::size_t kClients = 90;
  std::list<BlockingClient> clients;
  const auto connect = [&](std::size_t count) {
    for (; clients.size() < count;)
      clients.emplace_back(pipe).NullCall();
  };
  connect(20);  // the pool has its threads, the heap its first blocks
  const std::size_t before = server.PrivateBytes();
  connect(kClients);
  const std::size_t after = server.PrivateBytes();
  return static_cast<double>(after - std::min(before, after)) / 1024.0 / double(kClients - 20);
}

void MeasureMemory() {
  PrintHeading("Private memory of the server a connected client");
  std::vector<double> ours, bare;
  for (int round = 0; round < 5; ++round) {
    const Process server(L"tarnwheel-server", kServerArguments);
    ours.push_back(MemoryOfAClient(server, kOurs));
    const Process bare_server(L"bare-server", L"");
    bare.push_back(MemoryOfAClient(bare_server, kBare));
  }
  PrintRow("session", "KiB", ours, Goal{Goal::kAtMost, 40});
  PrintRow("  bare server", "KiB", bare);
}

double StartTime() {
  const double start = Now();
  const Process server(L"tarnwheel-server", kServerArguments);
  BlockingClient(kOurs).NullCall();
  return 1e3 * (Now() - start);
}

void MeasureStart() {
  PrintHeading("From the start of the process to its first answer");
  std::vector<double> ours, empty, more;
  for (int round = 0; round < 15; ++round) {
    ours.push_back(StartTime());
    empty.push_back(1e3 * Seconds([] { Process(L"empty-program", L"").WaitForEnd(); }));
    more.push_back(ours.back() - empty.back());
  }
  PrintRow("server", "ms", ours);
  PrintRow("  empty program, start to end", "ms", empty);
  PrintRow("  difference", "ms", more, Goal{Goal::kAtMost, 50});
}

struct Part {
  std::string_view name;
  void (*measure)();
};

constexpr Part kStarting[] = {{"start", &MeasureStart}, {"memory", &MeasureMemory}};
constexpr Part kServing[] = {{"calls", &MeasureCalls},
                             {"transfers", &MeasureTransfers},
                             {"clients", &MeasureManyClients},
                             {"visits", &MeasureVisits},
                             {"loopback", &MeasureLoopback}};

void Run(std::span<const Part> parts, const std::vector<std::string_view>& wanted) {
  for (const Part& part : parts) {
    if (wanted.empty() || std::ranges::find(wanted, part.name) != wanted.end())
      part.measure();
  }
}

void Main(const std::vector<std::string_view>& wanted) {
  Run(kStarting, wanted);  // these run servers of their own
  const Process server(L"tarnwheel-server", kServerArguments);
  const Process bare_server(L"bare-server", L"");
  Run(kServing, wanted);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  try {
    bench::Main({argv + 1, argv + argc});
    return 0;
  } catch (const ostra::hresult_error& error) {
    std::fprintf(stderr, "server-bench: error 0x%08lX\n", static_cast<unsigned long>(error.code()));
    return 1;
  }
}

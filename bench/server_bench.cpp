// The costs of the server. Each figure is compared with that of a bare server of the same protocol,
// or of the device used directly, measured in turn within one run.
//
// server-bench [PART ...]: runs the named parts, or all, of start, memory, calls, transfers,
// clients, visits and loopback.
#include <algorithm>
#include <barrier>
#include <cstdio>
#include <list>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "bench/measure.h"
#include "tests/support/raw_client.h"

namespace bench {
namespace {

using namespace system_test;  // the system tests' vocabulary

constexpr wchar_t kServerArguments[] = L"--nologo --no-discovery --no-screen-log";
constexpr wchar_t kBareServer[] = L"bare-server";

constexpr std::uint32_t kSmall = 64;
constexpr std::uint32_t kLarge = 64 * 1024;

// Answered without touching a device while no port is open.
const Bytes kNullCall = Request(1, kRead, U32(1));

void Exchange(RawClient& client, const Bytes& request) {
  client.Send(request);
  client.Receive();
}

// Retries until another client has released the port. Its device is a file, which costs next to
// nothing.
void OpenFilePort(RawClient& client) {
  std::uint32_t code = 0;
  do
    code = client.OpenPort(kFilePort);
  while (code == kPortInUse || code == kAccessDenied);
  Require(code == 0, "opening the port");
}

// Many short pairs, so that other load on the machine affects both sides alike.
constexpr int kManyRounds = 75;

// Microseconds per call.
double CallTime(const wchar_t* pipe, int calls, const Bytes& request) {
  RawClient client(pipe);
  if (request != kNullCall)
    OpenFilePort(client);
  Exchange(client, request);
  return 1e6 / calls * Seconds([&] {
           for (int call = 0; call < calls; ++call)
             Exchange(client, request);
         });
}

void CompareCalls(const std::string& name, int calls, const Bytes& request,
                  std::optional<Goal> goal) {
  const auto time = [&](const wchar_t* pipe) { return CallTime(pipe, calls, request); };
  Comparison{name, "us", "bare server", goal, kManyRounds}.Run([&] { return time(kPipeName); },
                                                               [&] { return time(kBarePipe); });
}

// Megabytes per second in calls of 64 KiB.
void CompareThroughput(const std::string& name, const Bytes& request) {
  const auto rate = [&](const wchar_t* pipe) { return kLarge / CallTime(pipe, 100, request); };
  Comparison{name, "MB/s", "bare server", Goal{Goal::kAtLeast, 0.9}, kManyRounds}.Run(
      [&] { return rate(kPipeName); }, [&] { return rate(kBarePipe); });
}

void MeasureCalls() {
  PrintHeading("One client, one call after another; the device is a file");
  CompareCalls("null call", 400, kNullCall, Goal{Goal::kAtMost, 1.15});
  CompareCalls("write of 64 bytes", 200, Request(1, kWrite, Vector(Bytes(kSmall, '\0'))), {});
  CompareCalls("read of 64 bytes", 200, Request(1, kRead, U32(kSmall)), {});
}

void MeasureTransfers() {
  PrintHeading("One client, 64 KiB a call; the device is a file");
  CompareThroughput("write of 64 KiB", Request(1, kWrite, Vector(Bytes(kLarge, '\0'))));
  CompareThroughput("read of 64 KiB", Request(1, kRead, U32(kLarge)));
}

// Calls per second of `clients` clients together.
double CallRate(const wchar_t* pipe, int clients) {
  constexpr int kCalls = 6'400;
  std::barrier start(clients + 1);
  std::list<std::jthread> threads;
  for (int i = 0; i < clients; ++i) {
    threads.emplace_back([&] {
      RawClient client(pipe);
      Exchange(client, kNullCall);
      start.arrive_and_wait();
      for (int call = 0; call < kCalls / clients; ++call)
        Exchange(client, kNullCall);
    });
  }
  start.arrive_and_wait();
  return kCalls / Seconds([&] { threads.clear(); });
}

void MeasureManyClients() {
  PrintHeading("Clients at once, null calls");
  for (const int clients : {1, 4, 16, 64}) {
    Comparison{std::to_string(clients) + " clients", "calls/s", "bare server", {}, 7}.Run(
        [&] { return CallRate(kPipeName, clients); }, [&] { return CallRate(kBarePipe, clients); });
  }
  const auto compare = [](const wchar_t* pipe, const std::string& name, auto goal) {
    Comparison{name, "calls/s", "4 clients", goal, 25}.Run([&] { return CallRate(pipe, 64); },
                                                           [&] { return CallRate(pipe, 4); });
  };
  compare(kPipeName, "64 clients", std::optional(Goal{Goal::kAtLeast, 1.0}));
  compare(kBarePipe, "64 of the bare server", std::optional<Goal>());
}

// Microseconds to connect, open the port and disconnect.
double VisitTime(const wchar_t* pipe) {
  constexpr int kTimes = 100;
  return 1e6 / kTimes * Seconds([&] {
           for (int visit = 0; visit < kTimes; ++visit) {
             RawClient client(pipe);
             OpenFilePort(client);
           }
         });
}

void MeasureVisits() {
  PrintHeading("Connect, open the port, disconnect");
  Comparison{"visit", "us", "bare server"}.Run([&] { return VisitTime(kPipeName); },
                                               [&] { return VisitTime(kBarePipe); });
}

// Microseconds until `size` bytes have gone through the loopback and come back.
double RemoteEcho(std::uint32_t size, int times) {
  RawClient client;
  Require(client.OpenPort(kLoopbackPort) == 0, "opening the loopback");
  client.MakeReadsWait();
  const Bytes requests =
      Request(1, kRead, U32(size)) + Request(2, kWrite, Vector(Bytes(size, '\0')));
  return 1e6 / times * Seconds([&] {
           for (int i = 0; i < times; ++i) {
             Exchange(client, requests);
             client.Receive();
           }
         });
}

// The same for a program that opens the device itself.
double LocalEcho(std::uint32_t size, int times) {
  const std::wstring path = LR"(\\.\COM)" + std::to_wstring(kLoopbackPort);
  const Tamrin::unique_file port(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0,
                                               nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED,
                                               nullptr));
  COMMTIMEOUTS wait_for_all = {};
  Require(::SetCommTimeouts(port.get(), &wait_for_all), "SetCommTimeouts");
  const Tamrin::unique_handle events[] = {
      Tamrin::unique_handle(::CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      Tamrin::unique_handle(::CreateEventW(nullptr, TRUE, FALSE, nullptr))};
  Bytes sent(size, '\0'), received(size, '\0');
  return 1e6 / times * Seconds([&] {
           for (int i = 0; i < times; ++i) {
             OVERLAPPED calls[2] = {};
             DWORD moved = 0;
             calls[0].hEvent = events[0].get();
             calls[1].hEvent = events[1].get();
             ::ReadFile(port.get(), received.data(), size, nullptr, &calls[0]);
             ::WriteFile(port.get(), sent.data(), size, nullptr, &calls[1]);
             for (OVERLAPPED& call : calls)
               Require(::GetOverlappedResult(port.get(), &call, &moved, TRUE), "an echo");
           }
         });
}

void MeasureLoopback() {
  PrintHeading("There and back through a loopback device; the yardstick opens the device itself");
  Comparison{"64 bytes", "us", "local program"}.Run([&] { return RemoteEcho(kSmall, 200); },
                                                    [&] { return LocalEcho(kSmall, 200); });
  Comparison{"64 KiB", "us", "local program"}.Run([&] { return RemoteEcho(kLarge, 10); },
                                                  [&] { return LocalEcho(kLarge, 10); });
}

// KiB that each of many connected clients adds to the server's memory.
double MemoryOfAClient(const Program& server, const wchar_t* pipe) {
  constexpr std::size_t kClients = 90;
  std::list<RawClient> clients;
  const auto connect = [&](std::size_t count) {
    for (; clients.size() < count;)
      Exchange(clients.emplace_back(pipe), kNullCall);
  };
  connect(20);  // by then the pool has its threads, the heap its first blocks
  const double before = MemoryInUse(server);
  connect(kClients);
  return std::max(0.0, MemoryInUse(server) - before) / 1024.0 / double(kClients - 20);
}

void MeasureMemory() {
  PrintHeading("The server's private memory per client");
  std::vector<double> ours, bare;
  for (int round = 0; round < 5; ++round) {
    const Program server(L"tarnwheel-server", kServerArguments);
    ours.push_back(MemoryOfAClient(server, kPipeName));
    const Program bare_server(kBareServer, L"");
    bare.push_back(MemoryOfAClient(bare_server, kBarePipe));
  }
  PrintRow("session", "KiB", ours, Goal{Goal::kAtMost, 40});
  PrintRow("  bare server", "KiB", bare);
}

double StartTime() {
  const double start = Now();
  const Program server(L"tarnwheel-server", kServerArguments);
  RawClient().Read(1);
  return 1e3 * (Now() - start);
}

void MeasureStart() {
  PrintHeading("From the start of the process to its first answer");
  std::vector<double> ours, empty, more;
  for (int round = 0; round < 15; ++round) {
    ours.push_back(StartTime());
    empty.push_back(1e3 * Seconds([] { Program(L"empty-program", L"").ExitCode(); }));
    more.push_back(ours.back() - empty.back());
  }
  PrintRow("server", "ms", ours);
  PrintRow("  empty program, start to end", "ms", empty);
  PrintRow("  difference", "ms", more, Goal{Goal::kAtMost, 50});
}

// Parts that make one call at a time run on one processor together with their servers: on two,
// every figure has two peaks, for the two ways of placing client and server.
struct Part {
  std::string_view name;
  void (*measure)();
  DWORD_PTR processors = 1;
};

constexpr DWORD_PTR kAllProcessors = ~DWORD_PTR{0};
constexpr Part kStarting[] = {{"start", &MeasureStart}, {"memory", &MeasureMemory}};
constexpr Part kServing[] = {{"calls", &MeasureCalls},
                             {"transfers", &MeasureTransfers},
                             {"clients", &MeasureManyClients, kAllProcessors},
                             {"visits", &MeasureVisits},
                             {"loopback", &MeasureLoopback}};

bool IsWanted(const Part& part, const std::vector<std::string_view>& wanted) {
  return wanted.empty() || std::ranges::find(wanted, part.name) != wanted.end();
}

void Main(const std::vector<std::string_view>& wanted) {
  for (const Part& part : kStarting) {  // these run servers of their own
    if (IsWanted(part, wanted))
      part.measure();
  }
  const Program server(L"tarnwheel-server", kServerArguments);
  const Program bare_server(kBareServer, L"");
  DWORD_PTR own = 0, all = 0;
  ::GetProcessAffinityMask(::GetCurrentProcess(), &own, &all);
  for (const Part& part : kServing) {
    if (!IsWanted(part, wanted))
      continue;
    ::SetProcessAffinityMask(::GetCurrentProcess(), part.processors & all);
    for (const Program* program : {&server, &bare_server})
      ::SetProcessAffinityMask(program->Process(), part.processors & all);
    part.measure();
  }
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) try {
  bench::Main({argv + 1, argv + argc});
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "server-bench: %s\n", error.what());
  return 1;
}

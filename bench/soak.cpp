// Has clients of every kind visit a server for a long time, and watches what the server holds.
//
// soak SECONDS [KIND ...]: prints a line a minute (at least ten in all); with all kinds of clients,
// or those that are named. Exit code 0: the server lives, every echo was right, and neither its
// handles nor its memory kept rising; what the system itself loses with each client is measured
// first, on a bare server, and left out.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>
#include <vector>

#include "async/errors.h"
#include "bench/bare_pipe.h"
#include "bench/blocking_client.h"
#include "bench/measure.h"
#include "bench/process.h"
#include "bench/trend.h"
#include "bench/visitors.h"

namespace bench {
namespace {

constexpr Ports kPorts = {.file = 6, .loopback = 5, .silent = 9};
constexpr int kVisitorsOfAKind = 3;
constexpr int kSamplesALine = 6;
constexpr double kHandleSlack = 50;                // threads of the pool come and go
constexpr double kByteSlack = 16.0 * 1024 * 1024;  // as do heaps
constexpr double kLossDoubt = 128;                 // bytes a client, of the system's loss
constexpr DWORD kPatience = 30'000;                // milliseconds, for the visitors to finish

// Bytes that a server which does nothing but the calls loses with each client, and that are the
// system's: about 200 in Wine, whose thread pool keeps a list of completions of every object for
// overlapped I/O. The median, since a thread that the pool adds takes a stack.
double LossOfTheSystem(int clients) {
  constexpr int kBatches = 7;
  const Process bare_server(L"bare-server", L"");
  std::vector<double> losses;
  auto before = static_cast<double>(bare_server.PrivateBytes());
  for (int batch = 0; batch < kBatches; ++batch) {
    for (int client = 0; client < clients; ++client)
      BlockingClient(kBarePipe).NullCall();
    const auto after = static_cast<double>(bare_server.PrivateBytes());
    losses.push_back(std::max(0.0, after - before) / clients);
    before = after;
  }
  return SpreadOf(losses).median;
}

class Soak {
 public:
  // `loss`: bytes that the system loses with each client.
  Soak(const std::vector<std::string_view>& wanted, double loss) : loss_(loss) {
    BlockingClient(tether::kServerPipe).NullCall();
    for (const Kind& kind : kAllKinds) {
      if (!wanted.empty() && std::ranges::find(wanted, kind.name) == wanted.end())
        continue;
      for (int visitor = 0; visitor < kVisitorsOfAKind; ++visitor)
        visitors_.emplace_back([this, &kind] { KeepVisiting(kind); });
    }
  }

  void Run(double seconds) {
    std::printf("%8s %10s %10s %8s %10s %10s %8s  errors\n", "seconds", "visits", "calls",
                "handles", "KiB", "own KiB", "threads");
    const double line = std::min(60.0, seconds / 10);
    const double start = Now();
    while (Now() - start < seconds && server_.Runs()) {
      for (int sample = 0; sample < kSamplesALine; ++sample) {
        ::Sleep(static_cast<DWORD>(1000 * line / kSamplesALine));
        handles_.push_back(static_cast<double>(server_.Handles()));
        bytes_.push_back(static_cast<double>(server_.PrivateBytes()));
        own_bytes_.push_back(bytes_.back() - SystemBytes());
      }
      PrintLine(Now() - start);
    }
  }

  // Says what is wrong; true when nothing is.
  bool Judge() {
    EndVisits();
    const bool failures[] = {
        Complain(!server_.Runs(), "the server has ended"),
        Complain(tally_.wrong_bytes() != 0, "bytes came back that had not been sent"),
        Complain(Rises(handles_, kHandleSlack), "the number of handles keeps rising"),
        Complain(Rises(own_bytes_, ByteSlack()), "the memory keeps rising")};
    return std::ranges::count(failures, true) == 0;
  }

 private:
  void KeepVisiting(const Kind& kind) {
    unsigned random = ++seeds_;
    while (!ending_) {
      random = random * 1103515245u + 12345u;
      tally_.Visit();
      try {
        kind.visit(tally_, kPorts, random >> 8);
      } catch (const ostra::hresult_error& error) {
        tally_.Error(error.code());
        ::Sleep(10);
      }
    }
    ++ended_;
  }

  // A visitor whose call is never answered would hold up the end for ever.
  void EndVisits() {
    ending_ = true;
    const ULONGLONG deadline = ::GetTickCount64() + kPatience;
    while (ended_ != visitors_.size() && ::GetTickCount64() < deadline)
      ::Sleep(10);
    if (ended_ == visitors_.size())
      return visitors_.clear();
    std::printf("FAILED: a call is not answered\n");
    std::fflush(stdout);
    std::_Exit(1);
  }

  [[nodiscard]] double ByteSlack() const {
    const double judged = static_cast<double>(tally_.visits()) / 2;  // those of the second half
    return std::max(kByteSlack, kLossDoubt * judged);
  }

  // A connection and a line each have an object for overlapped I/O.
  [[nodiscard]] double SystemBytes() const {
    return loss_ * static_cast<double>(tally_.visits() + tally_.lines());
  }

  void PrintLine(double seconds) {
    std::printf("%8.0f %10llu %10llu %8.0f %10.0f %10.0f %8zu  %s\n", seconds,
                static_cast<unsigned long long>(tally_.visits()),
                static_cast<unsigned long long>(tally_.calls()), handles_.back(),
                bytes_.back() / 1024, own_bytes_.back() / 1024, server_.Threads(),
                tally_.TakeErrors().c_str());
    std::fflush(stdout);
  }

  static bool Complain(bool failure, const char* text) {
    if (failure)
      std::printf("FAILED: %s\n", text);
    return failure;
  }

  const Process server_{L"tarnwheel-server", L"--nologo --no-discovery --no-screen-log"};
  Tally tally_;
  std::vector<double> handles_;
  std::vector<double> bytes_;
  std::vector<double> own_bytes_;  // without what the system has lost
  const double loss_;
  std::atomic<unsigned> seeds_ = 0;
  std::atomic<bool> ending_ = false;
  std::atomic<std::size_t> ended_ = 0;
  std::vector<std::jthread> visitors_;  // last: they use the others
};

int Main(double seconds, const std::vector<std::string_view>& wanted) {
  const double loss = LossOfTheSystem(static_cast<int>(std::min(2000.0, 20 * seconds)));
  std::printf("the system loses %.0f bytes a client, which own KiB leaves out\n", loss);
  Soak soak(wanted, loss);
  soak.Run(seconds);
  const bool passed = soak.Judge();
  std::printf("%s\n", passed ? "passed" : "FAILED");
  return passed ? 0 : 1;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::strtod(argv[1], nullptr) : 0;
  if (seconds <= 0) {
    std::fprintf(stderr, "Usage: soak SECONDS [KIND ...]\n");
    return 2;
  }
  try {
    return bench::Main(seconds, {argv + 2, argv + argc});
  } catch (const ostra::hresult_error& error) {
    std::fprintf(stderr, "soak: error 0x%08lX\n", static_cast<unsigned long>(error.code()));
    return 1;
  }
}

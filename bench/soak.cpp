// Has clients of every kind visit a server for a long time, and watches what the server holds.
//
// soak SECONDS [FILE_PORT LOOPBACK_PORT SILENT_PORT]: prints a line a minute (at least ten in all).
// Exit code 0: the server lives, every echo was right, and neither its handles nor its memory kept
// rising.
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
#include "bench/trend.h"
#include "bench/visitors.h"

namespace bench {
namespace {

constexpr int kVisitorsOfAKind = 3;
constexpr int kSamplesALine = 6;
constexpr double kHandleSlack = 50;                // threads of the pool come and go
constexpr double kByteSlack = 16.0 * 1024 * 1024;  // as do heaps
constexpr DWORD kPatience = 30'000;                // milliseconds, for the visitors to finish

class Soak {
 public:
  explicit Soak(const Ports& ports) : ports_(ports) {
    BlockingClient(tether::kServerPipe).NullCall();
    for (unsigned i = 0; i < kKinds * kVisitorsOfAKind; ++i)
      visitors_.emplace_back([this, i] { KeepVisiting(kAllKinds[i % kKinds], i); });
  }

  void Run(double seconds) {
    std::printf("%8s %10s %8s %10s %8s  errors\n", "seconds", "calls", "handles", "KiB", "threads");
    const double line = std::min(60.0, seconds / 10);
    const double start = Now();
    while (Now() - start < seconds && server_.Runs()) {
      for (int sample = 0; sample < kSamplesALine; ++sample) {
        ::Sleep(static_cast<DWORD>(1000 * line / kSamplesALine));
        handles_.push_back(static_cast<double>(server_.Handles()));
        bytes_.push_back(static_cast<double>(server_.PrivateBytes()));
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
        Complain(Rises(bytes_, kByteSlack), "the memory keeps rising")};
    return std::ranges::count(failures, true) == 0;
  }

 private:
  void KeepVisiting(const Kind& kind, unsigned seed) {
    unsigned random = seed + 1;
    while (!ending_) {
      random = random * 1103515245u + 12345u;
      try {
        kind.visit(tally_, ports_, random >> 8);
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

  void PrintLine(double seconds) {
    std::printf("%8.0f %10llu %8.0f %10.0f %8zu  %s\n", seconds,
                static_cast<unsigned long long>(tally_.calls()), handles_.back(),
                bytes_.back() / 1024, server_.Threads(), tally_.TakeErrors().c_str());
    std::fflush(stdout);
  }

  static bool Complain(bool failure, const char* text) {
    if (failure)
      std::printf("FAILED: %s\n", text);
    return failure;
  }

  const Ports ports_;
  const Process server_{L"tarnwheel-server", L"--nologo --no-discovery --no-screen-log"};
  Tally tally_;
  std::vector<double> handles_;
  std::vector<double> bytes_;
  std::atomic<bool> ending_ = false;
  std::atomic<std::size_t> ended_ = 0;
  std::vector<std::jthread> visitors_;  // last: they use the others
};

int Main(double seconds, const Ports& ports) {
  Soak soak(ports);
  soak.Run(seconds);
  const bool passed = soak.Judge();
  std::printf("%s\n", passed ? "passed" : "FAILED");
  return passed ? 0 : 1;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::strtod(argv[1], nullptr) : 0;
  const auto port = [&](int index, unsigned fallback) {
    return argc > index ? static_cast<std::uint32_t>(std::strtoul(argv[index], nullptr, 10))
                        : fallback;
  };
  if (seconds <= 0) {
    std::fprintf(stderr, "Usage: soak SECONDS [FILE_PORT LOOPBACK_PORT SILENT_PORT]\n");
    return 2;
  }
  try {
    return bench::Main(seconds, {port(2, 6), port(3, 5), port(4, 9)});
  } catch (const ostra::hresult_error& error) {
    std::fprintf(stderr, "soak: error 0x%08lX\n", static_cast<unsigned long>(error.code()));
    return 1;
  }
}

// Lets clients of every kind visit a server for a long time, and watches its handles and memory.
//
// soak SECONDS [KIND ...]: prints a line per minute (at least ten in all). Makes visits of all
// kinds, or of those whose names begin with a KIND. Exit code 0: the server still runs, every
// answer was right, and neither its handles nor its memory kept rising. The memory that the system
// itself loses with each client is measured first, on a bare server, and left out.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "bench/measure.h"
#include "tests/support/program.h"
#include "tests/support/visits.h"

namespace bench {
namespace {

using system_test::Program;
using system_test::RawClient;
using system_test::Visit;

constexpr int kVisitorsOfAKind = 2;
constexpr int kSamplesALine = 6;
constexpr double kHandleSlack = 50;                // threads of the pool come and go
constexpr double kByteSlack = 16.0 * 1024 * 1024;  // as do heaps
constexpr double kLossDoubt = 128;                 // bytes per client, for the system's loss
constexpr double kDeviations = 3;

// The bytes that the system loses with each client, measured on a server that only makes the calls:
// about 200 in Wine, whose thread pool keeps a list of completions for every overlapped I/O object.
// The median, since a thread that the pool adds takes a stack.
double LossOfTheSystem(int clients) {
  constexpr int kBatches = 7;
  const Program bare_server(L"bare-server", L"");
  std::vector<double> losses;
  double before = MemoryInUse(bare_server);
  for (int batch = 0; batch < kBatches; ++batch) {
    for (int client = 0; client < clients; ++client)
      RawClient(kBarePipe).Read(1);
    const double after = MemoryInUse(bare_server);
    losses.push_back(std::max(0.0, after - before) / clients);
    before = after;
  }
  return SpreadOf(losses).median;
}

// True when the line fitted through the second half of the samples rises by more than `slack` and
// by more than their noise.
bool Rises(const std::vector<double>& all, double slack) {
  const auto samples = std::span(all).subspan(all.size() / 2);
  const auto count = static_cast<double>(samples.size());
  const double middle = (count - 1) / 2;
  double sum = 0, products = 0, squares = 0, residues = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const double x = static_cast<double>(i) - middle;
    sum += samples[i];
    products += x * samples[i];
    squares += x * x;
  }
  const double slope = products / squares, mean = sum / count;
  for (std::size_t i = 0; i < samples.size(); ++i)
    residues += std::pow(samples[i] - mean - slope * (static_cast<double>(i) - middle), 2);
  const double rise = slope * (count - 1);
  return rise > slack && rise > kDeviations * std::sqrt(residues / count);
}

class Soak {
 public:
  // `loss`: bytes that the system loses with each client.
  Soak(std::span<char*> wanted, double loss) : loss_(loss) {
    RawClient().Read(1);
    for (const Visit& visit : system_test::kVisits) {
      if (!wanted.empty() && std::ranges::none_of(wanted, [&](std::string_view name) {
            return std::string_view(visit.name).starts_with(name);
          }))
        continue;
      for (int visitor = 0; visitor < kVisitorsOfAKind; ++visitor)
        visitors_.emplace_back([this, &visit] { KeepVisiting(visit); });
    }
    visitors_.emplace_back([this] { CompareEchoes(); });
  }

  void Run(double seconds) {
    std::printf("%8s %10s %8s %10s %10s\n", "seconds", "visits", "handles", "KiB", "own KiB");
    const double line = std::min(60.0, seconds / 10);
    const double start = Now();
    while (Now() - start < seconds && server_.Runs()) {
      double bytes = 0;
      for (int sample = 0; sample < kSamplesALine; ++sample) {
        ::Sleep(static_cast<DWORD>(1000 * line / kSamplesALine));
        handles_.push_back(static_cast<double>(server_.HandleCount()));
        bytes = MemoryInUse(server_);
        own_bytes_.push_back(bytes - loss_ * static_cast<double>(visits_));
      }
      std::printf("%8.0f %10d %8.0f %10.0f %10.0f\n", Now() - start, visits_.load(),
                  handles_.back(), bytes / 1024, own_bytes_.back() / 1024);
      std::fflush(stdout);
    }
  }

  // Prints what is wrong; true when nothing is.
  bool Judge() {
    ending_ = true;
    visitors_.clear();
    const double byte_slack = std::max(kByteSlack, kLossDoubt * visits_ / 2);  // their second half
    const bool failures[] = {
        Complain(!server_.Runs(), "the server has ended"),
        Complain(wrong_ != 0, "visits have not gone as they should"),
        Complain(Rises(handles_, kHandleSlack), "the number of handles keeps rising"),
        Complain(Rises(own_bytes_, byte_slack), "the memory keeps rising")};
    return std::ranges::count(failures, true) == 0;
  }

 private:
  void KeepVisiting(const Visit& visit) {
    std::uint32_t random = ++seeds_;
    while (!ending_) {
      random = random * 1103515245u + 12345u;
      ++visits_;
      try {
        RawClient client;
        visit.make(client, random >> 8);
      } catch (const std::exception& error) {
        std::printf("%s: %s\n", visit.name, error.what());
        ++wrong_;
      }
    }
  }

  // Uses one client throughout: under Wine a departure purges bytes that the next client has sent.
  void CompareEchoes() {
    try {
      RawClient client;
      system_test::Require(client.OpenPort(system_test::kLoopbackPort) == 0, "opening a port");
      client.MakeReadsWait();
      for (std::uint32_t round = 1; !ending_; ++round) {
        const std::uint32_t size = 1 + 977 * round % 5000;
        const auto sent = system_test::Pattern(size, round);
        client.Send(system_test::Request(1, system_test::kRead, system_test::U32(size)) +
                    system_test::Request(2, system_test::kWrite, system_test::Vector(sent)));
        for (int replies = 0; replies < 2; ++replies) {
          const auto reply = client.Receive();
          const auto expected = system_test::U32(0) + system_test::Vector(sent);
          system_test::Require(reply.call == 2 || reply.payload == expected, "comparing an echo");
        }
      }
    } catch (const std::exception& error) {
      std::printf("echoes: %s\n", error.what());
      ++wrong_;
    }
  }

  static bool Complain(bool failure, const char* text) {
    if (failure)
      std::printf("FAILED: %s\n", text);
    return failure;
  }

  const Program server_{L"tarnwheel-server", L"--nologo --no-discovery --no-screen-log"};
  std::vector<double> handles_;
  std::vector<double> own_bytes_;  // without the system's loss
  const double loss_;
  std::atomic<std::uint32_t> seeds_ = 0;
  std::atomic<int> visits_ = 0;
  std::atomic<int> wrong_ = 0;
  std::atomic<bool> ending_ = false;
  std::vector<std::jthread> visitors_;  // last: they use the members above
};

int Main(double seconds, std::span<char*> wanted) {
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

int main(int argc, char** argv) try {
  const double seconds = argc > 1 ? std::strtod(argv[1], nullptr) : 0;
  if (seconds > 0)
    return bench::Main(seconds, {argv + 2, argv + argc});
  std::fprintf(stderr, "Usage: soak SECONDS [KIND ...]\n");
  return 2;
} catch (const std::exception& error) {
  std::fprintf(stderr, "soak: %s\n", error.what());
  return 1;
}

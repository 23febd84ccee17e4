// Every call of Windows on the way of a request, and every allocation, fails in turn.
#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "platform/serial.h"
#include "server/test_ports.h"
#include "tests/faulty_server.h"
#include "tests/raw_client.h"
#include "tests/serial_ports.h"
#include "tests/server_process.h"

namespace system_test {
namespace {

// How long a session whose server was disturbed waits for an answer, which may rightly never come.
constexpr DWORD kShortPatience = 150;

struct Step {
  std::uint16_t method;
  Bytes arguments;
  Bytes reply;
};

// A whole session: lists, opens, sets the line, and sends something through the loopback.
std::vector<Step> Steps(const Bytes& list) {
  const Bytes text = ToBytes("abc");
  const auto control = [](std::uint32_t code, const Bytes& input) {
    return Step{kIoControl, ControlArguments(code, 0, input), Join({U32(0), U32(0)})};
  };
  return {{kEnumeratePorts, {}, list},
          {kOpenPort, U32(LoopbackPort()), U32(0)},
          control(IOCTL_SERIAL_SET_TIMEOUTS, ReadTimeouts(0, 0, kPatience)),
          control(IOCTL_SERIAL_PURGE, U32(SERIAL_PURGE_RXCLEAR)),
          {kWrite, Vector(text), U32(0)},
          {kRead, U32(3), Join({U32(0), Vector(text)})}};
}

std::string Narrow(const std::wstring& text) {
  return {text.begin(), text.end()};
}

class Faults : public ::testing::Test {
 protected:
  Faults() {
    EXPECT_EQ(bystander_.OpenPort(kFilePort), 0u);
    list_ = bystander_.Call(kEnumeratePorts, {});
    // Caches fill, and the pool gets its threads.
    for (int i = 0; i < 30; ++i)
      EXPECT_EQ(Session(), "");
    blocks_ = LeastBlocks();
    handles_ = server_.program().HandleCount();
    const RawClient idle;
    EXPECT_TRUE(Eventually([this] { return !NothingIsLeft(); }))
        << "no session can be told from none";
  }

  // Gives what went wrong, nothing when every answer was right.
  std::string Session(RawClient& client, DWORD patience = kPatience) {
    std::uint32_t call = 0;
    for (const Step& step : Steps(list_)) {
      if (!client.Request(++call, step.method, step.arguments))
        return "request " + std::to_string(call) + " cannot be sent";
      const auto reply = client.TryReceive(patience);
      if (!reply)
        return "request " + std::to_string(call) + " is not answered";
      if (*reply != Message{call, kClientCode, step.method, step.reply})
        return "the answer is " + ::testing::PrintToString(*reply);
    }
    return "";
  }

  std::string Session() {
    RawClient client;
    return Session(client);
  }

  // While calls fail; the client leaves with a read pending.
  std::string DisturbedSession() {
    RawClient client;
    const std::string trouble = Session(client, kShortPatience);
    client.Request(1000, kRead, U32(100));
    client.Disconnect();
    Eventually([this] { return NothingIsLeft(); }, kShortPatience);
    return trouble;
  }

  // Sessions that have ended may still be letting go.
  std::int64_t LeastBlocks() {
    std::int64_t least = server_.LiveBlocks();
    Eventually([&] { return (least = std::min(least, server_.LiveBlocks())) < 0; }, 200);
    return least;
  }

  [[nodiscard]] bool NothingIsLeft() const {
    return server_.LiveBlocks() <= blocks_ + kThreadBlocks;
  }

  void ExpectNothingLeft() {
    EXPECT_TRUE(Eventually([this] { return NothingIsLeft(); }))
        << server_.LiveBlocks() << " blocks, once there were " << blocks_;
  }

  void ExpectUnharmed() {
    EXPECT_TRUE(server_.program().Runs()) << Narrow(server_.program().Errors());
    EXPECT_EQ(bystander_.Read(1).code, 0u);
    ExpectNothingLeft();
    EXPECT_EQ(Session(), "");
    ExpectNothingLeft();
  }

  // Each occurrence of the call until a session has made it less often. The number of them.
  int FailAtEachOccurrence(std::size_t point) {
    for (int occurrence = 1;; ++occurrence) {
      SCOPED_TRACE("occurrence " + std::to_string(occurrence));
      server_.Fail(point, occurrence);
      const std::string trouble = DisturbedSession();
      if (!server_.Relent()) {
        EXPECT_EQ(trouble, "") << "without a fault";
        return occurrence - 1;
      }
      ExpectUnharmed();
      if (HasFailure())
        return occurrence;
    }
  }

  // What the runtime library keeps for the threads that the pool may have made meanwhile.
  static constexpr std::int64_t kThreadBlocks = 6;

  const tarnwheel::test::test_port listed_{L"COM207", L"A port that is listed"};
  FaultyServer server_;
  RawClient bystander_;
  Bytes list_;
  std::int64_t blocks_ = 0;
  std::size_t handles_ = 0;
};

TEST_F(Faults, CostNoMoreThanTheSessionTheyStrike) {
  const auto points = server_.FaultPoints();
  for (std::size_t point = 0; point < points.size() && !HasFailure(); ++point) {
    SCOPED_TRACE(points[point]);
    if (points[point] == "CloseHandle")
      continue;  // does not fail
    const int occurrences = FailAtEachOccurrence(point);
    std::cout << points[point] << ": " << occurrences << " calls failed, "
              << server_.LiveBlocks() - blocks_ << " blocks more, "
              << static_cast<int>(server_.program().HandleCount()) - static_cast<int>(handles_)
              << " handles more\n";
  }
  EXPECT_LE(server_.program().HandleCount(), handles_ + kPoolHandles);
  EXPECT_TRUE(SignalStopEvent());
  EXPECT_EQ(server_.program().ExitCode(), 0u) << Narrow(server_.program().Errors());
}

struct Visit {
  const char* name;
  void (*make)(RawClient& client);
};

constexpr Visit kVisits[] = {
    {"leaves at once", [](RawClient&) {}},
    {"leaves within a header", [](RawClient& client) { client.Send(ToBytes("12345")); }},
    {"leaves within a payload",
     [](RawClient& client) {
       client.Send(Join({U32(1), U32(kClientCode), U32(99), U32(1)}));
     }},
    {"sends what cannot be read",
     [](RawClient& client) {
       client.Request(1, kWrite, Join({U32(1000), U32(1)}));
     }},
    {"is refused", [](RawClient& client) { EXPECT_NE(client.OpenPort(kMissingPort), 0u); }},
    {"leaves a read pending",
     [](RawClient& client) {
       EXPECT_EQ(client.OpenPort(LoopbackPort()), 0u);
       client.ReadsWaitForEver();
       client.Request(1, kRead, U32(100));
     }},
    {"leaves its answers",
     [](RawClient& client) {
       for (std::uint32_t call = 1; call <= 5; ++call)
         client.Request(call, kEnumeratePorts, {});
     }},
};

TEST_F(Faults, VisitsLeaveNoBlockBehind) {
  constexpr int kTimes = 100;
  for (const Visit& visit : kVisits) {
    SCOPED_TRACE(visit.name);
    for (int time = 0; time < kTimes; ++time) {
      RawClient client;
      visit.make(client);
    }
    ExpectNothingLeft();
  }
}

}  // namespace
}  // namespace system_test

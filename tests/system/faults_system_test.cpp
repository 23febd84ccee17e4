// Every Windows call that serves a request, and every allocation, fails in turn.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/server_process.h"
#include "tests/support/test_port.h"
#include "tests/support/virtual_port.h"
#include "tests/support/visits.h"

namespace system_test {
namespace {

// How long a session waits for an answer once a call has failed, in milliseconds: the answer may
// rightly never come.
constexpr DWORD kShortPatience = 150;

// An idle server may hold this many more handles than one that has just started, for the threads of
// its pool, and this many more blocks, which the runtime library keeps for them. A leak is found by
// repeating its cause more often than that.
constexpr std::size_t kPoolHandles = 20;
constexpr std::int64_t kThreadBlocks = 6;

struct Step {
  std::uint16_t method;
  Bytes arguments;
  Bytes reply;
};

// A whole session: lists the ports, opens one, sets the line, and sends text through the loopback.
std::vector<Step> Steps(const Bytes& list) {
  const Bytes text = "abc";
  const auto control = [](std::uint32_t code, const Bytes& input) {
    return Step{kIoControl, ControlArguments(code, 0, input), Bytes(8, '\0')};
  };
  return {{kEnumeratePorts, {}, list},
          {kOpenPort, U32(kVirtualPort), U32(0)},
          control(IOCTL_SERIAL_SET_TIMEOUTS, U32(0) + U32(0) + U32(kPatience) + U32(0) + U32(0)),
          control(IOCTL_SERIAL_PURGE, U32(SERIAL_PURGE_RXCLEAR)),
          {kWrite, Vector(text), U32(0)},
          {kRead, U32(3), U32(0) + Vector(text)}};
}

class Faults : public ::testing::Test {
 protected:
  Faults() {
    port_.LoopBack();
    EXPECT_EQ(bystander_.OpenPort(kFilePort), 0u);
    list_ = bystander_.Call(kEnumeratePorts, {});
    // Fill the caches and start the pool's threads.
    for (int i = 0; i < 30; ++i)
      EXPECT_EQ(Session(), "");
    EXPECT_TRUE(port_.IsClosed());
    // Sessions that have ended may still be releasing memory.
    blocks_ = server_.faults.LiveBlocks();
    Eventually([&] { return (blocks_ = std::min(blocks_, server_.faults.LiveBlocks())) < 0; }, 200);
    handles_ = server_.HandleCount();
    const RawClient idle;
    EXPECT_TRUE(Eventually([this] { return !NothingIsLeft(); }))
        << "an idle session leaves no trace in the number of blocks";
  }

  // Returns the failure, "" if every answer was right. If `disturbed`, the server need not answer
  // once the call has failed, and the client leaves with a read pending.
  std::string Session(bool disturbed = false) {
    // Under Wine two sessions could hold the port, and the departure of the first would purge what
    // the second has sent.
    Require(port_.IsClosed(), "the closing of the port");
    RawClient client;
    std::uint32_t call = 0;
    std::string trouble;
    for (const Step& step : Steps(list_)) {
      std::optional<Message> reply;
      client.Send(Request(++call, step.method, step.arguments));
      Eventually([&] {
        reply = client.TryReceive(kShortPatience);
        return reply || (disturbed && server_.faults.HasStruck());
      });
      if (!reply || reply->call != call || reply->payload != step.reply) {
        trouble = "request " + std::to_string(call) + " has no answer or a wrong one";
        break;
      }
    }
    if (disturbed)
      client.Send(Request(1000, kRead, U32(100)));
    return trouble;
  }

  [[nodiscard]] bool NothingIsLeft() const {
    return server_.faults.LiveBlocks() <= blocks_ + kThreadBlocks;
  }

  // The server frees its last record of an ended session only when a later one begins, so further
  // sessions are started while waiting.
  void ExpectNothingLeft() {
    EXPECT_TRUE(Eventually([this] {
      if (!NothingIsLeft())
        RawClient();
      return Eventually([this] { return NothingIsLeft(); }, 50);
    })) << server_.faults.LiveBlocks()
        << " blocks, at the start " << blocks_;
  }

  void ExpectHandlesCameBack() {
    EXPECT_TRUE(Eventually([&] { return server_.HandleCount() <= handles_ + kPoolHandles; }))
        << server_.HandleCount() << " handles, at the start " << handles_;
  }

  // Makes each occurrence of the call fail in turn until a session makes fewer of them. Returns the
  // number of those that failed.
  int FailAtEachOccurrence(int point) {
    for (int occurrence = 1;; ++occurrence) {
      SCOPED_TRACE("occurrence " + std::to_string(occurrence));
      server_.faults.Fail(point, occurrence);
      const std::string trouble = Session(true);
      Eventually([this] { return NothingIsLeft(); }, kShortPatience);
      if (!server_.faults.Disarm()) {
        EXPECT_EQ(trouble, "") << "without a fault";
        return occurrence - 1;
      }
      Require(server_.Runs(), "the server");
      EXPECT_EQ(bystander_.Read(1).code, 0u);
      EXPECT_EQ(Session(), "");
      ExpectNothingLeft();
      if (HasFailure())
        return occurrence;
    }
  }

  const TestPort listed_{L"COM207", L"A port that is listed"};
  VirtualPort port_;
  const TemporaryFile log_;
  FaultyServer server_{L"--log-path \"" + log_.path + L'"'};
  RawClient bystander_;
  Bytes list_;
  std::int64_t blocks_ = 0;
  std::size_t handles_ = 0;
};

TEST_F(Faults, CostNoMoreThanTheSessionTheyStrike) {
  for (int point = 0; point <= kOperatorNew && !HasFailure(); ++point) {
    SCOPED_TRACE(kFaultPoints[point]);
    if (point == kCloseHandle)
      continue;  // can only block
    const int occurrences = FailAtEachOccurrence(point);
    EXPECT_GT(occurrences, 0);
    std::cout << kFaultPoints[point] << ": " << occurrences << " calls failed, "
              << server_.faults.LiveBlocks() - blocks_ << " blocks more\n";
  }
  ExpectHandlesCameBack();
}

// Makes each visit twice as often as leaked handles could hide among the pool's. Bursts of visits
// need more pool threads, which have blocks too and end after five idle seconds.
TEST_F(Faults, VisitsLeaveNothingBehind) {
  for (const Visit& visit : kVisits) {
    SCOPED_TRACE(visit.name);
    for (std::uint32_t time = 0; time < 2 * kPoolHandles; ++time) {
      RawClient client;
      visit.make(client, time * 2654435761u >> 8);
    }
  }
  ExpectNothingLeft();
  ExpectHandlesCameBack();
}

}  // namespace
}  // namespace system_test

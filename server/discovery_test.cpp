#include "server/discovery.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <mutex>

#include "log/log.h"
#include "rpc/discovery_datagram.h"
#include "rpc/mailslot.h"
#include "server/server.h"
#include "settings/directory.h"
#include "settings/file_storage.h"
#include "settings/server_parameters.h"
#include "tests/support/patience.h"
#include "tests/support/unit/testing.h"

namespace tarnwheel {
namespace {

using namespace std::chrono_literals;
using testing_support::code_of;
using bytes = std::vector<std::byte>;
using Lines = std::vector<std::wstring>;

constexpr auto kTaken = static_cast<HRESULT>(0x800700B7);
constexpr auto kMissing = static_cast<HRESULT>(0x80070002);

std::wstring computer_name() {
  wchar_t name[MAX_PATH];
  DWORD size = MAX_PATH;
  EXPECT_TRUE(::GetComputerNameExW(ComputerNameDnsHostname, name, &size));
  return {name, size};
}

std::shared_ptr<tether::Mailslot> make_mailslot(const wchar_t* name) {
  auto mailslot = std::make_shared<tether::Mailslot>();
  EXPECT_EQ(mailslot->Create(name, nullptr), S_OK);
  return mailslot;
}

// Keeps the lines that it is given, of every level.
class Recorder final : public logging::ILogger {
 public:
  bool initialize(std::wstring_view, bool, std::int32_t) override { return true; }
  void log(const std::wstring_view& message, std::int32_t) override {
    const std::lock_guard guard(lock_);
    lines_.emplace_back(message);
  }
  void log(std::wstring&& message, std::int32_t level) override {
    log(std::wstring_view(message), level);
  }
  void stop() override {}

  Lines Taken() {
    const std::lock_guard guard(lock_);
    return lines_;
  }

  // How many lines have `part` in them.
  std::ptrdiff_t Count(std::wstring_view part) {
    return std::ranges::count_if(
        Taken(), [&](const auto& line) { return line.find(part) != std::wstring::npos; });
  }

 private:
  std::mutex lock_;
  Lines lines_;
};

// A client on this machine.
class Discovery : public ::testing::Test {
 protected:
  void Start() { discovery_ = discover(true, cancellation_); }

  void Stop() {
    cancellation_.cancel();
    discovery_.get();
  }

  static HRESULT Query(const bytes& query) {
    const auto queries = std::make_shared<tether::Mailslot>();
    const HRESULT result = queries->Open(L".", tether::kQueryMailslot);
    if (SUCCEEDED(result))
      queries->Write(query).get();
    return result;
  }

  const bytes good_query_ = tether::make_datagram(computer_name());
  const ostra::cancellation_source cancellation_;
  ostra::future<void> discovery_;
  Recorder log_;
  const logging::process_logger published_{log_};
};

TEST_F(Discovery, TurnedOffCreatesNothing) {
  const auto off = discover(false, cancellation_);
  EXPECT_TRUE(off.is_complete());
  EXPECT_EQ(Query(good_query_), kMissing);
  EXPECT_EQ(log_.Taken(), Lines{L"Auto-discovery is turned off"});
}

TEST_F(Discovery, AnswersWithTheNameOfThisComputer) {
  const auto answers = make_mailslot(tether::kAnswerMailslot);
  Start();
  ASSERT_EQ(Query(good_query_), S_OK);
  EXPECT_EQ(answers->Read().get(), good_query_);  // the names are the same
  ASSERT_EQ(Query(tether::make_datagram(L".")), S_OK);
  EXPECT_EQ(answers->Read().get(), good_query_);
  Stop();
  EXPECT_EQ(log_.Taken(), (Lines{L"Starting auto-discovery", L"Auto-discovery has been started",
                                 L"Auto-discovery has been stopped"}));
}

TEST_F(Discovery, QueriesThatCannotBeAnsweredCostNothingElse) {
  Start();
  ASSERT_EQ(Query(good_query_), S_OK);  // nobody waits for the answer
  ASSERT_TRUE(
      system_test::Eventually([&] { return log_.Count(L"not answered: 0x80070002") == 1; }));
  const auto answers = make_mailslot(tether::kAnswerMailslot);
  bytes lying = good_query_;
  lying[3] = std::byte{0x80};
  bytes other_case = good_query_;
  other_case[4] ^= std::byte{0x20};  // goes by the network, which has no such computer
  const bytes bad_queries[] = {{},
                               bytes(3),
                               lying,
                               bytes(1024, std::byte{1}),
                               bytes(1025),
                               bytes(3000),
                               tether::make_datagram(LR"(.\mailslot)"),
                               other_case};
  for (const bytes& bad : bad_queries) {
    ASSERT_EQ(Query(bad), S_OK);
    ASSERT_EQ(Query(good_query_), S_OK);
    EXPECT_EQ(answers->Read().get(), good_query_);
  }
  // Those that are too long are not even read.
  EXPECT_EQ(log_.Count(L"not answered"), std::ssize(bad_queries) - 1);
  Stop();
}

TEST_F(Discovery, NameThatIsTakenFailsDiscoveryAndNotTheServer) {
  const auto taken = make_mailslot(tether::kQueryMailslot);
  EXPECT_EQ(code_of([&] { return discover(true, cancellation_).get(), 0; }), kTaken);

  const auto folder =
      std::make_shared<Tamrin::setman::file_storage>(std::make_shared<Tamrin::setman::directory>());
  ASSERT_EQ(Tamrin::setman::write_server_parameters(*folder, {L"D:(A;;GA;;;WD)", true, {}}), S_OK);
  const auto server = create_server(folder);
  const auto running = server->run();
  EXPECT_EQ(log_.Count(L"Error starting auto-discovery 0x800700b7"), 1);
  EXPECT_FALSE(running.is_complete());
  server->stop();
  running.get();
}

}  // namespace
}  // namespace tarnwheel

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
#include "tests/support/unit/testing.h"

namespace tarnwheel {
namespace {

using bytes = std::vector<std::byte>;

constexpr auto kMissing = static_cast<HRESULT>(0x80070002);

std::shared_ptr<tether::Mailslot> make_mailslot(const wchar_t* name) {
  auto mailslot = std::make_shared<tether::Mailslot>();
  EXPECT_EQ(mailslot->Create(name, nullptr), S_OK);
  return mailslot;
}

// Keeps the lines that it is given, of every level.
class Recorder final : public logging::ILogger {
 public:
  bool initialize(std::wstring_view, bool, std::int32_t) override { return true; }
  void log(const std::wstring_view&, std::int32_t) override {}
  void log(std::wstring&& message, std::int32_t) override {
    const std::lock_guard guard(lock_);
    lines_.push_back(std::move(message));
  }
  void stop() override {}

  // How many lines begin so.
  std::ptrdiff_t Count(std::wstring_view beginning) {
    const std::lock_guard guard(lock_);
    return std::ranges::count_if(lines_, [&](auto& line) { return line.starts_with(beginning); });
  }

 private:
  std::mutex lock_;
  std::vector<std::wstring> lines_;  // guarded by lock_
};

// A client on this machine.
class Discovery : public ::testing::Test {
 protected:
  static HRESULT Query(const bytes& query) {
    const auto queries = std::make_shared<tether::Mailslot>();
    const HRESULT result = queries->Open(L".", tether::kQueryMailslot);
    if (SUCCEEDED(result))
      queries->Write(query).get();
    return result;
  }

  const bytes good_query_ = tether::make_datagram(tether::computer_name());
  const ostra::cancellation_source cancellation_;
  Recorder log_;
  const logging::process_logger published_{log_};
};

TEST_F(Discovery, TurnedOffCreatesNothing) {
  EXPECT_TRUE(discover(false, cancellation_).is_complete());
  EXPECT_EQ(Query(good_query_), kMissing);
  EXPECT_EQ(log_.Count(L"Auto-discovery is turned off"), 1);
}

TEST_F(Discovery, AnswersWithTheNameOfThisComputerAndNotWhatItMustNot) {
  const auto running = discover(true, cancellation_);
  ASSERT_EQ(Query(good_query_), S_OK);  // nobody waits for the answer
  ASSERT_TRUE(testing_support::eventually(
      [&] { return log_.Count(L"Auto-discovery query is not answered: 0x80070002") == 1; }));
  const auto answers = make_mailslot(tether::kAnswerMailslot);
  bytes lying = good_query_, other_case = good_query_;
  lying[3] = std::byte{0x80};
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
    ASSERT_EQ(Query(tether::make_datagram(L".")), S_OK);
    EXPECT_EQ(answers->Read().get(), good_query_);  // the name is the same
  }
  // Those that are too long are not even read.
  EXPECT_EQ(log_.Count(L"Auto-discovery query is not answered"), std::ssize(bad_queries) - 1);
  EXPECT_EQ(log_.Count(L"Error reading"), 0);
  cancellation_.cancel();
  running.get();
  for (const wchar_t* line : {L"Starting auto-discovery", L"Auto-discovery has been started",
                              L"Auto-discovery has been stopped"})
    EXPECT_EQ(log_.Count(line), 1) << line;
}

TEST_F(Discovery, NameThatIsTakenFailsDiscoveryAndNotTheServer) {
  const auto taken = make_mailslot(tether::kQueryMailslot);
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

#include "server/discovery.h"

#include <gtest/gtest.h>

#include <memory>
#include <mutex>

#include "log/log.h"
#include "rpc/discovery_datagram.h"
#include "rpc/mailslot.h"
#include "server/server.h"
#include "settings/directory.h"
#include "settings/file_storage.h"

namespace tarnwheel {
namespace {

using bytes = std::vector<std::byte>;

std::shared_ptr<tether::Mailslot> make_mailslot(const wchar_t* name) {
  auto mailslot = std::make_shared<tether::Mailslot>();
  EXPECT_EQ(mailslot->Create(name, nullptr), S_OK);
  return mailslot;
}

HRESULT query(const bytes& query) {
  const auto queries = std::make_shared<tether::Mailslot>();
  const HRESULT result = queries->Open(L".", tether::kQueryMailslot);
  if (SUCCEEDED(result))
    queries->Write(query).get();
  return result;
}

// Records the lines logged at all levels, each up to its first colon.
class Discovery : public testing::Test, logging::ILogger {
 protected:
  bool initialize(std::wstring_view, bool, std::int32_t) override { return true; }
  void log(const std::wstring_view&, std::int32_t) override {}
  void log(std::wstring&& message, std::int32_t) override {
    const std::lock_guard guard(lock_);
    logged_ += message.substr(0, message.find(L':')) + L"\n";
  }
  void stop() override {}

  const ostra::cancellation_source cancellation_;
  std::wstring logged_;  // guarded by lock_ while something runs

 private:
  std::mutex lock_;
  const logging::process_logger published_{*this};
};

TEST_F(Discovery, TurnedOffCreatesNothing) {
  EXPECT_TRUE(discover(false, cancellation_).is_complete());
  EXPECT_EQ(query({}), static_cast<HRESULT>(0x80070002));
}

TEST_F(Discovery, AnswersGoodQueriesOnly) {
  const bytes good_query = tether::make_datagram(tether::computer_name());
  const auto answers = make_mailslot(tether::kAnswerMailslot);
  const auto running = discover(true, cancellation_);
  bytes lying = good_query, other_case = good_query;
  lying[3] = std::byte{0x80};
  other_case[4] ^= std::byte{0x20};  // sought on the network, which has no such computer
  std::wstring expected = L"Starting auto-discovery\nAuto-discovery has been started\n";
  for (const bytes& bad : {bytes(), bytes(3), lying, bytes(1024, std::byte{1}), bytes(1025),
                           bytes(3000), tether::make_datagram(LR"(.\mailslot)"), other_case}) {
    ASSERT_EQ(query(bad), S_OK);
    ASSERT_EQ(query(tether::make_datagram(L".")), S_OK);
    EXPECT_EQ(answers->Read().get(), good_query);  // the name is the same
    if (bad.size() <= 1024)                        // longer ones are not even read
      expected += L"Auto-discovery query is not answered\n";
  }
  cancellation_.cancel();
  running.get();
  EXPECT_EQ(logged_, expected + L"Auto-discovery has been stopped\n");
}

TEST_F(Discovery, NameThatIsTakenFailsDiscoveryAndNotTheServer) {
  const auto taken = make_mailslot(tether::kQueryMailslot);
  const auto server = create_server(std::make_shared<Tamrin::setman::file_storage>(
      std::make_shared<Tamrin::setman::directory>()));
  const auto running = server->run();
  EXPECT_FALSE(running.is_complete());
  server->stop();
  running.get();
  EXPECT_NE(logged_.find(L"Error starting auto-discovery 0x800700b7\n"), std::wstring::npos);
}

}  // namespace
}  // namespace tarnwheel

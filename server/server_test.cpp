#include "server/server.h"

#include <gtest/gtest.h>

#include <thread>

#include "log/log.h"
#include "platform/unique_resource.h"
#include "server/test_support.h"

namespace tarnwheel {
namespace {

Tamrin::unique_file connect() {
  return Tamrin::unique_file(
      ::CreateFileW(LR"(\\.\pipe\kelvarine_{5C3E1A70-8B24-4D19-9F6E-2A7B4C8D1E03}_v1.01)",
                    GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
}

class ServerRun : public ::testing::Test {
 protected:
  test::Recorder log_;
  logging::process_logger published_{log_};
};

TEST_F(ServerRun, BurstsOfClientsAreServedAndLeaveWithTheStop) {
  const auto server = test::make_server(false);
  const auto running = server->run();
  for (int i = 0; i < 300; ++i)
    connect();  // comes and goes
  std::vector<Tamrin::unique_file> clients(60);
  for (auto& client : clients) {
    while (!(client = connect()))
      ::Sleep(1);
  }
  std::ptrdiff_t connected = 0;
  while ((connected = log_.Count(L"Client connected")) != log_.Count(L" disconnected") + 60)
    ::Sleep(1);
  // Up to four find an instance each without having to try again.
  std::vector<std::thread> burst;
  for (int i = 0; i < 4; ++i)
    burst.emplace_back([] { EXPECT_TRUE(connect()); });
  for (auto& thread : burst)
    thread.join();
  ASSERT_TRUE(log_.Eventually(L"Client connected", connected + 4));
  server->stop();
  server->stop();
  running.get();
  EXPECT_EQ(log_.Count(L"Client Unknown disconnected"), log_.Count(L"Client connected"));
  EXPECT_EQ(log_.Count(L"Error"), 0);
  EXPECT_FALSE(connect());
}

}  // namespace
}  // namespace tarnwheel

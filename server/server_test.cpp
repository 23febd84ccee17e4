#include "server/server.h"

#include <gtest/gtest.h>

#include <thread>

#include "async/errors.h"
#include "async/test_support.h"
#include "log/log.h"
#include "platform/unique_resource.h"
#include "server/test_support.h"

namespace tarnwheel {
namespace {

using ostra::test::code_of;

constexpr wchar_t kPipe[] = LR"(\\.\pipe\kelvarine_{5C3E1A70-8B24-4D19-9F6E-2A7B4C8D1E03}_v1.01)";

Tamrin::unique_file connect() {
  return Tamrin::unique_file(
      ::CreateFileW(kPipe, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
}

class ServerRun : public ::testing::Test {
 protected:
  static std::unique_ptr<server> Create(std::wstring sddl = L"D:(A;;GA;;;WD)") {
    return test::make_server(false, std::move(sddl));
  }

  test::Recorder log_;
  logging::process_logger published_{log_};
};

TEST_F(ServerRun, BurstsOfClientsAreServedAndLeaveWithTheStop) {
  const auto server = Create();
  const auto running = server->run();
  std::vector<Tamrin::unique_file> clients;
  while (clients.size() < 60) {
    // Up to four find an instance each without having to try again.
    std::vector<std::thread> burst;
    std::vector<Tamrin::unique_file> connected(4);
    for (auto& client : connected)
      burst.emplace_back([&client] { client = connect(); });
    for (auto& thread : burst)
      thread.join();
    for (auto& client : connected) {
      EXPECT_TRUE(client);
      clients.push_back(std::move(client));
    }
    ASSERT_TRUE(log_.Eventually(L"Client connected", static_cast<std::ptrdiff_t>(clients.size())));
  }
  server->stop();
  server->stop();
  running.get();
  EXPECT_EQ(log_.Count(L"Client Unknown disconnected"), 60);
  EXPECT_FALSE(connect());
}

TEST_F(ServerRun, ClientsThatComeAndGoDoNotEndTheListening) {
  const auto server = Create();
  const auto running = server->run();
  for (int i = 0; i < 500; ++i)
    connect();
  Tamrin::unique_file last;
  for (int i = 0; i < 1000 && !last; ++i) {
    last = connect();
    if (!last)
      ::Sleep(1);
  }
  EXPECT_TRUE(last);
  server->stop();
  running.get();
  EXPECT_EQ(log_.Count(L"Client connected"), log_.Count(L"disconnected"));
  EXPECT_EQ(log_.Count(L"Error"), 0);
}

TEST_F(ServerRun, FailedStartIsThrownAndLeavesNothingBehind) {
  EXPECT_EQ(code_of([] { static_cast<void>(Create(L"no descriptor")->run()); }),
            ostra::details::to_hresult(ERROR_INVALID_PARAMETER));
  {
    // Has all its instances; Wine does not mind that a pipe's first instance is somebody else's.
    const Tamrin::unique_file taken(
        ::CreateNamedPipeW(kPipe, PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 512, 512, 0, nullptr));
    EXPECT_NE(code_of([] { static_cast<void>(Create()->run()); }), S_OK);
    EXPECT_EQ(log_.Count(L"another program has made it"), 1);
  }
  const auto server = Create();
  const auto running = server->run();
  EXPECT_TRUE(connect());
  server->stop();
  running.get();
}

TEST_F(ServerRun, OnlyOneServerExistsAndAnybodyMayStopIt) {
  const auto server = Create();
  EXPECT_EQ(code_of([] { static_cast<void>(Create()); }),
            ostra::details::to_hresult(ERROR_ALREADY_EXISTS));
  const auto running = server->run();
  constexpr wchar_t kStop[] = LR"(Global\kelvarine_{E7093B5D-2C4F-4A61-B8E2-9D05F3A7C614}_v1.01)";
  const Tamrin::unique_handle stop(::OpenEventW(EVENT_MODIFY_STATE, FALSE, kStop));
  ASSERT_TRUE(stop);
  EXPECT_FALSE(running.is_complete());
  ::SetEvent(stop.get());
  running.get();
}

}  // namespace
}  // namespace tarnwheel

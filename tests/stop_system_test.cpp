// The ways in which a server is stopped.
#include <gtest/gtest.h>

#include "tests/raw_client.h"
#include "tests/serial_ports.h"
#include "tests/server_process.h"

#include <aclapi.h>  // both need <windows.h> before them
#include <sddl.h>

namespace system_test {
namespace {

constexpr DWORD kQueryState = 0x0001;  // an access right of events without a name in <windows.h>
constexpr wchar_t kStopRequested[] = L"Stop event received, stopping server...";

// The last lines of the log, in their order.
void ExpectOrderlyEnd(const ServerProcess& server) {
  const auto log = server.Log();
  ASSERT_GE(log.size(), 2u);
  EXPECT_EQ(log[log.size() - 2].message, kStopped);
  EXPECT_EQ(log.back(), (LogLine{L"=====", L"=====", L"====="}));
}

std::wstring AccessListOf(HANDLE object) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  Require(::GetSecurityInfo(object, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                            nullptr, nullptr, &descriptor) == ERROR_SUCCESS,
          "GetSecurityInfo");
  const Tamrin::unique_local_memory owned(descriptor);
  wchar_t* text = nullptr;
  Require(::ConvertSecurityDescriptorToStringSecurityDescriptorW(
              descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr),
          "ConvertSecurityDescriptorToStringSecurityDescriptorW");
  const Tamrin::unique_local_memory owned_text(text);
  return text;
}

class ConsoleEvent : public ::testing::TestWithParam<DWORD> {
 protected:
  // The server takes console events only after it has said that it serves; a client's round trip
  // is longer than what it does in between.
  ConsoleEvent() { EXPECT_NE(client_.OpenPort(kMissingPort), 0u); }

  ServerProcess server_;
  RawClient client_;
};

TEST_P(ConsoleEvent, StopsTheServer) {
  server_.program().SendConsoleEvent(GetParam());
  EXPECT_EQ(server_.program().ExitCode(), 0u);
  EXPECT_EQ(server_.Count(L"DEBUG", kStopRequested), 1u);
  EXPECT_EQ(server_.Count(L"INFO", L" disconnected"), 1u);
  ExpectOrderlyEnd(server_);
}

TEST_P(ConsoleEvent, IsHarmlessWhileStopping) {
  server_.program().SendConsoleEvent(GetParam(), 5);
  EXPECT_EQ(server_.program().ExitCode(), 0u);
  EXPECT_GE(server_.Count(L"DEBUG", kStopRequested), 1u);
  ExpectOrderlyEnd(server_);
}

std::string EventName(const ::testing::TestParamInfo<DWORD>& event) {
  const char* const names[] = {"CtrlC", "CtrlBreak", "Close"};
  return names[event.param];
}

INSTANTIATE_TEST_SUITE_P(Kinds, ConsoleEvent,
                         ::testing::Values(CTRL_C_EVENT, CTRL_BREAK_EVENT, CTRL_CLOSE_EVENT),
                         EventName);

TEST(StopEvent, StopsTheServerWithoutTheConsolesLine) {
  ServerProcess server;
  RawClient client;
  EXPECT_NE(client.OpenPort(kMissingPort), 0u);
  server.Stop();
  EXPECT_EQ(server.Count(L"DEBUG", kStopRequested), 0u);
  EXPECT_TRUE(client.ServerHangsUp());
  ExpectOrderlyEnd(server);
}

// Wine grants SYNCHRONIZE to everybody and every right but those of the event itself to the owner,
// so the rights that are stored are looked at as well.
TEST(StopEvent, GrantsToSignalAndNothingElse) {
  ServerProcess server;
  for (const DWORD refused : {kQueryState, DWORD{EVENT_ALL_ACCESS}}) {
    const Tamrin::unique_handle event(::OpenEventW(refused, FALSE, kStopEvent));
    EXPECT_EQ(::GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_FALSE(static_cast<bool>(event)) << refused;
  }
  const Tamrin::unique_handle event(::OpenEventW(READ_CONTROL, FALSE, kStopEvent));
  ASSERT_TRUE(static_cast<bool>(event)) << "the owner may read the rights";
  EXPECT_EQ(AccessListOf(event.get()), L"D:(A;;DC;;;WD)");
}

TEST(StopEvent, GoesWithTheServer) {
  { ServerProcess server; }
  EXPECT_FALSE(SignalStopEvent());
}

}  // namespace
}  // namespace system_test

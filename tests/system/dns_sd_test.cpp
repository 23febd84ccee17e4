// The server and the client, with the stand-in for Windows' DNS-SD.
#include <gtest/gtest.h>

#include "tests/support/dnsapi/dns_board.h"
#include "tests/support/server_process.h"

namespace system_test {
namespace {

class DnsSd : public ::testing::Test {
 protected:
  DnsSd() {
    DWORD size = 256;
    Require(::GetComputerNameExW(ComputerNameDnsHostname, host_, &size), "GetComputerNameExW");
    board_->delay = 0;
  }

  // True if the client finds `name` alone, and prints no note about mailslots.
  static bool Finds(const std::wstring& name) {
    const CompletedRun client(L"tarnwheel-client", L"discover --timeout 2000");
    return client.exit_code == 0 && client.errors.empty() && client.output == name + L"\n";
  }

  wchar_t host_[256] = {};
  const Tamrin::unique_handle section_{::CreateFileMappingW(
      INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(DnsBoard), kDnsBoardName)};
  DnsBoard* const board_ = static_cast<DnsBoard*>(
      ::MapViewOfFile(section_.get(), FILE_MAP_WRITE, 0, 0, sizeof(DnsBoard)));
};

TEST_F(DnsSd, ServerIsAnnouncedWhileItRunsAndFoundOnce) {
  const ServerProcess server(L"--no-discovery-");
  EXPECT_TRUE(server.Logs(L"The server is announced as "));
  const std::wstring host = host_;
  EXPECT_EQ(board_->instance, host + L"._tarnwheel._tcp.local " + host +
                                  L".local 445 version=1.01 "
                                  L"pipe=kelvarine_{5C3E1A70-8B24-4D19-9F6E-2A7B4C8D1E03}_v1.01");
  EXPECT_TRUE(Finds(host));  // once, although it also answers the query
  server.Stop();
  EXPECT_FALSE(board_->is_announced);
  EXPECT_EQ(board_->unfreed, 0);
}

TEST_F(DnsSd, OthersAreFoundUnlessTheirNamesAreNoComputers) {
  const wchar_t* const instances[] = {L"Zoo._tarnwheel._tcp.local", L"zoo._TARNWHEEL._tcp.local",
                                      L"a/b._tarnwheel._tcp.local", L"a.b._tarnwheel._tcp.local",
                                      L"Zoo._ipp._tcp.local",       L"._tarnwheel._tcp.local"};
  for (std::size_t i = 0; i < std::size(instances); ++i)
    std::wcscpy(board_->others[i], instances[i]);
  EXPECT_TRUE(Finds(L"Zoo"));
}

TEST_F(DnsSd, RefusalIsOneWarningAndMailslotsGoOn) {
  board_->refusal = ERROR_ACCESS_DENIED;
  const ServerProcess server(L"--no-discovery-");
  EXPECT_TRUE(server.Logs(L"\tWARNING\tThe server cannot be announced by DNS-SD: 0x80070005"));
  EXPECT_TRUE(Finds(host_));
  EXPECT_EQ(server.Count(L"\tWARNING\t"), 1);
}

TEST_F(DnsSd, CallbacksThatComeLateHurtNobody) {
  std::wcscpy(board_->others[0], L"Zoo._tarnwheel._tcp.local");
  for (board_->delay = 0; board_->delay < 2; ++board_->delay)
    EXPECT_TRUE(Finds(L"Zoo"));  // a callback comes while the client exits
  board_->delay = 100;
  { const ServerProcess cancelled(L"--no-discovery-"); }
  EXPECT_EQ(board_->unfreed, 0);
  const ServerProcess server(L"--no-discovery-");
  EXPECT_TRUE(server.Logs(L"The server is announced as "));
  board_->delay = INFINITE;  // the server waits for the withdrawal only up to its limit
}

}  // namespace
}  // namespace system_test

// Server and client with the stand-in for Windows' DNS-SD.
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

  // How often a client's output has this name; it must find something.
  static int Finds(const std::wstring& name) {
    const CompletedRun client(L"tarnwheel-client", L"discover --timeout 2000");
    EXPECT_EQ(client.exit_code, 0u);
    EXPECT_EQ(client.errors, L"");
    const std::wstring line = L"\n" + name + L"\n", lines = L"\n" + client.output;
    int count = 0;
    for (auto at = lines.find(line); at != std::wstring::npos; at = lines.find(line, at + 1))
      ++count;
    return count;
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
  EXPECT_EQ(Finds(host), 1);  // it answers the query as well
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
  const CompletedRun client(L"tarnwheel-client", L"discover --timeout 2000");
  EXPECT_EQ(client.exit_code, 0u);
  EXPECT_EQ(client.output, L"Zoo\n");
  EXPECT_EQ(client.errors, L"");  // no note about mailslots when there is something
}

TEST_F(DnsSd, RefusalIsOneWarningAndMailslotsGoOn) {
  board_->refusal = ERROR_ACCESS_DENIED;
  const ServerProcess server(L"--no-discovery-");
  EXPECT_TRUE(server.Logs(L"\tWARNING\tThe server cannot be announced by DNS-SD: 0x80070005"));
  EXPECT_EQ(Finds(host_), 1);
  EXPECT_EQ(server.Count(L"\tWARNING\t"), 1);
}

TEST_F(DnsSd, CallbacksThatComeLateHurtNobody) {
  std::wcscpy(board_->others[0], L"Zoo._tarnwheel._tcp.local");
  EXPECT_EQ(Finds(L"Zoo"), 1);  // a callback comes as the client leaves
  board_->delay = 1;
  EXPECT_EQ(Finds(L"Zoo"), 1);
  board_->delay = 100;
  { const ServerProcess cancelled(L"--no-discovery-"); }
  EXPECT_EQ(board_->unfreed, 0);
  const ServerProcess server(L"--no-discovery-");
  EXPECT_TRUE(server.Logs(L"The server is announced as "));
  board_->delay = INFINITE;  // the withdrawal is waited for no longer than its limit
}

}  // namespace
}  // namespace system_test

#include "rpc/pipe_transport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "rpc/test_support.h"

namespace tether {
namespace {

using test::code_of;
using test::listening_pipe;
using test::make_message;
using test::raw_client;

constexpr auto kAborted = static_cast<HRESULT>(0x800703E3);
constexpr auto kBroken = static_cast<HRESULT>(0x8007006D);

std::vector<std::byte> pattern(std::size_t size) {
  std::vector<std::byte> bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<std::byte>(i * 7 + i / 251);
  return bytes;
}

bool equal(std::span<const std::byte> a, std::span<const std::byte> b) {
  return std::ranges::equal(a, b);
}

TEST(PipeTransport, MessagesOfEverySizeArriveWhole) {
  const listening_pipe server;
  const auto client = PipeTransport::Create();
  ASSERT_EQ(client->Connect(L".", server.name, 1000, 1), S_OK);
  server.transport->WaitClient(false, nullptr).get();
  for (const std::size_t size : {0u, 1u, 65523u, 65524u, 65525u, 131060u, 200000u, 5'000'000u}) {
    const auto payload = pattern(size);
    const auto written = client->WriteMessage(make_message({9, 8, 7, 0}, payload));
    const auto message = server.transport->ReadMessage().get();
    written.get();
    EXPECT_EQ(message->header().call, 9u);
    EXPECT_EQ(message->header().length, size);
    EXPECT_TRUE(equal(message->payload(), payload)) << size;
  }
}

TEST(PipeTransport, ClientMayConnectBeforeTheWaitOrDuringIt) {
  const listening_pipe early;
  raw_client first(early.name);
  bool called = false;
  EXPECT_EQ(early.transport->WaitClient(false, [&] { called = true; }).get(), 0u);
  EXPECT_FALSE(called);

  const listening_pipe late;
  const auto waiting = late.transport->WaitClient(false, [&] { called = true; });
  EXPECT_TRUE(called);
  EXPECT_FALSE(waiting.is_complete());
  const raw_client second(late.name);
  EXPECT_EQ(waiting.get(), 0u);
}

TEST(PipeTransport, ClientThatCameAndWentFailsTheWait) {
  const listening_pipe server;
  raw_client(server.name).disconnect();
  EXPECT_EQ(code_of([&] { server.transport->WaitClient(false, nullptr).get(); }),
            ostra::details::to_hresult(ERROR_NO_DATA));
}

TEST(PipeTransport, MessageCutAtAnyByteFailsTheRead) {
  const auto whole = make_message({1, 2, 3, 0}, pattern(10));
  for (std::size_t cut = 0; cut < whole->bytes().size(); ++cut) {
    const listening_pipe server;
    raw_client client(server.name);
    server.transport->WaitClient(false, nullptr).get();
    const auto read = server.transport->ReadMessage();
    if (cut != 0)
      client.write(whole->bytes().first(cut));
    client.disconnect();
    ASSERT_EQ(code_of([&] { read.get(); }), kBroken) << cut;
  }
}

TEST(PipeTransport, CancelEndsWhatIsPendingAndRefusesWhatComes) {
  const listening_pipe waiting;
  const auto wait = waiting.transport->WaitClient(false, nullptr);
  waiting.transport->Cancel();
  EXPECT_EQ(code_of([&] { wait.get(); }), kAborted);
  EXPECT_THROW(waiting.transport->WaitClient(false, nullptr).get(), ostra::operation_cancelled);

  const listening_pipe connected;
  const raw_client client(connected.name);
  connected.transport->WaitClient(false, nullptr).get();
  const auto read = connected.transport->ReadMessage();
  // More than the pipe's buffers take: it stays pending, since the client does not read.
  const auto write = connected.transport->WriteMessage(make_message({}, pattern(16'000'000)));
  EXPECT_FALSE(write.is_complete());
  connected.transport->Cancel();
  EXPECT_EQ(code_of([&] { read.get(); }), kAborted);
  const HRESULT write_code = code_of([&] { write.get(); });
  EXPECT_TRUE(write_code == kAborted || write_code == static_cast<HRESULT>(0x800704C7));
}

TEST(PipeTransport, CancellationOfTheOwnerReachesLinkedTransports) {
  const ostra::cancellation_source owner;
  const listening_pipe before;
  before.transport->LinkCancellation(owner);
  const auto wait = before.transport->WaitClient(false, nullptr);
  owner.cancel();
  EXPECT_EQ(code_of([&] { wait.get(); }), kAborted);

  const listening_pipe after;
  after.transport->LinkCancellation(owner);
  EXPECT_THROW(after.transport->WaitClient(false, nullptr).get(), ostra::operation_cancelled);
}

TEST(PipeTransport, OperationsWithoutAPipeFail) {
  const auto transport = PipeTransport::Create();
  EXPECT_EQ(code_of([&] { transport->ReadMessage().get(); }), E_FAIL);
  EXPECT_EQ(code_of([&] { transport->WriteMessage(make_message({})).get(); }), E_FAIL);
  EXPECT_EQ(code_of([&] { transport->WaitClient(false, nullptr).get(); }), E_FAIL);
  EXPECT_FALSE(transport->GetClientToken(TOKEN_QUERY, false, false));
  transport->Disconnect();
}

TEST(PipeTransport, ConnectTellsAMissingPipeFromABusyOne) {
  const auto client = PipeTransport::Create();
  EXPECT_EQ(client->Connect(L".", test::unique_pipe_name(), 50, 2),
            ostra::details::to_hresult(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(client->Connect(L".", L"any", 50, 0), ostra::details::to_hresult(ERROR_TIMEOUT));
  const listening_pipe server;
  const raw_client first(server.name);
  EXPECT_EQ(client->Connect(L".", server.name, 50, 2), ostra::details::to_hresult(ERROR_PIPE_BUSY));
}

TEST(PipeTransport, DisconnectFreesTheServerEndForTheNextClient) {
  const listening_pipe server;
  {
    const raw_client client(server.name);
    server.transport->WaitClient(false, nullptr).get();
    server.transport->Disconnect();
  }
  const auto client = PipeTransport::Create();
  EXPECT_EQ(client->Connect(L".", server.name, 50, 1),
            ostra::details::to_hresult(ERROR_PIPE_BUSY));  // nobody listens yet
  const auto wait = server.transport->WaitClient(false, nullptr);
  ASSERT_EQ(client->Connect(L".", server.name, 50, 1), S_OK);
  wait.get();
  client->Disconnect();
  EXPECT_EQ(code_of([&] { server.transport->ReadMessage().get(); }), kBroken);
}

TEST(PipeTransport, ListenReportsWhyThePipeCannotBeMade) {
  const auto transport = PipeTransport::Create();
  const Tamrin::unique_file taken(::CreateNamedPipeW(
      LR"(\\.\pipe\rpc_test_taken)", PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 512, 512, 0, nullptr));
  EXPECT_EQ(transport->Listen(L"rpc_test_taken", nullptr),
            ostra::details::to_hresult(ERROR_PIPE_BUSY));
}

}  // namespace
}  // namespace tether

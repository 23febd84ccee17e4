#include "rpc/pipe_transport.h"

#include <algorithm>

#include "tests/support/unit/memory_transport.h"
#include "tests/support/unit/testing.h"
#include "tests/support/unit/unique_name.h"

namespace tether {
namespace {

using test::MakeMessage;
using test::Pattern;
using testing_support::code_of;
using testing_support::unique_name;

constexpr auto kAborted = static_cast<HRESULT>(0x800703E3);
constexpr auto kBroken = static_cast<HRESULT>(0x8007006D);

HRESULT Error(DWORD error) {
  return ostra::details::to_hresult(error);
}

class PipeEnds : public ::testing::Test {
 protected:
  PipeEnds() { EXPECT_EQ(server_->Listen(name_, nullptr), S_OK); }

  HRESULT Connect(DWORD attempts = 1) { return client_->Connect(L".", name_, 50, attempts); }

  // Another server end, with a client that knows nothing of messages.
  void Renew() {
    server_ = PipeTransport::Create();
    ASSERT_EQ(server_->Listen(name_, nullptr), S_OK);
    raw_.reset(::CreateFileW((LR"(\\.\pipe\)" + name_).c_str(), GENERIC_READ | GENERIC_WRITE, 0,
                             nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_EQ(server_->WaitClient(false, nullptr).get(), 0u);
  }
  void WriteRaw(std::span<const std::byte> bytes) {
    DWORD written = 0;
    const auto size = static_cast<DWORD>(bytes.size());
    EXPECT_TRUE(size == 0 || ::WriteFile(raw_.get(), bytes.data(), size, &written, nullptr));
  }

  const std::wstring name_ = unique_name();
  std::shared_ptr<PipeTransport> server_ = PipeTransport::Create();
  const std::shared_ptr<PipeTransport> client_ = PipeTransport::Create();
  Tamrin::unique_file raw_;
};

TEST_F(PipeEnds, MessagesOfEverySizeArriveWhole) {
  ASSERT_EQ(Connect(), S_OK);
  bool waited = false;
  server_->WaitClient(false, [&] { waited = true; }).get();
  EXPECT_FALSE(waited);
  for (const std::size_t size : {0u, 1u, 65523u, 65524u, 65525u, 131060u, 5'000'000u}) {
    const auto payload = Pattern(size);
    const auto written = client_->WriteMessage(MakeMessage({9, 8, 7, 0}, payload));
    const auto message = server_->ReadMessage().get();
    written.get();
    EXPECT_EQ(message->header().call, 9u);
    EXPECT_TRUE(std::ranges::equal(message->payload(), payload)) << size;
  }
  EXPECT_FALSE(server_->PeerHasGone());
  client_->Disconnect();
  EXPECT_TRUE(server_->PeerHasGone());
}

TEST_F(PipeEnds, MessageCutAtAnyByteFailsTheReadOrGoesOn) {
  const auto whole = MakeMessage({1, 2, 3, 0}, Pattern(10));
  server_.reset();
  for (std::size_t cut = 0; cut < whole->bytes().size(); ++cut) {
    Renew();
    auto read = server_->ReadMessage();
    WriteRaw(whole->bytes().first(cut));
    WriteRaw(whole->bytes().subspan(cut));
    ASSERT_TRUE(std::ranges::equal(read.get()->payload(), Pattern(10))) << cut;
    read = server_->ReadMessage();
    WriteRaw(whole->bytes().first(cut));
    raw_.reset();
    ASSERT_EQ(code_of([&] { return read.get(); }), kBroken) << cut;
  }
}

TEST_F(PipeEnds, CancelEndsWhatIsPendingAndRefusesWhatComes) {
  const ostra::cancellation_source owner;
  server_->LinkCancellation(owner);
  bool waited = false;
  const auto wait = server_->WaitClient(false, [&] { waited = true; });
  EXPECT_TRUE(waited);
  owner.cancel();
  EXPECT_EQ(code_of([&] { return wait.get(); }), kAborted);
  EXPECT_THROW(server_->WaitClient(false, nullptr).get(), ostra::operation_cancelled);
  server_->LinkCancellation(owner);
  EXPECT_THROW(server_->WaitClient(false, nullptr).get(), ostra::operation_cancelled);

  Renew();
  const auto read = server_->ReadMessage();
  // More than the pipe's buffers take: it stays pending, since the client does not read.
  const auto write = server_->WriteMessage(MakeMessage({}, Pattern(16'000'000)));
  EXPECT_FALSE(write.is_complete());
  server_->Cancel();
  EXPECT_EQ(code_of([&] { return read.get(); }), kAborted);
  EXPECT_NE(code_of([&] { return write.get(), 0; }), S_OK);
}

TEST_F(PipeEnds, ConnectTellsAMissingPipeFromABusyOne) {
  EXPECT_EQ(client_->Connect(L".", unique_name(), 50, 2), Error(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(Connect(0), Error(ERROR_TIMEOUT));
  ASSERT_EQ(Connect(), S_OK);
  server_->WaitClient(false, nullptr).get();
  const auto second = PipeTransport::Create();
  EXPECT_EQ(second->Connect(L".", name_, 50, 2), Error(ERROR_PIPE_BUSY));
  // The end that is thrown off listens again when it is told to.
  server_->Disconnect();
  EXPECT_EQ(second->Connect(L".", name_, 50, 1), Error(ERROR_PIPE_BUSY));
  const auto wait = server_->WaitClient(false, nullptr);
  EXPECT_EQ(second->Connect(L".", name_, 50, 1), S_OK);
  EXPECT_EQ(wait.get(), 0u);
}

TEST_F(PipeEnds, WhatCannotWorkIsReported) {
  // Wine knows no first instance; a pipe that has all its instances refuses another on any system.
  const auto taken = unique_name();
  raw_.reset(::CreateNamedPipeW((LR"(\\.\pipe\)" + taken).c_str(), PIPE_ACCESS_DUPLEX,
                                PIPE_TYPE_BYTE, 1, 512, 512, 0, nullptr));
  EXPECT_EQ(client_->Listen(taken, nullptr), Error(ERROR_PIPE_BUSY));
  EXPECT_NE(client_->ListenFirst(taken, nullptr), S_OK);
  EXPECT_EQ(code_of([&] { return client_->ReadMessage().get(); }), E_FAIL);
  EXPECT_EQ(code_of([&] { return client_->WriteMessage(MakeMessage({})).get(), 0; }), E_FAIL);
  EXPECT_EQ(code_of([&] { return client_->WaitClient(false, nullptr).get(); }), E_FAIL);
  ASSERT_EQ(Connect(), S_OK);
  client_->Disconnect();  // came and went before the wait
  EXPECT_EQ(code_of([&] { return server_->WaitClient(false, nullptr).get(); }),
            Error(ERROR_NO_DATA));
}

}  // namespace
}  // namespace tether

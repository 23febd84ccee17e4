#include "rpc/connection.h"

#include <cstring>
#include <mutex>
#include <optional>

#include "async/background.h"
#include "async/event.h"
#include "rpc/client_iclient.h"
#include "rpc/server_iserver.h"
#include "tests/support/unit/memory_transport.h"
#include "tests/support/unit/testing.h"

namespace tether {
namespace {

using test::MakeMessage;
using test::MemoryTransport;
using test::Pattern;
using testing_support::eventually;
using bytes = std::vector<std::byte>;
using test_connection = Connection<Client_IClient, Server_IServer>;

constexpr std::uint16_t kClientCode = 1;

bytes Integers(std::initializer_list<std::uint32_t> values) {
  const auto view = std::as_bytes(std::span(values));
  return {view.begin(), view.end()};
}

// Stands in for a session. Opening ends on another thread than it began, and not before it may;
// reads wait for a Write; a read of size 13 fails.
class FakeServer final : public IServer_Remote {
 public:
  explicit FakeServer(std::atomic<int>& living) : living_(living) {}

  ostra::future<std::vector<port_record>> EnumeratePorts() override {
    std::vector<port_record> ports;
    ports.push_back({L"PQ", 1});
    ports.push_back({L"", 70'000});
    co_return ports;
  }

  ostra::future<HRESULT> OpenPort(std::uint32_t number) override {
    auto may_open = may_open_.wait();
    ++opens;
    ostra::resume_background elsewhere;
    co_await elsewhere;
    co_await may_open;
    co_return static_cast<HRESULT>(number);
  }

  ostra::future<bytes_result> IoControl(std::uint32_t code, std::uint32_t output_size,
                                        bytes input) override {
    bytes_result result;
    result.code = static_cast<HRESULT>(code);
    result.bytes = std::move(input);
    result.bytes.resize(output_size);
    co_return result;
  }

  ostra::future<HRESULT> Write(bytes data) override {
    const auto size = static_cast<HRESULT>(data.size());
    {
      const std::lock_guard guard(lock_);
      written_ = std::move(data);
    }
    may_read_.set();
    co_return size;
  }

  ostra::future<bytes_result> Read(std::uint32_t size) override {
    if (size == 13)
      throw ostra::hresult_error(E_FAIL);
    auto may_read = may_read_.wait();
    co_await may_read;
    bytes_result result;
    const std::lock_guard guard(lock_);
    result.bytes = written_;
    co_return result;
  }

  std::atomic<int> opens = 0;
  ostra::async_event may_open_{true};
  ostra::async_event may_read_{false};

 private:
  testing_support::counted living_;
  ostra::srw_lock lock_;
  bytes written_;  // guarded by lock_
};

// A server's end, and the transport of its peer.
class ServerEnd : public ::testing::Test {
 protected:
  ServerEnd() {
    std::tie(transport_, peer_) = MemoryTransport::MakePair();
    server_ =
        std::make_shared<test_connection>(transport_, kServerCode, std::weak_ptr(implementation_));
    server_running_ = server_->Run();
  }
  ~ServerEnd() override {
    server_->Cancel();
    server_running_.wait();
    // A request holds the implementation a little longer than its reply takes.
    implementation_.reset();
    EXPECT_TRUE(eventually([this] { return living_ == 0 && server_->RequestsInProgress() == 0; }));
  }

  // The peer's side, as bytes.
  void Send(message_header header, const bytes& payload = {}) {
    peer_->WriteBytes(MakeMessage(header, payload)->bytes());
  }
  void ExpectReply(std::uint32_t call, std::uint16_t method, const bytes& payload) {
    const auto reply = peer_->ReadMessage().get();
    EXPECT_EQ(reply->header().call, call);
    EXPECT_EQ(reply->header().code, kClientCode);
    EXPECT_EQ(reply->header().method, method);
    EXPECT_TRUE(std::ranges::equal(reply->payload(), payload)) << call;
  }

  MemoryTransport::pointer transport_, peer_;
  std::atomic<int> living_ = 0;
  std::shared_ptr<FakeServer> implementation_ = std::make_shared<FakeServer>(living_);
  std::shared_ptr<test_connection> server_;
  ostra::future<HRESULT> server_running_;
};

TEST_F(ServerEnd, RequestsAreAnsweredByteForByteAndAllElseIsNot) {
  struct row {
    std::uint16_t method;
    bytes arguments;
    std::optional<bytes> reply;
    std::uint16_t code = kClientCode;
  };
  const bytes cut_count(11);
  const row rows[] = {
      {0, {}, Integers({2, 2, 'P' | 'Q' << 16, 1, 0, 70'000})},
      {1, Integers({0x800700B7}), Integers({0x800700B7})},
      {1, Integers({7, 8, 9}), Integers({7})},  // what follows the arguments is ignored
      {2, Integers({5, 8, 4, 0x04030201}), Integers({5, 8, 0x04030201, 0})},
      {3, Integers({4, 1}), Integers({4})},
      {4, Integers({13}), {}},               // the method fails
      {5, {}, {}},                           // no such method
      {0xFFFF, {}, {}},                      //
      {1, bytes(4), {}, kNoConnection},      // neither request nor reply
      {1, bytes(4), {}, kServerCode},        // a reply to nothing
      {1, bytes(3), {}},                     // cut short
      {2, cut_count, {}},                    //
      {3, Integers({5, 1}), {}},             // the count overruns the payload
      {3, Integers({0xFFFFFFFF, 0xFF}), {}}  //
  };
  std::uint32_t call = 0;
  for (const row& each : rows) {
    Send({++call, each.code, each.method, 0}, each.arguments);
    if (each.reply)
      ExpectReply(call, each.method, *each.reply);
  }
  Send({100, kClientCode, 1, 0}, bytes(4));
  ExpectReply(100, 1, bytes(4));  // and nothing came before it
}

TEST_F(ServerEnd, AnnouncedGiantEndsTheConnection) {
  const message_header header{1, kClientCode, 3, kMaxPayload + 1};
  peer_->WriteBytes(std::as_bytes(std::span(&header, 1)));
  EXPECT_EQ(server_running_.get(), kMessageTooLong);
}

// Replies of 1 MiB that nobody reads; at the bound requests are left unread, and none is lost.
TEST_F(ServerEnd, RequestsAreLeftWhileTooManyRepliesWait) {
  constexpr std::uint32_t kReply = 1024 * 1024;
  transport_->HoldWrites(true);
  for (std::uint32_t call = 0; call < 16; ++call)
    Send({call, kClientCode, 2, 0}, Integers({0, kReply, 0}));
  EXPECT_TRUE(eventually(
      [this] { return server_->RequestsInProgress() == RequestLoad::kMostBytes / kReply; }));
  transport_->HoldWrites(false);
  for (std::uint32_t call = 0; call < 16; ++call)
    EXPECT_EQ(peer_->ReadMessage().get()->header().call, call);
  // A write that nobody takes does not hold up the end.
  transport_->HoldWrites(true);
  Send({1, kClientCode, 1, 0}, bytes(4));
  server_->Cancel();
  server_running_.wait();
  EXPECT_EQ(server_->Transport(), nullptr);
}

// Reads that nobody feeds; at their bound the connection reads no more, and sees the peer go all
// the same.
TEST_F(ServerEnd, PeerThatGoesIsMissedAtTheBound) {
  for (std::uint32_t call = 0; call < RequestLoad::kMostRequests + 10; ++call)
    Send({call, kClientCode, 4, 0}, bytes(4));
  EXPECT_TRUE(
      eventually([this] { return server_->RequestsInProgress() == RequestLoad::kMostRequests; }));
  peer_.reset();
  EXPECT_EQ(server_running_.get(), ostra::details::to_hresult(ERROR_BROKEN_PIPE));
  implementation_->may_read_.set();
}

TEST_F(ServerEnd, WhatComesBehindAnOpenWaitsForItsEnd) {
  implementation_->may_open_.reset();
  for (std::uint32_t call = 1; call <= 3; ++call)
    Send({call, kClientCode, static_cast<std::uint16_t>(call == 2 ? 3 : 1), 0}, Integers({0}));
  EXPECT_TRUE(eventually([this] { return implementation_->opens == 1; }));
  EXPECT_EQ(server_->RequestsInProgress(), 1u);
  implementation_->may_open_.set();
  for (std::uint32_t call = 1; call <= 3; ++call)
    ExpectReply(call, call == 2 ? 3 : 1, Integers({0}));
}

// The peer is a connection, too.
class BothEnds : public ServerEnd {
 protected:
  BothEnds()
      : client_(std::make_shared<test_connection>(std::move(peer_), kClientCode,
                                                  std::weak_ptr<IServer_Remote>())),
        client_running_(client_->Run()),
        remote_(client_->Remote()) {
    transport_.reset();
  }
  ~BothEnds() override {
    client_->Cancel();
    client_running_.wait();
  }

  const std::shared_ptr<test_connection> client_;
  const ostra::future<HRESULT> client_running_;
  Client_IClient& remote_;
};

TEST_F(BothEnds, EveryMethodCarriesItsArgumentsAndResult) {
  const auto ports = remote_.EnumeratePorts().get();
  ASSERT_EQ(ports.size(), 2u);
  EXPECT_EQ(ports[0].friendly_name, L"PQ");
  EXPECT_EQ(ports[1].number, 70'000u);
  EXPECT_EQ(remote_.OpenPort(7).get(), 7);
  const auto control = remote_.IoControl(5, 300'000, Pattern(300'000)).get();
  EXPECT_EQ(control.code, 5);
  EXPECT_EQ(control.bytes, Pattern(300'000));
  // A read that waits does not hold back the write that feeds it.
  const auto read = remote_.Read(5);
  EXPECT_EQ(remote_.Write(Pattern(200'000)).get(), 200'000);
  EXPECT_EQ(read.get().bytes, Pattern(200'000));
}

TEST_F(BothEnds, CallsWithoutAReplyEndWithTheConnection) {
  const auto failed = remote_.Read(13);
  for (int i = 0; i < 50; ++i)
    EXPECT_EQ(remote_.OpenPort(1).get(), 1);
  EXPECT_FALSE(failed.is_complete());
  server_->Cancel();
  EXPECT_THROW(failed.get(), ostra::operation_cancelled);
  client_running_.wait();
  EXPECT_THROW(remote_.OpenPort(1).get(), ostra::operation_cancelled);
}

TEST_F(BothEnds, RequestHoldsTheImplementationUntilItEnds) {
  const auto read = remote_.Read(5);
  EXPECT_TRUE(eventually([this] { return server_->RequestsInProgress() == 1; }));
  EXPECT_EQ(remote_.OpenPort(1).get(), 1);
  FakeServer& implementation = *implementation_;
  implementation_.reset();
  server_->Cancel();
  server_running_.wait();
  EXPECT_EQ(living_, 1);
  EXPECT_EQ(server_->Transport(), nullptr);
  implementation.Write({}).get();
  EXPECT_EQ(living_, 0);
}

TEST_F(BothEnds, ManyThreadsCallUntilTheEnd) {
  std::vector<std::thread> threads;
  std::atomic<int> done = 0;
  for (std::uint32_t thread = 0; thread < 4; ++thread) {
    threads.emplace_back([this, thread, &done] {
      for (std::uint32_t i = 0; i < 300; ++i) {
        ASSERT_EQ(remote_.IoControl(thread, i, {}).get().bytes.size(), i);
        ASSERT_EQ(remote_.OpenPort(i).get(), static_cast<HRESULT>(i));
      }
      ++done;
      while (client_->Transport() != nullptr)
        testing_support::code_of([&] { return remote_.Write({}).get(); });
    });
  }
  EXPECT_TRUE(eventually([&] { return done == 4; }));
  client_->Cancel();
  for (auto& thread : threads)
    thread.join();
}

TEST(Writer, FailedWriteEndsTheSendingAndTheReading) {
  auto [transport, peer] = MemoryTransport::MakePair();
  const auto writer = std::make_shared<Writer>();
  const auto running = writer->Run(transport);
  const auto load = std::make_shared<RequestLoad>(ostra::cancellation_source());
  peer.reset();
  writer->Send(MakeMessage({}), load->Begin({}));
  running.get();
  EXPECT_TRUE(transport->GetCancellation().is_cancelled());
  writer->Send(MakeMessage({}), load->Begin({}));
  EXPECT_EQ(load->count(), 0u);
}

}  // namespace
}  // namespace tether

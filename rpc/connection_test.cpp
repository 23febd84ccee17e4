#include "rpc/connection.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "async/background.h"
#include "rpc/client_iclient.h"
#include "rpc/marshalling.h"
#include "rpc/server_iserver.h"
#include "rpc/test_support.h"

namespace tether {
namespace {

using namespace std::chrono_literals;
using ostra::test::eventually;
using test::code_of;
using test::make_message;

using test_connection = Connection<Client_IClient, Server_IServer>;

constexpr std::uint16_t kClientCode = 1;

// Stands in for a session. Opening ends on another thread than it began, and not before it may;
// reads wait for a Write each; a read of size 13 fails.
class FakeServer final : public IServer_Remote {
 public:
  explicit FakeServer(std::atomic<int>& living) : living_(living) { ++living_; }
  ~FakeServer() override { --living_; }

  ostra::future<std::vector<port_record>> EnumeratePorts() override {
    std::vector<port_record> ports;
    ports.push_back({L"first", 1});
    ports.push_back({L"", 70'000});
    co_return ports;
  }

  ostra::future<HRESULT> OpenPort(std::uint32_t number) override {
    auto released = may_open_.get_future();
    ++opens_;
    ostra::resume_background elsewhere;
    co_await elsewhere;
    if (holds_opens_) {
      co_await released;
    }
    co_return static_cast<HRESULT>(number);
  }
  void HoldOpens() { holds_opens_ = true; }
  void ReleaseOpens() {
    holds_opens_ = false;
    may_open_.set_value();
  }
  [[nodiscard]] int opens() const { return opens_; }

  ostra::future<bytes_result> IoControl(std::uint32_t code, std::uint32_t output_size,
                                        std::vector<std::byte> input) override {
    bytes_result result;
    result.code = static_cast<HRESULT>(code);
    result.bytes = std::move(input);
    result.bytes.resize(output_size);
    co_return result;
  }

  ostra::future<HRESULT> Write(std::vector<std::byte> data) override {
    std::optional<ostra::promise<std::vector<std::byte>>> reader;
    {
      const std::lock_guard guard(lock_);
      if (!readers_.empty()) {
        reader = std::move(readers_.front());
        readers_.pop_front();
      }
    }
    if (reader)
      reader->set_value(std::move(data));
    co_return S_OK;
  }

  [[nodiscard]] bool IsReading() {
    const std::lock_guard guard(lock_);
    return !readers_.empty();
  }
  void EndReads() {
    const std::lock_guard guard(lock_);
    readers_.clear();
  }

  ostra::future<bytes_result> Read(std::uint32_t size) override {
    if (size == 13)
      ostra::details::throw_win32(ERROR_BAD_COMMAND);
    ostra::promise<std::vector<std::byte>> promised;
    auto data = promised.get_future();
    {
      const std::lock_guard guard(lock_);
      readers_.push_back(std::move(promised));
    }
    bytes_result result;
    result.bytes = co_await data;
    co_return result;
  }

 private:
  std::atomic<int>& living_;
  ostra::srw_lock lock_;
  std::deque<ostra::promise<std::vector<std::byte>>> readers_;

  std::atomic<bool> holds_opens_ = false;
  std::atomic<int> opens_ = 0;
  ostra::promise<void> may_open_;
};

class ServerEnd : public ::testing::Test {
 protected:
  void Serve() {
    pipe_.transport->WaitClient(false, nullptr).get();
    server_ = std::make_shared<test_connection>(std::move(pipe_.transport), kServerCode,
                                                std::weak_ptr(implementation_));
    server_running_ = server_->Run();
  }

  ~ServerEnd() override {
    if (server_) {
      server_->Cancel();
      server_running_.wait();
      // A request holds the implementation a little longer than its reply takes.
      EXPECT_TRUE(eventually([this] { return server_->RequestsInProgress() == 0; }));
      server_.reset();
    }
    implementation_.reset();
    EXPECT_EQ(living_, 0);
  }

  std::atomic<int> living_ = 0;
  std::shared_ptr<FakeServer> implementation_ = std::make_shared<FakeServer>(living_);
  test::listening_pipe pipe_;
  std::shared_ptr<test_connection> server_;
  ostra::future<HRESULT> server_running_;
};

// Both ends of a connection are ours.
class BothEnds : public ServerEnd {
 protected:
  BothEnds() {
    const auto transport = PipeTransport::Create();
    EXPECT_EQ(transport->Connect(L".", pipe_.name, 1000, 1), S_OK);
    Serve();
    client_ =
        std::make_shared<test_connection>(transport, kClientCode, std::weak_ptr<IServer_Remote>());
    client_running_ = client_->Run();
  }
  ~BothEnds() override {
    client_->Cancel();
    client_running_.wait();
  }

  static std::vector<std::byte> Bytes(std::size_t size) {
    return std::vector(size, std::byte{0x5A});
  }

  std::shared_ptr<test_connection> client_;
  ostra::future<HRESULT> client_running_;
};

TEST_F(BothEnds, EveryMethodCarriesItsArgumentsAndResult) {
  auto& remote = client_->Remote();
  const auto ports = remote.EnumeratePorts().get();
  ASSERT_EQ(ports.size(), 2u);
  EXPECT_EQ(ports[0].friendly_name, L"first");
  EXPECT_EQ(ports[1].number, 70'000u);
  EXPECT_EQ(remote.OpenPort(0x800700B7).get(), static_cast<HRESULT>(0x800700B7));
  const auto control = remote.IoControl(5, 300'000, Bytes(7)).get();
  EXPECT_EQ(control.code, 5);
  EXPECT_EQ(control.bytes.size(), 300'000u);
  EXPECT_EQ(control.bytes[6], std::byte{0x5A});
  EXPECT_EQ(remote.Write({}).get(), S_OK);
}

TEST_F(BothEnds, PendingReadDoesNotHoldBackTheWriteThatFeedsIt) {
  auto& remote = client_->Remote();
  const auto read = remote.Read(5);
  EXPECT_EQ(remote.Write(Bytes(200'000)).get(), S_OK);
  EXPECT_EQ(read.get().bytes, Bytes(200'000));
}

TEST_F(BothEnds, FailedMethodGetsNoReplyAndTheConnectionLives) {
  auto& remote = client_->Remote();
  const auto failed = remote.Read(13);
  for (int i = 0; i < 50; ++i)
    EXPECT_EQ(remote.OpenPort(1).get(), 1);
  EXPECT_FALSE(failed.is_complete());
  while (server_->RequestsInProgress() != 0)
    std::this_thread::yield();
  server_->Cancel();
  EXPECT_THROW(failed.get(), ostra::operation_cancelled);
  client_running_.wait();
  EXPECT_THROW(remote.OpenPort(1).get(), ostra::operation_cancelled);
}

TEST_F(BothEnds, RequestHoldsTheImplementationUntilItEnds) {
  auto& remote = client_->Remote();
  const auto read = remote.Read(5);
  while (!implementation_->IsReading())
    std::this_thread::yield();
  FakeServer* const implementation = implementation_.get();
  implementation_.reset();
  EXPECT_EQ(living_, 1);
  server_->Cancel();
  server_running_.wait();
  EXPECT_EQ(living_, 1);
  EXPECT_EQ(server_->Transport(), nullptr);
  implementation->Write({}).get();
  EXPECT_EQ(living_, 0);
}

TEST_F(BothEnds, ManyThreadsCallAtOnce) {
  std::vector<std::thread> threads;
  for (std::uint32_t thread = 0; thread < 4; ++thread) {
    threads.emplace_back([this, thread] {
      for (std::uint32_t i = 0; i < 500; ++i) {
        const auto control = client_->Remote().IoControl(thread * 1000 + i, i, {}).get();
        ASSERT_EQ(control.code, static_cast<HRESULT>(thread * 1000 + i));
        ASSERT_EQ(control.bytes.size(), i);
        ASSERT_EQ(client_->Remote().OpenPort(i).get(), static_cast<HRESULT>(i));
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
}

// The client end is ours to misuse.
class RawPeer : public ServerEnd {
 protected:
  RawPeer() : client_(pipe_.name) { Serve(); }

  void Send(message_header header, std::vector<std::byte> payload = {}) {
    client_.write(make_message(header, payload)->bytes());
  }

  // Sends an OpenPort request under `call` and expects its reply to be the next message.
  void ExpectServed(std::uint32_t call) {
    std::vector<std::byte> number(4, std::byte{1});
    Send({call, kClientCode, 1, 0}, number);
    const auto reply = client_.read(16);
    ASSERT_EQ(reply.size(), 16u);
    message_header header;
    std::memcpy(&header, reply.data(), sizeof header);
    EXPECT_EQ(header.call, call);
    EXPECT_EQ(header.code, kClientCode);
    EXPECT_EQ(header.method, 1);
    EXPECT_EQ(header.length, 4u);
  }

  test::raw_client client_;
};

TEST_F(RawPeer, WhatIsNoProperRequestGetsNoAnswerAndHarmsNothing) {
  Send({1, kClientCode, 5, 0});                               // no such method
  Send({2, kClientCode, 0xFFFF, 0});                          // no such method
  Send({3, kNoConnection, 1, 0}, std::vector<std::byte>(4));  // neither request nor reply
  Send({4, kServerCode, 1, 0}, std::vector<std::byte>(4));    // a reply to nothing
  Send({5, kClientCode, 1, 0}, std::vector<std::byte>(3));    // cut short
  Send({6, kClientCode, 2, 0}, std::vector<std::byte>(11));   // count cut short
  Send({7, kClientCode, 3, 0}, std::vector<std::byte>(8, std::byte{0xFF}));  // count overruns
  ExpectServed(8);
}

TEST_F(RawPeer, TrailingBytesOfAPayloadAreIgnored) {
  Send({1, kClientCode, 1, 0}, std::vector<std::byte>(100));
  EXPECT_EQ(client_.read(16).size(), 16u);
  ExpectServed(2);
}

TEST_F(RawPeer, AnnouncedGiantEndsTheConnection) {
  message_header header{1, kClientCode, 3, kMaxPayload + 1};
  client_.write(std::as_bytes(std::span(&header, 1)));
  EXPECT_EQ(server_running_.get(), kMessageTooLong);
}

// Replies of 1 MiB that nobody reads fill the pipe and then the bounds; from then on requests are
// left in the pipe.
TEST_F(RawPeer, RequestsAreLeftWhileTooManyRepliesWait) {
  constexpr std::uint32_t kReply = 1024 * 1024;
  constexpr std::uint32_t kRequests = 64;
  std::vector<std::byte> arguments(12);
  std::memcpy(arguments.data() + 4, &kReply, sizeof kReply);
  for (std::uint32_t call = 0; call < kRequests; ++call) {
    Send({call, kClientCode, 2, 0}, arguments);
  }
  EXPECT_TRUE(eventually(
      [this] { return server_->RequestsInProgress() == RequestLoad::kMostBytes / kReply; }));
  std::vector<bool> answered(kRequests);
  for (std::uint32_t call = 0; call < kRequests; ++call) {
    const auto reply = client_.read(12 + 8 + kReply);
    ASSERT_EQ(reply.size(), 12 + 8 + kReply);
    message_header header;
    std::memcpy(&header, reply.data(), sizeof header);
    ASSERT_LT(header.call, kRequests);
    EXPECT_FALSE(answered[header.call]);
    answered[header.call] = true;
  }
}

// Reads that nobody feeds; at their bound the connection reads no more, and sees the peer go all
// the same, with requests left unread.
TEST_F(RawPeer, PeerThatGoesIsMissedAtTheBound) {
  for (std::uint32_t call = 0; call < RequestLoad::kMostRequests + 10; ++call)
    Send({call, kClientCode, 4, 0}, std::vector<std::byte>(4));
  EXPECT_TRUE(
      eventually([this] { return server_->RequestsInProgress() == RequestLoad::kMostRequests; }));
  client_.disconnect();
  EXPECT_EQ(server_running_.get(), ostra::details::to_hresult(ERROR_BROKEN_PIPE));
  implementation_->EndReads();
}

TEST_F(RawPeer, WhatComesBehindAnOpenWaitsForItsEnd) {
  implementation_->HoldOpens();
  Send({1, kClientCode, 1, 0}, std::vector<std::byte>(4));
  Send({2, kClientCode, 3, 0}, std::vector<std::byte>(4));
  Send({3, kClientCode, 1, 0}, std::vector<std::byte>(4));
  EXPECT_TRUE(eventually([this] { return implementation_->opens() == 1; }));
  EXPECT_EQ(server_->RequestsInProgress(), 1u);
  implementation_->ReleaseOpens();
  for (std::uint32_t call = 1; call <= 3; ++call) {
    const auto reply = client_.read(16);
    ASSERT_EQ(reply.size(), 16u);
    EXPECT_EQ(reply[0], std::byte(call));
  }
}

TEST_F(RawPeer, PeerThatDoesNotReadHoldsUpNobodysEnd) {
  std::vector<std::byte> arguments(12);
  const std::uint32_t size = 15 * 1024 * 1024;
  std::memcpy(arguments.data() + 4, &size, sizeof size);
  Send({1, kClientCode, 2, 0}, arguments);
  Send({2, kClientCode, 2, 0}, arguments);
  server_->Cancel();
  server_running_.wait();
  EXPECT_EQ(server_->Transport(), nullptr);
}

}  // namespace
}  // namespace tether

#include "rpc/connection.h"

#include <atomic>

#include "async/background.h"
#include "async/event.h"
#include "rpc/client_iclient.h"
#include "rpc/server_iserver.h"
#include "tests/support/unit/memory_transport.h"
#include "tests/support/unit/testing.h"

namespace tether {
namespace {

using test::bytes;
using test::MemoryTransport;
using test::Pattern;
using testing_support::eventually;
using test_connection = Connection<Client_IClient, Server_IServer>;

constexpr std::uint16_t kClientCode = 1;

// Completes on another thread.
template <class T>
ostra::future<T> Elsewhere(ostra::future<T> result) {
  ostra::resume_background elsewhere;
  co_await elsewhere;
  co_return result.get();
}

// OpenPort and IoControl end on a different thread from the one they begin on. Reads wait for a
// Write; a Read of size 13 fails.
class FakeServer final : public test::EchoServer {
 public:
  ostra::future<HRESULT> OpenPort(std::uint32_t number) override {
    return Elsewhere(EchoServer::OpenPort(number));
  }
  ostra::future<bytes_result> IoControl(std::uint32_t code, std::uint32_t size,
                                        bytes input) override {
    return Elsewhere(EchoServer::IoControl(code, size, std::move(input)));
  }
  ostra::future<HRESULT> Write(bytes data) override {
    may_read_.set();
    return EchoServer::Write(std::move(data));
  }
  ostra::future<bytes_result> Read(std::uint32_t size) override {
    if (size == 13)
      throw ostra::hresult_error(E_FAIL);
    auto may_read = may_read_.wait();
    co_await may_read;
    co_return bytes_result{S_OK, Pattern(size)};
  }

 private:
  ostra::async_event may_read_{false};
};

// A client end and a server end, connected to each other.
class BothEnds : public ::testing::Test {
 protected:
  BothEnds() { Connect(); }
  ~BothEnds() override {
    client_->Cancel();
    client_running_.wait();
    server_running_.wait();
    // A request holds the implementation for slightly longer than its reply takes.
    const std::weak_ptr<FakeServer> weak = std::exchange(implementation_, nullptr);
    EXPECT_TRUE(eventually([&] { return weak.expired() && server_->RequestsInProgress() == 0; }));
  }

  void Connect() {
    auto [transport, peer] = MemoryTransport::MakePair();
    server_ = std::make_shared<test_connection>(std::move(transport), kServerCode,
                                                std::weak_ptr(implementation_));
    client_ = std::make_shared<test_connection>(std::move(peer), kClientCode,
                                                std::weak_ptr<IServer_Remote>());
    server_running_ = server_->Run();
    client_running_ = client_->Run();
  }

  Client_IClient& Remote() { return client_->Remote(); }

  std::shared_ptr<FakeServer> implementation_ = std::make_shared<FakeServer>();
  std::shared_ptr<test_connection> server_, client_;
  ostra::future<HRESULT> server_running_, client_running_;
};

TEST_F(BothEnds, MethodsCarryTheirArgumentsAndResults) {
  EXPECT_EQ(Remote().OpenPort(7).get(), 7);
  const auto control = Remote().IoControl(5, 300'000, Pattern(300'000)).get();
  EXPECT_EQ(control.code, 5);
  EXPECT_EQ(control.bytes, Pattern(300'000));
  // A pending read does not hold back the write that completes it.
  const auto read = Remote().Read(200'000);
  EXPECT_EQ(Remote().Write(bytes(3)).get(), 3);
  EXPECT_EQ(read.get().bytes, Pattern(200'000));
}

TEST_F(BothEnds, CallsWithoutAReplyEndWithTheConnection) {
  const auto failed = Remote().Read(13);
  EXPECT_EQ(Remote().OpenPort(1).get(), 1);
  EXPECT_FALSE(failed.is_complete());
  server_->Cancel();
  EXPECT_THROW(failed.get(), ostra::operation_cancelled);
  client_running_.wait();
  EXPECT_THROW(Remote().OpenPort(1).get(), ostra::operation_cancelled);
}

TEST_F(BothEnds, RequestHoldsTheImplementationUntilItEnds) {
  const auto read = Remote().Read(5);
  EXPECT_EQ(Remote().OpenPort(1).get(), 1);  // handled after the read
  const std::weak_ptr<FakeServer> weak = std::exchange(implementation_, nullptr);
  server_->Cancel();
  server_running_.wait();
  EXPECT_EQ(server_->Transport(), nullptr);
  ASSERT_FALSE(weak.expired());
  static_cast<void>(weak.lock()->Write({}));
  EXPECT_TRUE(eventually([&] { return weak.expired(); }));  // the OpenPort may still hold it
}

TEST_F(BothEnds, StressOfCallsAgainstTheEnd) {
  testing_support::stress([this](auto& random) {
    client_->Cancel();
    Connect();
    const auto call_until_the_end = [this](std::uint32_t size) {
      for (; client_->Transport() != nullptr; size += 10) {
        testing_support::code_of([&] {
          EXPECT_EQ(Remote().IoControl(1, 2, bytes(size)).get().bytes.size(), size);
          EXPECT_EQ(Remote().OpenPort(size).get(), static_cast<HRESULT>(size));
        });
      }
    };
    const std::jthread first(call_until_the_end, 1), second(call_until_the_end, 2);
    testing_support::spin(random() % 1'000'000);
    client_->Cancel();
    call_until_the_end(3);
    server_running_.wait();
  });
}

// Each request puts the next one into the pipe, so that every read succeeds at once.
struct EndlessServer final : test::EchoServer {
  ostra::future<HRESULT> OpenPort(std::uint32_t) override {
    if (!is_stopped)
      client->WriteBytes(test::MakeMessage({0, kClientCode, 1, 0}, bytes(4))->bytes());
    co_return S_OK;
  }

  std::shared_ptr<MemoryTransport> client;
  std::atomic<bool> is_stopped = false;
};

TEST(Connection, PeerThatNeverPausesKeepsNoThread) {
  auto [transport, peer] = MemoryTransport::MakePair();
  const auto server = std::make_shared<EndlessServer>();
  server->client = peer;
  server->OpenPort(0).get();
  const auto connection =
      std::make_shared<test_connection>(transport, kServerCode, std::weak_ptr(server));
  const auto running = connection->Run();  // returns although the requests go on
  server->is_stopped = true;
  connection->Cancel();
  running.wait();
}

TEST(Writer, FailedWriteEndsTheSendingAndTheReading) {
  auto [transport, peer] = MemoryTransport::MakePair();
  const auto writer = std::make_shared<Writer>();
  const auto running = writer->Run(transport);
  const auto load = std::make_shared<RequestLoad>(ostra::cancellation_source());
  peer.reset();
  for (int time = 0; time < 2; ++time)
    writer->Send(test::MakeMessage({}), load->Begin({}));
  EXPECT_TRUE(running.is_complete() && transport->GetCancellation().is_cancelled());
  EXPECT_EQ(load->count(), 0u);
}

}  // namespace
}  // namespace tether

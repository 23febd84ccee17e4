#include "rpc/writer.h"

#include <gtest/gtest.h>

#include "async/cancellation.h"
#include "rpc/test_support.h"

namespace tether {
namespace {

using test::make_message;

// Writes complete when the test says so.
class StalledTransport final : public ITransport {
 public:
  ostra::future<void> WriteMessage(std::shared_ptr<message_t> message) override {
    EXPECT_FALSE(writing) << "two writes at once";
    writing = true;
    sent.push_back(std::move(message));
    write = ostra::promise<void>();
    return write.get_future();
  }
  void FinishWrite() {
    writing = false;
    auto finished = std::move(write);
    finished.set_value();
  }
  void FailWrite() {
    writing = false;
    auto failed = std::move(write);
    failed.set_exception(std::make_exception_ptr(ostra::hresult_error(E_FAIL)));
  }

  void LinkCancellation(const ostra::cancellation_source&) override {}
  ostra::cancellation_source& GetCancellation() override { return cancellation; }
  void Cancel() override { cancellation.cancel(); }
  void Disconnect() override {}
  ostra::future<std::shared_ptr<const Message>> ReadMessage() override { return {}; }
  HRESULT Listen(std::wstring_view, PSECURITY_DESCRIPTOR) override { return E_NOTIMPL; }
  ostra::future<std::uint32_t> WaitClient(bool, std::function<void()>) override { return {}; }
  HRESULT Impersonate() override { return E_NOTIMPL; }
  HRESULT Revert() override { return E_NOTIMPL; }
  CToken GetClientToken(DWORD, bool, bool) override { return {}; }
  HRESULT Connect(std::wstring_view, std::wstring_view, DWORD, DWORD) override { return E_NOTIMPL; }
  [[nodiscard]] bool PeerHasGone() const noexcept override { return false; }

  std::vector<std::shared_ptr<message_t>> sent;
  ostra::promise<void> write;
  bool writing = false;
  ostra::cancellation_source cancellation;
};

class WriterQueue : public ::testing::Test {
 protected:
  ~WriterQueue() override { writer_->Close(); }

  std::shared_ptr<message_t> Send(std::size_t size) {
    auto message = make_message({}, std::vector<std::byte>(size));
    writer_->Send(message);
    return message;
  }

  const std::shared_ptr<StalledTransport> transport_ = std::make_shared<StalledTransport>();
  const std::shared_ptr<Writer> writer_ = std::make_shared<Writer>();
  const ostra::future<void> running_ = writer_->Run(transport_);
};

TEST_F(WriterQueue, OneWriteAtATimeInTheOrderOfSending) {
  const auto first = Send(1);
  const auto second = Send(2);
  EXPECT_EQ(transport_->sent, std::vector{first});
  transport_->FinishWrite();
  EXPECT_EQ(transport_->sent, (std::vector{first, second}));
  transport_->FinishWrite();
  const auto third = Send(3);
  EXPECT_EQ(transport_->sent.back(), third);
  transport_->FinishWrite();
}

TEST_F(WriterQueue, RequestIsInProgressUntilItsReplyIsWritten) {
  const auto load = std::make_shared<RequestLoad>(ostra::cancellation_source());
  Send(1);
  writer_->Send(make_message({}), load->Begin({}));
  transport_->FinishWrite();
  EXPECT_EQ(load->count(), 1u);
  transport_->FinishWrite();
  EXPECT_EQ(load->count(), 0u);
}

TEST_F(WriterQueue, FailedWriteEndsTheSendingAndTheReading) {
  Send(1);
  Send(1);
  transport_->FailWrite();
  EXPECT_TRUE(transport_->cancellation.is_cancelled());
  Send(1);
  EXPECT_EQ(transport_->sent.size(), 1u);
  EXPECT_TRUE(running_.is_complete());
}

}  // namespace
}  // namespace tether

// The overlapped calls of async/, on a device that answers when and how the test wants it to. How
// pipes behave is for the tests of PipeTransport to see.
#include "async/overlapped.h"

#include <functional>

#include "async/future.h"
#include "handles.h"
#include "tests/support/unit/testing.h"

namespace ostra {
namespace {

constexpr auto kAborted = static_cast<HRESULT>(0x800703E3);
constexpr auto kSkips = immediate_success::continues_inline;
constexpr auto kQueues = immediate_success::queues_completion;

class Overlapped : public ::testing::Test {
 protected:
  void Open(immediate_success mode) {
    binding_ = io_binding();
    file_.reset(device_ = new test_device);
    binding_.bind(device_, mode);
  }

  // Reads one byte; `before` and `after` run on the starting thread, around the call.
  using action = std::function<void()>;
  future<DWORD> Read(cancellation_token token = {}, action before = {}, action after = {}) {
    char byte = 0;
    const auto start = [&](HANDLE file, OVERLAPPED* overlapped) noexcept {
      if (before)
        before();
      const DWORD error = read_file{&byte, 1}(file, overlapped);
      if (after)
        after();
      return error;
    };
    io_call read(binding_, start, token);
    const DWORD size = co_await read;
    EXPECT_EQ(byte, size == 1 ? 'x' : 0);
    co_return size;
  }

  static HRESULT Outcome(const future<DWORD>& read) {
    return testing_support::code_of([&] { return read.get(); });
  }

  Tamrin::unique_file file_;
  io_binding binding_;
  test_device* device_ = nullptr;
};

TEST_F(Overlapped, EachAnswerGivesItsResultAtOnceAndLater) {
  const std::pair<device_answer, HRESULT> rows[] = {
      {{0, 0}, S_OK},
      {{0xC000014B, ERROR_BROKEN_PIPE}, static_cast<HRESULT>(0x8007006D)},
      {{0xC0000011, ERROR_HANDLE_EOF}, S_OK},
      {{0x80000005, ERROR_MORE_DATA}, static_cast<HRESULT>(0x800700EA)},
      {{0xC0000023, ERROR_MORE_DATA}, static_cast<HRESULT>(0x800700EA)}};
  for (const auto mode : {kQueues, kSkips}) {
    Open(mode);
    for (const auto& [sent, code] : rows) {
      const auto pending = Read();
      EXPECT_FALSE(pending.is_complete());
      device_->send(sent);
      EXPECT_EQ(Outcome(pending), code) << sent.status;
      device_->send(sent);
      const auto at_once = Read();
      if (sent.severity() == 3 || (sent.status == 0 && mode == kSkips))
        ASSERT_TRUE(at_once.is_complete()) << sent.status;
      EXPECT_EQ(Outcome(at_once), code) << sent.status;
    }
  }
  const auto timed_out = Read();
  device_->send({0x102, ERROR_TIMEOUT});
  EXPECT_EQ(timed_out.get(), 1u);
}

// Between the subscription and the call CancelIoEx finds nothing; the second one falls between the
// call and the suspension. The time lets what was begun win most of the rounds; either order has to
// work.
TEST_F(Overlapped, CancellationAndCompletionMayComeAtAnyTime) {
  for (int round = 0; round < 100; ++round) {
    Open(round % 2 == 0 ? kSkips : kQueues);
    const cancellation_source sources[4];
    const auto pause = [] { std::this_thread::sleep_for(std::chrono::milliseconds(1)); };
    const auto cancel = [&](int which) {
      return [&sources, which, pause] {
        sources[which].cancel();
        pause();
      };
    };
    ASSERT_EQ(Outcome(Read(sources[0].token(), cancel(0))), kAborted);
    ASSERT_EQ(Outcome(Read(sources[1].token(), {}, cancel(1))), kAborted);
    const auto pending = Read(sources[2].token());
    sources[2].cancel();
    ASSERT_EQ(Outcome(pending), kAborted);
    ASSERT_EQ(Outcome(Read(sources[2].token())), operation_cancelled().code());
    const auto send = [&] {
      device_->send();
      pause();
    };
    ASSERT_EQ(Outcome(Read({}, {}, send)), S_OK);
    const auto both = Read(sources[3].token());
    const std::jthread sender([this] { device_->send(); });
    sources[3].cancel();
    const HRESULT code = Outcome(both);
    ASSERT_TRUE(code == S_OK || code == kAborted);
  }
}

}  // namespace
}  // namespace ostra

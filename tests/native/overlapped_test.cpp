// The overlapped calls of async/, on a device that answers when and how the test says. The tests of
// PipeTransport cover the behaviour of pipes.
#include "async/overlapped.h"

#include <functional>

#include "async/future.h"
#include "handles.h"
#include "tests/support/unit/testing.h"

namespace ostra {
namespace {

using enum immediate_success;
using testing_support::outcome_of;

constexpr auto kAborted = static_cast<HRESULT>(0x800703E3);

class Overlapped : public ::testing::TestWithParam<immediate_success> {
 protected:
  Overlapped() { binding_.bind(&device_, GetParam()); }

  // `begin` runs on the starting thread and returns the call's Win32 error.
  using start = std::function<DWORD(OVERLAPPED*)>;
  future<DWORD> Call(start begin, cancellation_token token = {}) {
    const auto call_device = [&begin](HANDLE, OVERLAPPED* call) noexcept { return begin(call); };
    io_call call(binding_, call_device, token);
    const DWORD size = co_await call;
    co_return size;
  }
  future<DWORD> PendingCall(cancellation_token token = {}) {
    return Call([this](OVERLAPPED* call) { return device_.begin(call); }, token);
  }

  test_device device_;
  io_binding binding_;
};

INSTANTIATE_TEST_SUITE_P(Modes, Overlapped, ::testing::Values(continues_inline, queues_completion));

TEST_P(Overlapped, EachAnswerGivesItsResultAtOnceAndLater) {
  const std::pair<device_answer, HRESULT> rows[] = {
      {{0, ERROR_SUCCESS}, S_OK},
      {{0x102, ERROR_TIMEOUT}, S_OK},
      {{0xC000014B, ERROR_BROKEN_PIPE}, static_cast<HRESULT>(0x8007006D)},
      {{0xC0000011, ERROR_HANDLE_EOF}, S_OK},
      {{0x80000005, ERROR_MORE_DATA}, static_cast<HRESULT>(0x800700EA)},
      {{0xC0000023, ERROR_MORE_DATA}, static_cast<HRESULT>(0x800700EA)}};
  for (const auto& [answer, outcome] : rows) {
    const auto later = PendingCall();
    EXPECT_FALSE(later.is_complete());
    device_.send(answer);
    EXPECT_EQ(outcome_of(later), outcome) << answer.status;
    const auto at_once = [&](OVERLAPPED* call) { return device_.answer_at_once(call, answer); };
    EXPECT_EQ(outcome_of(Call(at_once)), outcome) << answer.status;
  }
}

// The first cancel falls between the subscription and the call, where CancelIoEx finds nothing; the
// second falls between the call and the suspension, the third comes after it. The pause lets the
// cancel or the completion come first in most rounds; either order has to work.
TEST_P(Overlapped, CancellationAndCompletionMayComeAtAnyTime) {
  for (int round = 0; round < 50; ++round) {
    const cancellation_source early, late, suspended, both;
    const auto pause = [] { std::this_thread::sleep_for(std::chrono::milliseconds(1)); };
    const auto cancel_and_begin = [&](OVERLAPPED* call) {
      early.cancel();
      pause();
      return device_.begin(call);
    };
    ASSERT_EQ(outcome_of(Call(cancel_and_begin, early.token())), kAborted);
    const auto begin_and = [&](auto action) {
      return [&, action](OVERLAPPED* call) {
        const DWORD error = device_.begin(call);
        action();
        pause();
        return error;
      };
    };
    ASSERT_EQ(outcome_of(Call(begin_and([&] { late.cancel(); }), late.token())), kAborted);
    ASSERT_EQ(outcome_of(Call(begin_and([&] { device_.send({}); }))), S_OK);
    const auto waiting = PendingCall(suspended.token());
    suspended.cancel();
    ASSERT_EQ(outcome_of(waiting), kAborted);
    const auto pending = PendingCall(both.token());
    const std::jthread sender([this] { device_.send({}); });
    both.cancel();
    const HRESULT code = outcome_of(pending);
    ASSERT_TRUE(code == S_OK || code == kAborted);
    ASSERT_EQ(outcome_of(PendingCall(both.token())), operation_cancelled().code());
  }
}

}  // namespace
}  // namespace ostra

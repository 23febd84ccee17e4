// The overlapped calls of async/, on a device that answers when and how the test wants it to. How
// pipes behave is for the tests of PipeTransport to see.
#include "async/overlapped.h"

#include "async/future.h"
#include "handles.h"
#include "tests/support/unit/testing.h"

namespace ostra {
namespace {

using stand_in::answer;
using testing_support::code_of;
using testing_support::counted;

constexpr auto kAborted = static_cast<HRESULT>(0x800703E3);
constexpr auto kModes = {immediate_success::queues_completion, immediate_success::continues_inline};
constexpr auto kNothing = [] {};

class Overlapped : public ::testing::Test {
 protected:
  Overlapped() { Open(immediate_success::continues_inline); }
  ~Overlapped() override { EXPECT_EQ(living_, 0); }

  void Open(immediate_success mode) {
    binding_ = io_binding();
    file_.reset(new stand_in::kernel_object);
    device_ = static_cast<stand_in::kernel_object*>(file_.get());
    binding_.bind(file_.get(), mode);
  }

  // `before` and `after` run on the starting thread, around the read of one byte.
  template <class Before, class After>
  future<DWORD> ReadWith(Before before, After after, cancellation_token token) {
    const counted local(living_);
    char byte = 0;
    const auto start = [&](HANDLE file, OVERLAPPED* overlapped) noexcept {
      EXPECT_EQ(std::pair(overlapped->Offset, overlapped->OffsetHigh), std::pair(2u, 1u));
      before();
      const DWORD error = read_file{&byte, 1}(file, overlapped);
      after();
      return error;
    };
    io_call read(binding_, start, token, 0x1'0000'0002);
    const DWORD size = co_await read;
    EXPECT_EQ(byte, size == 1 ? 'x' : 0);
    co_return size;
  }
  future<DWORD> Read(cancellation_token token = {}) {
    return ReadWith(kNothing, kNothing, std::move(token));
  }

  void SendAndWait() {
    device_->send();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  Tamrin::unique_file file_;
  io_binding binding_;
  stand_in::kernel_object* device_ = nullptr;
  std::atomic<int> living_ = 0;
};

TEST_F(Overlapped, EachAnswerGivesItsResultAtOnceAndLater) {
  struct row {
    answer sent;
    HRESULT code;
  };
  const row rows[] = {{{0, 0}, S_OK},
                      {{0xC000014B, ERROR_BROKEN_PIPE}, static_cast<HRESULT>(0x8007006D)},
                      {{0xC0000011, ERROR_HANDLE_EOF}, S_OK},
                      {{0x102, ERROR_TIMEOUT}, S_OK},  // a read that timed out
                      {{0x80000005, ERROR_MORE_DATA}, static_cast<HRESULT>(0x800700EA)},
                      {{0xC0000023, ERROR_MORE_DATA}, static_cast<HRESULT>(0x800700EA)}};
  EXPECT_THROW(io_binding().bind(INVALID_HANDLE_VALUE, *kModes.begin()), hresult_error);
  for (const auto mode : kModes) {
    Open(mode);
    for (const row& each : rows) {
      const auto pending = Read();
      EXPECT_FALSE(pending.is_complete());
      device_->send(each.sent);
      EXPECT_EQ(code_of([&] { return pending.get(); }), each.code) << each.sent.status;
      if (each.sent.error == ERROR_TIMEOUT)
        continue;  // only calls that have waited time out
      device_->send(each.sent);
      const auto at_once = Read();
      if (each.sent.status >> 30 == 3 || (each.sent.status == 0 && mode != *kModes.begin()))
        ASSERT_TRUE(at_once.is_complete()) << each.sent.status;
      EXPECT_EQ(code_of([&] { return at_once.get(); }), each.code) << each.sent.status;
    }
  }
}

// Between the subscription and the call CancelIoEx finds nothing; the second one falls between the
// call and the suspension.
TEST_F(Overlapped, CancellationAndCompletionMayComeAtAnyTime) {
  for (int round = 0; round < 50; ++round) {
    const cancellation_source sources[3];
    const auto early = ReadWith([&] { sources[0].cancel(); }, kNothing, sources[0].token());
    ASSERT_EQ(code_of([&] { return early.get(); }), kAborted);
    const auto late = ReadWith(
        kNothing, [&] { sources[1].cancel(); }, sources[1].token());
    ASSERT_EQ(code_of([&] { return late.get(); }), kAborted);
    const auto pending = Read(sources[2].token());
    sources[2].cancel();
    ASSERT_EQ(code_of([&] { return pending.get(); }), kAborted);
    ASSERT_THROW(Read(sources[2].token()).get(), operation_cancelled);
    // The time lets the completion win most of the rounds; either order has to work.
    const auto overtaken = ReadWith(kNothing, [&] { SendAndWait(); }, {});
    ASSERT_EQ(overtaken.get(), 1u);
  }
}

TEST_F(Overlapped, StressOfReadsAgainstCancellationAndCompletion) {
  int completed = 0;
  int cancelled = 0;
  testing_support::stress([&](auto& random) {
    Open(kModes.begin()[random() % 2]);
    const cancellation_source source;
    std::thread sender([&, steps = random() % 4000] {
      testing_support::spin(steps);
      device_->send();
    });
    std::thread canceller([&, steps = random() % 4000] {
      testing_support::spin(steps);
      source.cancel();
    });
    const auto read = Read(source.token());
    const HRESULT code = code_of([&] { return read.get(); });
    EXPECT_TRUE(code == S_OK || code == kAborted || code == operation_cancelled().code());
    ++(code == S_OK ? completed : cancelled);
    sender.join();
    canceller.join();
    EXPECT_EQ(living_, 0);
  });
  EXPECT_GT(completed, 0);
  EXPECT_GT(cancelled, 0);
}

}  // namespace
}  // namespace ostra

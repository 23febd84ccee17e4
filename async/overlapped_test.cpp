#include "async/overlapped.h"

#include <gtest/gtest.h>

#include <string>

#include "async/future.h"
#include "async/test_support.h"

namespace ostra {
namespace {

using test::code_of;
using test::counted;
using test::pipe_pair;

constexpr auto kAborted = static_cast<HRESULT>(0x800703E3);
constexpr auto kBroken = static_cast<HRESULT>(0x8007006D);

// An overlapped pipe end, its binding and reads of one byte from it.
class OverlappedPipe : public ::testing::Test {
 protected:
  OverlappedPipe() { binding_.bind(pipe_.server.get(), immediate_success::continues_inline); }

  // `before` and `after` run on the starting thread, around the ReadFile of one byte.
  template <class Before, class After>
  future<DWORD> ReadWith(Before before, After after, cancellation_token token) {
    const counted local(living_);
    const auto start = [&](HANDLE pipe, OVERLAPPED* overlapped) noexcept {
      before();
      const DWORD error = read_file{&byte_, 1}(pipe, overlapped);
      after();
      return error;
    };
    io_call read(binding_, start, token);
    const DWORD size = co_await read;
    co_return size;
  }

  future<DWORD> Read(cancellation_token token = {}) {
    return ReadWith([] {}, [] {}, std::move(token));
  }

  ~OverlappedPipe() override { EXPECT_EQ(living_, 0); }

  pipe_pair pipe_;
  io_binding binding_;
  char byte_ = 0;
  std::atomic<int> living_ = 0;
};

TEST_F(OverlappedPipe, PendingAndImmediateReadsGiveTheirBytes) {
  const auto pending = Read();
  EXPECT_FALSE(pending.is_complete());
  pipe_.client_writes('a');
  EXPECT_EQ(pending.get(), 1u);
  EXPECT_EQ(byte_, 'a');

  pipe_.client_writes('b');
  const auto immediate = Read();
  EXPECT_TRUE(immediate.is_complete());
  EXPECT_EQ(immediate.get(), 1u);
  EXPECT_EQ(byte_, 'b');
}

TEST_F(OverlappedPipe, BrokenPipeFailsPendingAndLaterReads) {
  const auto pending = Read();
  pipe_.client.reset();
  EXPECT_EQ(code_of([&] { pending.get(); }), kBroken);
  EXPECT_EQ(code_of([&] { Read().get(); }), kBroken);
}

TEST_F(OverlappedPipe, CancellationEndsAPendingRead) {
  const cancellation_source source;
  const auto pending = Read(source.token());
  EXPECT_FALSE(pending.is_complete());
  source.cancel();
  EXPECT_EQ(code_of([&] { pending.get(); }), kAborted);
}

TEST_F(OverlappedPipe, CancellationBeforeTheCallRefusesIt) {
  const cancellation_source source;
  source.cancel();
  EXPECT_THROW(Read(source.token()).get(), operation_cancelled);
}

// The cancellation falls between the subscription and the call, where CancelIoEx finds nothing, or
// between the call and the suspension.
TEST_F(OverlappedPipe, CancellationAroundTheStartIsNotLost) {
  for (int round = 0; round < 50; ++round) {
    const cancellation_source before;
    const auto early = ReadWith([&] { before.cancel(); }, [] {}, before.token());
    ASSERT_EQ(code_of([&] { early.get(); }), kAborted);
    const cancellation_source after;
    const auto late = ReadWith([] {}, [&] { after.cancel(); }, after.token());
    ASSERT_EQ(code_of([&] { late.get(); }), kAborted);
  }
}

TEST_F(OverlappedPipe, CompletionMayComeBeforeTheSuspension) {
  for (int round = 0; round < 50; ++round) {
    const auto read = ReadWith(
        [] {},
        [&] {
          pipe_.client_writes('x');
          ::Sleep(1);  // lets the completion win most of the rounds; either order has to work
        },
        {});
    ASSERT_EQ(read.get(), 1u);
  }
}

TEST_F(OverlappedPipe, CancellationAfterTheCompletionChangesNothing) {
  const cancellation_source source;
  const auto pending = Read(source.token());
  pipe_.client_writes('a');
  EXPECT_EQ(pending.get(), 1u);
  source.cancel();
  EXPECT_EQ(byte_, 'a');
}

// A file is bound without the skip mode, as the log is: its completions come through the pool even
// when the call succeeds at once.
class OverlappedFile : public ::testing::Test {
 protected:
  OverlappedFile() {
    wchar_t folder[MAX_PATH];
    wchar_t path[MAX_PATH];
    ::GetTempPathW(MAX_PATH, folder);
    ::GetTempFileNameW(folder, L"ovl", 0, path);
    file_ = Tamrin::unique_file(details::check_file(
        ::CreateFileW(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                      FILE_FLAG_OVERLAPPED | FILE_FLAG_DELETE_ON_CLOSE, nullptr)));
    binding_.bind(file_.get(), immediate_success::queues_completion);
  }

  template <class Start>
  future<DWORD> Call(Start start, std::uint64_t offset) {
    io_call call(binding_, start, {}, offset);
    const DWORD size = co_await call;
    co_return size;
  }

  Tamrin::unique_file file_;
  io_binding binding_;
};

TEST_F(OverlappedFile, WritesAtItsOffsetAndReadsPastTheEndAsNothing) {
  constexpr std::uint64_t kFar = 0x1'0000'0002;  // needs both halves of the offset
  EXPECT_EQ(Call(write_file{"abc", 3}, kFar).get(), 3u);
  char text[8] = {};
  EXPECT_EQ(Call(read_file{text, 8}, kFar + 1).get(), 2u);
  EXPECT_STREQ(text, "bc");
  EXPECT_EQ(Call(read_file{text, 8}, kFar + 100).get(), 0u);
}

TEST(Binding, RefusesWhatCannotBeBound) {
  io_binding binding;
  EXPECT_THROW(binding.bind(INVALID_HANDLE_VALUE, immediate_success::queues_completion),
               hresult_error);
  EXPECT_FALSE(binding.is_bound());
}

}  // namespace
}  // namespace ostra

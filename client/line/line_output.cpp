#include "client/line/line_output.h"

#include <algorithm>
#include <mutex>
#include <optional>
#include <span>
#include <utility>

#include "async/async_queue.h"

namespace tarnwheel::client {
namespace {

constexpr std::size_t kPiece = 4096;  // bytes of one write

}  // namespace

struct line_output::batch {
  // Appends waiting pieces to `bytes`, so that small ones go out together.
  void join_waiting(std::vector<std::byte>& bytes) {
    while (bytes.size() < kPiece) {
      const auto next = pieces.try_pop();
      if (!next)
        return;
      bytes.insert(bytes.end(), next->begin(), next->end());
    }
  }

  ostra::async_queue<std::vector<std::byte>> pieces;

  // Guarded by the output's lock.
  std::ptrdiff_t pending = 0;  // bytes; negative while a piece being queued is sent already
  std::optional<ostra::completion> room;
  std::optional<ostra::completion> drained;
};

line_output::line_output(server_connection& server, const line_controls& controls,
                         std::wstring name)
    : server_(server), controls_(controls), name_(std::move(name)) {
  begin_batch();
}

line_output::~line_output() {
  close();
  for (const auto& coroutine : sending_)
    coroutine.wait();
}

// Replaces the present batch, which ends.
void line_output::begin_batch() {
  const auto next = std::make_shared<batch>();
  auto sending = send_all(next);
  std::shared_ptr<batch> ended = next;
  {
    const std::lock_guard guard(lock_);
    std::erase_if(sending_, [](const auto& coroutine) { return coroutine.is_complete(); });
    sending_.push_back(std::move(sending));
    if (!closed_)
      ended = std::exchange(batch_, next);
  }
  if (ended)
    end_batch(*ended);
}

ostra::future<void> line_output::write(std::vector<std::byte> bytes) {
  ostra::completion room;
  auto has_room = room.get_future();
  const auto size = static_cast<std::ptrdiff_t>(bytes.size());
  std::shared_ptr<batch> present;
  {
    const std::lock_guard guard(lock_);
    present = batch_;
  }
  if (!present->pieces.push(std::move(bytes)))
    return has_room;
  const std::lock_guard guard(lock_);
  present->pending += size;
  if (present == batch_ && !closed_ && present->pending > kQueueLimit)
    present->room = std::move(room);
  return has_room;
}

ostra::future<void> line_output::drained() {
  ostra::completion all;
  auto result = all.get_future();
  const std::lock_guard guard(lock_);
  if (!closed_ && batch_->pending > 0)
    batch_->drained = std::move(all);
  return result;
}

ostra::future<void> line_output::send_all(std::shared_ptr<batch> present) {
  std::exception_ptr reason;
  try {
    for (;;) {
      auto popped = present->pieces.pop();
      auto bytes = co_await popped;
      if (!bytes)
        co_return;
      present->join_waiting(*bytes);
      for (auto rest = std::span<const std::byte>(*bytes); !rest.empty();) {
        const auto piece = rest.first(std::min(rest.size(), kPiece));
        auto sent = send({piece.begin(), piece.end()});
        co_await sent;
        if (!note_sent(*present, piece.size()))
          co_return;
        rest = rest.subspan(piece.size());
      }
    }
  } catch (const client_error&) {
    reason = std::current_exception();
  }
  end(present.get(), reason);
}

ostra::future<void> line_output::send(std::vector<std::byte> piece) const {
  const auto limit = controls_.write_limit(piece.size());
  auto answer = server_.answer(server_.remote().Write(std::move(piece)), name_, limit);
  const HRESULT outcome = co_await answer;
  if (FAILED(outcome))
    throw explain(outcome, name_);
}

// False when the batch has ended.
bool line_output::note_sent(batch& present, std::size_t size) {
  std::optional<ostra::completion> room;
  std::optional<ostra::completion> drained;
  const std::lock_guard guard(lock_);
  present.pending -= static_cast<std::ptrdiff_t>(size);
  last_taken_ = std::chrono::steady_clock::now();
  if (present.pending <= kQueueLimit)
    room.swap(present.room);
  if (present.pending <= 0)
    drained.swap(present.drained);
  return &present == batch_.get() && !closed_;
}

void line_output::end_batch(batch& ended) {
  ended.pieces.close();
  std::optional<ostra::completion> room;
  std::optional<ostra::completion> drained;
  const std::lock_guard guard(lock_);
  room.swap(ended.room);
  drained.swap(ended.drained);
}

void line_output::close() {
  end(nullptr, nullptr);
}

bool line_output::is_closed() const {
  const std::lock_guard guard(lock_);
  return closed_;
}

std::chrono::steady_clock::time_point line_output::busy_until() const {
  const std::lock_guard guard(lock_);
  return batch_->pending > 0 ? std::chrono::steady_clock::now() : last_taken_;
}

// `failed`, unless null, is the batch whose write failed. A failure in a dropped batch is ignored.
void line_output::end(const batch* failed, std::exception_ptr reason) {
  std::shared_ptr<batch> present;
  {
    const std::lock_guard guard(lock_);
    present = batch_;
    if (closed_ || (failed != nullptr && failed != present.get()))
      return;
    closed_ = true;
  }
  end_batch(*present);
  if (reason)
    failed_.set_exception(std::move(reason));
  else
    failed_.set_value();
}

}  // namespace tarnwheel::client

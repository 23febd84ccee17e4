#include "client/line/line_output.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <mutex>
#include <utility>

namespace tarnwheel::client {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t kPiece = 4096;          // bytes of one write
constexpr std::uint64_t kBitsOnTheLine = 12;  // of one byte, with start, parity and stop bits

void keep(std::optional<ostra::promise<void>>& promise) {
  if (promise)
    promise->set_value();
}

}  // namespace

line_output::line_output(server_connection& server, std::wstring name)
    : server_(server), name_(std::move(name)) {}

void line_output::set_pace(std::uint32_t baud_rate, bool may_be_held) {
  const std::lock_guard guard(lock_);
  baud_rate_ = baud_rate;
  may_be_held_ = may_be_held;
}

ostra::future<void> line_output::write(std::vector<std::byte> bytes) {
  promise room;
  auto has_room = room.get_future();
  bool starts = false;
  unsigned turn = 0;
  {
    const std::lock_guard guard(lock_);
    if (!closed_) {
      queue_.insert(queue_.end(), bytes.begin(), bytes.end());
      starts = !queue_.empty() && !std::exchange(pumping_, true);
      turn = turn_;
    }
  }
  if (starts)
    static_cast<void>(pump(shared_from_this(), turn));
  {
    const std::lock_guard guard(lock_);
    if (queue_.size() > kQueueLimit) {
      room_ = std::move(room);
      return has_room;
    }
  }
  room.set_value();
  return has_room;
}

ostra::future<void> line_output::drained() {
  promise all;
  auto result = all.get_future();
  {
    const std::lock_guard guard(lock_);
    if (pumping_) {
      drained_ = std::move(all);
      return result;
    }
  }
  all.set_value();
  return result;
}

ostra::future<void> line_output::pump(std::shared_ptr<line_output> self, unsigned turn) {
  std::exception_ptr reason;
  try {
    for (auto piece = self->next(turn); !piece.empty(); piece = self->next(turn)) {
      auto answer = self->send(std::move(piece));
      const HRESULT outcome = co_await answer;
      if (FAILED(outcome))
        throw explain(outcome, self->name_);
      self->sent(turn);
    }
  } catch (const client_error&) {
    reason = std::current_exception();
  }
  if (reason)
    self->fail(turn, reason);
}

ostra::future<HRESULT> line_output::send(std::vector<std::byte> piece) const {
  auto limit = milliseconds::zero();
  {
    const std::lock_guard guard(lock_);
    if (!may_be_held_ && baud_rate_ != 0)
      limit = kCallLimit + milliseconds(piece.size() * kBitsOnTheLine * 1000 / baud_rate_);
  }
  return server_.answer(server_.remote().Write(std::move(piece)), name_, limit);
}

std::vector<std::byte> line_output::next(unsigned turn) {
  std::vector<std::byte> piece;
  std::optional<promise> drained;
  {
    const std::lock_guard guard(lock_);
    if (turn != turn_)
      return piece;
    const auto size = static_cast<std::ptrdiff_t>(std::min(queue_.size(), kPiece));
    piece.assign(queue_.begin(), queue_.begin() + size);
    queue_.erase(queue_.begin(), queue_.begin() + size);
    if (piece.empty()) {
      pumping_ = false;
      drained = std::exchange(drained_, std::nullopt);
    }
  }
  keep(drained);
  return piece;
}

void line_output::sent(unsigned turn) {
  std::optional<promise> room;
  {
    const std::lock_guard guard(lock_);
    if (turn == turn_ && queue_.size() <= kQueueLimit)
      room = std::exchange(room_, std::nullopt);
  }
  keep(room);
}

void line_output::drop() {
  std::optional<promise> room;
  std::optional<promise> drained;
  {
    const std::lock_guard guard(lock_);
    ++turn_;
    pumping_ = false;
    queue_.clear();
    room = std::exchange(room_, std::nullopt);
    drained = std::exchange(drained_, std::nullopt);
  }
  keep(room);
  keep(drained);
}

void line_output::close() {
  end(nullptr);
}

void line_output::fail(unsigned turn, std::exception_ptr reason) {
  {
    const std::lock_guard guard(lock_);
    if (turn != turn_)
      return;  // it was dropped, and the device has rightly left it without an answer
  }
  end(std::move(reason));
}

void line_output::end(std::exception_ptr reason) {
  {
    const std::lock_guard guard(lock_);
    if (std::exchange(closed_, true))
      return;
  }
  drop();
  if (reason)
    failed_.set_exception(std::move(reason));
  else
    failed_.set_value();
}

}  // namespace tarnwheel::client

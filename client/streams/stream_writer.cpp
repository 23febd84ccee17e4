#include "client/streams/stream_writer.h"

#include <optional>
#include <utility>

#include "async/errors.h"

namespace tarnwheel::client {

stream_writer::stream_writer(std::shared_ptr<byte_stream> stream) {
  static_cast<void>(write_all(std::move(stream), pieces_));
}

ostra::future<void> stream_writer::send(std::vector<std::byte> bytes) {
  piece next{std::move(bytes), {}};
  auto done = next.done.get_future();
  static_cast<void>(pieces_->push(std::move(next)));
  return done;
}

ostra::future<void> stream_writer::write_all(std::shared_ptr<byte_stream> stream,
                                             std::shared_ptr<queue> pieces) {
  std::optional<piece> present;
  try {
    for (;;) {
      auto popped = pieces->pop();
      auto next = co_await popped;
      if (!next)
        co_return;
      present = std::move(next);
      auto written = stream->write(present->bytes);
      co_await written;
      present->done.complete();
    }
  } catch (const ostra::hresult_error&) {
    // The other end has gone, or the stream was cancelled; the stream's reader notices that too.
  }
  stream->cancel();
  pieces->close();
}

}  // namespace tarnwheel::client

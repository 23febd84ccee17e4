// The sending side of a byte stream.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "async/async_queue.h"
#include "async/completion.h"
#include "client/streams/byte_stream.h"

namespace tarnwheel::client {

// Writes the pieces that several coroutines send, each whole, in the order of the calls. A sender
// that waits for each piece before sending the next one keeps memory bounded. Any thread.
class stream_writer {
 public:
  explicit stream_writer(std::shared_ptr<byte_stream> stream);
  stream_writer(const stream_writer&) = delete;
  stream_writer& operator=(const stream_writer&) = delete;
  ~stream_writer() { close(); }

  // Completes when the bytes are written, or discarded because the stream failed or was closed.
  ostra::future<void> send(std::vector<std::byte> bytes);

  // Discards the pieces that have not been started, and all later ones.
  void close() noexcept { pieces_->close(); }

 private:
  struct piece {
    std::vector<std::byte> bytes;
    ostra::completion done;
  };
  using queue = ostra::async_queue<piece>;

  static ostra::future<void> write_all(std::shared_ptr<byte_stream> stream,
                                       std::shared_ptr<queue> pieces);

  const std::shared_ptr<queue> pieces_ = std::make_shared<queue>();
};

}  // namespace tarnwheel::client

// The sending side of a byte stream.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <vector>

#include "async/future.h"
#include "async/srw_lock.h"
#include "client/streams/byte_stream.h"

namespace tarnwheel::client {

// Writes what several coroutines send, each piece whole, in the order of the calls. Whoever waits
// for a piece before the next one keeps what is in memory bounded. Kept by its writing; any thread.
class stream_writer : public std::enable_shared_from_this<stream_writer> {
 public:
  explicit stream_writer(std::shared_ptr<byte_stream> stream) : stream_(std::move(stream)) {}

  // Completes when the bytes are written, or never will be: then the stream has been cancelled.
  ostra::future<void> send(std::vector<std::byte> bytes);

  // Drops what has not been begun, and all that is sent later.
  void close();

 private:
  struct piece {
    std::vector<std::byte> bytes;
    ostra::promise<void> done;
  };

  ostra::future<void> pump();
  [[nodiscard]] bool next(piece& taken);

  const std::shared_ptr<byte_stream> stream_;

  // Guarded by lock_.
  ostra::srw_lock lock_;
  bool closed_ = false;
  bool pumping_ = false;
  std::deque<piece> queue_;
};

}  // namespace tarnwheel::client

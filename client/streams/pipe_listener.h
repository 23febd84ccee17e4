// Programs of this machine that take a named pipe for a serial port.
#pragma once

#include <memory>
#include <string_view>

#include "client/streams/byte_stream.h"

namespace tarnwheel::client {

// `name` goes behind "\\.\pipe\", or begins with that. The pipe carries bytes, for programs of this
// account and of the system's alone. Throws client_error when there is such a pipe already.
[[nodiscard]] std::unique_ptr<stream_listener> listen_pipe(std::wstring_view name);

}  // namespace tarnwheel::client

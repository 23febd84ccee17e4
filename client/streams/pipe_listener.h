// Accepts programs of this machine that use a named pipe as a serial port.
#pragma once

#include <memory>
#include <string_view>

#include "client/streams/byte_stream.h"

namespace tarnwheel::client {

// `name` is appended to "\\.\pipe\" unless it begins with that. The pipe carries bytes, for
// programs of this account and of the system's alone. Throws client_error if it exists already.
[[nodiscard]] std::unique_ptr<stream_listener> listen_pipe(std::wstring_view name);

}  // namespace tarnwheel::client

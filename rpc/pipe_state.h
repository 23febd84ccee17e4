// Detects that the other end of a pipe has gone.
#pragma once

#include "platform/win32.h"

namespace tether {

// True once the client of this server end has closed its end, even while unread data remains, which
// a read would return first. Never blocks.
[[nodiscard]] bool pipe_peer_has_gone(HANDLE pipe) noexcept;

}  // namespace tether

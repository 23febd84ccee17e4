// Whether somebody is still at the other end of a pipe.
#pragma once

#include "platform/win32.h"

namespace tether {

// True once the client of this server end has closed its end, even when there is something left to
// read, which a read would give first. Never blocks.
[[nodiscard]] bool pipe_peer_has_gone(HANDLE pipe) noexcept;

}  // namespace tether

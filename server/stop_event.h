// The event that stops the server, and whose existence keeps a second server from running.
#pragma once

#include "platform/unique_resource.h"

namespace tarnwheel {

// Creates the event: manual-reset, not signalled; everyone may signal it and do nothing else.
// Throws hresult_error: 0x800700B7 when it exists already, that is, when another server runs.
[[nodiscard]] Tamrin::unique_handle create_stop_event();

}  // namespace tarnwheel

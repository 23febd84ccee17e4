// The server's announcement on the local link, beside its answers to the clients' mailslot queries.
#pragma once

#include "async/cancellation.h"
#include "async/future.h"

namespace tarnwheel {

// Announces this computer's server by DNS-SD until `token` is cancelled. Never fails: without an
// announcement the server works all the same, so whatever is wrong is one warning in the log.
//
// Windows has 30 seconds to announce, and its thread is not held meanwhile. At the cancellation the
// announcement is taken back, which Windows has two seconds for; a process that ends takes it back
// in any case.
ostra::future<void> announce(ostra::cancellation_token token);

}  // namespace tarnwheel

// The server's announcement on the local link, in addition to its answers to mailslot queries.
#pragma once

#include "async/cancellation.h"
#include "async/future.h"

namespace tarnwheel {

// Announces this computer's server by DNS-SD until `token` is cancelled. Never fails: the server
// works without an announcement, so any failure is one warning in the log.
//
// Windows has 30 seconds to make the announcement; no thread is blocked meanwhile. On cancellation
// the announcement is withdrawn, for which Windows has two seconds; the end of the process
// withdraws it in any case.
ostra::future<void> announce(ostra::cancellation_token token);

}  // namespace tarnwheel

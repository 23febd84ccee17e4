// Auto-discovery: the server's answers to clients that look for servers on the local network.
#pragma once

#include "async/cancellation.h"
#include "async/future.h"

namespace tarnwheel {

// Answers the queries in the server's query mailslot, one after another, until `cancellation` is
// cancelled. When `enabled` is false it creates nothing and completes at once. Throws hresult_error
// when it cannot start, for instance because the mailslot's name is taken.
//
// A bad query, or a failure of the mailslot that its answer goes to, affects that answer only.
// Windows may take seconds to find out that a computer does not exist. That delays the answers that
// follow, by 30 seconds at most, but neither a cancellation nor the rest of the server.
ostra::future<void> discover(bool enabled, ostra::cancellation_source cancellation);

}  // namespace tarnwheel

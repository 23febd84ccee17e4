// Auto-discovery: the server's answers to clients that look for servers on the local network.
#pragma once

#include "async/cancellation.h"
#include "async/future.h"

namespace tarnwheel {

// Answers the queries in the server's query mailslot, one after another, until `cancellation` ends
// that. When `enabled` is false it creates nothing and is complete at once. Throws hresult_error
// when it cannot start, for instance because the mailslot's name is taken.
//
// Whatever is wrong with a query or with the mailslot that its answer goes to costs that answer
// only. Windows may take seconds to find out that a computer is not there; that holds up the
// answers behind it, for 30 seconds at most, but neither the end by a cancellation nor anything else
// of the server.
ostra::future<void> discover(bool enabled, ostra::cancellation_source cancellation);

}  // namespace tarnwheel

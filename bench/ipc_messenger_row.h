// The library's own path measured beside the raw transports: a CC-side and a PS-side
// CCToPSMessenger in two processes, ping-ponging the call-control link's message 70.
#pragma once

#include <string>

#include "ipc_measure.h"

namespace conflink::bench {

// The row label and how its messages travel.
std::string messengerRowLabel();
std::string messengerRowNote();

// Round trips (each side's handler answers with the same message) and one-way throughput of
// message 70, over queue `queueNumber` under the messengers' own key path. The large-message
// figures are not measured: message 70 carries no payload.
Figures measureMessengers(int queueNumber, const Plan& plan);

}  // namespace conflink::bench

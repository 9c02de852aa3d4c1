// The library's own path measured beside the raw transports: a CC-side and a PS-side
// CCToPSMessenger in two processes: CC sends the shared request DialOut, PS answers with Success.
#pragma once

#include <string>

#include "ipc_measure.h"

namespace conflink::bench {

// The row label and how its messages travel.
std::string messengerRowLabel();
std::string messengerRowNote();

// Round trips (PS's handler answers each DialOut with Success) and one-way throughput of DialOut,
// over queue `queueNumber` under the messengers' own key path. The large-message figures are not
// measured: these messages carry a few dozen bytes.
Figures measureMessengers(int queueNumber, const Plan& plan);

}  // namespace conflink::bench

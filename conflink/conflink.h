// The whole public surface of conflink: both messengers, their role interfaces, the records and
// the platform types they use.
#pragma once

#include <conflink/cc/cc_to_ps_messenger.h>
#include <conflink/cgi/cgi_to_ps_messenger.h>
#include <conflink/messaging/log_sink.h>
#include <conflink/messaging/shared_interfaces.h>
#include <conflink/messaging/soho_messenger.h>
#include <conflink/messaging/link_wait.h>
#include <conflink/messaging/types.h>
#include <conflink/messaging/wait_set.h>
#include <conflink/platform/platform.h>
#include <conflink/records/records.h>

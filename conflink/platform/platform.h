// Everything the messaging library takes from the platform library.
#pragma once

#include <conflink/platform/codec_info.h>
#include <conflink/platform/cyclic_message_queue.h>
#include <conflink/platform/thread.h>

// Every parameter record and its wire form.
#pragma once

#include <conflink/records/call_records.h>
#include <conflink/records/conference_params.h>
#include <conflink/records/config_records.h>
#include <conflink/records/record_codecs.h>
#include <conflink/records/record_fields.h>
#include <conflink/records/record_text.h>
#include <conflink/records/status_records.h>

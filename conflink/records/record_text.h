// Readable renderings of the records whose wire form is not their field list (see
// record_codecs.h). They show the record as it is held, whatever part of it travels: a recording
// address that the wire omits is still shown.
#pragma once

#include <string>

#include <conflink/wire/text.h>
#include <conflink/records/record_codecs.h>

namespace conflink::wire {

template <>
struct Text<RecordingParams> {
  static void render(std::string& out, const RecordingParams& v) {
    TextList::record(out, "RecordingParams")("value1", v.value1)("texts", v.texts)(
        "value2", v.value2)("value3", v.value3)("value4", v.value4)("value5", v.value5)("uri",
                                                                                        v.uri);
  }
};

template <>
struct Text<Reservations> {
  static void render(std::string& out, const Reservations& v) {
    TextList::record(out, "Reservations")("items", v.items);
  }
};

template <>
struct Text<LoadSegment> {
  static void render(std::string& out, const LoadSegment& v) {
    TextList::record(out, "LoadSegment")("start", v.start)("load", v.load);
  }
};

}  // namespace conflink::wire

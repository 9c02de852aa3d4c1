// Readable renderings of the records whose wire form is not their field list (see
// record_codecs.h). They show the record as it is held, whatever part of it travels: a recording
// address that the wire omits is still shown.
#pragma once

#include <string>

#include <conflink/messaging/text.h>
#include <conflink/records/record_codecs.h>

namespace conflink::wire {

template <>
struct Text<RecordingParams> {
  static void render(std::string& out, const RecordingParams& v) {
    out += "RecordingParams{value1=";
    wire::render(out, v.value1);
    out += ", texts=";
    wire::render(out, v.texts);
    out += ", value2=";
    wire::render(out, v.value2);
    out += ", value3=";
    wire::render(out, v.value3);
    out += ", value4=";
    wire::render(out, v.value4);
    out += ", value5=";
    wire::render(out, v.value5);
    out += ", uri=";
    wire::render(out, v.uri);
    out += '}';
  }
};

template <>
struct Text<Reservations> {
  static void render(std::string& out, const Reservations& v) {
    out += "Reservations{items=";
    wire::render(out, v.items);
    out += '}';
  }
};

template <>
struct Text<LoadSegment> {
  static void render(std::string& out, const LoadSegment& v) {
    out += "LoadSegment{start=";
    wire::render(out, v.start);
    out += ", load=";
    wire::render(out, v.load);
    out += '}';
  }
};

}  // namespace conflink::wire

// Protocol Buffers on ConferenceParams, through the generated mirror of codec_conference.proto.
// Encode fills one reused message from the record (strings copied in, repeated fields reusing
// their elements) and serialises it into the caller's buffer. Decode parses into one reused
// message, then builds a new record from it and moves it into the target: the same work as our
// decode, which also builds a new record and leaves the target alone on failure.
#include "codec_conference.pb.h"
#include "codec_peers.h"

namespace conflink::bench {
namespace {

namespace pb = conflink_bench;

void toProto(const SipUri& r, pb::SipUri& m) {
  m.set_text1(r.text1);
  m.set_text2(r.text2);
  m.set_text3(r.text3);
  m.set_text4(r.text4);
}
SipUri fromProto(const pb::SipUri& m) {
  return {m.text1(), m.text2(), m.text3(), m.text4()};
}

void toProto(const ConferenceUser& r, pb::ConferenceUser& m) {
  m.set_id(r.id);
  m.set_text1(r.text1);
  m.set_text2(r.text2);
  m.set_text3(r.text3);
  m.set_text4(r.text4);
  m.set_text5(r.text5);
  m.set_text6(r.text6);
  m.set_short1(r.short1);
  m.set_short2(r.short2);
  m.set_value1(r.value1);
  m.set_value2(r.value2);
  m.set_value3(r.value3);
  m.set_value4(r.value4);
  m.set_value5(r.value5);
  m.set_value6(r.value6);
  m.set_value7(r.value7);
  m.set_value8(r.value8);
  m.set_value9(r.value9);
  m.set_value10(r.value10);
  m.set_value11(r.value11);
}
ConferenceUser fromProto(const pb::ConferenceUser& m) {
  return {m.id(),
          m.text1(),
          m.text2(),
          m.text3(),
          m.text4(),
          m.text5(),
          m.text6(),
          static_cast<unsigned short>(m.short1()),
          static_cast<unsigned short>(m.short2()),
          m.value1(),
          m.value2(),
          m.value3(),
          m.value4(),
          m.value5(),
          m.value6(),
          m.value7(),
          m.value8(),
          m.value9(),
          m.value10(),
          m.value11()};
}

void toProto(const ConferenceParams& p, pb::ConferenceParams& m) {
  m.Clear();
  pb::ConfGeneral& g = *m.mutable_general();
  g.set_text1(p.general.text1);
  g.set_text2(p.general.text2);
  g.set_value1(p.general.value1);
  g.set_text3(p.general.text3);
  g.set_text4(p.general.text4);
  g.set_value2(p.general.value2);
  g.set_wide1(p.general.wide1);
  g.set_wide2(p.general.wide2);
  g.set_value3(p.general.value3);
  g.set_value4(p.general.value4);
  g.set_value5(p.general.value5);
  g.set_value6(p.general.value6);
  g.set_value7(p.general.value7);
  g.set_value8(p.general.value8);

  const NewParticipantParams& n = p.newParticipant;
  pb::NewParticipant& nm = *m.mutable_new_participant();
  nm.set_value1(n.value1);
  nm.set_short1(n.short1);
  nm.set_value2(n.value2);
  nm.set_value3(n.value3);
  nm.set_value4(n.value4);
  nm.set_value5(n.value5);
  nm.set_value6(n.value6);
  nm.set_value7(n.value7);
  nm.set_value8(n.value8);
  nm.set_value9(n.value9);
  nm.set_value10(n.value10);

  m.mutable_participants()->Reserve(static_cast<int>(p.participants.size()));
  for (const ConferenceUser& u : p.participants) toProto(u, *m.add_participants());

  const SipRegistrationParams& s = p.sip;
  pb::SipRegistration& sm = *m.mutable_sip();
  sm.set_text1(s.text1);
  sm.set_text2(s.text2);
  sm.set_text3(s.text3);
  sm.set_text4(s.text4);
  sm.set_text5(s.text5);
  sm.set_value1(s.value1);
  sm.set_text6(s.text6);
  sm.set_text7(s.text7);
  sm.set_text8(s.text8);
  sm.set_text9(s.text9);
  sm.set_text10(s.text10);
  sm.set_text11(s.text11);
  sm.set_value2(s.value2);
  sm.set_value3(s.value3);
  sm.set_value4(s.value4);

  const RecordingParams& rec = p.recording;
  pb::Recording& rm = *m.mutable_recording();
  rm.set_value1(rec.value1);
  for (const std::string& t : rec.texts) rm.add_texts(t);
  rm.set_value2(rec.value2);
  rm.set_value3(rec.value3);
  rm.set_value4(rec.value4);
  rm.set_value5(rec.value5);
  if (rec.value3 == 0) toProto(rec.uri, *rm.mutable_uri());

  pb::Schedule& sch = *m.mutable_schedule();
  for (const RuleParams& rule : p.schedule.rules) {
    pb::Rule& rl = *sch.add_rules();
    rl.set_value1(rule.value1);
    rl.set_text1(rule.text1);
    rl.set_text2(rule.text2);
  }
  sch.set_value1(p.schedule.value1);
  sch.set_value2(p.schedule.value2);
  sch.set_short1(p.schedule.short1);
  sch.set_short2(p.schedule.short2);
  sch.set_text1(p.schedule.text1);

  for (const ReservationInfo& r : p.reservations.items) {
    pb::Reservation& res = *m.add_reservations();
    res.set_wide1(r.wide1);
    res.set_short1(r.short1);
    res.set_value1(r.value1);
    res.set_value2(r.value2);
  }
  pb::Encoding& enc = *m.mutable_encoding();
  for (const std::string& c : p.encoding.codecs) enc.add_codecs(c);
  enc.set_value1(p.encoding.value1);
  for (const std::string& e : p.encodingExtras) m.add_encoding_extras(e);
  m.set_sys_message(p.sysMessage.value1);
  pb::AutoGainCtrl& agc = *m.mutable_auto_gain_ctrl();
  agc.set_value1(p.autoGainCtrl.value1);
  agc.set_short1(p.autoGainCtrl.short1);
  agc.set_short2(p.autoGainCtrl.short2);
}

void fromProto(const pb::ConferenceParams& m, ConferenceParams& p) {
  const pb::ConfGeneral& g = m.general();
  p.general = {g.text1(), g.text2(),  g.value1(), g.text3(),  g.text4(),  g.value2(), g.wide1(),
               g.wide2(), g.value3(), g.value4(), g.value5(), g.value6(), g.value7(), g.value8()};
  const pb::NewParticipant& n = m.new_participant();
  p.newParticipant = {n.value1(), static_cast<unsigned short>(n.short1()),
                      n.value2(), n.value3(),
                      n.value4(), n.value5(),
                      n.value6(), n.value7(),
                      n.value8(), n.value9(),
                      n.value10()};
  fillList(p.participants, static_cast<std::size_t>(m.participants_size()),
           [&](std::size_t i) { return fromProto(m.participants(static_cast<int>(i))); });
  const pb::SipRegistration& s = m.sip();
  p.sip = {s.text1(),  s.text2(),  s.text3(),  s.text4(),  s.text5(),
           s.value1(), s.text6(),  s.text7(),  s.text8(),  s.text9(),
           s.text10(), s.text11(), s.value2(), s.value3(), s.value4()};
  const pb::Recording& rec = m.recording();
  p.recording.value1 = rec.value1();
  fillList(p.recording.texts, static_cast<std::size_t>(rec.texts_size()),
           [&](std::size_t i) { return rec.texts(static_cast<int>(i)); });
  p.recording.value2 = rec.value2();
  p.recording.value3 = rec.value3();
  p.recording.value4 = rec.value4();
  p.recording.value5 = rec.value5();
  if (rec.has_uri()) p.recording.uri = fromProto(rec.uri());
  const pb::Schedule& sch = m.schedule();
  fillList(p.schedule.rules, static_cast<std::size_t>(sch.rules_size()), [&](std::size_t i) {
    const pb::Rule& rule = sch.rules(static_cast<int>(i));
    return RuleParams{rule.value1(), rule.text1(), rule.text2()};
  });
  p.schedule.value1 = sch.value1();
  p.schedule.value2 = sch.value2();
  p.schedule.short1 = static_cast<unsigned short>(sch.short1());
  p.schedule.short2 = static_cast<unsigned short>(sch.short2());
  p.schedule.text1 = sch.text1();
  fillList(p.reservations.items, static_cast<std::size_t>(m.reservations_size()),
           [&](std::size_t i) {
             const pb::Reservation& r = m.reservations(static_cast<int>(i));
             return ReservationInfo{r.wide1(), static_cast<unsigned short>(r.short1()), r.value1(),
                                    r.value2()};
           });
  fillList(p.encoding.codecs, static_cast<std::size_t>(m.encoding().codecs_size()),
           [&](std::size_t i) { return m.encoding().codecs(static_cast<int>(i)); });
  p.encoding.value1 = m.encoding().value1();
  fillList(p.encodingExtras, static_cast<std::size_t>(m.encoding_extras_size()),
           [&](std::size_t i) { return m.encoding_extras(static_cast<int>(i)); });
  p.sysMessage.value1 = m.sys_message();
  const pb::AutoGainCtrl& agc = m.auto_gain_ctrl();
  p.autoGainCtrl = {agc.value1(), static_cast<unsigned short>(agc.short1()),
                    static_cast<unsigned short>(agc.short2())};
}

pb::ConferenceParams& reusedMessage() {
  static pb::ConferenceParams message;
  return message;
}

std::string_view encode(const ConferenceParams& p, std::string& scratch) {
  pb::ConferenceParams& message = reusedMessage();
  toProto(p, message);
  message.SerializeToString(&scratch);
  return scratch;
}

bool decode(std::string_view in, ConferenceParams& out) {
  pb::ConferenceParams& message = reusedMessage();
  if (!message.ParseFromArray(in.data(), static_cast<int>(in.size()))) return false;
  ConferenceParams decoded;
  decoded.recording.uri = out.recording.uri;  // kept when the record carries none
  fromProto(message, decoded);
  out = std::move(decoded);
  return true;
}

}  // namespace

CodecPeer protobufPeer() {
  return {"Protobuf",
          "fill a reused generated message from the record, SerializeToString into a ready "
          "buffer",
          "ParseFromArray into a reused message, then build a new record from it and move it "
          "into the target",
          encode, decode};
}

}  // namespace conflink::bench

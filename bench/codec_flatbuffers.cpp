// FlatBuffers on ConferenceParams, through the code flatc generates from codec_conference.fbs.
// Encode builds the buffer from the record in one reused builder (strings, tables and vectors
// bottom-up); the bytes are the builder's own, with no copy into the caller's buffer. Decode
// verifies the whole buffer, then reads every field into a new record moved into the target, as
// our decode does: FlatBuffers readers work in place, but our receivers want the records.
#include <vector>

#include "codec_conference_generated.h"
#include "codec_peers.h"

namespace conflink::bench {
namespace {

namespace fb = conflink_bench::fb;
using flatbuffers::FlatBufferBuilder;
using flatbuffers::Offset;

using Strings = flatbuffers::Vector<Offset<flatbuffers::String>>;

Offset<flatbuffers::Vector<Offset<flatbuffers::String>>> stringList(
    FlatBufferBuilder& b, const std::list<std::string>& list) {
  std::vector<Offset<flatbuffers::String>> offsets;
  offsets.reserve(list.size());
  for (const std::string& s : list) offsets.push_back(b.CreateString(s));
  return b.CreateVector(offsets);
}

Offset<fb::SipUri> build(FlatBufferBuilder& b, const SipUri& r) {
  const auto t1 = b.CreateString(r.text1), t2 = b.CreateString(r.text2),
             t3 = b.CreateString(r.text3), t4 = b.CreateString(r.text4);
  return fb::CreateSipUri(b, t1, t2, t3, t4);
}

Offset<fb::ConferenceUser> build(FlatBufferBuilder& b, const ConferenceUser& u) {
  const auto t1 = b.CreateString(u.text1), t2 = b.CreateString(u.text2),
             t3 = b.CreateString(u.text3), t4 = b.CreateString(u.text4),
             t5 = b.CreateString(u.text5), t6 = b.CreateString(u.text6);
  return fb::CreateConferenceUser(b, u.id, t1, t2, t3, t4, t5, t6, u.short1, u.short2, u.value1,
                                  u.value2, u.value3, u.value4, u.value5, u.value6, u.value7,
                                  u.value8, u.value9, u.value10, u.value11);
}

void build(FlatBufferBuilder& b, const ConferenceParams& p) {
  const ConfGeneralParams& g = p.general;
  const auto g1 = b.CreateString(g.text1), g2 = b.CreateString(g.text2),
             g3 = b.CreateString(g.text3), g4 = b.CreateString(g.text4);
  const auto general =
      fb::CreateConfGeneral(b, g1, g2, g.value1, g3, g4, g.value2, g.wide1, g.wide2, g.value3,
                            g.value4, g.value5, g.value6, g.value7, g.value8);
  std::vector<Offset<fb::ConferenceUser>> users;
  users.reserve(p.participants.size());
  for (const ConferenceUser& u : p.participants) users.push_back(build(b, u));
  const auto participants = b.CreateVector(users);

  const SipRegistrationParams& s = p.sip;
  const auto s1 = b.CreateString(s.text1), s2 = b.CreateString(s.text2),
             s3 = b.CreateString(s.text3), s4 = b.CreateString(s.text4),
             s5 = b.CreateString(s.text5), s6 = b.CreateString(s.text6),
             s7 = b.CreateString(s.text7), s8 = b.CreateString(s.text8),
             s9 = b.CreateString(s.text9), s10 = b.CreateString(s.text10),
             s11 = b.CreateString(s.text11);
  const auto sip = fb::CreateSipRegistration(b, s1, s2, s3, s4, s5, s.value1, s6, s7, s8, s9, s10,
                                             s11, s.value2, s.value3, s.value4);

  const RecordingParams& rec = p.recording;
  const auto texts = stringList(b, rec.texts);
  const auto uri = rec.value3 == 0 ? build(b, rec.uri) : Offset<fb::SipUri>();
  const auto recording = fb::CreateRecording(b, rec.value1, texts, rec.value2, rec.value3,
                                             rec.value4, rec.value5, uri);

  std::vector<Offset<fb::Rule>> ruleOffsets;
  for (const RuleParams& rule : p.schedule.rules) {
    const auto t1 = b.CreateString(rule.text1), t2 = b.CreateString(rule.text2);
    ruleOffsets.push_back(fb::CreateRule(b, rule.value1, t1, t2));
  }
  const auto rules = b.CreateVector(ruleOffsets);
  const auto zone = b.CreateString(p.schedule.text1);
  const auto schedule = fb::CreateSchedule(b, rules, p.schedule.value1, p.schedule.value2,
                                           p.schedule.short1, p.schedule.short2, zone);

  std::vector<fb::Reservation> items;
  items.reserve(p.reservations.items.size());
  for (const ReservationInfo& r : p.reservations.items)
    items.emplace_back(r.wide1, r.short1, r.value1, r.value2);
  const auto reservations = b.CreateVectorOfStructs(items);

  const auto codecs = stringList(b, p.encoding.codecs);
  const auto encoding = fb::CreateEncoding(b, codecs, p.encoding.value1);
  const auto extras = stringList(b, p.encodingExtras);

  const NewParticipantParams& n = p.newParticipant;
  const fb::NewParticipant newParticipant(n.value1, n.short1, n.value2, n.value3, n.value4,
                                          n.value5, n.value6, n.value7, n.value8, n.value9,
                                          n.value10);
  const fb::AutoGainCtrl agc(p.autoGainCtrl.value1, p.autoGainCtrl.short1, p.autoGainCtrl.short2);
  b.Finish(fb::CreateConferenceParams(b, general, &newParticipant, participants, sip, recording,
                                      schedule, reservations, encoding, extras, p.sysMessage.value1,
                                      &agc));
}

std::string text(const flatbuffers::String* s) {
  return s != nullptr ? std::string(s->data(), s->size()) : std::string();
}

void readStrings(const Strings* from, std::list<std::string>& to) {
  fillList(to, from != nullptr ? from->size() : 0,
           [&](std::size_t i) { return text(from->Get(static_cast<flatbuffers::uoffset_t>(i))); });
}

SipUri read(const fb::SipUri& u) {
  return {text(u.text1()), text(u.text2()), text(u.text3()), text(u.text4())};
}

ConferenceUser read(const fb::ConferenceUser& u) {
  return {u.id(),          text(u.text1()), text(u.text2()), text(u.text3()), text(u.text4()),
          text(u.text5()), text(u.text6()), u.short1(),      u.short2(),      u.value1(),
          u.value2(),      u.value3(),      u.value4(),      u.value5(),      u.value6(),
          u.value7(),      u.value8(),      u.value9(),      u.value10(),     u.value11()};
}

// Reads every field; a table the buffer lacks reads as its defaults, as FlatBuffers defines.
void read(const fb::ConferenceParams& m, ConferenceParams& p) {
  if (const fb::ConfGeneral* g = m.general()) {
    p.general = {text(g->text1()), text(g->text2()), g->value1(), text(g->text3()),
                 text(g->text4()), g->value2(),      g->wide1(),  g->wide2(),
                 g->value3(),      g->value4(),      g->value5(), g->value6(),
                 g->value7(),      g->value8()};
  }
  if (const fb::NewParticipant* n = m.new_participant()) {
    p.newParticipant = {n->value1(), n->short1(), n->value2(), n->value3(),
                        n->value4(), n->value5(), n->value6(), n->value7(),
                        n->value8(), n->value9(), n->value10()};
  }
  const auto* users = m.participants();
  fillList(p.participants, users != nullptr ? users->size() : 0, [&](std::size_t i) {
    return read(*users->Get(static_cast<flatbuffers::uoffset_t>(i)));
  });
  if (const fb::SipRegistration* s = m.sip()) {
    p.sip = {text(s->text1()), text(s->text2()), text(s->text3()),  text(s->text4()),
             text(s->text5()), s->value1(),      text(s->text6()),  text(s->text7()),
             text(s->text8()), text(s->text9()), text(s->text10()), text(s->text11()),
             s->value2(),      s->value3(),      s->value4()};
  }
  if (const fb::Recording* rec = m.recording()) {
    p.recording.value1 = rec->value1();
    readStrings(rec->texts(), p.recording.texts);
    p.recording.value2 = rec->value2();
    p.recording.value3 = rec->value3();
    p.recording.value4 = rec->value4();
    p.recording.value5 = rec->value5();
    if (rec->uri() != nullptr) p.recording.uri = read(*rec->uri());
  }
  if (const fb::Schedule* sch = m.schedule()) {
    const auto* rules = sch->rules();
    fillList(p.schedule.rules, rules != nullptr ? rules->size() : 0, [&](std::size_t i) {
      const fb::Rule* rule = rules->Get(static_cast<flatbuffers::uoffset_t>(i));
      return RuleParams{rule->value1(), text(rule->text1()), text(rule->text2())};
    });
    p.schedule.value1 = sch->value1();
    p.schedule.value2 = sch->value2();
    p.schedule.short1 = sch->short1();
    p.schedule.short2 = sch->short2();
    p.schedule.text1 = text(sch->text1());
  }
  const auto* items = m.reservations();
  fillList(p.reservations.items, items != nullptr ? items->size() : 0, [&](std::size_t i) {
    const fb::Reservation* r = items->Get(static_cast<flatbuffers::uoffset_t>(i));
    return ReservationInfo{r->wide1(), r->short1(), r->value1(), r->value2()};
  });
  if (const fb::Encoding* enc = m.encoding()) {
    readStrings(enc->codecs(), p.encoding.codecs);
    p.encoding.value1 = enc->value1();
  }
  readStrings(m.encoding_extras(), p.encodingExtras);
  p.sysMessage.value1 = m.sys_message();
  if (const fb::AutoGainCtrl* agc = m.auto_gain_ctrl())
    p.autoGainCtrl = {agc->value1(), agc->short1(), agc->short2()};
}

FlatBufferBuilder& reusedBuilder() {
  static FlatBufferBuilder builder(1024);
  return builder;
}

std::string_view encode(const ConferenceParams& p, std::string&) {
  FlatBufferBuilder& b = reusedBuilder();
  b.Clear();
  build(b, p);
  return std::string_view(reinterpret_cast<const char*>(b.GetBufferPointer()), b.GetSize());
}

bool decode(std::string_view in, ConferenceParams& out) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(in.data());
  flatbuffers::Verifier verifier(bytes, in.size());
  if (!fb::VerifyConferenceParamsBuffer(verifier)) return false;
  ConferenceParams decoded{};
  decoded.recording.uri = out.recording.uri;  // kept when the record carries none
  read(*fb::GetConferenceParams(bytes), decoded);
  out = std::move(decoded);
  return true;
}

}  // namespace

CodecPeer flatbuffersPeer() {
  return {"FlatBuffers",
          "build the buffer from the record in a reused builder (the bytes stay in the builder, "
          "no copy out)",
          "verify the whole buffer, then read every field into a new record moved into the "
          "target",
          encode, decode};
}

}  // namespace conflink::bench

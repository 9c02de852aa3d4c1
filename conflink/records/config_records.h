// One conference's settings, section by section, as the administration front end edits them and
// the conference server stores them. Each section travels alone in its own save request and
// settings reply; together they form ConferenceParams.
//
// Plain value types: strings and lists start empty, numbers start unset, copies are memberwise.
#pragma once

#include <list>
#include <string>

#include <conflink/records/call_records.h>

struct ConfGeneralParams {
  std::string text1;
  std::string text2;
  int value1;
  std::string text3;
  std::string text4;
  int value2;
  unsigned long long wide1;
  unsigned long long wide2;
  int value3;
  int value4;
  int value5;
  int value6;
  int value7;
  int value8;
};

// Defaults applied to participants who join.
struct NewParticipantParams {
  int value1;
  unsigned short short1;
  int value2;
  int value3;
  int value4;
  int value5;
  int value6;
  int value7;
  int value8;
  int value9;
  int value10;
};

// One entry of a conference's participant roster.
struct ConferenceUser {
  unsigned long long id;
  std::string text1;
  std::string text2;
  std::string text3;
  std::string text4;
  std::string text5;
  std::string text6;
  unsigned short short1;
  unsigned short short2;
  int value1;
  int value2;
  int value3;
  int value4;
  int value5;
  int value6;
  int value7;
  int value8;
  int value9;
  int value10;
  int value11;
};

// One rule of a schedule.
struct RuleParams {
  int value1;
  std::string text1;
  std::string text2;
};

// When a conference runs.
struct ScheduleParams {
  std::list<RuleParams> rules;
  int value1;
  int value2;
  unsigned short short1;
  unsigned short short2;
  std::string text1;
};

// How a conference registers with a SIP registrar.
struct SipRegistrationParams {
  std::string text1;
  std::string text2;
  std::string text3;
  std::string text4;
  std::string text5;
  int value1;
  std::string text6;
  std::string text7;
  std::string text8;
  std::string text9;
  std::string text10;
  std::string text11;
  int value2;
  int value3;
  int value4;
};

// How a conference is recorded. `uri` travels only when value3 is 0.
struct RecordingParams {
  int value1;
  std::list<std::string> texts;
  int value2;
  int value3;
  int value4;
  int value5;
  SipUri uri;
};

// The codecs of a conference.
struct EncodingParams {
  std::list<std::string> codecs;
  int value1;
};

struct SysMessageParams {
  int value1;
};

// Automatic gain control.
struct AutoGainCtrlParams {
  int value1;
  unsigned short short1;
  unsigned short short2;
};

// The automated attendant of a conference.
struct AttendantParams {
  std::string text1;
  SipRegistrationParams sip;
  unsigned long long wide1;
  unsigned long long wide2;
  int value1;
  int value2;
  SipUri uri;
};

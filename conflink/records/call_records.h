// Records about calls, participants, registrations and media topology.
//
// Plain value types: strings and lists start empty, numbers start unset (a sender fills every
// field before sending), copies are memberwise. Their wire forms are in record_fields.h and
// record_codecs.h.
#pragma once

#include <list>
#include <string>

#include <conflink/platform/codec_info.h>

// A conference identifier.
struct ConfIDString {
  std::string id;
};

// A SIP address split into four text parts.
struct SipUri {
  std::string text1;
  std::string text2;
  std::string text3;
  std::string text4;
};

// One participant's leg of a call.
struct CallParams {
  std::string text1;
  std::string text2;
  std::string text3;
  std::string text4;
  std::string text5;
  std::string text6;
  std::string text7;
  std::string text8;
  std::string text9;
  std::string text10;
  int value1;

  // The only operation that clears numeric data: ten empty strings and value1 0.
  void Reset() {
    text1.clear();
    text2.clear();
    text3.clear();
    text4.clear();
    text5.clear();
    text6.clear();
    text7.clear();
    text8.clear();
    text9.clear();
    text10.clear();
    value1 = 0;
  }
};

// A conference registration: the call it came from, then its own fields.
struct RegisterParams : CallParams {
  int value2;
  int value3;
  std::string text11;
};

struct CallExtraParams {
  int value1;
  int value2;
};

// How a participant takes part.
struct ParticipantParams {
  int value1;
  int value2;
  int value3;
  int value4;
  int value5;
};

// A conference that call control sets up.
struct ConfSpecParams {
  int value1;
  int value2;
  int value3;
  int value4;
  int value5;
};

// Where an automated attendant sends a caller who asks for an operator.
struct AttendantZeroOutParams {
  int value1;
  std::string text1;
  std::string text2;
  std::string text3;
  std::string text4;
};

// One media stream of an endpoint.
struct MediaDetails {
  unsigned long long id;
  int value1;
};

// The media that one user receives.
struct UserRxMediaList {
  unsigned long long id;
  std::list<MediaDetails> media;
};

struct EndpointTopology {
  std::list<MediaDetails> media1;
  std::list<MediaDetails> media2;
};

// The media topology of a whole conference.
struct ConfTopology {
  std::list<UserRxMediaList> users;
};

// Media descriptions kept in lists by call control; no message carries them, so they have no
// wire form. Both are plain data.
struct FaxCodecInfo {
  int value1;
  int value2;
  unsigned short short1;
};

struct CodecParams {
  int value1;
  int value2;
  int value3;
};

// The codec lists follow the leading fields; the fax list is declared last so that it is
// released first.
struct MediaParams {
  int value1;
  int value2;
  std::string text1;
  std::list<CodecInfo> codecs;
  std::list<FaxCodecInfo> faxCodecs;
};

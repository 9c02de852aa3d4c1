// What the conference server reports back to the administration front end: a running
// conference's progress and status, lists of conferences and registered users, and the
// reservations of conference capacity over time.
//
// Plain value types: strings and lists start empty, numbers start unset, copies are memberwise.
#pragma once

#include <list>
#include <string>
#include <type_traits>

#include <conflink/records/call_records.h>
#include <conflink/records/config_records.h>

// The live state of one conference and its participants.
struct ConferenceProgress {
  std::string text1;
  std::string text2;
  std::string text3;
  std::string text4;
  std::string text5;
  std::string text6;
  int value1;
  int value2;
  int value3;
  int value4;
  int value5;
  unsigned short short1;
  int value6;
  unsigned short short2;
  int value7;
  std::list<ConferenceUser> participants;
};

struct ConferenceStatus {
  int value1;
};

// One conference in the list of a user's conferences.
struct ConfInfo {
  std::string text1;
  std::string text2;
  std::string text3;
  std::string text4;
  std::string text5;
  std::string text6;
  std::string text7;
  int value1;
  int value2;
  int value3;
  unsigned long long wide1;
  std::list<std::string> texts;
};

// One conference in the list of active or public conferences.
struct ActiveConfInfo {
  std::string text1;
  std::string text2;
  std::string text3;
  std::string text4;
  std::string text5;
  std::string text6;
  int value1;
  int value2;
  int value3;
  unsigned short short1;
  unsigned short short2;
};

// One registered user: a SIP address and nothing more.
struct RegisteredUserInfo : SipUri {};

// One reservation of conference capacity. It travels in two forms: field by field (18 bytes) in
// the reservation requests, and as its 24-byte image with padding inside a Reservations list.
struct ReservationInfo {
  unsigned long long wide1;
  unsigned short short1;
  int value1;
  int value2;
};

// The reservations of one conference or of the whole server.
struct Reservations {
  std::list<ReservationInfo> items;
};

// One segment of the reservation load over time. Its 8 bytes travel exactly as they lie in the
// sender's memory, so the receiver must share the sender's byte order to read the two numbers.
struct LoadSegment {
  unsigned int start;
  unsigned int load;
};
static_assert(sizeof(LoadSegment) == 8, "a load segment travels as exactly 8 bytes");
static_assert(std::is_trivially_copyable_v<LoadSegment>, "a load segment is copied as raw bytes");

// Messengers that keep, as text, every handler call and Error report they see: the base of the
// links' recorders (cc_recorder.h, cgi_recorder.h), for tests and for anything that must see every
// value a message decodes to. Needs no test framework, so that programs other than the tests
// (the fuzz targets, the soak) use the same recorders.
#pragma once

#include <string>
#include <type_traits>
#include <vector>

#include <conflink/cc/cc_catalogue.h>
#include <conflink/cc/cc_to_ps_messenger.h>
#include <conflink/cgi/cgi_catalogue.h>
#include <conflink/cgi/cgi_to_ps_messenger.h>
#include <conflink/wire/text.h>

namespace conflink::testing {

// Renders a handler call as "Name(a, b, ...)" with the same rendering as the logs.
template <class... A>
std::string callText(const std::string& name, const A&... args) {
  std::string out = name;
  {
    auto list = wire::TextList::arguments(out);
    (list(args), ...);
  }
  return out;
}

// The part of a probe messenger that keeps what its handlers and Error saw.
class CallLog {
 public:
  std::vector<std::string> calls;
  std::vector<std::string> errors;

 protected:
  template <class... A>
  int note(const char* name, const A&... args) {
    calls.push_back(callText(name, args...));
    return 0;
  }
};

// The shared handlers of either messenger, recording their calls.
template <class Base>
class SharedRecorder : public Base, public CallLog {
 public:
  explicit SharedRecorder(int queueNumber = 3) : Base(queueNumber) {}
  void Error(const char* text) override { errors.push_back(text); }

  int OnSuccess(const unsigned long long& a, PSSuccessType b) override {
    return note("OnSuccess", a, b);
  }
  int OnReject(const unsigned long long& a, RejectReason b) override {
    return note("OnReject", a, b);
  }
  int OnModeratorApprovalNeeded(const unsigned long long& a) override {
    return note("OnModeratorApprovalNeeded", a);
  }
  int OnAuthorizationPassed(const unsigned long long& a, const unsigned long long& b, bool c,
                            bool d) override {
    return note("OnAuthorizationPassed", a, b, c, d);
  }
  int OnConferenceLocked(const unsigned long long& a, bool b) override {
    return note("OnConferenceLocked", a, b);
  }
  // The block is recorded as text, so that its bytes are compared, not its address.
  int OnSendConferenceParam(const unsigned long long& a, ConferenceParamType b, unsigned int c,
                            const void* d) override {
    if (d == nullptr) return note("OnSendConferenceParam with a null block");
    return note("OnSendConferenceParam", a, b, c, std::string(static_cast<const char*>(d), c));
  }
  int OnAddParticipant(const unsigned long long& a, const ConfIDString& b,
                       const unsigned long long& c, const ConferenceUser& d,
                       PSProtocolType e) override {
    return note("OnAddParticipant", a, b, c, d, e);
  }
  int OnDialOut(const unsigned long long& a, const ConfIDString& b, const unsigned long long& c,
                PSProtocolType d) override {
    return note("OnDialOut", a, b, c, d);
  }
  int OnDeleteParticipant(const unsigned long long& a, const ConfIDString& b,
                          const unsigned long long& c, const unsigned long long& d,
                          PSProtocolType e) override {
    return note("OnDeleteParticipant", a, b, c, d, e);
  }
  int OnSetSpeaker(const unsigned long long& a, const ConfIDString& b, const unsigned long long& c,
                   const unsigned long long& d, bool e, PSProtocolType f) override {
    return note("OnSetSpeaker", a, b, c, d, e, f);
  }
  int OnStartLectureMode(const unsigned long long& a, const ConfIDString& b,
                         const unsigned long long& c, const unsigned long long& d,
                         PSProtocolType e) override {
    return note("OnStartLectureMode", a, b, c, d, e);
  }
  int OnRequestToSpeak(const unsigned long long& a, const ConfIDString& b,
                       const unsigned long long& c, bool d, PSProtocolType e) override {
    return note("OnRequestToSpeak", a, b, c, d, e);
  }
  int OnAuthorizationRequest(const unsigned long long& a, const ConfIDString& b,
                             const unsigned long long& c, const std::string& d,
                             PSProtocolType e) override {
    return note("OnAuthorizationRequest", a, b, c, d, e);
  }
  int OnStartConference(const unsigned long long& a, const ConfIDString& b,
                        const unsigned long long& c, PSProtocolType d) override {
    return note("OnStartConference", a, b, c, d);
  }
  int OnStopConference(const unsigned long long& a, const ConfIDString& b,
                       const unsigned long long& c, PSProtocolType d) override {
    return note("OnStopConference", a, b, c, d);
  }
  int OnRequestStartRecording(const unsigned long long& a, const ConfIDString& b,
                              const unsigned long long& c, PSProtocolType d) override {
    return note("OnRequestStartRecording", a, b, c, d);
  }
  int OnRequestStopRecording(const unsigned long long& a, const ConfIDString& b,
                             const unsigned long long& c, PSProtocolType d) override {
    return note("OnRequestStopRecording", a, b, c, d);
  }
  int OnRequestPauseRecording(const unsigned long long& a, const ConfIDString& b,
                              const unsigned long long& c, PSProtocolType d) override {
    return note("OnRequestPauseRecording", a, b, c, d);
  }
  int OnRequestResumeRecording(const unsigned long long& a, const ConfIDString& b,
                               const unsigned long long& c, PSProtocolType d) override {
    return note("OnRequestResumeRecording", a, b, c, d);
  }
  int OnInitiateDialOut(const unsigned long long& a, const ConfIDString& b,
                        const unsigned long long& c, bool d, PSProtocolType e) override {
    return note("OnInitiateDialOut", a, b, c, d, e);
  }
  int OnLockConference(const unsigned long long& a, const ConfIDString& b,
                       const unsigned long long& c, bool d, PSProtocolType e) override {
    return note("OnLockConference", a, b, c, d, e);
  }
  int OnGetConferenceParam(const unsigned long long& a, const ConfIDString& b,
                           ConferenceParamType c, PSProtocolType d) override {
    return note("OnGetConferenceParam", a, b, c, d);
  }
};

// The mark a messenger class puts on what it sends, and the description of its link.
template <class M>
constexpr int markOf() {
  return std::is_base_of_v<CCToPSMessenger, M> ? 0 : 2;
}
template <class M>
std::string describeOnLinkOf(int type, const std::string& buffer) {
  return std::is_base_of_v<CCToPSMessenger, M>
             ? msg::DescribeCcLinkMessage(type, buffer.data(), buffer.size())
             : msg::DescribeCgiLinkMessage(type, buffer.data(), buffer.size());
}

}  // namespace conflink::testing

// A call-control messenger whose every handler, of both ends of the link, records its call as
// text (see call_log.h): for the link's tests, and for anything that must see every value a
// message decodes to.
#pragma once

#include <list>
#include <string>

#include <conflink/cc/cc_to_ps_messenger.h>
#include "tests/support/call_log.h"

namespace conflink::testing {

// Both ends of the link in one class, every handler recording its call.
class CcRecorder : public SharedRecorder<CCToPSMessenger> {
 public:
  using SharedRecorder::OnAddParticipant;
  using SharedRecorder::OnSetSpeaker;
  using SharedRecorder::OnStartConference;
  using SharedRecorder::OnStopConference;
  using SharedRecorder::OnSuccess;
  using SharedRecorder::SharedRecorder;
  int OnAddParticipant(const unsigned long long& a, const ConfIDString& b, const SipUri& c,
                       const unsigned long long& d, const CallParams& e,
                       const std::list<std::string>& f, const ParticipantParams& g,
                       TransmitType h) override {
    return note("OnAddParticipant", a, b, c, d, e, f, g, h);
  }
  int OnUpdateUserInfo(const unsigned long long& a, const CallParams& b,
                       const CallExtraParams& c) override {
    return note("OnUpdateUserInfo", a, b, c);
  }
  int OnRemoveParticipant(const unsigned long long& a, const ConfIDString& b) override {
    return note("OnRemoveParticipant", a, b);
  }
  int OnSetupConference(const unsigned long long& a, const ConfIDString& b,
                        const RecordingParams& c, const CallParams* d, const ConfSpecParams& e,
                        unsigned short f) override {
    return note("OnSetupConference", a, b, c, d, e, f);
  }
  int OnCloseConference(const unsigned long long& a, const ConfIDString& b,
                        CloseConferenceReason c) override {
    return note("OnCloseConference", a, b, c);
  }
  int OnStartConference(const unsigned long long& a, const ConfIDString& b) override {
    return note("OnStartConference", a, b);
  }
  int OnStopConference(const unsigned long long& a, const ConfIDString& b) override {
    return note("OnStopConference", a, b);
  }
  int OnPauseConference(const unsigned long long& a) override {
    return note("OnPauseConference", a);
  }
  int OnResumeConference(const unsigned long long& a) override {
    return note("OnResumeConference", a);
  }
  int OnStartRecording(const unsigned long long& a, const ConfIDString& b) override {
    return note("OnStartRecording", a, b);
  }
  int OnStopRecording(const unsigned long long& a, const ConfIDString& b) override {
    return note("OnStopRecording", a, b);
  }
  int OnPauseRecording(const unsigned long long& a, const ConfIDString& b) override {
    return note("OnPauseRecording", a, b);
  }
  int OnResumeRecording(const unsigned long long& a, const ConfIDString& b) override {
    return note("OnResumeRecording", a, b);
  }
  int OnModifyConferenceMedia(const unsigned long long& a, const ConfIDString& b,
                              const ConfTopology& c) override {
    return note("OnModifyConferenceMedia", a, b, c);
  }
  int OnModifyParticipantMedia(const unsigned long long& a) override {
    return note("OnModifyParticipantMedia", a);
  }
  int OnSetSpeaker(const unsigned long long& a, const ConfIDString& b, bool c) override {
    return note("OnSetSpeaker", a, b, c);
  }
  int OnRegisterConfID(const unsigned long long& a, const ConfIDString& b, const RegisterParams& c,
                       const RegisterParams& d) override {
    return note("OnRegisterConfID", a, b, c, d);
  }
  int OnRegisterAllConferences(const std::list<RegisterParams>& a) override {
    return note("OnRegisterAllConferences", a);
  }
  int OnAddScenario(const unsigned long long& a, const ConfIDString& b, ScenarioType c) override {
    return note("OnAddScenario", a, b, c);
  }
  int OnUpdateScenario(const unsigned long long& a, const ConfIDString& b,
                       ScenarioType c) override {
    return note("OnUpdateScenario", a, b, c);
  }
  int OnRemoveScenario(const unsigned long long& a, const ConfIDString& b,
                       ScenarioType c) override {
    return note("OnRemoveScenario", a, b, c);
  }
  int OnJoinAccept(const unsigned long long& a, const unsigned long long& b, const ConfIDString& c,
                   const std::list<std::string>& d, const ParticipantParams& e,
                   TransmitType f) override {
    return note("OnJoinAccept", a, b, c, d, e, f);
  }
  int OnJoinReject(const unsigned long long& a, RejectReason b,
                   const std::list<std::string>& c) override {
    return note("OnJoinReject", a, b, c);
  }
  int OnActivateAttendant(const unsigned long long& a, const ConfIDString& b,
                          const std::list<std::string>& c, const AttendantZeroOutParams& d,
                          bool e) override {
    return note("OnActivateAttendant", a, b, c, d, e);
  }
  int OnSendEndpointTopology(const unsigned long long& a, const ConfIDString& b,
                             const EndpointTopology& c) override {
    return note("OnSendEndpointTopology", a, b, c);
  }
  int OnReportError(const unsigned long long& a, ConfServError b) override {
    return note("OnReportError", a, b);
  }
  int OnJoinConference(const unsigned long long& a, const ConfIDString& b, const std::string& c,
                       const SipUri& d, bool e, PSProtocolType f) override {
    return note("OnJoinConference", a, b, c, d, e, f);
  }
  int OnActivateParticipant(const unsigned long long& a, const ConfIDString& b,
                            const unsigned long long& c, const std::string& d, bool e,
                            PSProtocolType f) override {
    return note("OnActivateParticipant", a, b, c, d, e, f);
  }
  int OnParticipantLeft(const unsigned long long& a, const ConfIDString& b,
                        const unsigned long long& c, PSProtocolType d) override {
    return note("OnParticipantLeft", a, b, c, d);
  }
  int OnHoldParticipant(const unsigned long long& a, const ConfIDString& b,
                        const unsigned long long& c, bool d, PSProtocolType e) override {
    return note("OnHoldParticipant", a, b, c, d, e);
  }
  int OnForwardParticipant(const unsigned long long& a, const ConfIDString& b,
                           const std::list<CallParams>& c, PSProtocolType d) override {
    return note("OnForwardParticipant", a, b, c, d);
  }
  int OnGetEndpointTopology(const unsigned long long& a, const ConfIDString& b,
                            const unsigned long long& c, PSProtocolType d) override {
    return note("OnGetEndpointTopology", a, b, c, d);
  }
  int OnRecordingTerminated(const unsigned long long& a, const ConfIDString& b,
                            PSProtocolType c) override {
    return note("OnRecordingTerminated", a, b, c);
  }
  int OnInitiateConferenceServer(PSProtocolType a) override {
    return note("OnInitiateConferenceServer", a);
  }
  int OnSuccess(const unsigned long long& a, CCSuccessType b, PSProtocolType c) override {
    return note("OnSuccess", a, b, c);
  }
};

}  // namespace conflink::testing

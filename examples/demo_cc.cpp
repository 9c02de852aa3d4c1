// The demo's call control (CC): reports calls to the server and carries out its commands.
//
//   conflink_demo_cc QUEUE
//
// What it shows: call control waits for the server, says it is ready, and then reacts. Each of
// the server's commands is answered with Success or ReportError. SetupConference prepares a
// conference. AddParticipant (a participant the web front end added) makes call control bring
// the call in: JoinConference, then, once accepted, ActivateParticipant, HoldParticipant and
// ParticipantLeft, each confirmed by the server; a participant without a SIP address cannot be
// called and is refused. RemoveParticipant is answered with Success. Between messages it sleeps
// in WaitForMessageFor, which returns as soon as one arrives, with the demo's lifetime as the
// deadline.
#include <chrono>
#include <string>

#include "demo_common.h"

namespace {

const char kMe[] = "CC";

class CallControl : public CCToPSMessenger {
 public:
  using CCToPSMessenger::CCToPSMessenger;
  using CCToPSMessenger::OnAddParticipant;
  bool serverAttached = false;
  bool callFinished = false;
  bool removalAnswered = false;

  void PSPeerConnected() override { serverAttached = true; }
  void PSPeerDisConnected() override { serverAttached = false; }

  // ---- The server's commands ----
  int OnSetupConference(const unsigned long long& id, const ConfIDString& conf,
                        const RecordingParams&, const CallParams*, const ConfSpecParams&,
                        unsigned short) override {
    demo::say(kMe, "media for conference %s prepared", conf.id.c_str());
    return Success(id, demo::kCcDone);
  }
  int OnAddParticipant(const unsigned long long& id, const ConfIDString& conf, const SipUri& uri,
                       const unsigned long long&, const CallParams&, const std::list<std::string>&,
                       const ParticipantParams&, TransmitType) override {
    if (uri.text2.empty()) {
      demo::say(kMe, "a participant without a SIP address cannot be called: refusing");
      return ReportError(id, demo::kNoAddress);
    }
    demo::say(kMe, "calling %s into conference %s", uri.text2.c_str(), conf.id.c_str());
    conf_ = conf;
    Success(id, demo::kCcDone);
    step_ = Step::kJoining;
    return JoinConference(next_++, conf, "audio", uri, false);
  }
  int OnRemoveParticipant(const unsigned long long& id, const ConfIDString& conf) override {
    removalAnswered = true;
    demo::say(kMe, "participant of conference %s removed", conf.id.c_str());
    return Success(id, demo::kCcDone);
  }

  // ---- The server's answers to call control's own reports ----
  int OnJoinAccept(const unsigned long long&, const unsigned long long& party,
                   const ConfIDString& conf, const std::list<std::string>&,
                   const ParticipantParams&, TransmitType) override {
    party_ = party;
    demo::say(kMe, "joined conference %s as party %llu; activating", conf.id.c_str(), party);
    step_ = Step::kActivating;
    return ActivateParticipant(next_++, conf, party, "audio", true);
  }
  int OnJoinReject(const unsigned long long&, RejectReason reason,
                   const std::list<std::string>&) override {
    demo::say(kMe, "join refused (reason %d)", static_cast<int>(reason));
    step_ = Step::kGone;
    callFinished = true;
    return 0;
  }
  // Each confirmation moves the call one step on: active, held, gone.
  int OnSuccess(const unsigned long long&, PSSuccessType) override {
    switch (step_) {
      case Step::kActivating:
        demo::say(kMe, "party %llu active; putting it on hold", party_);
        step_ = Step::kHolding;
        return HoldParticipant(next_++, conf_, party_, true);
      case Step::kHolding:
        demo::say(kMe, "party %llu on hold; hanging up", party_);
        step_ = Step::kLeaving;
        return ParticipantLeft(next_++, conf_, party_);
      case Step::kLeaving:
        demo::say(kMe, "party %llu has left", party_);
        step_ = Step::kGone;
        callFinished = true;
        return 0;
      default:
        return 0;
    }
  }
  int OnReportError(const unsigned long long& id, ConfServError error) override {
    demo::say(kMe, "the server refused report %llu (error %d)", id, static_cast<int>(error));
    callFinished = true;
    return 0;
  }

 private:
  enum class Step { kIdle, kJoining, kActivating, kHolding, kLeaving, kGone };
  Step step_ = Step::kIdle;
  ConfIDString conf_;
  unsigned long long party_ = 0;
  unsigned long long next_ = 500;  // ids of call control's reports
};

}  // namespace

int main(int argc, char** argv) {
  const int queue = demo::queueArgument(argc, argv, 1, "conflink_demo_cc QUEUE");
  CallControl cc(queue);
  if (!demo::connect(cc, kMe, queue)) return 1;

  // Wait for the server, so that nothing is left queued for a server that never came. Each wait
  // takes one message or queue event and dispatches it (the arrival to PSPeerConnected).
  const auto start = std::chrono::steady_clock::now();
  auto serve = [&cc, &start] {
    const int r = cc.WaitForMessageFor(demo::msLeft(start));
    if (r == conflink::kWaitFailed) demo::say(kMe, "the queue failed");
    return r == conflink::kWaitDispatched || r == conflink::kWaitTimedOut;
  };
  while (!cc.serverAttached && !demo::expired(start) && serve()) {
  }
  demo::say(kMe, "server attached; ready");
  cc.InitiateConferenceServer();

  // React to the server until the call has run its course and the removal was answered.
  while (cc.serverAttached && !(cc.callFinished && cc.removalAnswered) && !demo::expired(start) &&
         serve()) {
  }
  demo::say(kMe, "done");
  return cc.callFinished && cc.removalAnswered ? 0 : 1;
}

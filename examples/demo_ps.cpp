// The demo's conference server (PS): one process serving call control on one queue and the web
// front end on another, from one thread, with an in-memory store of conferences, reservations
// and registered users.
//
//   conflink_demo_ps CC_QUEUE CGI_QUEUE
//
// What it shows: a server derives from each link's messenger and overrides the handlers of the
// requests it serves; every handler answers on the link the request came on (Success, a reply
// with the data asked for, or an error report); and a request on one link may become a command
// on the other (the web front end's AddParticipant becomes call control's AddParticipant).
// And the loop of such a server: one conflink::WaitSet over both links and the process's own
// descriptors (here a signalfd for SIGINT and SIGTERM and a timerfd that bounds the demo's
// life), so that the thread sleeps in one poll until either link or descriptor has something,
// and dispatches only what is ready. No sleeping and no polling.
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <list>
#include <map>
#include <string>

#include <conflink/messaging/wait_set.h>

#include "demo_common.h"
#include "stop_signals.h"

namespace {

const char kMe[] = "PS";

// Everything the server knows.
struct Store {
  std::map<std::string, ConferenceParams> conferences;  // by conference id
  std::list<RegisteredUserInfo> users;
  std::map<unsigned long long, std::string> calls;  // call control's parties, by number
  unsigned long long nextCommand = 9001;            // ids of the server's own commands
};

// ---- The call-control link ----

class CallControlLink : public CCToPSMessenger {
 public:
  CallControlLink(int queueNumber, Store& store) : CCToPSMessenger(queueNumber), store_(store) {}
  bool left = false;

  void PSPeerConnected() override { demo::say(kMe, "call control attached"); }
  void PSPeerDisConnected() override {
    demo::say(kMe, "call control left");
    left = true;
  }
  int OnInitiateConferenceServer(PSProtocolType) override {
    demo::say(kMe, "call control is ready");
    return 0;
  }
  int OnJoinConference(const unsigned long long& id, const ConfIDString& conf, const std::string&,
                       const SipUri& uri, bool, PSProtocolType) override {
    if (store_.conferences.count(conf.id) == 0) {
      demo::say(kMe, "%s may not join unknown conference %s", uri.text2.c_str(), conf.id.c_str());
      return JoinReject(id, static_cast<RejectReason>(1), {"no such conference"});
    }
    const unsigned long long party = 100 + store_.calls.size();
    store_.calls[party] = "joined";
    demo::say(kMe, "%s joins conference %s as party %llu", uri.text2.c_str(), conf.id.c_str(),
              party);
    return JoinAccept(id, party, conf, {"welcome"}, ParticipantParams{1, 1, 0, 0, 0},
                      static_cast<TransmitType>(0));
  }
  int OnActivateParticipant(const unsigned long long& id, const ConfIDString&,
                            const unsigned long long& party, const std::string&, bool,
                            PSProtocolType) override {
    return changeCall(id, party, "active");
  }
  int OnHoldParticipant(const unsigned long long& id, const ConfIDString&,
                        const unsigned long long& party, bool hold, PSProtocolType) override {
    return changeCall(id, party, hold ? "held" : "active");
  }
  int OnParticipantLeft(const unsigned long long& id, const ConfIDString&,
                        const unsigned long long& party, PSProtocolType) override {
    return changeCall(id, party, "");
  }
  int OnSuccess(const unsigned long long& id, CCSuccessType, PSProtocolType) override {
    demo::say(kMe, "call control carried out command %llu", id);
    return 0;
  }
  int OnReportError(const unsigned long long& id, ConfServError error) override {
    demo::say(kMe, "call control refused command %llu (error %d)", id, static_cast<int>(error));
    return 0;
  }

 private:
  // A party's new state ("" when it left), answered with Success, or an error for a stranger.
  int changeCall(const unsigned long long& id, unsigned long long party, const char* state) {
    const auto call = store_.calls.find(party);
    if (call == store_.calls.end()) return ReportError(id, demo::kNoSuchParticipant);
    demo::say(kMe, "party %llu: %s -> %s", party, call->second.c_str(), *state ? state : "gone");
    if (*state != '\0') {
      call->second = state;
    } else {
      store_.calls.erase(call);
    }
    return Success(id, demo::kDone);
  }
  Store& store_;
};

// ---- The web front end's link ----

class WebLink : public CGIToPSMessenger {
 public:
  WebLink(int queueNumber, Store& store, CallControlLink& cc)
      : CGIToPSMessenger(queueNumber), store_(store), cc_(cc) {}
  bool left = false;

  // DispatchWaiting (what the loop calls) hands the queue's events to these two.
  void PeerConnected() override { demo::say(kMe, "web front end attached"); }
  void PeerDisconnected() override {
    demo::say(kMe, "web front end left");
    left = true;
  }

  int OnCreateConference(const unsigned long long& id, const unsigned long long&,
                         const ConferenceParams& params, ConfIDString conf, bool,
                         PSProtocolType) override {
    store_.conferences[conf.id] = params;
    demo::say(kMe, "conference %s \"%s\" created with %zu participants", conf.id.c_str(),
              params.general.text1.c_str(), params.participants.size());
    // Call control prepares the conference's media.
    cc_.SetupConference(store_.nextCommand++, conf, params.recording, nullptr, ConfSpecParams{}, 0);
    return ConferenceCreated(id, conf);
  }

  // Each settings page is saved into, and read back from, its section of the conference.
  int OnSaveConfGeneral(const unsigned long long& id, const ConfIDString& conf,
                        const unsigned long long&, const ConfGeneralParams& v,
                        PSProtocolType) override {
    return save(id, conf, "general", [&v](ConferenceParams& c) { c.general = v; });
  }
  int OnSaveConfNewParticipants(const unsigned long long& id, const ConfIDString& conf,
                                const unsigned long long&, const NewParticipantParams& v,
                                PSProtocolType) override {
    return save(id, conf, "new participants", [&v](ConferenceParams& c) { c.newParticipant = v; });
  }
  int OnSaveConfSchedule(const unsigned long long& id, const ConfIDString& conf,
                         const unsigned long long&, const ScheduleParams& v,
                         PSProtocolType) override {
    return save(id, conf, "schedule", [&v](ConferenceParams& c) { c.schedule = v; });
  }
  int OnSaveConfSipSettings(const unsigned long long& id, const ConfIDString& conf,
                            const unsigned long long&, const SipRegistrationParams& v,
                            PSProtocolType) override {
    return save(id, conf, "SIP", [&v](ConferenceParams& c) { c.sip = v; });
  }
  int OnSaveConfRecording(const unsigned long long& id, const ConfIDString& conf,
                          const unsigned long long&, const RecordingParams& v,
                          PSProtocolType) override {
    return save(id, conf, "recording", [&v](ConferenceParams& c) { c.recording = v; });
  }
  int OnSaveConfCodecs(const unsigned long long& id, const ConfIDString& conf,
                       const unsigned long long&, const EncodingParams& v,
                       PSProtocolType) override {
    return save(id, conf, "codecs", [&v](ConferenceParams& c) { c.encoding = v; });
  }
  int OnSaveConfSysMessages(const unsigned long long& id, const ConfIDString& conf,
                            const unsigned long long&, const SysMessageParams& v,
                            PSProtocolType) override {
    return save(id, conf, "system messages", [&v](ConferenceParams& c) { c.sysMessage = v; });
  }
  int OnSaveConfAutoGainCtrl(const unsigned long long& id, const ConfIDString& conf,
                             const unsigned long long&, const AutoGainCtrlParams& v,
                             PSProtocolType) override {
    return save(id, conf, "gain control", [&v](ConferenceParams& c) { c.autoGainCtrl = v; });
  }

  int OnGetConference(const unsigned long long& id, const ConfIDString& conf, GetConferenceType,
                      PSProtocolType) override {
    return read(id, conf, [&](const ConferenceParams& c) { return SendConference(id, c); });
  }
  int OnGetGeneralSettings(const unsigned long long& id, const ConfIDString& conf,
                           GetConferenceType, PSProtocolType) override {
    return read(id, conf,
                [&](const ConferenceParams& c) { return SendGeneralSettings(id, c.general); });
  }
  int OnGetNewParticipantSettings(const unsigned long long& id, const ConfIDString& conf,
                                  PSProtocolType) override {
    return read(id, conf, [&](const ConferenceParams& c) {
      return SendNewParticipantSettings(id, c.newParticipant);
    });
  }
  int OnGetScheduleSettings(const unsigned long long& id, const ConfIDString& conf,
                            PSProtocolType) override {
    return read(id, conf,
                [&](const ConferenceParams& c) { return SendScheduleSettings(id, c.schedule); });
  }
  int OnGetSipSettings(const unsigned long long& id, const ConfIDString& conf, GetConferenceType,
                       PSProtocolType) override {
    return read(id, conf, [&](const ConferenceParams& c) { return SendSipSettings(id, c.sip); });
  }
  int OnGetRecordingSettings(const unsigned long long& id, const ConfIDString& conf,
                             PSProtocolType) override {
    return read(id, conf, [&](const ConferenceParams& c) {
      return SendRecordingSettings(id, c.recording, c.recording.texts);
    });
  }
  int OnGetEncodingSettings(const unsigned long long& id, const ConfIDString& conf,
                            PSProtocolType) override {
    return read(id, conf, [&](const ConferenceParams& c) {
      return SendEncodingSettings(id, c.encoding, c.encodingExtras);
    });
  }
  int OnGetSysMessageSettings(const unsigned long long& id, const ConfIDString& conf,
                              PSProtocolType) override {
    return read(id, conf, [&](const ConferenceParams& c) {
      return SendSysMessageSettings(id, c.sysMessage, 1.5);
    });
  }
  int OnGetAutoGainCtrlSettings(const unsigned long long& id, const ConfIDString& conf,
                                PSProtocolType) override {
    return read(id, conf, [&](const ConferenceParams& c) {
      return SendAutoGainCtrlSettings(id, c.autoGainCtrl);
    });
  }

  // Participants: the roster is the server's; call control is told to bring each one in.
  int OnAddParticipant(const unsigned long long& id, const ConfIDString& conf,
                       const unsigned long long& party, const ConferenceUser& user,
                       PSProtocolType) override {
    const auto c = store_.conferences.find(conf.id);
    if (c == store_.conferences.end()) return CgiReportError(id, demo::kNoSuchConference);
    c->second.participants.push_back(user);
    demo::say(kMe, "%s added to conference %s; asking call control to call", user.text1.c_str(),
              conf.id.c_str());
    cc_.AddParticipant(store_.nextCommand++, conf, SipUri{"sip:", user.text2, "", "5060"}, party,
                       CallParams{}, {}, ParticipantParams{}, static_cast<TransmitType>(0));
    return Success(id, demo::kDone);
  }
  int OnDeleteParticipant(const unsigned long long& id, const ConfIDString& conf,
                          const unsigned long long&, const unsigned long long& user,
                          PSProtocolType) override {
    const auto c = store_.conferences.find(conf.id);
    if (c == store_.conferences.end()) return CgiReportError(id, demo::kNoSuchConference);
    c->second.participants.remove_if([&user](const ConferenceUser& u) { return u.id == user; });
    demo::say(kMe, "participant %llu removed from conference %s; telling call control", user,
              conf.id.c_str());
    cc_.RemoveParticipant(store_.nextCommand++, conf);
    return Success(id, demo::kDone);
  }
  int OnGetParticipantsList(const unsigned long long& id, const ConfIDString& conf,
                            PSProtocolType) override {
    return read(id, conf, [&](const ConferenceParams& c) {
      return SendParticipantsList(id, c.participants);
    });
  }

  int OnGetActiveConfList(const unsigned long long& id, PSProtocolType) override {
    std::list<ActiveConfInfo> list;
    for (const auto& [confId, c] : store_.conferences) {
      ActiveConfInfo info{};
      info.text1 = confId;
      info.text2 = c.general.text1;
      info.value1 = static_cast<int>(c.participants.size());
      list.push_back(info);
    }
    return SendActiveConfList(id, list);
  }

  int OnAddReservation(const unsigned long long& id, const ConfIDString& conf,
                       const ReservationInfo& reservation, PSProtocolType) override {
    return save(id, conf, "reservations",
                [&](ConferenceParams& c) { c.reservations.items.push_back(reservation); });
  }
  int OnGetReservationList(const unsigned long long& id, const ConfIDString& conf,
                           PSProtocolType) override {
    return read(id, conf,
                [&](const ConferenceParams& c) { return SendReservationList(id, c.reservations); });
  }

  int OnAddRegisteredUser(const unsigned long long& id, const SipUri& uri, const std::string& name,
                          PSProtocolType) override {
    RegisteredUserInfo user;
    static_cast<SipUri&>(user) = uri;
    store_.users.push_back(user);
    demo::say(kMe, "registered user %s (%s)", uri.text2.c_str(), name.c_str());
    return Success(id, demo::kDone);
  }
  int OnGetRegisteredUserList(const unsigned long long& id, PSProtocolType) override {
    return SendRegisteredUserList(id, store_.users);
  }

 private:
  template <class Apply>
  int save(const unsigned long long& id, const ConfIDString& conf, const char* page, Apply apply) {
    const auto c = store_.conferences.find(conf.id);
    if (c == store_.conferences.end()) {
      demo::say(kMe, "refused: no conference %s to save %s settings into", conf.id.c_str(), page);
      return CgiReportError(id, demo::kNoSuchConference);
    }
    apply(c->second);
    demo::say(kMe, "conference %s: %s settings saved", conf.id.c_str(), page);
    return Success(id, demo::kDone);
  }
  template <class Answer>
  int read(const unsigned long long& id, const ConfIDString& conf, Answer answer) {
    const auto c = store_.conferences.find(conf.id);
    if (c == store_.conferences.end()) return CgiReportError(id, demo::kNoSuchConference);
    return answer(c->second);
  }
  Store& store_;
  CallControlLink& cc_;
};

}  // namespace

int main(int argc, char** argv) {
  const char* usage = "conflink_demo_ps CC_QUEUE CGI_QUEUE";
  const int ccQueue = demo::queueArgument(argc, argv, 1, usage);
  const int cgiQueue = demo::queueArgument(argc, argv, 2, usage);
  Store store;
  CallControlLink cc(ccQueue, store);
  WebLink web(cgiQueue, store, cc);
  if (!demo::connect(cc, kMe, ccQueue) || !demo::connect(web, kMe, cgiQueue)) return 1;
  demo::say(kMe, "serving call control on queue %d and the web front end on queue %d", ccQueue,
            cgiQueue);

  // The process's own descriptors: SIGINT and SIGTERM as a readable signalfd (blocked, so that
  // they arrive only there), and a timer for the demo's lifetime.
  const int signals = examples::StopSignalDescriptor();
  const int lifetime = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
  itimerspec expiry{};
  expiry.it_value.tv_sec = std::chrono::seconds(demo::kLifetime).count();
  timerfd_settime(lifetime, 0, &expiry, nullptr);

  // One thread serves both links from one wait: the set dispatches up to 64 messages of a link
  // whose descriptor is readable and runs the handler of any other ready descriptor.
  bool stopping = false;
  conflink::WaitSet loop;
  loop.AddMessenger(cc);
  loop.AddMessenger(web);
  loop.Add(signals, POLLIN, [&stopping](int fd, short) {
    signalfd_siginfo info{};
    if (read(fd, &info, sizeof info) == sizeof info) {
      demo::say(kMe, "signal %u: stopping", info.ssi_signo);
    }
    stopping = true;
  });
  loop.Add(lifetime, POLLIN, [&stopping](int, short) {
    demo::say(kMe, "no end of the session within the demo's lifetime: stopping");
    stopping = true;
  });
  while (!(cc.left && web.left) && !stopping) {
    if (loop.Wait(-1) < 0 && errno != EINTR) {
      std::perror("PS: poll");
      break;
    }
  }
  close(signals);
  close(lifetime);
  demo::say(kMe, "%zu conference(s), %zu registered user(s), %zu call(s) left; stopping",
            store.conferences.size(), store.users.size(), store.calls.size());
  return cc.left && web.left ? 0 : 1;
}

// The demo's web front end (CGI): an administrator's session against the server.
//
//   conflink_demo_cgi QUEUE
//
// What it shows: the front end waits in line for its place on the queue (ConnectWaiting) and for
// the server to attach (WaitForMessageFor); then each request is sent with Request, which waits,
// as a web page would, for the answer carrying the request's RequestId and dispatches it to its
// handler (woken as soon as it arrives, bounded by a deadline). It creates a conference from a full
// ConferenceParams, saves each settings page and reads it back (the server's answer must equal what
// was saved), adds two participants (the server asks call control to call them), lists the
// conferences, adds and lists a reservation and registered users, removes a participant, and asks
// for something the server must refuse.
#include <chrono>
#include <list>
#include <string>

#include <conflink/records/record_equality.h>

#include "demo_common.h"

namespace {

const char kMe[] = "CGI";
const unsigned long long kUser = 7;  // the administrator
const GetConferenceType kAll = static_cast<GetConferenceType>(0);

class WebFrontEnd : public CGIToPSMessenger {
 public:
  using CGIToPSMessenger::CGIToPSMessenger;
  bool serverAttached = false;
  int successes = 0;
  int refusals = 0;
  // The last value of each kind that the server sent.
  ConfIDString created;
  ConfGeneralParams general{};
  NewParticipantParams newParticipant{};
  ScheduleParams schedule{};
  SipRegistrationParams sip{};
  RecordingParams recording{};
  EncodingParams encoding{};
  SysMessageParams sysMessage{};
  AutoGainCtrlParams autoGain{};
  std::list<ConferenceUser> participants;
  std::list<ActiveConfInfo> conferences;
  Reservations reservations;
  std::list<RegisteredUserInfo> users;

  // The server's arrival and departure, as WaitForMessageFor and Request deliver them.
  void PeerConnected() override { serverAttached = true; }
  void PeerDisconnected() override { serverAttached = false; }

  int OnSuccess(const unsigned long long&, PSSuccessType) override { return answered(successes); }
  int OnCgiReportError(const unsigned long long& id, ConfServError error) override {
    demo::say(kMe, "request %llu refused by the server (error %d)", id, static_cast<int>(error));
    return answered(refusals);
  }
  int OnConferenceCreated(const unsigned long long&, const ConfIDString& conf) override {
    return keep(created, conf);
  }
  int OnSendGeneralSettings(const unsigned long long&, const ConfGeneralParams& v) override {
    return keep(general, v);
  }
  int OnSendNewParticipantSettings(const unsigned long long&,
                                   const NewParticipantParams& v) override {
    return keep(newParticipant, v);
  }
  int OnSendScheduleSettings(const unsigned long long&, const ScheduleParams& v) override {
    return keep(schedule, v);
  }
  int OnSendSipSettings(const unsigned long long&, const SipRegistrationParams& v) override {
    return keep(sip, v);
  }
  int OnSendRecordingSettings(const unsigned long long&, const RecordingParams& v,
                              const std::list<std::string>&) override {
    return keep(recording, v);
  }
  int OnSendEncodingSettings(const unsigned long long&, const EncodingParams& v,
                             const std::list<std::string>&) override {
    return keep(encoding, v);
  }
  int OnSendSysMessageSettings(const unsigned long long&, const SysMessageParams& v,
                               const double&) override {
    return keep(sysMessage, v);
  }
  int OnSendAutoGainCtrlSettings(const unsigned long long&, const AutoGainCtrlParams& v) override {
    return keep(autoGain, v);
  }
  int OnSendParticipantsList(const unsigned long long&,
                             const std::list<ConferenceUser>& v) override {
    return keep(participants, v);
  }
  int OnSendActiveConfList(const unsigned long long&, const std::list<ActiveConfInfo>& v) override {
    return keep(conferences, v);
  }
  int OnSendReservationList(const unsigned long long&, const Reservations& v) override {
    return keep(reservations, v);
  }
  int OnSendRegisteredUserList(const unsigned long long&,
                               const std::list<RegisteredUserInfo>& v) override {
    return keep(users, v);
  }

  // Sends one request through `send` (given the request's id) and waits, at most 5 seconds, for
  // the answer that carries its id; false, with the reason said, when none came.
  template <class Send>
  bool ask(Send send) {
    const unsigned long long id = nextId_++;
    const int r = Request(
        id, [&send, id] { return send(id); }, 5000);
    if (r == conflink::kRequestAnswered) return true;
    demo::say(kMe, "request %llu: %s", id, conflink::RequestResultText(r));
    return false;
  }

 private:
  int answered(int& counter) {
    ++counter;
    return 0;
  }
  template <class T>
  int keep(T& slot, const T& value) {
    slot = value;
    return 0;
  }
  unsigned long long nextId_ = 1;
};

// A conference with every section filled in, as the creation form sends it.
ConferenceParams weeklyMeeting() {
  ConferenceParams c{};
  c.general = ConfGeneralParams{"Weekly staff meeting",
                                "Mondays at nine",
                                20,
                                "1234",
                                "5678",
                                1,
                                1700000000ULL,
                                1700003600ULL,
                                0,
                                1,
                                0,
                                1,
                                0,
                                1};
  c.newParticipant = NewParticipantParams{1, 8000, 0, 1, 0, 1, 0, 1, 0, 1, 0};
  c.schedule.rules = {RuleParams{1, "weekly", "MO"}};
  c.schedule.value1 = 9;
  c.schedule.text1 = "Europe/Berlin";
  c.sip.text1 = "sip:registrar.example.com";
  c.sip.value1 = 3600;
  c.recording = RecordingParams{1, {"/var/rec"}, 0, 1, 0, 0, SipUri{}};
  c.encoding = EncodingParams{{"PCMU", "G722"}, 1};
  c.encodingExtras = {"ptime=20"};
  c.sysMessage.value1 = 1;
  c.autoGainCtrl = AutoGainCtrlParams{1, 3, 12};
  return c;
}

ConferenceUser user(unsigned long long id, const char* name, const char* address) {
  ConferenceUser u{};
  u.id = id;
  u.text1 = name;
  u.text2 = address;
  return u;
}

}  // namespace

int main(int argc, char** argv) {
  const int queue = demo::queueArgument(argc, argv, 1, "conflink_demo_cgi QUEUE");
  WebFrontEnd web(queue);
  std::string why;
  if (web.ConnectWaiting(5000, &why) != conflink::kQueueOpened) {
    std::fprintf(stderr, "%s: could not open queue %d: %s\n", kMe, queue, why.c_str());
    return 1;
  }
  // The server may not be there yet: a request would then fail at once. Wait for its arrival.
  const auto start = std::chrono::steady_clock::now();
  while (!web.serverAttached && !demo::expired(start) &&
         web.WaitForMessageFor(demo::msLeft(start)) != conflink::kWaitFailed) {
  }
  const ConfIDString& conf = demo::kConference;
  const ConferenceParams params = weeklyMeeting();
  bool ok = true;
  // Each step's outcome is printed and counted; the session goes on after a failed step.
  auto check = [&ok](bool passed, const char* what) {
    demo::say(kMe, "%s: %s", what, passed ? "ok" : "FAILED");
    ok = ok && passed;
  };

  check(web.ask([&](auto id) { return web.CreateConference(id, kUser, params, conf, false); }) &&
            web.created == conf,
        "conference 1001 created");

  // Each settings page: saved, confirmed, read back, equal to what was saved.
  auto page = [&](const char* what, auto save, auto get, const auto& saved, const auto& readBack) {
    const int before = web.successes;
    const bool passed =
        web.ask(save) && web.successes == before + 1 && web.ask(get) && readBack == saved;
    check(passed, what);
  };
  page(
      "general settings saved and read back",
      [&](auto id) { return web.SaveConfGeneral(id, conf, kUser, params.general); },
      [&](auto id) { return web.GetGeneralSettings(id, conf, kAll); }, params.general, web.general);
  page(
      "new participant defaults saved and read back",
      [&](auto id) { return web.SaveConfNewParticipants(id, conf, kUser, params.newParticipant); },
      [&](auto id) { return web.GetNewParticipantSettings(id, conf); }, params.newParticipant,
      web.newParticipant);
  page(
      "schedule saved and read back",
      [&](auto id) { return web.SaveConfSchedule(id, conf, kUser, params.schedule); },
      [&](auto id) { return web.GetScheduleSettings(id, conf); }, params.schedule, web.schedule);
  page(
      "SIP registration saved and read back",
      [&](auto id) { return web.SaveConfSipSettings(id, conf, kUser, params.sip); },
      [&](auto id) { return web.GetSipSettings(id, conf, kAll); }, params.sip, web.sip);
  page(
      "recording saved and read back",
      [&](auto id) { return web.SaveConfRecording(id, conf, kUser, params.recording); },
      [&](auto id) { return web.GetRecordingSettings(id, conf); }, params.recording, web.recording);
  page(
      "codecs saved and read back",
      [&](auto id) { return web.SaveConfCodecs(id, conf, kUser, params.encoding); },
      [&](auto id) { return web.GetEncodingSettings(id, conf); }, params.encoding, web.encoding);
  page(
      "system messages saved and read back",
      [&](auto id) { return web.SaveConfSysMessages(id, conf, kUser, params.sysMessage); },
      [&](auto id) { return web.GetSysMessageSettings(id, conf); }, params.sysMessage,
      web.sysMessage);
  page(
      "gain control saved and read back",
      [&](auto id) { return web.SaveConfAutoGainCtrl(id, conf, kUser, params.autoGainCtrl); },
      [&](auto id) { return web.GetAutoGainCtrlSettings(id, conf); }, params.autoGainCtrl,
      web.autoGain);

  // Participants: Ada can be called; the guest has no SIP address, so call control refuses it.
  for (const ConferenceUser& u : {user(11, "Ada Lovelace", "ada"), user(12, "Guest", "")}) {
    check(web.ask([&](auto id) { return web.AddParticipant(id, conf, u.id, u); }),
          "participant added");
  }
  check(web.ask([&](auto id) { return web.GetParticipantsList(id, conf); }) &&
            web.participants.size() == 2,
        "participant list has both");

  check(web.ask([&](auto id) { return web.GetActiveConfList(id); }) && web.conferences.size() == 1,
        "conference list read");
  for (const ActiveConfInfo& c : web.conferences) {
    demo::say(kMe, "  conference %s \"%s\", %d participants", c.text1.c_str(), c.text2.c_str(),
              c.value1);
  }

  const ReservationInfo reservation{1700000000ULL, 60, 20, 0};
  check(web.ask([&](auto id) { return web.AddReservation(id, conf, reservation); }) &&
            web.ask([&](auto id) { return web.GetReservationList(id, conf); }) &&
            web.reservations.items.size() == 1 && web.reservations.items.front() == reservation,
        "reservation added and listed");

  for (const char* name : {"ada", "grace"}) {
    web.ask([&](auto id) {
      return web.AddRegisteredUser(id, SipUri{"sip:", name, "example.com", "5060"}, name);
    });
  }
  check(web.ask([&](auto id) { return web.GetRegisteredUserList(id); }) && web.users.size() == 2,
        "two registered users listed");

  check(web.ask([&](auto id) { return web.DeleteParticipant(id, conf, kUser, 11); }),
        "participant removed");

  // A conference that does not exist: the server must refuse.
  const int refusals = web.refusals;
  check(web.ask([&](auto id) {
    return web.SaveConfGeneral(id, ConfIDString{"9999"}, kUser, params.general);
  }) && web.refusals == refusals + 1,
        "saving into an unknown conference refused");

  demo::say(kMe, ok ? "session complete" : "session FAILED");
  return ok ? 0 : 1;
}

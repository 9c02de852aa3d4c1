// The server that both loop examples run, so that each example shows only its loop: the server's
// end of the call-control link and of the web front end's link, and a console socket.
//
// - Call control's JoinConference is accepted with a party number of the server's own.
// - The web front end's GetGeneralSettings is answered with settings that name the conference
//   and count the requests served.
// - Both ends count the peer's arrivals and departures as the handlers receive them.
// - The console is a TCP socket on 127.0.0.1 (port chosen by the system). A client connects and
//   sends one line: "status" is answered with the counters and the CPU time the process used,
//   "quit" stops the server.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include <conflink/conflink.h>

namespace loop {

inline void say(const char* text, const char* detail = "") {
  std::printf("server: %s%s\n", text, detail);
  std::fflush(stdout);
}

// The CPU time, user and system, the process has used so far (/proc/self/stat's utime + stime,
// to the nanosecond).
inline long long cpuMicroseconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<long long>(t.tv_sec) * 1000000 + t.tv_nsec / 1000;
}

class CallControlSide : public CCToPSMessenger {
 public:
  using CCToPSMessenger::CCToPSMessenger;
  int arrivals = 0;
  int departures = 0;
  int joins = 0;

  void PSPeerConnected() override {
    ++arrivals;
    say("call control attached");
  }
  void PSPeerDisConnected() override {
    ++departures;
    say("call control left");
  }
  int OnJoinConference(const unsigned long long& id, const ConfIDString& conf, const std::string&,
                       const SipUri& uri, bool, PSProtocolType) override {
    ++joins;
    return JoinAccept(id, 100 + joins, conf, {"welcome " + uri.text2}, ParticipantParams{},
                      static_cast<TransmitType>(0));
  }
};

class WebSide : public CGIToPSMessenger {
 public:
  using CGIToPSMessenger::CGIToPSMessenger;
  int arrivals = 0;
  int departures = 0;
  int requests = 0;

  void PeerConnected() override {
    ++arrivals;
    say("a web page attached");
  }
  void PeerDisconnected() override {
    ++departures;
    say("the web page left");
  }
  int OnGetGeneralSettings(const unsigned long long& id, const ConfIDString& conf,
                           GetConferenceType, PSProtocolType) override {
    ++requests;
    ConfGeneralParams settings{};
    settings.text1 = "settings of conference " + conf.id;
    settings.value1 = requests;
    return SendGeneralSettings(id, settings);
  }
};

class Console {
 public:
  ~Console() {
    if (fd_ >= 0) close(fd_);
  }
  // Listens on 127.0.0.1; false with the reason printed when it cannot.
  bool Open() {
    fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (fd_ < 0 || bind(fd_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        listen(fd_, 8) != 0 ||
        getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      std::perror("console");
      return false;
    }
    port_ = ntohs(address.sin_port);
    return true;
  }
  int fd() const { return fd_; }
  int port() const { return port_; }

  // Serves the connection waiting to be accepted: reads its line (the client sends it at once;
  // a silent one is given a second) and answers it. False when it asked the server to stop.
  bool Serve(const CallControlSide& cc, const WebSide& web) {
    const int client = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) return true;
    timeval second{1, 0};
    setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second);
    std::string line;
    char c = 0;
    while (line.size() < 64 && read(client, &c, 1) == 1 && c != '\n') line += c;
    std::string answer;
    if (line == "status") {
      answer = "cc_arrivals=" + std::to_string(cc.arrivals) +
               " cc_departures=" + std::to_string(cc.departures) +
               " joins=" + std::to_string(cc.joins) +
               " cgi_arrivals=" + std::to_string(web.arrivals) +
               " cgi_departures=" + std::to_string(web.departures) +
               " requests=" + std::to_string(web.requests) +
               " cpu_us=" + std::to_string(cpuMicroseconds()) + "\n";
    } else if (line == "quit") {
      answer = "stopping\n";
    } else {
      answer = "unknown command\n";
    }
    (void)!write(client, answer.data(), answer.size());
    close(client);
    return line != "quit";
  }

 private:
  int fd_ = -1;
  int port_ = 0;
};

}  // namespace loop

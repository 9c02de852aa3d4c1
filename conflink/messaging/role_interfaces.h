// The six role interfaces. Each is one side's view of a link: first the operations that side
// sends, in the order of its message catalogue, then the handlers of what it receives, in the
// order of the other side's catalogue. The messengers combine them; a process uses the interface
// of its role and overrides the handlers it cares about.
#pragma once

#include <conflink/messaging/types.h>

// What a client (call control or the web front end) sends to the server on either link, and the
// client's handlers of the server's shared replies.
class BothToPsInterface {
 public:
  virtual ~BothToPsInterface() = default;
};

// The server's shared replies, and its handlers of the requests both clients send.
class PsToBothInterface {
 public:
  virtual ~PsToBothInterface() = default;
};

// What call control sends to the server, and its handlers of the server's commands.
class CcToPsInterface {
 public:
  virtual ~CcToPsInterface() = default;

  virtual int InitiateConferenceServer() = 0;
};

// The server's commands to call control, and its handlers of what call control reports.
class PsToCcInterface {
 public:
  virtual ~PsToCcInterface() = default;

  virtual int OnInitiateConferenceServer(PSProtocolType link) = 0;
};

// The web front end's administration requests, and its handlers of the server's replies.
class CgiToPsInterface {
 public:
  virtual ~CgiToPsInterface() = default;
};

// The server's replies to the web front end, and its handlers of the administration requests.
class PsToCgiInterface {
 public:
  virtual ~PsToCgiInterface() = default;
};

// The role interfaces of the link between the web administration front end (CGI) and the
// conference server (PS). Each lists first the operations its side sends, in the order of its
// catalogue, then the handlers of what it receives, in the order of the other side's catalogue.
// CGIToPSMessenger implements both.
#pragma once

#include <list>
#include <string>

#include <conflink/messaging/types.h>
#include <conflink/records/records.h>

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

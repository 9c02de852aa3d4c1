// The messenger of the link between the web administration front end (CGI) and the conference
// server (PS). The same class serves both ends: CGI calls its requests and overrides the handlers
// of the replies; PS does the reverse.
#pragma once

#include <string>

#include <conflink/cgi/cgi_interfaces.h>
#include <conflink/messaging/shared_control.h>
#include <conflink/messaging/soho_messenger.h>

class CGIToPSMessenger : public SohoMessenger,
                         public SharedClientControl<CGIToPSMessenger>,  // BothToPsInterface
                         public SharedServerControl<CGIToPSMessenger>,  // PsToBothInterface
                         public CgiToPsInterface,
                         public PsToCgiInterface {
 public:
  // Does not connect; call Connect. Everything this messenger sends carries the mark 2.
  explicit CGIToPSMessenger(int queueNumber);
  ~CGIToPSMessenger() override;

  // Queue events; they do nothing, and the receive loop never calls them.
  virtual void PeerConnected();
  virtual void PeerDisconnected();
  // Polls for one message for about five seconds (20 tries, 250 ms apart) and dispatches it:
  // 0 when one was dispatched, 2 when none came while the peer is online, 1 when the peer is not.
  virtual int WaitForMessageAndDispatch();
  // Dispatches up to `maxCount` waiting messages without blocking; queue events go to
  // DispatchMessage like any other type. True when one was taken.
  virtual bool ProcessMessageFromQueue(int maxCount);
  // Appends the link mark to `buffer` in place and hands the message to the queue; returns the
  // queue's result.
  virtual int SendMessage(const int* type, std::string* buffer);
  // Decodes one message (payload and trailer) and calls its handler; false for an unknown type.
  virtual bool DispatchMessage(const int* type, const char* data, int length);
  // Reports a text on the standard error stream and in the system log.
  virtual void Error(const char* text);

 private:
  int mark_;
  std::string received_;  // reused for every message taken from the queue
};

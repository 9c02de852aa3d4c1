// The messenger of the link between call control (CC) and the conference server (PS). The same
// class serves both ends: CC calls its sending operations and overrides the handlers of the
// server's commands; PS does the reverse.
#pragma once

#include <string>

#include <conflink/messaging/role_interfaces.h>
#include <conflink/messaging/shared_control.h>
#include <conflink/messaging/soho_messenger.h>

class CCToPSMessenger
    : public SohoMessenger,
      public SharedControl<CCToPSMessenger>,  // BothToPsInterface, PsToBothInterface
      public CcToPsInterface,
      public PsToCcInterface {
 public:
  // Does not connect; call Connect. Everything this messenger sends carries the mark 0.
  explicit CCToPSMessenger(int queueNumber);
  ~CCToPSMessenger() override;

  // Call control to the server.
  int InitiateConferenceServer() override;

  // Handlers; each default does nothing and returns 0.
  int OnInitiateConferenceServer(PSProtocolType link) override;

  // The server's error report (type 263). The flag is accepted and not sent.
  virtual int ReportError(const unsigned long long& id, ConfServError error, bool flag);
  // Queue events taken by ProcessMessageFromQueue; by default they call PSPeerConnected and
  // PSPeerDisConnected.
  virtual void PeerConnected();
  virtual void PeerDisconnected();
  // Override these to learn of the peer's arrival and departure; by default they do nothing.
  virtual void PSPeerConnected();
  virtual void PSPeerDisConnected();
  // Waits for one message and dispatches it: 0 when one was dispatched, 1 when the queue failed.
  virtual int WaitForMessageAndDispatch();
  // Dispatches up to `maxCount` waiting messages without blocking; true when one was taken.
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

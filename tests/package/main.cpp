// Compiles against the installed headers and links against the installed libraries.
#include <conflink/conflink.h>

#include <cstdio>

int main() {
  CCToPSMessenger cc(1);
  CGIToPSMessenger cgi(1);
  // Not connected: the send fails cleanly with the queue's own code.
  const int result = cc.InitiateConferenceServer();
  std::printf("installed conflink works: send while unconnected gives %d (%s)\n", result,
              conflink::QueueResultText(result));
  return result == conflink::kQueueNotConnected && !cgi.IsConnected() ? 0 : 1;
}

// Uses the installed test pair: a request from one end reaches the other's handler, and the
// answer comes back.
#include <conflink/testing/link_pair.h>

#include <cstdio>

namespace {
class Server : public CCToPSMessenger {
 public:
  using CCToPSMessenger::CCToPSMessenger;
  int OnDialOut(const unsigned long long& id, const ConfIDString&, const unsigned long long&,
                PSProtocolType) override {
    return Success(id, static_cast<PSSuccessType>(0));
  }
};
class Client : public CCToPSMessenger {
 public:
  using CCToPSMessenger::CCToPSMessenger;
  unsigned long long answered = 0;
  int OnSuccess(const unsigned long long& id, PSSuccessType) override {
    answered = id;
    return 0;
  }
};
}  // namespace

int main() {
  conflink::testing::LinkPair<Server, Client> pair;
  pair.client().DialOut(42, ConfIDString{"c"}, 1);
  pair.settle();
  std::printf("installed conflink::testing works: request 42 answered as %llu\n",
              pair.client().answered);
  return pair.client().answered == 42 ? 0 : 1;
}

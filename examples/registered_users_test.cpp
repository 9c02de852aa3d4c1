// How a server author tests handlers without two processes and a queue: conflink::testing's
// LinkPair puts the server and a web front end of one link in this process. The front end's
// operations are encoded and dispatched to the server's handlers exactly as through a queue, and
// the server's answers come back to the front end's handlers.
#include <conflink/testing/link_pair.h>

#include <gtest/gtest.h>

#include <list>
#include <string>

#include <conflink/conflink.h>

namespace {

// The code under test: the part of a server that keeps the registered users.
class UserRegistry : public CGIToPSMessenger {
 public:
  using CGIToPSMessenger::CGIToPSMessenger;

  int OnAddRegisteredUser(const unsigned long long& id, const SipUri& uri, const std::string&,
                          PSProtocolType) override {
    RegisteredUserInfo user;
    static_cast<SipUri&>(user) = uri;
    users_.push_back(user);
    return Success(id, static_cast<PSSuccessType>(0));
  }
  int OnRemoveRegisteredUser(const unsigned long long& id, const SipUri& uri,
                             PSProtocolType) override {
    const auto before = users_.size();
    users_.remove_if([&uri](const RegisteredUserInfo& u) { return u.text2 == uri.text2; });
    if (users_.size() == before) return CgiReportError(id, static_cast<ConfServError>(404));
    return Success(id, static_cast<PSSuccessType>(0));
  }
  int OnGetRegisteredUserList(const unsigned long long& id, PSProtocolType) override {
    return SendRegisteredUserList(id, users_);
  }

 private:
  std::list<RegisteredUserInfo> users_;
};

// The test's end of the link: keeps what the server answered.
class FrontEnd : public CGIToPSMessenger {
 public:
  using CGIToPSMessenger::CGIToPSMessenger;
  int successes = 0;
  int errors = 0;
  std::list<std::string> names;

  int OnSuccess(const unsigned long long&, PSSuccessType) override { return ++successes; }
  int OnCgiReportError(const unsigned long long&, ConfServError) override { return ++errors; }
  int OnSendRegisteredUserList(const unsigned long long&,
                               const std::list<RegisteredUserInfo>& users) override {
    names.clear();
    for (const RegisteredUserInfo& u : users) names.push_back(u.text2);
    return 0;
  }
};

SipUri uri(const std::string& name) {
  return SipUri{"sip:", name, "conf.example.com", "5060"};
}

TEST(UserRegistry, KeepsAddedUsersAndRefusesToRemoveAStranger) {
  conflink::testing::LinkPair<UserRegistry, FrontEnd> pair;
  FrontEnd& web = pair.client();

  web.AddRegisteredUser(1, uri("ada"), "Ada");
  web.AddRegisteredUser(2, uri("grace"), "Grace");
  web.RemoveRegisteredUser(3, uri("alan"));
  web.RemoveRegisteredUser(4, uri("ada"));
  web.GetRegisteredUserList(5);
  pair.settle();  // every request reaches the server, every answer the front end

  EXPECT_EQ(web.successes, 3);
  EXPECT_EQ(web.errors, 1);
  EXPECT_EQ(web.names, std::list<std::string>{"grace"});
}

}  // namespace

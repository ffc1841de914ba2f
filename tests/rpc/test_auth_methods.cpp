// Method masks by peer.
#include <gtest/gtest.h>

#include "auth_handle.h"
#include "auth_methods.h"
#include "fake_resolver.h"

namespace qvr {
namespace {

using test::fake_resolver;

class auth_methods_of : public testing::Test {
 protected:
  auth_methods_of() { resolver_.hosts["node.example"] = {"", {"192.0.2.7", "192.0.2.8"}, 0}; }
  fake_resolver resolver_;
};

TEST_F(auth_methods_of, masks) {
  struct row {
    int line;
    vallist values;
    const char *peer;
    std::uint32_t mask;
  };
  const row rows[] = {
      {__LINE__, {"10.0.0.0/8,oldauth"}, "10.1.1.1", 15},
      {__LINE__, {"10.0.0.0/8,oldauth"}, "192.0.2.1", 31},
      {__LINE__, {"10.0.0.0/8,oldauth"}, "::ffff:10.1.1.1", 15},
      {__LINE__, {"10.0.0.0/8,oldauth"}, "2001:db8::1", 31},
      {__LINE__, {"0.0.0.0/0,qvrauth"}, "192.0.2.1", 24},
      {__LINE__, {"0.0.0.0/0,qvrauth"}, "2001:db8::1", 24},
      {__LINE__, {"0.0.0.0/0,qvrauth"}, "127.0.0.1", 25},
      {__LINE__, {"10.1.0.0/15,gsskstrv1", "10.0.0.0/8,oldauth"}, "10.1.255.1", 16},
      {__LINE__, {"10.1.0.0/15,gsskstrv1", "10.0.0.0/8,oldauth"}, "10.2.0.1", 15},
      {__LINE__, {"10.128.0.0/9,gsskstrv1"}, "10.127.0.1", 31},
      {__LINE__, {"2001:db8::/33,qvrlogon"}, "2001:db8:7fff::1", 8},
      {__LINE__, {"2001:db8::/33,qvrlogon"}, "2001:db8:8000::1", 31},
      {__LINE__, {"192.0.2.9,oldauth/gsskstrv1"}, "192.0.2.9", 31},
      {__LINE__, {"192.0.2.9/32,qvrlogon/gsskstrv1"}, "192.0.2.9", 24},
      {__LINE__, {"node.example/32,qvrlogon"}, "192.0.2.8", 8},
      {__LINE__, {"node.example/32,qvrlogon"}, "192.0.2.9", 31},
      // Session keys come from this host, so it must allow the method that needs them.
      {__LINE__, {"127.0.0.0/8,oldauth", "10.0.0.0/8,gsskstrv1"}, "127.0.0.1", 31},
      {__LINE__, {"127.0.0.0/8,qvrlogon", "10.0.0.0/8,gsskstrv1"}, "127.0.0.1", 25},
      {__LINE__, {"127.0.0.0/8,qvrlogon"}, "127.0.0.1", 9},
      {__LINE__, {}, "192.0.2.1", 31},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    std::shared_ptr<const auth_methods> methods;
    errobj_t *error = auth_methods::parse(r.values, false, methods);
    ASSERT_EQ(error, nullptr) << error->text;
    std::uint32_t mask = 0;
    ASSERT_EQ(methods->mask_for(fake_resolver::address(r.peer), mask), nullptr);
    EXPECT_EQ(mask, r.mask);
  }
}

TEST_F(auth_methods_of, bad_values) {
  struct row {
    int line;
    std::string value;
    std::int32_t id;
  };
  const row rows[] = {
      {__LINE__, "10.0.0.0/8", 86526},
      {__LINE__, "", 86526},
      {__LINE__, "nowhere.example/8,oldauth", 86527},
      {__LINE__, "/8,oldauth", 86527},
      {__LINE__, "10.0.0.0/33,oldauth", 86527},
      {__LINE__, "10.0.0.0/x,oldauth", 86527},
      {__LINE__, "10.0.0.0/8,", 86528},
      {__LINE__, "10.0.0.0/8,oldauth/", 86528},
      {__LINE__, "10.0.0.0/8,OldAuth", 86528},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    std::shared_ptr<const auth_methods> methods;
    errobj_t *error = auth_methods::parse({"10.0.0.0/8,oldauth", r.value}, false, methods);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->message.id, r.id);
    EXPECT_EQ(methods, nullptr);
  }
}

TEST_F(auth_methods_of, without_an_object_everything_is_allowed) {
  set_auth_methods(nullptr);
  EXPECT_EQ(auth_mask_for(fake_resolver::address("10.0.0.1")), 31u);
  std::shared_ptr<const auth_methods> methods;
  ASSERT_EQ(auth_methods::parse({"0.0.0.0/0,qvrlogon"}, false, methods), nullptr);
  set_auth_methods(methods);
  EXPECT_EQ(auth_mask_for(fake_resolver::address("10.0.0.9")), 8u);
  sockaddr_storage local = {};
  local.ss_family = AF_UNIX;
  EXPECT_EQ(auth_mask_for(local), 31u);
  set_auth_methods(nullptr);
}

}  // namespace
}  // namespace qvr

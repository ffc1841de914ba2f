#include <algorithm>

#include "app_identity.h"
#include "lab_credentials.h"
#include "lab_fixture.h"
#include "posix_cksum.h"

namespace qvr::test {
namespace {

class auth_server : public lab_test {
 protected:
  static std::string request(const char *service, const char *user, std::uint32_t application,
                             int identities = 1) {
    raw_out out;
    out.text(service).u32(identities > 0);
    for (int i = 0; i < identities; i++) {
      out.u32(1).u32(1).text("nis").text("").u32(0).text("host").u32(application).text(user);
      out.u32(2).text("adm").text("users");
      out.u32(1).text("auth server").u32(1).text("localhost").u32(0).u32(0);
      out.u32(i + 1 < identities);
    }
    return out.bytes;
  }
  static std::string unhide(std::string blob) {
    for (std::size_t i = 0; i < blob.size(); i++)
      blob[i] = static_cast<char>(blob[i] ^ REELSCAN_PROCESS_KEY[i % 32]);
    return blob;
  }
  // A credential as a daemon wants it.
  static std::string credential(const char *user = "lea") {
    raw_in in = execd().call(124, request("qvrmmdbd", user, 3)).in();
    EXPECT_EQ(in.u32(), 0u);
    EXPECT_EQ(in.u32(), 1u);
    return unhide(in.text());
  }
};

TEST_F(auth_server, grants_name_the_service_and_its_place) {
  struct {
    int line;
    const char *service;
    std::uint32_t application;
    int identities;
    std::uint32_t tag, program, version;
  } rows[] = {
      {__LINE__, "qvrmmdbd", 3, 1, 0, 390107, 6}, {__LINE__, "qvrd", 3, 2, 0, 390109, 2},
      {__LINE__, "qvrexec", 3, 1, 0, 390113, 1},  {__LINE__, "qvrstat", 3, 1, 2, 0, 0},
      {__LINE__, "qvrd", 77, 1, 2, 0, 0},         {__LINE__, "qvrd", 3, 0, 2, 0, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    raw_in in =
        execd().call(124, request(row.service, "lea", row.application, row.identities)).in();
    ASSERT_EQ(in.u32(), row.tag);
    if (row.tag == 2) {
      EXPECT_NE(in.u32(), 0u);
      EXPECT_NE(in.text(), "");
    } else {
      EXPECT_EQ(in.u32(), 1u);
      std::string blob = unhide(in.text());
      std::uint32_t sum = raw_in(blob.substr(12, 4)).u32();
      blob.replace(12, 4, 4, '\0');
      EXPECT_EQ(sum, posix_cksum(blob));
      EXPECT_EQ(raw_in(blob.substr(16)).text(), "localhost");
      EXPECT_EQ(in.u32(), 1u);
      EXPECT_EQ(in.text(), "localhost");
      EXPECT_EQ(in.u32(), row.program);
      EXPECT_EQ(in.u32(), row.version);
      EXPECT_EQ(in.text(), "tcp");
      EXPECT_EQ(in.u32(), 0u);
    }
    EXPECT_TRUE(in.good);
    EXPECT_EQ(in.left(), 0u);
  }
}

TEST_F(auth_server, gives_every_form_of_answer_when_told) {
  struct {
    int line;
    const char *fault;
    std::uint32_t tag;
  } rows[] = {
      {__LINE__, "auth=partial", 1},  {__LINE__, "error=22005:wait", 2},
      {__LINE__, "auth=none", 0},     {__LINE__, "redirect=other.host:390109:2", 3},
      {__LINE__, "auth=notarget", 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    misbehave(row.fault);
    raw_in in = execd().call(124, request("qvrmmdbd", "lea", 3)).in();
    ASSERT_EQ(in.u32(), row.tag);
    std::string_view fault = row.fault;
    if (row.tag == 3) {
      EXPECT_EQ(in.text(), "other.host");
      EXPECT_EQ(in.u32(), 390109u);
      EXPECT_EQ(in.u32(), 2u);
      EXPECT_EQ(in.text(), "tcp");
      EXPECT_EQ(in.u32(), 0u);
    }
    if (row.tag == 1 || row.tag == 2) {
      EXPECT_EQ(in.u32(), row.tag == 1 ? 22007u : 22005u);
      EXPECT_NE(in.text(), "");
    }
    if (row.tag == 0 || row.tag == 1) {
      bool has_credential = in.u32() == 1;
      EXPECT_EQ(has_credential, fault != "auth=none");
      if (has_credential) in.text();
      EXPECT_EQ(in.u32() == 1, fault != "auth=notarget");
    } else {
      EXPECT_EQ(in.left(), 0u);
    }
  }
}

TEST_F(auth_server, renews_its_own_credentials_only) {
  std::string blob = credential();
  struct {
    int line;
    std::string arguments;
    std::uint32_t tag;
  } rows[] = {
      {__LINE__, raw_out().u32(1).text(blob).bytes, 0},
      {__LINE__, raw_out().u32(1).text(blob.substr(0, blob.size() - 1)).bytes, 2},
      {__LINE__, raw_out().u32(1).text("").bytes, 2},
      {__LINE__, raw_out().u32(0).bytes, 2},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(rap().call(125, row.arguments).in().u32(), row.tag);
  }
}

TEST_F(auth_server, daemons_judge_every_flavour) {
  std::string blob = credential();
  std::string forged = blob;
  forged.back() = static_cast<char>(forged.back() ^ 1);
  auto body = [](std::uint32_t tag) { return raw_out().u32(tag); };
  std::string unix_body = raw_out().u32(7).text("host").u32(1000).u32(100).u32(0).bytes;
  struct {
    int line;
    raw_auth credential;
    const char *fault;
    std::optional<std::uint32_t> why;
    std::uint32_t verifier;
    std::string verifier_tag;
  } rows[] = {
      {__LINE__, {0, ""}, "", {}, 0, ""},
      {__LINE__, {1, unix_body}, "", {}, 0, ""},
      {__LINE__, {1, "\1\2"}, "", 1, 0, ""},
      {__LINE__, {6, "gss"}, "", 1, 0, ""},
      {__LINE__, {30013, body(0).text(blob).bytes}, "", {}, 30013, body(1).bytes},
      {__LINE__, {30013, body(0).text(forged).bytes}, "", 2, 0, ""},
      {__LINE__, {30013, body(0).bytes}, "", 1, 0, ""},
      {__LINE__, {30013, body(9).bytes}, "", 1, 0, ""},
      {__LINE__, {30013, body(1).u32(0x7fffffff).bytes}, "", 2, 0, ""},
      {__LINE__, {30013, body(5).bytes}, "", {}, 0, ""},
      {__LINE__, {30013, body(0).text(blob).bytes}, "deny=5", 5, 0, ""},
      {__LINE__, {30013, body(0).text(blob).bytes}, "flavour=1,deny=5", {}, 30013, body(1).bytes},
      {__LINE__, {30013, body(0).text(blob).bytes}, "verifier=none", {}, 0, ""},
      {__LINE__, {30013, body(0).text(blob).bytes}, "verifier=lost", {}, 30013, body(2).bytes},
      {__LINE__, {30013, body(0).text(blob).bytes}, "verifier=noexpiry", {}, 30013, body(4).bytes},
      {__LINE__, {30013, body(0).text(blob).bytes}, "verifier=same", {}, 30013, body(0).bytes},
      {__LINE__, {1, unix_body}, "verifier=unix", {}, 2, body(0).bytes},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    lab->set_faults({});
    if (*row.fault != '\0') misbehave(row.fault);
    raw_client client = mmdb();
    client.credential = row.credential;
    raw_reply reply = client.call(0);
    ASSERT_TRUE(reply.arrived);
    EXPECT_EQ(reply.denied.has_value(), row.why.has_value());
    EXPECT_EQ(reply.why, row.why.value_or(0));
    EXPECT_EQ(reply.verifier.flavour, row.verifier);
    EXPECT_EQ(reply.verifier.body.substr(0, 4), row.verifier_tag);
    // A short credential that was given out is taken.
    if (row.verifier_tag == body(1).bytes || row.verifier_tag == body(4).bytes) {
      client.credential.body = reply.verifier.body;
      lab->set_faults({});
      reply = client.call(0);
      EXPECT_FALSE(reply.denied);
      EXPECT_EQ(reply.verifier.flavour, 0u);
    }
  }
}

TEST_F(auth_server, login_answers_a_challenge) {
  raw_client client = rap();
  client.credential = {30013, raw_out().u32(5).bytes};
  std::string challenge = client.call(0).in().text();
  EXPECT_EQ(challenge.size(), 8u);
  struct {
    int line;
    const char *user, *password;
    bool taken;
  } rows[] = {{__LINE__, "lea", "wrong", false},
              {__LINE__, "leo", "secret", false},
              {__LINE__, "lea", "secret", true}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    std::string response = lab_hex(lab_sha1(challenge + lab_sha1(row.password)));
    EXPECT_EQ(response.size(), 40u);
    client.credential.body = raw_out().u32(3).text(row.user).text(response).text("").bytes;
    EXPECT_EQ(!client.call(0).denied, row.taken);
  }
  EXPECT_EQ(lab_hex(lab_sha1("abc")), "a9993e364706816aba3e25717850c26c9cd0d89d");
  raw_in in = execd().call(123).in();
  EXPECT_EQ(in.u32(), 0u);
  EXPECT_EQ(in.raw(8).size(), 8u);
  EXPECT_EQ(in.left(), 0u);
}

TEST_F(auth_server, tickets_and_tokens) {
  raw_in ticket = execd().call(10, raw_out().text("key").bytes).in();
  EXPECT_EQ(ticket.text(), "session ticket");
  EXPECT_EQ(ticket.u32(), 1u);
  EXPECT_EQ(ticket.text(), "lab ticket of key");
  EXPECT_EQ(ticket.u32(), 0u);
  EXPECT_EQ(ticket.u32(), 0u);
  raw_in none = execd().call(10, raw_out().text("").bytes).in();
  EXPECT_EQ(none.text() + std::to_string(none.u32()) + std::to_string(none.u32()), "00");
  EXPECT_TRUE(
      execd().call(12, raw_out().text("token").bytes).in().text().starts_with("lab session "));
}

class resources : public lab_test {
 protected:
  // Values of `attribute` of the resources that a query finds, or "-" where one has none.
  static std::vector<std::string> ask(raw_client client, std::uint32_t limit,
                                      const std::string &query, const std::string &wanted,
                                      const std::string &attribute) {
    raw_in in = client.call(101, raw_out().u32(limit).raw(query).bytes).in();
    std::vector<std::string> ids, values;
    EXPECT_EQ(in.u32(), 0u);
    in.u32();
    while (in.u32() == 1) ids.push_back(in.raw(36));
    EXPECT_TRUE(in.good && in.left() == 0);
    if (ids.empty()) return values;
    raw_out out;
    out.u32(8192);
    for (std::size_t i = 0; i < ids.size(); i++) out.raw(ids[i]).u32(i + 1 < ids.size());
    out.u32(0).raw(wanted);
    in = client.call(102, out.bytes).in();
    EXPECT_EQ(in.u32(), 0u);
    while (in.u32() == 1) {
      values.push_back("-");
      for (bool more = in.u32() == 1; more;) {
        std::string name = in.text(), text;
        for (bool value = in.u32() == 1; value; value = in.u32() == 1) text += in.text() + ";";
        if (name == attribute) values.back() = text;
        more = in.u32() == 1;
      }
      in.raw(36);
    }
    EXPECT_TRUE(in.good && in.left() == 0);
    return values;
  }
  static std::string list(const attrlist &list) { return packed_attrs::pack(list); }
};

TEST_F(resources, are_found_by_what_they_hold) {
  using values_t = std::vector<std::string>;
  attrlist clients = {{"type", {"QVR client"}}};
  attrlist ares = {{"aliases", {"ARES"}}, {"type", {"QVR client"}}};
  std::string all = raw_out().u32(0).bytes;
  std::string names = raw_out().u32(1).raw(list({{"name", {}}})).bytes;
  EXPECT_EQ(ask(rap(), 0x7ffffff, list(clients), names, "name").size(), 6u);
  EXPECT_EQ(ask(rap(), 1, list(clients), names, "name"), values_t{"localhost;"});
  EXPECT_EQ(ask(rap(), 1, list(ares), names, "name"), values_t{"mars;"});
  EXPECT_EQ(ask(rap(), 1, list(ares), names, "aliases"), values_t{"-"});
  EXPECT_EQ(ask(rap(), 1, list(ares), all, "aliases"), values_t{"mars;mars.example;ares;"});
  EXPECT_EQ(ask(rap(), 9, list({{"aliases", {"nobody"}}}), all, "name"), values_t{});
  EXPECT_EQ(ask(execd(), 9, list(clients), all, "name"), values_t{});
  EXPECT_EQ(ask(execd(), 9, list({{"type", {"QVRLA"}}}), all, "auth methods"),
            values_t{"0.0.0.0/0,oldauth;::/0,oldauth;"});
  EXPECT_EQ(ask(rap(), 9, list({{"type", {"QVRLA"}}}), all, "name"), values_t{});
}

TEST_F(resources, a_busy_database_says_so_as_often_as_told) {
  misbehave("proc=101,busy,times=2");
  raw_client client = rap();
  std::string query = raw_out().u32(1).raw(list({{"type", {"QVR client"}}})).bytes;
  for (std::uint32_t status : {2u, 2u, 0u}) {
    raw_in in = client.call(101, query).in();
    EXPECT_EQ(in.u32(), status);
    if (status == 2) {
      EXPECT_EQ(in.u32(), 33000u);
      EXPECT_EQ(in.text(), "Resource database busy");
    }
  }
}

}  // namespace
}  // namespace qvr::test

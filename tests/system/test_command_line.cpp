// The command line through the real program: options, combinations, defaults, refusals.
#include "system_fixture.h"

namespace qvr::test {
namespace {

constexpr const char *USAGE =
    "usage: reelscan [-akvV] [-o order] [-s server] [-x exportspec] [report] [query] "
    "[volname...]\n\n"
    "<report>: [ -m | -p | -B | -C | -O | -S | -L | -X | -r reportspec ]\n"
    "<query>:  [-c client] [-N name] [-t time] [-q queryspec]\n"
    "\nor\n       reelscan -h [vV] [-s server] [report] [query]\n\n"
    "<report>: [-r reportspec]\n"
    "<query>:  [-c client] [-N name] [-t starttime] [-T endtime] [-q queryspec]\n";

class command_line : public system_test {
 protected:
  // A refusal that the usage text follows.
  static void expect_usage(const std::vector<std::string> &words, const std::string &err) {
    command_result result = site()->run(words);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, USAGE);
    EXPECT_EQ(result.err, err);
  }
};

TEST_F(command_line, refusals_with_the_usage_text) {
  static constexpr const char *one_report =
      "only one of -m, -p, -B, -S, -L, -X or -r may be specified\n";
  static constexpr struct {
    int line;
    const char *words;
    const char *err;
  } rows[] = {
      // The option loop.
      {__LINE__, "-z", ""},
      {__LINE__, "-s", ""},
      {__LINE__, "--help", ""},
      {__LINE__, "-B -B", one_report},
      {__LINE__, "-m -m", one_report},
      {__LINE__, "-S -S", one_report},
      {__LINE__, "-S -L", one_report},
      {__LINE__, "-LL", one_report},
      {__LINE__, "-l -c x", "-c <clientname> needs to be used before the -l option\n"},
      {__LINE__, "-o x", "invalid sorting order specifier, choose from `celmnotR'\n"},
      {__LINE__, "-o m -o n", "only one -o allowed\n"},
      {__LINE__, "-s vault -s vault", "only one -s allowed\n"},
      {__LINE__, "-xm -xm", "only one -x allowed\n"},
      {__LINE__, "-xc", "no delimiter-char specified for -xc<delimiter-char>"},
      {__LINE__, "-xp", "no printf-string specified for -xp<printf-string>\n"},
      {__LINE__, "-xw", "unknown exportspec for -x\n"},
      {__LINE__, "-xp%s%d", "-x printf-spec contains %d[...], but only %s is allowed\n"},
      {__LINE__, "-r bogus", "unknown report constraint: bogus\n"},
      {__LINE__, "-r full", "constraint `full' is only valid for queries\n"},
      {__LINE__, "-r client(0)", "column width of `client' is invalid\n"},
      {__LINE__, "-r client(5", "missing close parenthesis after report constraint `client'\n"},
      {__LINE__, "-r client(5)x", "missing comma after report constraint `client'\n"},
      {__LINE__, "-t someday", "invalid value specified for `savetime'\n"},
      {__LINE__, "-t today -t today", "query constraint `savetime' specified more than once\n"},
      {__LINE__, "-T someday", "invalid value specified for `endtime'\n"},
      // Behind the connection.
      {__LINE__, "-s --help", ""},
      {__LINE__, "-q bogus=1", "unknown query constraint: bogus\n"},
      {__LINE__, "-q client", "need a value for query constraint `client'\n"},
      {__LINE__, "-q state=x", "constraint `state' is only valid for reports\n"},
      {__LINE__, "-q client<x", "invalid comparator for query constraint `client'\n"},
      {__LINE__, "-q mounts>5,mounts<5", "non-overlapping range specified for `mounts'\n"},
      {__LINE__, "-A name<x", "Operator '<' is not valid for attribute constraints.\n"},
      {__LINE__, "-A =x", "Attribute constraints must specify an attribute name.\n"},
      {__LINE__, "-A name='x", "invalid value for attribute constraint 'name'\n"},
      // -N, -q and -A are read in this order, whatever the order on the line.
      {__LINE__, "-A =x -q bogus=1 -N a,\"b", "invalid value specified for `name'\n"},
      {__LINE__, "-A =x -q bogus=1", "unknown query constraint: bogus\n"},
      {__LINE__, "-h vol1", ""},
      {__LINE__, "-T today", "Usage of -T without -h is not allowed.\n"},
      {__LINE__, "-X -X", one_report},
      {__LINE__, "-p -p", one_report},
      {__LINE__, "-m -r client", one_report},
      {__LINE__, "-B -S", one_report},
      {__LINE__, "-B -q incomplete", "query constraint `incomplete' specified more than once\n"},
      {__LINE__, "-k -q vmname=x,bogus", "unknown query constraint: bogus\n"},
      {__LINE__, "-a -- -x", "invalid volume name `-x'\n"},
      {__LINE__, "vol1 -v", "invalid volume name `-v'\n"},
      {__LINE__, "vol1 'vol2", "invalid volume name `'vol2'\n"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    expect_usage(words_of(row.words), row.err);
  }
  expect_usage({"-x", ""}, "no exportspec specified for -x\n");
  expect_usage({"-xp" + std::string(1023, 'a')}, "value of `-x' is too long\n");
  expect_usage({std::string(1025, 'v')}, "invalid volume name `" + std::string(60, 'v') + "'\n");
  for (const std::string option : {"-A", "-N", "-q"}) {
    std::vector<std::string> many;
    for (int i = 0; i < 1001; i++) many.insert(many.end(), {option, "x"});
    expect_usage(many, "Only 1000 " + option + " options can be used.\n");
  }
}

TEST_F(command_line, inventories_stand_alone) {
  static constexpr const char *c_alone = "C option cannot be combined with any other options.\n";
  static constexpr const char *o_alone = "O option cannot be combined with any other options.\n";
  static constexpr const char *refused[] = {
      "-a", "-k",       "-c vault",  "-A x",    "-B",   "-p",   "-X",       "-m",
      "-h", "-T today", "-r client", "-q full", "-N x", "-o m", "-t today",
  };
  for (const char *other : refused) {
    SCOPED_TRACE(other);
    expect_usage(words_of(std::string("-C ") + other), c_alone);
    expect_usage(words_of(std::string(other) + " -O"), o_alone);
  }
  expect_usage({"-C", "-O"}, o_alone);
  expect_usage({"-C", "-C"}, c_alone);
  std::string clients = site()->run("-C").out, volumes = site()->run("-O").out;
  EXPECT_EQ(clients.substr(0, 9), "name\t\tid\n");
  for (const char *beside : {"-s vault", "-xm", "-D 0", "-I", "-v", "-V", "-S", "-L", "vol1"}) {
    SCOPED_TRACE(beside);
    command_result result = site()->run(std::string("-C ") + beside);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, clients);
    EXPECT_EQ(site()->run(std::string("-O ") + beside).out, volumes);
  }
}

TEST_F(command_line, history_takes_few_options) {
  for (const char *other : {"-A x", "-a", "-k", "-B", "-p", "-X", "-m"}) {
    SCOPED_TRACE(other);
    expect_usage(words_of(std::string("-h ") + other),
                 "only -t, -T, -q, -c, -N, -r, and -v may be specified together with -h\n");
  }
  for (const char *beside :
       {"", "-t 1~week~ago", "-T now", "-q ssid=1", "-c vault", "-V -I", "-r ssid,changes", "-S"}) {
    SCOPED_TRACE(beside);
    command_result result = site()->run(std::string("-h ") + beside);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
  }
}

TEST_F(command_line, failures_without_the_usage_text) {
  static constexpr struct {
    int line;
    const char *words;
    int status;
    const char *err;  // the last of what is said
  } rows[] = {
      {__LINE__, "-s 127.0.0.2 -q bogus=1", 2,
       "167325:reelscan: Unable to connect to media database server on host 127.0.0.2: "},
      {__LINE__, "-s no.such.host", 2,
       "167325:reelscan: Unable to connect to media database server on host no.such.host: "},
      {__LINE__, "-c no.such.client", 2, "23734:reelscan: invalid client name: no.such.client\n"},
      {__LINE__, "-h -q client=x,name=y -r level", 1,
       "198535:reelscan: Field 'name' is not valid in history query (in combination with -h).\n"
       "198535:reelscan: Field 'client' is not valid in history query (in combination with -h).\n"
       "198537:reelscan: Field 'level' is not valid in history report (in combination with -h).\n"
       "198539:reelscan: Invalid query or report specifiers for history query.\n"},
      {__LINE__, "-h -N x", 1,
       "198535:reelscan: Field 'name' is not valid in history query (in combination with -h).\n"
       "198539:reelscan: Invalid query or report specifiers for history query.\n"},
      {__LINE__, "-q user=x -r changes", 1,
       "198534:reelscan: Field 'user' is only valid in history query (in combination with -h).\n"
       "198536:reelscan: Field 'changes' is only valid in history report (in combination with "
       "-h).\n"
       "198540:reelscan: Invalid query or report specifiers.\n"},
      {__LINE__, "-a -r space", 1, "6092:reelscan: No data requested, no report generated\n"},
      {__LINE__, "-q client=nobody.example", 1, "6095:reelscan: no matches found for the query\n"},
      {__LINE__, "no.such.volume", 1, "6095:reelscan: no matches found for the query\n"},
  };
  EXPECT_EQ(site()->run(std::vector<std::string>{"-c", ""}).err,
            "23734:reelscan: invalid client name: \n");
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    command_result result = site()->run(row.words);
    EXPECT_EQ(result.status, row.status);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find(row.err), std::string::npos) << result.err;
  }
}

// What the options stand for, said in other options.
TEST_F(command_line, defaults) {
  static constexpr struct {
    int line;
    const char *words;
    const char *same;
  } rows[] = {
      {__LINE__, "", "-t yesterday"},
      {__LINE__, "",
       "-t yesterday -r volume,client,savetime,sumsize,space(2),level(6),space(2),name"},
      {__LINE__, "-v",
       "-v -t yesterday -r volume,type,client,savetime(24),space,sumsize,ssid(11),sumflags(3),"
       "level,space,name"},
      {__LINE__, "-V -v", "-V -t yesterday"},
      {__LINE__, "-p",
       "-t yesterday -r savetime,ssbrowse,ssretent,space(2),ssid(11),client,space,name,vmname"},
      {__LINE__, "-k",
       "-t yesterday -q vmname=ALL_VM -r volume,type,vmname,savetime(24),space,sumsize,ssid(11),"
       "sumflags(3),backup_size"},
      {__LINE__, "-m",
       "-a -r state,volume(24),written,%used,space,volretent,read,space,mounts(5),space(2),"
       "capacity"},
      {__LINE__, "-m -v",
       "-a -r state,volume(24),written,%used,space,volretent,read,space,mounts(5),space(2),"
       "capacity,volid,next,space,type"},
      {__LINE__, "-m -v -V",
       "-a -V -r state,volume(24),written,%used,space,volretent,read,space,mounts(5),space(2),"
       "capacity,volid,next,space,type,space,volflags"},
      {__LINE__, "-S", "-S -t yesterday"},
      {__LINE__, "-X", "-X -t yesterday"},
      {__LINE__, "-B", "-B -t 5~weeks~ago -o t"},
      {__LINE__, "-B -a", "-B -t 1/1/1971"},
      {__LINE__, "-h", "-h -t yesterday -r ssid,property,newvalue"},
      {__LINE__, "-h -V", "-h -v -t yesterday -r ssid,property,oldvalue,newvalue,validity"},
      {__LINE__, "-a -r client -r name", "-a -r client,name"},
      {__LINE__, "-c vault", "-c VAULT -c vault"},
      {__LINE__, "-c vault", "-q client=vault"},
      {__LINE__, "-N /etc -N /home", "-q name=/etc,name=/home"},
      {__LINE__, "B00001 B00002", "-t yesterday -q volume=B00001,volume=B00002"},
      {__LINE__, "-a -s vault", "-a"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    command_result result = site()->run(row.words), same = site()->run(row.same);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_NE(result.out, "");
    EXPECT_EQ(result.out, same.out);
  }
  EXPECT_NE(site()->run("-a").out, site()->run("").out);
  EXPECT_NE(site()->run("-a -k").out, site()->run("-k").out);
  EXPECT_NE(site()->run("-B").out, site()->run("-B -o tR").out);
  EXPECT_EQ(site()->run("-V").out.substr(0, 55),
            " volume             client             size level name\n");
}

TEST_F(command_line, ends_of_the_output) {
  command_result full = site()->shell("$reelscan -a >/dev/full");
  EXPECT_EQ(full.status, 1);
  EXPECT_EQ(full.err, "reelscan: cannot write to the standard output: No space left on device\n");
  // A closed stream is no place for a connection to turn up in.
  command_result none = site()->shell("$reelscan -a >&-");
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.err, "reelscan: cannot write to the standard output: Bad file descriptor\n");
  EXPECT_EQ(site()->shell("$reelscan -a <&- 2>&- | tail -n 1").out,
            site()->shell("$reelscan -a | tail -n 1").out);
  // A reader that goes ends the command, without a word.
  command_result closed = site()->shell("{ $reelscan -a -V; echo $? >&2; } | head -n 1");
  EXPECT_EQ(closed.err.substr(0, 4), "141\n");
  EXPECT_EQ(closed.err.size(), 4u);
}

}  // namespace
}  // namespace qvr::test

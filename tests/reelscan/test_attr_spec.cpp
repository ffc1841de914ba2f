#include <gtest/gtest.h>

#include <string>

#include "attr_spec.h"

using namespace qvr;

namespace {

std::string dump(const attrlist &list) {
  std::string text;
  for (const attr_t &attr : list) {
    if (!text.empty()) text += ' ';
    text += attr.name;
    for (const std::string &value : attr.values) text += "[" + value + "]";
  }
  return text;
}

}  // namespace

TEST(attr_spec, terms_and_refusals) {
  std::string long_name(70, 'n');
  struct {
    int line;
    std::string text;
    std::string wanted;
  } const rows[] = {
      {__LINE__, "name", "name"},
      {__LINE__, "name=x,NAME=y", "name[x][y]"},
      {__LINE__, "b=1 , a = 2 ", "a[2] b[1]"},
      {__LINE__, "name==x", "name[x]"},
      {__LINE__, "!name", "!name"},
      {__LINE__, "name!=x", "!name[x]"},
      {__LINE__, "name !=x", "!name[x]"},
      {__LINE__, "not name=x", "!name[x]"},
      {__LINE__, "NOT   name=x", "!name[x]"},
      {__LINE__, "! name=x", "!name[x]"},
      {__LINE__, "notname=x", "notname[x]"},
      {__LINE__, "name='it''s, so',*x=\"a\"", "*x[a] name[it's, so]"},
      {__LINE__, "a,,b, ,", "a b"},
      {__LINE__, "save set bundle=x", "save set bundle[x]"},
      {__LINE__, "name=a<b", "name[a<b]"},
      {__LINE__, long_name + "=x", long_name.substr(0, 64) + "[x]"},
      {__LINE__, "!" + long_name, "!" + long_name.substr(0, 64)},
      {__LINE__, "name<x", "?Operator '<' is not valid for attribute constraints."},
      {__LINE__, "name>=x", "?Operator '>' is not valid for attribute constraints."},
      {__LINE__, "=x", "?Attribute constraints must specify an attribute name."},
      {__LINE__, "a,!=x", "?Attribute constraints must specify an attribute name."},
      {__LINE__, "!", "?Attribute constraints must specify an attribute name."},
      {__LINE__, "not =x", "?Attribute constraints must specify an attribute name."},
      {__LINE__, "", "?Attribute constraints must specify an attribute name."},
      {__LINE__, "name='x", "?invalid value for attribute constraint 'name'"},
      {__LINE__, "!name='x' y", "?invalid value for attribute constraint '!name'"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    attrlist list;
    const char *error = parse_attr_spec(row.text, list);
    EXPECT_EQ(error != nullptr ? std::string("?") + error : dump(list), row.wanted);
  }
  attrlist list;
  EXPECT_EQ(parse_attr_spec({}, list), nullptr);
  EXPECT_TRUE(list.empty());
}

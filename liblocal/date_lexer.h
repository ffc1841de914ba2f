// The words of a date text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qvr {

// What a word is. The values are letters, so that a text's tokens are a string of kinds that a
// pattern can be held against; any other character of a text is a kind of its own.
enum date_kind : char {
  tNUMBER = 'n',
  tORDINAL = 'o',
  tMONTH = 'M',
  tDAY = 'D',
  tMERIDIAN = 'a',
  tZONE = 'z',
  tDAYZONE = 'y',
  tLOCAL_ZONE = 'l',
  tGMT = 'g',
  tGMT_PLUS = '+',
  tGMT_MINUS = '-',
  tMONTH_UNIT = 'm',
  tMINUTE_UNIT = 'i',
  tSEC_UNIT = 's',
  tDAY_UNIT = 'd',
  tAGO = 'A',
  tEVERY = 'e',
  tID = '?',  // a word that nothing accepts
};

struct date_tokens {
  std::string kinds;                 // one character a token
  std::vector<std::int64_t> values;  // of the same tokens
};

// Cuts the text into tokens. `local_zone` is the name of the local zone at the base time. A number
// beyond 64 bits is cut at the limit, which no date lies near.
date_tokens date_scan(std::string_view text, std::string_view local_zone);

}  // namespace qvr

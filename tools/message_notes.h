// Causes and remedies of the messages that the command can print.
//
// The file holds sections, "# title", and notes, "ids | cause | remedy". The ids are numbers and
// ranges with blanks between them; an empty remedy means that nothing is to be done. Lines that
// begin with ";" are comments.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qvr {

struct message_note_t {
  std::vector<std::pair<std::int32_t, std::int32_t>> ids;  // first and last
  std::string cause;
  std::string remedy;
};

struct note_section_t {
  std::string title;
  std::vector<message_note_t> notes;
};

// False with the line that cannot be read in `why`.
bool read_message_notes(std::string_view text, std::vector<note_section_t> &sections,
                        std::string &why);

}  // namespace qvr

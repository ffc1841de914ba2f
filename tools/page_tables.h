// Tables of the manual pages, from the tables of the command.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "message_notes.h"
#include "message_scan.h"

namespace qvr {

// The page with its tables in place of the lines that name them. False with the reason in `why`.
bool expand_page(std::string_view source, std::string &page, std::string &why);

// The page with the notes in place of the line "@messages@". False when a message that is no column
// title has no note, or a note no message.
bool expand_message_page(std::string_view source, const std::vector<note_section_t> &notes,
                         const message_scan &scan, std::string &page, std::string &why);

}  // namespace qvr

// The plan for a person.

#include "ksui.h"
#include "plan.h"

namespace qvr {

namespace {

struct need_word_t {
  bool needs_t::*need;
  const char *word;
};
constexpr need_word_t need_words[] = {
    {&needs_t::volume, "volumes"},
    {&needs_t::save_set, "save sets"},
    {&needs_t::detail, "detail"},
    {&needs_t::fragment_rows, "fragment rows"},
    {&needs_t::each_fragment, "each fragment"},
    {&needs_t::clone_test, "clones"},
    {&needs_t::savesets_column, "save set counts"},
    {&needs_t::ss_constraint, "save set tests"},
};

// In the order of request_kind and plan_road.
constexpr const char *request_words[] = {
    "volumes by name",         "volumes by location", "volumes by family",
    "volumes by pool",         "volumes by barcode",  "volumes by identifier",
    "save sets by attributes", "save sets by name",   "save sets by identifier",
    "save sets by time",
};
constexpr const char *road_words[] = {"nothing to print", "volumes alone", "volume by volume",
                                      "rows of all volumes", "one request"};

struct text_word_t {
  std::optional<std::string> plan_request_t::*text;
  const char *word;
};
constexpr text_word_t text_words[] = {
    {&plan_request_t::client, "client"},     {&plan_request_t::name, "name"},
    {&plan_request_t::location, "location"}, {&plan_request_t::family, "family"},
    {&plan_request_t::type, "type"},         {&plan_request_t::pool, "pool"},
    {&plan_request_t::volume, "volume"},     {&plan_request_t::barcode, "barcode"},
};

void add(std::string &line, std::string_view text) {
  if (!line.empty() && line.back() != ' ') line += ", ";
  line.append(text);
}

void add_attributes(std::string &line, std::string_view word, const attrlist &attrs) {
  for (const attr_t &attr : attrs) {
    std::string text(word);
    text.append(" \"").append(attr.name).append("\" = ");
    for (const std::string &value : attr.values) text.append("'").append(value).append("'");
    add(line, text);
  }
}

std::string request_line(const plan_request_t &request) {
  std::string line = "plan: request ";
  add(line, request_words[static_cast<std::size_t>(request.kind)]);
  for (const text_word_t &row : text_words) {
    if (request.*row.text) add(line, row.word + (" '" + *(request.*row.text)) + "'");
  }
  for (const std::string &client : request.clients) add(line, "client '" + client + "'");
  if (request.from) add(line, "from " + std::to_string(*request.from));
  if (request.to) add(line, "to " + std::to_string(*request.to));
  if (request.level != 0) add(line, "level " + std::to_string(request.level));
  if (!request.ssid.is_null()) add(line, "ssid " + ksui_text(request.ssid, ksui_form::short_form));
  if (!request.volid.is_null()) {
    add(line, "volid " + ksui_text(request.volid, ksui_form::short_form));
  }
  if (request.flag_mask != 0) {
    add(line,
        "flags " + std::to_string(request.flag_mask) + " = " + std::to_string(request.flag_value));
  }
  add_attributes(line, "attribute", request.attrs);
  add_attributes(line, "filter", request.filter);
  add(line, request.full ? "full" : "lean");
  return line;
}

std::string constraint_line(std::string line, const query_constraints_t &constraints,
                            const std::vector<bool> &marks, bool wanted) {
  bool any = false;
  for (std::size_t i = 0; i < constraints.size(); i++) {
    if ((i < marks.size() && marks[i]) != wanted) continue;
    add(line, constraints[i].qc_mr->mr_key);
    any = true;
  }
  if (!any) line += "nothing";
  return line;
}

}  // namespace

std::vector<std::string> plan_lines(const plan_t &plan, const query_constraints_t &constraints) {
  std::string needs = "plan: needs ";
  for (const need_word_t &row : need_words) {
    if (plan.needs.*row.need) add(needs, row.word);
  }
  needs += "; order \"" + plan.sort_order + "\"";
  std::string key = "plan: key " + std::to_string(plan.plan_key) + ", score " +
                    std::to_string(plan.score) + ", " +
                    road_words[static_cast<std::size_t>(plan.road)];
  return {needs, key, request_line(plan.request),
          constraint_line("plan: server applies ", constraints, plan.carried, true),
          constraint_line("plan: left to test ", constraints, plan.left_out, false)};
}

}  // namespace qvr

// Names of save sets that hold the file index of a client.
#include <charconv>

#include "client_identity.h"

namespace qvr {

namespace {

constexpr std::string_view MARKER = "index:";

bool is_space(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

// The word at the head of a text, behind white space.
std::string_view first_word(std::string_view text) {
  while (!text.empty() && is_space(text.front())) text.remove_prefix(1);
  std::size_t size = 0;
  while (size < text.size() && !is_space(text[size])) size++;
  return text.substr(0, size);
}

struct index_form_t {
  int number = 0;  // 0: without
  std::string_view client;
};

// "<%d>index:%s" or "index:%s".
bool read_form(std::string_view name, index_form_t &form) {
  if (name.starts_with('<')) {
    name.remove_prefix(1);
    auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), form.number);
    name.remove_prefix(static_cast<std::size_t>(end - name.data()));
    if (error != std::errc() || !name.starts_with('>')) return false;
    name.remove_prefix(1);
  }
  if (!name.starts_with(MARKER)) return false;
  form.client = first_word(name.substr(MARKER.size()));
  return !form.client.empty();
}

// What stands in front of the first colon allows a client id behind it.
bool marked(std::string_view name, std::size_t colon) {
  if (colon < MARKER.size() - 1) return false;
  std::string_view from = name.substr(colon - (MARKER.size() - 1));
  return (from[0] == 'i' || from[0] == '<') && from.find(MARKER) != std::string_view::npos;
}

}  // namespace

bool is_index_name(std::string_view name) {
  return !name.empty() && (name[0] == 'i' || name[0] == '<') &&
         name.find(MARKER) != std::string_view::npos;
}

std::string index_name_for(std::string_view client) {
  std::string id = client_id_text(client);
  return id.empty() ? id : std::string(MARKER) + id;
}

std::string index_name_to_id(std::string_view name) {
  ksui id;
  index_form_t form;
  if (name.starts_with(MARKER) && clientid_parse(name.substr(MARKER.size()), id))
    return std::string(name);
  if (!read_form(name, form)) return std::string(name);
  std::string translated = index_name_for(form.client);
  if (translated.empty()) return std::string(name);
  return form.number > 0 ? '<' + std::to_string(form.number) + '>' + translated : translated;
}

std::string index_name_to_client(std::string_view name, bool strict) {
  std::string client;
  std::string_view rest;
  ksui id;
  std::size_t colon = name.find(':');
  if (colon != std::string_view::npos && marked(name, colon) &&
      ksui_parse(name.substr(colon + 1), id, &rest) == KSUI_CLIENT) {
    if (errobj_t *error = get_client_name_from_id(id, client)) err_print(error);
  }
  if (client.empty()) return strict ? std::string() : std::string(name);
  return std::string(name.substr(0, colon + 1)) + client + std::string(rest);
}

}  // namespace qvr

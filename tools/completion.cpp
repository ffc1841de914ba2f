#include "completion.h"

#include <string_view>
#include <vector>

#include "field_catalogue.h"
#include "options.h"
#include "ss_levels.h"

namespace qvr {

namespace {

struct sort_letter_t {
  char letter;
  const char *summary;
};
constexpr sort_letter_t sort_letters[] = {
    {'c', "client"},      {'e', "expiry"},        {'l', "size"},
    {'m', "volume name"}, {'n', "save set name"}, {'o', "place on the volume"},
    {'t', "time"},        {'R', "reverse"},
};
static_assert(std::size(sort_letters) == SORT_LETTERS.size());

std::string query_words() {
  std::string words;
  for (const mr_t &field : field_catalogue()) {
    if (field.mr_flags != 0) (words += field.mr_key) += ' ';
  }
  return words;
}

std::string report_words() {
  std::string words;
  for (const mr_t &field : field_catalogue()) {
    if (field.has_short) (words += field.mr_key) += ' ';
  }
  return words;
}

std::string truth_words() {
  std::string words;
  for (const mr_t &field : field_catalogue()) {
    if ((field.mr_flags & MR_KEYWORD) != 0) (words += field.mr_key) += ' ';
  }
  return words;
}

std::string level_words() {
  std::string words;
  for (std::int32_t level = LEVEL_EXEC; level <= LEVEL_TXNLOG; level++) {
    std::string name(level_report_name(level));
    if (level == LEVEL_MANUAL || (level_parse(name) == level && level != LEVEL_SKIP))
      words += name + ' ';
  }
  return words;
}

void replace(std::string &text, std::string_view name, const std::string &value) {
  for (std::size_t at; (at = text.find(name)) != std::string::npos;)
    text.replace(at, name.size(), value);
}

void replace_words(std::string &text) {
  replace(text, "@query@", query_words());
  replace(text, "@report@", report_words());
  replace(text, "@truth@", truth_words());
  replace(text, "@levels@", level_words());
}

// messages off
constexpr std::string_view BASH =
    R"sh(# bash completion for reelscan                              -*- shell-script -*-
# Made from the command's tables; do not edit.

_reelscan_query='@query@'
_reelscan_report='@report@'
_reelscan_truth='@truth@'
_reelscan_levels='@levels@'

# Offers the words $2 for the end $1 of the text before the cursor.
_reelscan_offer() {
  local part=$1 word keep
  # The shell replaces its own last word, which begins behind a "=" of ours.
  keep=${COMP_WORDS[COMP_CWORD]}
  keep=${keep#[\"\']}
  case $keep in '=' | '<' | '>' | '<=' | '>=' | '!=') keep= ;; esac
  keep=${keep%"$part"}
  for word in $2; do
    if [[ $word == "$part"* ]]; then COMPREPLY+=("$keep$word"); fi
  done
  compopt -o nospace 2>/dev/null
}

# Offers words for the last element of the list $1: of a query when $2 is q, otherwise of a report.
_reelscan_list() {
  local last=${1##*,}
  last=${last#[\"\']}
  last=${last##+( )}
  if [[ $2 == r ]]; then
    _reelscan_offer "$last" "$_reelscan_report"
    return
  fi
  last=${last#!}
  if [[ $last == [Nn][Oo][Tt]\ * ]]; then last=${last##* }; fi
  local word=${last%%[<=>]*} value=${last##*[<=>]}
  word=${word%%*( )}
  if [[ $last != *[\<=\>]* ]]; then
    _reelscan_offer "$last" "$_reelscan_query"
  elif [[ $word == level ]]; then
    _reelscan_offer "$value" "$_reelscan_levels"
  elif [[ " $_reelscan_truth" == *" $word "* ]]; then
    _reelscan_offer "$value" 'true false'
  fi
}

_reelscan() {
  local at=$COMP_CWORD cur=${COMP_WORDS[COMP_CWORD]} text= option= letter piece extglob
  COMPREPLY=()
  # What the shell cut at "=" and ":" is one word again.
  while ((at > 1)) && [[ ${COMP_WORDS[at]} == [=:\<\>]* || ${COMP_WORDS[at - 1]} == [=:\<\>]* ]]; do
    ((at--))
  done
  for piece in "${COMP_WORDS[@]:at:COMP_CWORD-at+1}"; do text+=$piece; done
  if ((at > 1)) && [[ ${COMP_WORDS[at - 1]} == -[[:alpha:]]* ]]; then
    option=${COMP_WORDS[at - 1]: -1}
  fi
  extglob=$(shopt -p extglob)
  shopt -s extglob
  case $option in
    [qr]) _reelscan_list "$text" "$option" ;;
    o)
      for letter in @sort@; do
        if [[ $cur != *$letter* ]]; then COMPREPLY+=("$cur$letter"); fi
      done
      ;;
    x) COMPREPLY=($(compgen -W '@exports@' -- "$cur")) ;;
    [cs]) COMPREPLY=($(compgen -A hostname -- "$cur")) ;;
    [@arguments@]) ;;
    *)
      if [[ $cur == -* ]]; then COMPREPLY=($(compgen -W '@options@' -- "$cur")); fi
      ;;
  esac
  $extglob
}

complete -F _reelscan reelscan
)sh";

constexpr std::string_view ZSH = R"sh(#compdef reelscan
# Made from the command's tables; do not edit.

_reelscan_list() {
  local -a offer truth
  truth=(@truth@)
  compset -P '*,'
  compset -P '( )#'
  if [[ $1 == report ]]; then
    offer=(@report@)
  elif compset -P '(#i)level[ ]#[<=>]##'; then
    offer=(@levels@)
  elif compset -P '(#i)(not |!)#('${(j:|:)truth}')[ ]#='; then
    offer=(true false)
  else
    compset -P '(#i)(!|not )( )#'
    offer=(@query@)
  fi
  compadd -S '' -a offer
}

_reelscan_order() {
  local -a letters
  letters=(@sort@)
  letters=(${letters:#[${PREFIX:-:}]:*})
  compset -P '*'
  _describe -V 'sort order' letters -S ''
}

_reelscan_export() {
  local -a forms
  forms=(@exports@)
  _describe 'export form' forms -S ''
}

setopt localoptions extendedglob
_arguments -s -S \
@options@  '*:volume:'
)sh";
// messages on

std::string zsh_action(char letter) {
  switch (letter) {
    case 'q':
      return " _reelscan_list query";
    case 'r':
      return " _reelscan_list report";
    case 'o':
      return " _reelscan_order";
    case 'x':
      return " _reelscan_export";
    case 'c':
    case 's':
      return "_hosts";
    default:
      return "";
  }
}

}  // namespace

std::string bash_completion() {
  std::string text(BASH), options, arguments, exports, sort;
  for (const option_form_t &form : option_forms()) {
    options += std::string("-") + form.letter + ' ';
    if (form.argument != nullptr) arguments += form.letter;
  }
  for (const export_form_t &form : export_forms()) exports += std::string(1, form.letter) + ' ';
  for (const sort_letter_t &row : sort_letters) sort += std::string(1, row.letter) + ' ';
  replace_words(text);
  replace(text, "@options@", options);
  replace(text, "@arguments@", arguments);
  replace(text, "@exports@", exports);
  replace(text, "@sort@", sort);
  return text;
}

std::string zsh_completion() {
  std::string text(ZSH), options, exports, sort;
  for (const option_form_t &form : option_forms()) {
    bool again = form.letter == 'q' || form.letter == 'r' || form.letter == 'c' ||
                 form.letter == 'N' || form.letter == 'A';
    options += std::string("  '") + (again ? "*" : "") + '-' + form.letter +
               (form.argument != nullptr ? "+" : "") + '[' + form.summary + ']';
    if (form.argument != nullptr)
      options += std::string(":") + form.argument + ':' + zsh_action(form.letter);
    options += "' \\\n";
  }
  for (const export_form_t &form : export_forms())
    exports += std::string("'") + form.letter + ':' + form.summary + "' ";
  for (const sort_letter_t &row : sort_letters)
    sort += std::string("'") + row.letter + ':' + row.summary + "' ";
  replace_words(text);
  replace(text, "@options@", options);
  replace(text, "@exports@", exports);
  replace(text, "@sort@", sort);
  return text;
}

}  // namespace qvr

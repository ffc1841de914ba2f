// The cells, a row a field.

#include <array>

#include "cell_attrs.h"
#include "cell_flags.h"
#include "cell_sizes.h"
#include "cells.h"
#include "clone_attrs.h"
#include "clone_retention.h"
#include "dates.h"
#include "ss_flags.h"
#include "ss_levels.h"

namespace qvr {

namespace {

using use = const cell_use_t &;

constexpr auto VOLUME = cell_rule_t::VOLUME;
constexpr auto SAVE_SET = cell_rule_t::SAVE_SET;
constexpr auto CLONE = cell_rule_t::CLONE;
constexpr auto FRAGMENT = cell_rule_t::FRAGMENT;
constexpr auto NOTHING = cell_rule_t::NOTHING;

constexpr const char *ZERO = nullptr, *BLANK = " ", *EMPTY = "";

// The forms of a rule.
constexpr cell_rule_t number(std::int16_t code, cell_rule_t::record_t needs,
                             std::uint64_t (*get)(use)) {
  return {code, needs, ZERO, get, nullptr, nullptr};
}
constexpr cell_rule_t text(std::int16_t code, cell_rule_t::record_t needs, const char *without,
                           std::string_view (*get)(use)) {
  return {code, needs, without, nullptr, get, nullptr};
}
constexpr cell_rule_t made(std::int16_t code, cell_rule_t::record_t needs, const char *without,
                           void (*make)(use, cell_text &)) {
  return {code, needs, without, nullptr, nullptr, make};
}

// A member of a record.
template <auto Member>
std::uint64_t vol_member(use u) {
  return static_cast<std::uint64_t>(u.row.vol->*Member);
}
template <auto Member>
std::uint64_t ss_member(use u) {
  return static_cast<std::uint64_t>(u.row.ss->*Member);
}
template <auto Member>
std::uint64_t clone_member(use u) {
  return static_cast<std::uint64_t>(u.row.clone->*Member);
}
template <auto Member>
std::uint64_t frag_member(use u) {
  return static_cast<std::uint64_t>(u.row.frag->*Member);
}
template <auto Member>
std::string_view vol_text(use u) {
  return u.row.vol->*Member;
}

// Names of attributes, so that a rule can carry one.
template <std::size_t Size>
struct attr_name_t {
  constexpr attr_name_t(const char (&text_)[Size]) { std::copy_n(text_, Size, text); }
  char text[Size];
  constexpr operator std::string_view() const { return {text, Size - 1}; }
};
template <attr_name_t Name>
std::string_view ss_attr(use u) {
  return u.row.ss->attrs.first(Name);
}
template <attr_name_t Name>
std::string_view vol_attr(use u) {
  return u.row.vol->volattrs.first(Name);
}
template <const std::string_view &Name>
std::string_view per_clone(use u) {
  return clone_attr(u.row.clone, *u.row.ss, Name);
}

void volume_name(use u, cell_text &out) {
  const vol_t &vol = *u.row.vol;
  out.add(vol.volume.substr(0, CELL_TEXT_LIMIT));
  if ((vol.volflags & VOL_WORM) != 0 && vol.volume.size() <= VOL_WORM_NAME_MAX) out.add("(W)");
}

void volume_id(use u, cell_text &out) {
  const frag_t *frag = u.row.frag;
  rsc_id_text(u.column.rc_width, frag != nullptr ? frag->volid : u.row.vol->volid, out);
}

void volume_retention(use u, cell_text &out) {
  const vol_t &vol = *u.row.vol;
  if ((vol.volflags & VOL_RECYCLE) != 0) return out.add(u.renderer.texts().expired);
  if ((vol.volflags & VOL_MANUAL) != 0) return out.add(u.renderer.texts().manual);
  u.renderer.times().rsc_short_date(vol.volretent, out);
}

std::string_view lock_type(use u) {
  if (u.row.ss == nullptr) return "None";
  std::string_view type = clone_attr(u.row.clone, *u.row.ss, ATTR_LOCK_MODE);
  return type.empty() ? "None" : type;
}

// Times and spans of a save set.
std::uint64_t shown_delta(std::uint32_t delta) {
  return delta == DELTA_FOREVER ? std::uint64_t{0x7fffffff} : delta;
}

std::uint64_t limit(bool forever, const ss_t &ss, std::uint32_t delta) {
  if (forever) return 0x7fffffff;
  if (delta == DELTA_FOREVER) return 4294967295;
  return static_cast<std::uint64_t>(ss_limit(ss, delta));
}

std::uint64_t browse_limit(use u) {
  return limit(ss_browse_forever(*u.row.ss), *u.row.ss, u.row.ss->ssbrowse);
}

std::uint64_t retention_limit(use u) {
  return limit(ss_retent_forever(*u.row.ss), *u.row.ss, u.row.ss->ssretent);
}

std::uint64_t expiry(use u) {
  const ss_t &ss = *u.row.ss;
  return ss.ssretent == 0 ? 0 : static_cast<std::uint64_t>(time_add(ss.ssretent, ss.ssinsert));
}

std::uint64_t clone_limit(use u) {
  const ss_t &ss = *u.row.ss;
  if (u.renderer.settings().old_forever && ss.attrs.first("*QVR_OLD_FOREVER_TIME") == "Yes") {
    return 0x7fffffff;
  }
  return static_cast<std::uint64_t>(clone_retention_time(ss, u.row.clone));
}

std::uint64_t backup_size(use u) {
  std::string_view size = u.row.ss->attrs.first("*vl_znod_backup_size");
  return size.data() == nullptr ? u.row.ss->totalsize : attr_number(size);
}

// A fragment's rules need its clone and its save set beside it.
bool whole(const cell_row_t &row) {
  return row.ss != nullptr && row.clone != nullptr;
}
template <std::uint64_t (*Size)(const ss_t &, const clone_t &, const frag_t &)>
std::uint64_t of_fragment(use u) {
  return whole(u.row) ? Size(*u.row.ss, *u.row.clone, *u.row.frag) : 0;
}
template <frag_place Place>
void fragment_flags(use u, cell_text &out) {
  frag_flags_text(*u.row.ss, u.row.clone, u.row.frag, Place, out);
}

constexpr auto rules = std::to_array<cell_rule_t>({
    // Volumes.
    made(150, VOLUME, BLANK, volume_name),
    text(104, VOLUME, BLANK, vol_text<&vol_t::family>),
    text(106, VOLUME, BLANK, vol_text<&vol_t::type>),
    text(102, VOLUME, BLANK, vol_text<&vol_t::location>),
    text(112, VOLUME, BLANK, vol_text<&vol_t::pool>),
    text(152, VOLUME, BLANK, vol_text<&vol_t::barcode>),
    made(160, VOLUME, BLANK, volume_id),
    number(2, VOLUME, vol_member<&vol_t::capacity>),
    number(4, VOLUME, vol_member<&vol_t::written>),
    number(6, VOLUME, vol_member<&vol_t::read>),
    number(8, VOLUME, vol_member<&vol_t::next>),
    number(10, VOLUME, vol_member<&vol_t::nrec>),
    number(16, VOLUME, vol_member<&vol_t::volaccess>),
    number(18, VOLUME, vol_member<&vol_t::olabel>),
    number(20, VOLUME, vol_member<&vol_t::labeled>),
    number(22, VOLUME, vol_member<&vol_t::mounts>),
    number(24, VOLUME, vol_member<&vol_t::recycled>),
    number(28, VOLUME, vol_member<&vol_t::metric>),
    number(30, VOLUME, vol_member<&vol_t::nssids>),
    made(34, VOLUME, EMPTY, [](use u, cell_text &out) { rsc_percent_used(*u.row.vol, out); }),
    made(26, VOLUME, BLANK, [](use u, cell_text &out) { vol_avail_text(*u.row.vol, out); }),
    made(32, VOLUME, "  ", [](use u, cell_text &out) { out.add(vol_state_text(*u.row.vol)); }),
    made(38, VOLUME, BLANK, volume_retention),
    made(114, VOLUME, BLANK, [](use u, cell_text &out) { vol_flags_text(*u.row.vol, out); }),
    made(40, VOLUME, EMPTY,
         [](use u, cell_text &out) { rsc_attrs_text(u.row.vol->volattrs, out); }),
    text(42, VOLUME, EMPTY, vol_attr<"device">),
    text(44, VOLUME, EMPTY, vol_attr<"device access information">),
    text(46, VOLUME, EMPTY, lock_type),

    // Save sets.
    made(173, SAVE_SET, EMPTY,
         [](use u, cell_text &out) { rsc_id_text(u.column.rc_width, u.row.ss->ssid, out); }),
    made(1, SAVE_SET, EMPTY,
         [](use u, cell_text &out) { rsc_id_text(u.column.rc_width, u.row.ss->pssid, out); }),
    number(51, SAVE_SET, ss_member<&ss_t::savetime>),
    number(171, SAVE_SET, ss_member<&ss_t::savetime>),
    number(43, SAVE_SET, ss_member<&ss_t::ssinsert>),
    number(45, SAVE_SET, ss_member<&ss_t::sscreate>),
    number(47, SAVE_SET, ss_member<&ss_t::sscomp>),
    number(39, SAVE_SET, browse_limit),
    number(41, SAVE_SET, retention_limit),
    number(9, SAVE_SET, expiry),
    number(93, SAVE_SET, [](use u) { return shown_delta(u.row.ss->ssretent); }),
    number(99, SAVE_SET,
           [](use u) {
             return static_cast<std::uint64_t>(
                 attr_signed_number(u.row.ss->attrs.first("*policy protection period")));
           }),
    text(55, SAVE_SET, EMPTY, [](use u) { return level_report_name(u.row.ss->level); }),
    text(57, SAVE_SET, EMPTY, [](use u) { return u.row.ss->client; }),
    text(61, SAVE_SET, EMPTY, [](use u) { return u.renderer.name_of(*u.row.ss); }),
    made(3, SAVE_SET, EMPTY,
         [](use u, cell_text &out) {
           rsc_flags_text(u.row.ss->ssflags, flag_letters::save_set, out);
         }),
    number(5, SAVE_SET, ss_member<&ss_t::totalsize>),
    number(7, SAVE_SET, ss_member<&ss_t::nfiles>),
    number(15, SAVE_SET, ss_member<&ss_t::ncopies>),
    number(73, SAVE_SET, [](use u) { return std::uint64_t{valid_copies(*u.row.ss)}; }),
    made(63, SAVE_SET, EMPTY,
         [](use u, cell_text &out) { rsc_id_text(0, u.row.ss->clientid, out); }),
    made(49, SAVE_SET, EMPTY, [](use u, cell_text &out) { rsc_attrs_text(u.row.ss->attrs, out); }),
    text(53, SAVE_SET, EMPTY, ss_attr<"group">),
    text(65, SAVE_SET, EMPTY, ss_attr<"annotation">),
    text(69, SAVE_SET, EMPTY, ss_attr<"save set bundle">),
    text(75, SAVE_SET, EMPTY, ss_attr<"*checkpoint_id">),
    text(77, SAVE_SET, EMPTY, ss_attr<"*checkpoint_seq">),
    text(83, SAVE_SET, EMPTY, ss_attr<"*vm_name">),
    text(87, SAVE_SET, EMPTY, ss_attr<"*restricted data zone">),
    text(124, SAVE_SET, EMPTY, ss_attr<"*totalvmdiskutil">),
    text(125, SAVE_SET, EMPTY, ss_attr<"*occupiedvmdiskutil">),
    number(85, SAVE_SET, backup_size),
    text(101, SAVE_SET, EMPTY, per_clone<ATTR_POLICY>),
    text(103, SAVE_SET, EMPTY, per_clone<ATTR_WORKFLOW>),
    text(105, SAVE_SET, EMPTY, per_clone<ATTR_ACTION>),
    number(97, SAVE_SET,
           [](use u) {
             return static_cast<std::uint64_t>(
                 attr_signed_number(clone_attr(u.row.clone, *u.row.ss, ATTR_ACTION_RETENTION)));
           }),
    number(67, SAVE_SET, clone_limit),
    number(95, SAVE_SET,
           [](use u) { return shown_delta(clone_retention(*u.row.ss, u.row.clone).delta); }),
    made(35, SAVE_SET, EMPTY, fragment_flags<frag_place::by_volume>),
    made(31, SAVE_SET, EMPTY, fragment_flags<frag_place::by_fragment>),

    // Clones and fragments.
    number(11, CLONE, clone_member<&clone_t::cloneid>),
    number(17, CLONE, clone_member<&clone_t::cloneid>),
    made(13, CLONE, EMPTY,
         [](use u, cell_text &out) {
           rsc_flags_text(u.row.clone->clflags, flag_letters::clone, out);
         }),
    number(19, FRAGMENT, frag_member<&frag_t::fragoffset>),
    number(21, FRAGMENT, of_fragment<frag_last_byte>),
    number(33, FRAGMENT, of_fragment<frag_size>),
    number(37, FRAGMENT, of_fragment<size_on_volume>),
    number(23, FRAGMENT, frag_member<&frag_t::mediafile>),
    number(25, FRAGMENT, frag_member<&frag_t::mediarec>),
    number(27, FRAGMENT, frag_member<&frag_t::mediamark>),
    number(29, FRAGMENT, frag_member<&frag_t::ssaccess>),

    // Counts that stand in the line, not in a record.
    text(RPT_SPACE_ID, NOTHING, EMPTY, [](use) { return std::string_view(); }),
    text(RPT_NEWLINE_ID, NOTHING, EMPTY, [](use) { return std::string_view(); }),
});

constexpr int LOWEST = RPT_NEWLINE_ID, HIGHEST = 173;

// The rule of each code; 0xff where there is none.
constexpr auto places = [] {
  std::array<std::uint8_t, HIGHEST - LOWEST + 1> table{};
  table.fill(0xff);
  for (std::size_t i = 0; i < rules.size(); i++) {
    table[static_cast<std::size_t>(rules[i].code - LOWEST)] = static_cast<std::uint8_t>(i);
  }
  return table;
}();
static_assert(rules.size() < 0xff);

}  // namespace

std::span<const cell_rule_t> cell_rules() {
  return rules;
}

const cell_rule_t *cell_rule(std::int16_t code) {
  if (code < LOWEST || code > HIGHEST) return nullptr;
  std::uint8_t place = places[static_cast<std::size_t>(code - LOWEST)];
  return place == 0xff ? nullptr : &rules[place];
}

}  // namespace qvr

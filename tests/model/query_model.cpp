#include "query_model.h"

#include <algorithm>

namespace qvr::test {

namespace {

using frag_of = const clone_t &;

std::string quoted(std::string_view text) {
  std::string made = "'";
  for (char c : text) {
    made += c;
    if (c == '\'') made += c;
  }
  return made + "'";
}

std::string number(std::int64_t value) {
  return std::to_string(value);
}

// A record to take values from, with one of its fragments where it has any.
struct pick_t {
  const ss_t &ss;
  const clone_t *clone;
  const frag_t *frag;
  const vol_t *vol;
  std::uint64_t chance;
};

// A smaller number is a time of day.
constexpr std::int64_t FIRST_TIME = 2360;

using maker_t = bool (*)(const pick_t &pick, model_constraint &made);

bool has_text(std::string_view text) {
  return !text.empty() && text.find('\n') == text.npos;
}

std::string_view attr(const ss_t &ss, std::string_view name) {
  return ss.attrs.first(name);
}

bool same_nocase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return std::tolower(static_cast<unsigned char>(x)) ==
           std::tolower(static_cast<unsigned char>(y));
  });
}

// "field>=value" or "field<=value", by chance.
template <class Get>
void ss_bound(const char *field, std::int64_t value, std::uint64_t chance, Get get,
              model_constraint &made) {
  bool lower = chance % 2 == 0;
  made.text = field + std::string(lower ? ">=" : "<=") + number(value);
  made.ss = [=](const ss_t &ss) { return lower ? get(ss) >= value : get(ss) <= value; };
}

template <auto Member>
bool vol_text(const char *field, const pick_t &pick, bool nocase, model_constraint &made) {
  if (pick.vol == nullptr || !has_text(pick.vol->*Member)) return false;
  std::string value(pick.vol->*Member);
  made.text = field + ("=" + quoted(value));
  made.frag = [=](frag_of, const frag_t &, const vol_t &vol) {
    return nocase ? same_nocase(vol.*Member, value) : vol.*Member == value;
  };
  return true;
}

template <auto Member>
bool vol_bound(const char *field, const pick_t &pick, model_constraint &made) {
  if (pick.vol == nullptr) return false;
  std::uint64_t value = pick.vol->*Member;
  made.text = field + (">=" + std::to_string(value));
  made.frag = [=](frag_of, const frag_t &, const vol_t &vol) { return vol.*Member >= value; };
  return true;
}

bool ss_flag(const char *word, std::uint32_t bit, const pick_t &pick, model_constraint &made) {
  bool wanted = pick.chance % 2 == 0;
  made.text = (wanted ? "" : "!") + std::string(word);
  made.ss = [=](const ss_t &ss) { return ((ss.ssflags & bit) != 0) == wanted; };
  return true;
}

constexpr maker_t makers[] = {
    [](const pick_t &p, model_constraint &m) {
      std::string value(p.ss.client);
      if (!has_text(value)) return false;
      m.text = "client=" + quoted(value);
      m.ss = [=](const ss_t &ss) { return ss.client == value; };
      return true;
    },
    [](const pick_t &p, model_constraint &m) {
      std::string value(p.ss.name);
      if (!has_text(value) || value.find("index:") != value.npos) return false;
      m.text = "name=" + quoted(value);
      m.ss = [=](const ss_t &ss) { return ss.name == value; };
      return true;
    },
    [](const pick_t &p, model_constraint &m) {
      if (p.ss.level < 0 || p.ss.level > 9) return false;
      ss_bound(
          "level", p.ss.level, p.chance, [](const ss_t &ss) { return ss.level; }, m);
      return true;
    },
    [](const pick_t &, model_constraint &m) {
      m.text = "level=incr";
      m.ss = [](const ss_t &ss) { return ss.level == 10; };
      return true;
    },
    [](const pick_t &p, model_constraint &m) {
      ss_bound(
          "savetime", p.ss.savetime, p.chance, [](const ss_t &ss) { return ss.savetime; }, m);
      return true;
    },
    [](const pick_t &p, model_constraint &m) {
      std::int64_t from = p.ss.savetime - 90000, to = p.ss.savetime + 90000;
      m.text = "savetime>=" + number(from) + ",savetime<=" + number(to);
      m.ss = [=](const ss_t &ss) { return ss.savetime >= from && ss.savetime <= to; };
      return true;
    },
    [](const pick_t &p, model_constraint &m) {
      std::int64_t value = p.ss.savetime;
      m.text = "savetime=" + number(value);
      m.ss = [=](const ss_t &ss) { return ss.savetime == value; };
      return true;
    },
    [](const pick_t &p, model_constraint &m) {
      if (p.ss.ssinsert < FIRST_TIME) return false;
      ss_bound(
          "ssinsert", p.ss.ssinsert, p.chance, [](const ss_t &ss) { return ss.ssinsert; }, m);
      return true;
    },
    [](const pick_t &p, model_constraint &m) {
      // A walk passes over volumes whose last access lies before a lower bound, and the sample has
      // save sets that were completed behind it.
      std::int64_t value = p.ss.sscomp;
      if (value < FIRST_TIME) return false;
      m.text = "sscomp<=" + number(value);
      m.ss = [=](const ss_t &ss) { return ss.sscomp <= value; };
      return true;
    },
    [](const pick_t &p, model_constraint &m) {
      std::uint64_t value = p.ss.totalsize;
      m.text = "totalsize>=" + std::to_string(value);
      m.ss = [=](const ss_t &ss) { return ss.totalsize >= value; };
      return true;
    },
    [](const pick_t &p, model_constraint &m) {
      std::uint32_t value = p.ss.ncopies;
      m.text = "copies=" + std::to_string(value);
      m.ss = [=](const ss_t &ss) { return ss.ncopies == value; };
      return true;
    },
    [](const pick_t &p, model_constraint &m) { return ss_flag("recoverable", 0x200, p, m); },
    [](const pick_t &p, model_constraint &m) { return ss_flag("snap", 0x4000000, p, m); },
    [](const pick_t &p, model_constraint &m) {
      std::string value(attr(p.ss, "group"));
      if (!has_text(value)) return false;
      m.text = "group=" + quoted(value);
      m.ss = [=](const ss_t &ss) { return same_nocase(attr(ss, "group"), value); };
      return true;
    },
    [](const pick_t &, model_constraint &m) {
      m.text = "group=";
      m.ss = [](const ss_t &ss) { return attr(ss, "group").empty(); };
      return true;
    },
    [](const pick_t &p, model_constraint &m) {
      std::string value(attr(p.ss, "annotation"));
      if (!has_text(value) || value.find_first_of("*.[]^$\\") != value.npos) return false;
      m.text = "annotation=" + quoted(value);
      m.ss = [=](const ss_t &ss) {
        return attr(ss, "annotation").find(value) != std::string_view::npos;
      };
      return true;
    },
    [](const pick_t &, model_constraint &m) {
      m.text = "vmname=ALL_VM";
      m.ss = [](const ss_t &ss) { return ss.attrs.has("*vm_name"); };
      return true;
    },
    [](const pick_t &, model_constraint &m) {
      m.text = "ssattr=*vm_n?me";
      m.ss = [](const ss_t &ss) { return attr(ss, "*vm_name").data() != nullptr; };
      return true;
    },
    [](const pick_t &p, model_constraint &m) {
      bool wanted = p.chance % 2 == 0;
      m.text = wanted ? "dedupe" : "!dedupe";
      m.ss = [=](const ss_t &ss) {
        return same_nocase(attr(ss, "*De-duplication"), "yes") == wanted;
      };
      return true;
    },
    [](const pick_t &, model_constraint &m) {
      m.text = "deviceless";
      m.ss = [](const ss_t &ss) { return same_nocase(attr(ss, "Deviceless backup"), "yes"); };
      return true;
    },
    [](const pick_t &p, model_constraint &m) {
      ksui value = p.ss.ssid;
      m.text = "ssid=" + ksui_text(value, ksui_form::long_form);
      m.ss = [=](const ss_t &ss) { return ss.ssid == value; };
      return true;
    },
    // Volumes.
    [](const pick_t &p, model_constraint &m) {
      return vol_text<&vol_t::volume>("volume", p, false, m);
    },
    [](const pick_t &p, model_constraint &m) { return vol_text<&vol_t::pool>("pool", p, true, m); },
    [](const pick_t &p, model_constraint &m) {
      return vol_text<&vol_t::family>("family", p, true, m);
    },
    [](const pick_t &p, model_constraint &m) { return vol_text<&vol_t::type>("type", p, true, m); },
    [](const pick_t &p, model_constraint &m) {
      return vol_text<&vol_t::location>("location", p, false, m);
    },
    [](const pick_t &p, model_constraint &m) {
      return vol_text<&vol_t::barcode>("barcode", p, false, m);
    },
    [](const pick_t &p, model_constraint &m) {
      return vol_bound<&vol_t::capacity>("capacity", p, m);
    },
    [](const pick_t &p, model_constraint &m) {
      if (p.vol == nullptr) return false;
      bool wanted = p.chance % 2 == 0;
      m.text = wanted ? "full" : "!full";
      m.frag = [=](frag_of, const frag_t &, const vol_t &vol) {
        return ((vol.volflags & 1) != 0) == wanted;
      };
      return true;
    },
    [](const pick_t &p, model_constraint &m) {
      if (p.vol == nullptr) return false;
      ksui value = p.vol->volid;
      m.text = "volid=" + ksui_text(value, ksui_form::short_form);
      m.frag = [=](frag_of, const frag_t &, const vol_t &vol) { return vol.volid == value; };
      return true;
    },
    // Clones and fragments.
    [](const pick_t &p, model_constraint &m) {
      if (p.frag == nullptr) return false;
      std::uint32_t value = p.frag->mediafile;
      m.text = "mediafile<=" + std::to_string(value);
      m.frag = [=](frag_of, const frag_t &frag, const vol_t &) { return frag.mediafile <= value; };
      return true;
    },
    [](const pick_t &p, model_constraint &m) {
      if (p.clone == nullptr) return false;
      std::int64_t value = p.clone->cloneid;
      m.text = "cloneid=" + number(value);
      m.frag = [=](frag_of clone, const frag_t &, const vol_t &) { return clone.cloneid == value; };
      return true;
    },
    [](const pick_t &p, model_constraint &m) {
      bool wanted = p.chance % 2 == 0;
      m.text = wanted ? "suspect" : "!suspect";
      m.frag = [=](frag_of clone, const frag_t &, const vol_t &) {
        return ((clone.clflags & 0x20000) != 0) == wanted;
      };
      return true;
    },
};

std::string_view field_of(std::string_view text) {
  if (text.starts_with('!')) text.remove_prefix(1);
  return text.substr(0, text.find_first_of("<>="));
}

bool some_fragment(const model_catalogue &catalogue, const ss_t &ss,
                   const std::vector<model_constraint> &constraints) {
  for (const clone_t &clone : ss.copies()) {
    for (const frag_t &frag : clone.fragments()) {
      const vol_t *vol = catalogue.volume_of(frag);
      if (vol == nullptr) continue;
      if (std::all_of(constraints.begin(), constraints.end(), [&](const model_constraint &each) {
            return !each.frag || each.frag(clone, frag, *vol);
          })) {
        return true;
      }
    }
  }
  return false;
}

}  // namespace

std::vector<model_constraint> query_maker::make() {
  std::vector<model_constraint> made;
  std::size_t wanted = 1 + next(3);
  for (int tries = 0; made.size() < wanted && tries < 50; tries++) {
    const ss_t &ss = *catalogue_.save_sets.rows[next(catalogue_.save_sets.size())];
    const clone_t *clone = ss.ncopies == 0 ? nullptr : &ss.clones[next(ss.ncopies)];
    const frag_t *frag =
        clone == nullptr || clone->nfrags == 0 ? nullptr : &clone->frags[next(clone->nfrags)];
    pick_t pick{ss, clone, frag, frag == nullptr ? nullptr : catalogue_.volume_of(*frag),
                next(1000)};
    model_constraint one;
    if (!makers[next(std::size(makers))](pick, one)) continue;
    bool repeated = std::any_of(made.begin(), made.end(), [&](const model_constraint &other) {
      return field_of(other.text) == field_of(one.text);
    });
    if (!repeated) made.push_back(std::move(one));
  }
  return made;
}

bool model_counts(const model_catalogue &catalogue, const ss_t &ss, bool whole) {
  if (whole && (ss.client.empty() || ss.name.empty() || (ss.ssflags & 0x10000) != 0)) return false;
  return some_fragment(catalogue, ss, {});
}

std::vector<std::string> model_answer(const model_catalogue &catalogue,
                                      const std::vector<model_constraint> &constraints,
                                      bool whole) {
  std::vector<std::string> answer;
  for (const ss_t *ss : catalogue.save_sets.rows) {
    bool kept = model_counts(catalogue, *ss, whole) &&
                std::all_of(constraints.begin(), constraints.end(),
                            [&](const model_constraint &each) { return !each.ss || each.ss(*ss); });
    if (kept && some_fragment(catalogue, *ss, constraints)) {
      answer.push_back(ksui_text(ss->ssid, ksui_form::long_form));
    }
  }
  std::sort(answer.begin(), answer.end());
  return answer;
}

}  // namespace qvr::test

#include "lab_sample.h"

#include <algorithm>
#include <charconv>
#include <ctime>

#include "sample_draft.h"
#include "ss_flags.h"
#include "ss_levels.h"

namespace qvr {

namespace {

class sample_maker {
 public:
  sample_maker(const sample_options &options, catalogue_sink &sink)
      : options_(options), sink_(sink), random_(options.seed * 2 + 1) {
    number_base_ = random_.word();
    site_ = make_site(options, random_);
  }

  void make() {
    give_clients(site_, sink_);
    give_resources(site_, sink_);
    for (unsigned back = options_.days; back > 0; back--) make_day(back);
    make_midnight_run();
    while (made_ < options_.savesets) make_ordinary();
    give_volumes(site_, sink_);
  }

 private:
  std::int64_t day_start(unsigned back) const {
    return options_.midnight - std::int64_t{back} * SAMPLE_DAY;
  }

  // Short ids are all different: an odd factor permutes the 32-bit numbers.
  std::uint32_t short_id(std::uint64_t number) const {
    return number_base_ + static_cast<std::uint32_t>(number) * 2654435761u;
  }

  saveset_draft draft(const site_client &client, std::string name, std::int64_t savetime,
                      std::int32_t level) {
    saveset_draft draft;
    draft.client = &client;
    draft.name = std::move(name);
    draft.number = made_;
    ss_t &ss = draft.record;
    ss.ssid = sample_id(made_ % 16 == 15 ? KSUI_SAVESET_OLD : KSUI_SAVESET, short_id(made_),
                        savetime, random_);
    ss.clientid = client.client.clientid;
    ss.level = level;
    ss.savetime = savetime;
    ss.sscreate = savetime;
    ss.ssinsert = savetime + static_cast<std::int64_t>(random_.below(30));
    ss.sscomp = ss.ssinsert + static_cast<std::int64_t>(random_.between(20, 2400));
    ss.ssflags = SS_VALID | SS_COMPLETE;
    bool whole = level == LEVEL_FULL;
    ss.totalsize =
        whole ? random_.between(500000000, 200000000000) : random_.between(200, 4000000000);
    ss.nfiles = std::max<std::uint64_t>(1, ss.totalsize / random_.between(20000, 400000));
    ss.ssbrowse = 30 * SAMPLE_DAY;
    ss.ssretent = (whole ? 365 : 90) * SAMPLE_DAY;
    if (savetime + 30 * SAMPLE_DAY < options_.midnight) ss.ssflags |= SS_RECOVERABLE;
    draft.copies.push_back({savetime, SS_VALID | SS_COMPLETE, {pick(site_.disks)}});
    return draft;
  }

  std::size_t pick(const std::vector<std::size_t> &volumes) {
    return volumes[random_.below(volumes.size())];
  }

  // Each client has its own day for a full one; the first behind the server had it yesterday.
  static std::int32_t level_of_day(unsigned back, std::size_t client, client_kind kind) {
    switch ((back + client + 5) % 7) {
      case 0:
        return LEVEL_FULL;
      case 3:
        return kind == client_kind::windows_host ? LEVEL_INCR : 5;
      default:
        return LEVEL_INCR;
    }
  }

  void make_day(unsigned back) {
    std::int64_t evening = day_start(back) + 19 * 3600;
    for (std::size_t c = 0; c < site_.clients.size(); c++) {
      const site_client &client = site_.clients[c];
      std::int64_t at = evening + static_cast<std::int64_t>(c % 20) * 600;
      for (std::size_t i = 0; i < client.savesets.size(); i++) {
        // Once a week all clients start in one second; a filer's save sets always do.
        bool together = back % 7 == 3 && i == 0;
        std::int64_t savetime = together ? evening - 3600 : at;
        if (client.kind != client_kind::filer)
          at += static_cast<std::int64_t>(random_.between(20, 300));
        make_daily(client, client.savesets[i], savetime, level_of_day(back, c, client.kind));
      }
    }
    make_server_run(back, day_start(back) + 23 * 3600);
    make_deleted(back);
  }

  void make_daily(const site_client &client, const std::string &name, std::int64_t savetime,
                  std::int32_t level) {
    saveset_draft ss = draft(client, name, savetime, level);
    by_kind(ss);
    std::uint64_t turn = daily_++;
    // Disk copies of every fourth save set are listed with their read-only twin.
    if (turn % 4 == 2) {
      copy_draft twin = ss.copies.front();
      twin.cloneid++;
      twin.volumes = {site_.read_only_twin(twin.volumes.front())};
      ss.copies.push_back(twin);
    }
    add_policy(ss, turn % 3 == 0 ? "Gold" : "Silver");
    for (const sample_trait &trait : SAMPLE_TRAITS) {
      if (turn % trait.period == trait.phase % trait.period) trait.apply(ss, site_, random_);
    }
    emit(ss, turn);
    if (turn % 57 == 10) continue_it(ss);
  }

  void by_kind(saveset_draft &ss) {
    switch (ss.client->kind) {
      case client_kind::unix_host:
        attrlist_add(ss.attrs, "group", "Default");
        break;
      case client_kind::windows_host:
        attrlist_add(ss.attrs, "group", "Windows Büro");
        attrlist_add(ss.attrs, "group", "Default");
        break;
      case client_kind::virtual_machines:
        attrlist_set(
            ss.attrs, "*vm_name",
            ss.name.find("9b77") == std::string::npos ? "web server 1" : "Datenbank (prod)");
        attrlist_set(ss.attrs, "*totalvmdiskutil", std::to_string(random_.between(40, 900)));
        attrlist_set(ss.attrs, "*occupiedvmdiskutil", std::to_string(random_.between(1, 39)));
        break;
      case client_kind::filer:
        ss.record.ssflags |= SS_NDMP;
        ss.copies.front().volumes = {pick(site_.tapes)};
        attrlist_add(ss.attrs, "group", "NDMP");
        break;
    }
  }

  static void add_policy(saveset_draft &ss, const char *policy) {
    std::string ids;
    for (const copy_draft &copy : ss.copies) {
      if (!ids.empty()) ids += ' ';
      ids += std::to_string(copy.cloneid);
    }
    attrlist_set(ss.attrs, "*policy name", policy + (":" + ids));
    attrlist_set(ss.attrs, "*policy workflow name", "Nightly:" + ids);
    attrlist_set(ss.attrs, "*policy action name", "backup:" + ids);
  }

  // A second save set that goes on where the first one ended.
  void continue_it(const saveset_draft &first) {
    saveset_draft ss =
        draft(*first.client, first.name, first.record.savetime + 1, first.record.level);
    ss.record.pssid = first.record.ssid;
    ss.record.ssflags |= SS_CONTINUED;
    attrlist_add(ss.attrs, "group", "Default");
    emit(ss, daily_++);
  }

  // The indexes of all clients, then the bootstrap, which names them.
  void make_server_run(unsigned back, std::int64_t at) {
    const site_client &server = site_.clients.front();
    std::int32_t level = back % 7 == 0 ? LEVEL_FULL : 9;
    for (const site_client &client : site_.clients) {
      std::string name = "index:" + ksui_text(client.client.clientid, ksui_form::long_form);
      saveset_draft ss = draft(server, std::move(name), at++, level);
      ss.record.totalsize = random_.between(20000, 80000000);
      ss.record.nfiles = random_.between(3, 40);
      ss.copies.front().volumes = {pick(site_.tapes)};
      emit(ss, made_);
    }
    saveset_draft ss = draft(server, "bootstrap", at + 5, level);
    ss.record.totalsize = random_.between(100000, 900000);
    ss.record.nfiles = random_.between(90, 200);
    ss.record.ssretent = 365 * SAMPLE_DAY;
    ss.copies.front().volumes = {pick(site_.tapes)};
    if (back % 2 == 0) {
      copy_draft copy = ss.copies.front();
      copy.cloneid += 1800;
      copy.volumes = {pick(site_.offsite_tapes)};
      ss.copies.push_back(copy);
    }
    emit(ss, made_);
  }

  // What is there of the present day: it must not lie ahead of the clock.
  void make_midnight_run() {
    std::int64_t at = options_.midnight + 1;
    for (const site_client &client : site_.clients) {
      make_daily(client, client.savesets.front(), at, LEVEL_INCR);
      if (at < options_.midnight + 50) at += 3;
    }
  }

  // Save sets beyond what the site makes: spread evenly over the days, in ascending time.
  void make_ordinary() {
    std::uint64_t count = options_.savesets - made_;
    std::int64_t from = day_start(options_.days);
    auto span = static_cast<std::uint64_t>(options_.midnight - from);
    for (std::uint64_t i = 0; i < count; i++) {
      const site_client &client =
          site_.clients[1 % site_.clients.size() +
                        random_.below(std::max<std::size_t>(site_.clients.size() - 1, 1))];
      auto step = static_cast<std::int64_t>(span / count * i + span % count * i / count);
      saveset_draft ss = draft(client, client.savesets[random_.below(client.savesets.size())],
                               from + step, random_.one_in(7) ? LEVEL_FULL : LEVEL_INCR);
      attrlist_add(ss.attrs, "group", "Default");
      if (random_.one_in(4)) ss.copies.front().volumes.push_back(pick(site_.tapes));
      if (random_.one_in(4))
        ss.copies.push_back(
            {ss.record.savetime + 7200, SS_VALID | SS_COMPLETE, {pick(site_.offsite_tapes)}});
      if (random_.one_in(2)) add_policy(ss, "Gold");
      emit(ss, 1);
    }
  }

  void emit(const saveset_draft &draft, std::uint64_t turn) {
    ss_t ss = draft.record;
    ss.client = draft.client->client.name;
    ss.name = draft.name;
    std::string series = packed_attrs::pack(draft.attrs);
    ss.attrs = packed_attrs(series);
    std::vector<clone_t> clones;
    std::vector<std::vector<frag_t>> frags;
    for (const copy_draft &copy : draft.copies) {
      clone_t clone;
      clone.cloneid = copy.cloneid;
      clone.clflags = copy.flags;
      frags.push_back(place(copy, ss));
      clone.frags = frags.back().data();
      clone.nfrags = static_cast<std::uint32_t>(frags.back().size());
      clones.push_back(clone);
    }
    ss.clones = clones.data();
    ss.ncopies = static_cast<std::uint32_t>(clones.size());
    sink_.add_ss(ss);
    made_++;
    tell_history(draft, turn);
  }

  // Puts the fragments of a copy on their volumes, in equal parts.
  std::vector<frag_t> place(const copy_draft &copy, const ss_t &ss) {
    std::vector<frag_t> list;
    std::uint64_t count = copy.volumes.size(), part = ss.totalsize / count;
    for (std::uint64_t i = 0; i < count; i++) {
      site_volume &vol = site_.volumes[copy.volumes[i]];
      frag_t frag;
      frag.fragoffset = static_cast<std::int64_t>(part * i);
      frag.volid = vol.record.volid;
      frag.mediafile = vol.record.next;
      frag.mediarec = static_cast<std::uint32_t>(random_.below(3000));
      frag.mediamark = static_cast<std::uint32_t>(random_.below(50));
      frag.ssaccess = copy.cloneid;
      list.push_back(frag);
      if (random_.one_in(8)) vol.record.next++;
      vol.bytes += i + 1 < count ? part : ss.totalsize - part * i;
      vol.record.volaccess = std::max(vol.record.volaccess, copy.cloneid);
    }
    return list;
  }

  void change(const saveset_draft &of, std::int64_t clone, hist_operation operation,
              std::int64_t time, std::string_view property, const std::string &oldvalue,
              const std::string &newvalue) {
    lab_history history;
    hist &record = history.record;
    record.hist_id = of.record.ssid;
    record.hist_clone = clone;
    record.operation = operation;
    record.timestamp = time;
    std::string user = (of.number % 3 == 0 ? "operator@" : "root@") + site_.server;
    record.user = user;
    record.property = property;
    record.oldvalue = oldvalue;
    record.newvalue = newvalue;
    record.validity = operation == HIST_UPDATE ? time + 30 * SAMPLE_DAY : INT64_MAX;
    history.client = of.client->client.name;
    history.name = of.name;
    history.clientid = of.client->client.clientid;
    sink_.add_history(history);
  }

  void tell_history(const saveset_draft &of, std::uint64_t turn) {
    const ss_t &ss = of.record;
    auto limit = [&](std::int64_t days) { return std::to_string(ss.ssinsert + days * SAMPLE_DAY); };
    if (turn % 4 == 0)
      change(of, 0, HIST_CREATE, ss.ssinsert, "ssid", "", std::to_string(ss.ssid.word(1)));
    if (turn % 12 == 4)
      change(of, 0, HIST_UPDATE, ss.ssinsert + 3600, "ssretent", limit(90), limit(180));
    if (turn % 24 == 8)
      change(of, 0, HIST_UPDATE, ss.ssinsert + 3700, "ssretent", limit(180),
             std::to_string(INT64_MAX));
    if (turn % 20 == 12 && !of.copies.empty())
      change(of, of.copies.front().cloneid, HIST_UPDATE, ss.ssinsert + 4000, "clretent", limit(90),
             limit(365));
    if (turn % 40 == 20)
      change(of, 0, HIST_UPDATE, ss.ssinsert + 5000, "annotation", "", "100% checked");
  }

  // A save set that is known only by its history.
  void make_deleted(unsigned back) {
    const site_client &client = site_.clients[back % site_.clients.size()];
    saveset_draft gone =
        draft(client, "/old/project " + std::to_string(back), day_start(back) + 3600, LEVEL_FULL);
    gone.record.ssid.set_word(1, ~short_id(back));
    std::int64_t at = day_start(back) + 18 * 3600;
    change(gone, 0, HIST_CREATE, day_start(back) + 3700, "ssid", "",
           std::to_string(gone.record.ssid.word(1)));
    struct {
      const char *property;
      std::string value;
    } rows[] = {
        {"ssid", std::to_string(gone.record.ssid.word(1))},
        {"longssid", ksui_text(gone.record.ssid, ksui_form::long_form)},
        {"client_name", client.client.name},
        {"clientid", ksui_text(client.client.clientid, ksui_form::long_form)},
        {"label", gone.name},
    };
    for (const auto &row : rows) change(gone, 0, HIST_DELETE, at, row.property, row.value, "");
  }

  const sample_options &options_;
  catalogue_sink &sink_;
  sample_random random_;
  sample_site site_;
  std::uint32_t number_base_ = 0;
  std::uint64_t made_ = 0;   // save sets so far
  std::uint64_t daily_ = 0;  // of them those of clients' daily runs
};

}  // namespace

bool parse_sample(const std::string &text, sample_options &options) {
  std::uint64_t parts[3] = {0, options.clients, options.days};
  const char *at = text.data(), *end = at + text.size();
  for (int i = 0; i < 3; i++) {
    auto [rest, trouble] = std::from_chars(at, end, parts[i]);
    if (trouble != std::errc()) return false;
    at = rest;
    if (at == end) break;
    if (*at++ != ':' || i == 2) return false;
  }
  if (at != end || parts[1] == 0 || parts[1] > 100000 || parts[2] == 0 || parts[2] > 36500)
    return false;
  options.seed = parts[0];
  options.clients = static_cast<unsigned>(parts[1]);
  options.days = static_cast<unsigned>(parts[2]);
  return true;
}

std::int64_t local_midnight(std::int64_t now) {
  std::time_t time = now;
  std::tm day{};
  localtime_r(&time, &day);
  day.tm_hour = day.tm_min = day.tm_sec = 0;
  day.tm_isdst = -1;
  return std::mktime(&day);
}

void make_sample(const sample_options &options, catalogue_sink &sink) {
  sample_maker(options, sink).make();
}

}  // namespace qvr

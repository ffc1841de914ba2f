#include "keyed_lookups.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "err_class.h"
#include "mif_env.h"
#include "mif_state.h"
#include "msg.h"

namespace qvr {

namespace {

// Numbers of the media database's class that say that something is not there.
constexpr int NO_SAVE_SET = 4;
constexpr int NO_VOLUME = 5;

// What a look-up is called in debug lines.
class retry_name {
 public:
  explicit retry_name(const char *format, ...) __attribute__((format(printf, 2, 3))) {
    std::va_list args;
    va_start(args, format);
    std::vsnprintf(text_.data(), text_.size(), format, args);
    va_end(args);
  }
  const char *text() const { return text_.data(); }

 private:
  std::array<char, 182> text_;
};

// Runs `query` until it finds something or is not worth another try. `missing` makes the error of
// an empty answer, or null; `wrap` the error of a query that failed.
template <class Query, class Missing, class Wrap>
errobj_t *look_up(const retry_name &name, std::uint32_t seconds, int not_found, Query query,
                  Missing missing, Wrap wrap) {
  errobj_t *error;
  do {
    error = nullptr;
    if (!query()) {
      error = mif_last_error();
      if (error == nullptr) error = missing();
    }
  } while (mif_retry_timed(name.text(), error, seconds));
  if (error == nullptr || err_is(error->code, ERR_MDB, not_found)) return error;
  std::string why = error->text;
  return wrap(error->code, why);
}

std::string long_text(const ksui &id) {
  return ksui_text(id, ksui_form::long_form);
}

errobj_t *invalid_argument() {
  return err_from_table(ERR_SYSTEM, EINVAL);
}

// The words for an answer without save sets, by what was asked for.
errobj_t *no_such_save_set(const ss_query_t &query) {
  if (!query.name.empty()) {
    return err_create(86887, 82004, "Save-set '%s' is not in media database.",
                      {{MSG_ARG_SAVESET, query.name}});
  }
  if (!query.client.empty()) {
    return err_create(101968, 82004, "Client '%s' is not in media database.",
                      {{MSG_ARG_HOST, query.client}});
  }
  return err_create(101969, 82004, "Media database query returned no results.");
}

}  // namespace

errobj_t *get_ss(const ksui *ssid, bool full, ss_list *found, std::uint32_t seconds) {
  if (ssid == nullptr || ssid->is_null()) {
    return err_create(86873, 13022,
                      "Unable to get a save-set by save-set ID: the save-set ID is missing.");
  }
  if (found == nullptr) {
    return err_create(86874, 13022,
                      "Unable to get a save-set by save-set ID: the save-set pointer is missing.");
  }
  std::string id = long_text(*ssid);
  return look_up(
      retry_name("get_ss %s", id.c_str()), seconds, NO_SAVE_SET,
      [&] { return !(*found = fetchss_id(*ssid, full)).empty(); },
      [&] {
        return err_create(86875, 85004, "Save-set ID '%s' is not in media database.",
                          {{MSG_ARG_SAVESET, id}});
      },
      [&](std::int32_t code, const std::string &why) {
        return err_create(145345, code, "Unable to query save set %s: %s",
                          {{MSG_ARG_SAVESET, id}, {MSG_ARG_ERRTEXT, why}});
      });
}

errobj_t *get_ss_bytime(std::string_view client, std::int64_t savetime, bool full, ss_list *found,
                        std::uint32_t seconds) {
  if (found == nullptr) {
    return err_create(
        86888, 13022,
        "Unable to fetch save-set by its save time: the save-set pointer is missing.");
  }
  std::string time = std::to_string(savetime);
  return look_up(
      retry_name("get_ss_bytime (savetime: %s)", time.c_str()), seconds, NO_SAVE_SET,
      [&] { return !(*found = ss_by_time_fetch(client, savetime, full)).empty(); },
      [&] {
        return err_create(31991, 85004, "savetime %s not in media db", {{MSG_ARG_SAVETIME, time}});
      },
      [&](std::int32_t code, const std::string &why) {
        return err_create(145347, code, "Unable to query save set time %s: %s",
                          {{MSG_ARG_SAVETIME, time}, {MSG_ARG_ERRTEXT, why}});
      });
}

errobj_t *get_ss_byname(const ss_query_t &query, ss_list *found, std::uint32_t seconds) {
  if (found == nullptr) {
    return err_create(86886, 13022,
                      "Unable to fetch the save-sets that match the given criteria: the pointer of "
                      "the save-set list is missing.");
  }
  std::string key(!query.name.empty() ? query.name : query.client);
  return look_up(
      retry_name("get_ss_byname %s", key.c_str()), seconds, NO_SAVE_SET,
      [&] { return !(*found = get_ss_query(query)).empty(); },
      [&] { return no_such_save_set(query); },
      [&](std::int32_t code, const std::string &why) {
        return err_create(145346, code, "Unable to query save set '%s:%s': %s",
                          {{MSG_ARG_HOST, query.client.data() ? query.client : ""},
                           {MSG_ARG_SAVESET, query.name.data() ? query.name : ""},
                           {MSG_ARG_ERRTEXT, why}});
      });
}

errobj_t *get_ss_range(const ss_page_t *page, ssr_reply *reply, std::uint32_t seconds) {
  if (reply == nullptr) {
    return err_create(86884, 82002,
                      "Unable to get the save-sets that match the given criteria: the save-set "
                      "list pointer is missing.");
  }
  if (page == nullptr) {
    return err_create(144504, 13022,
                      "Unable to get the save-sets that match the given criteria: a required "
                      "parameter is missing.");
  }
  int more = 0;
  errobj_t *error = look_up(
      retry_name("get_ss_range"), seconds, NO_SAVE_SET,
      [&] { return !(reply->list = get_ss_page(*page, &more)).empty(); },
      []() -> errobj_t * { return nullptr; },
      [&](std::int32_t code, const std::string &why) {
        return err_create(144505, code, "Unable to query save sets by range: %s",
                          {{MSG_ARG_ERRTEXT, why}});
      });
  reply->ssr_more = more;
  reply->error = error;
  reply->status = error == nullptr ? MMDB_OK : MMDB_LOCAL_ERROR;
  return error;
}

errobj_t *get_volume(const ksui *volid, bool full, vol_list *found, std::uint32_t seconds) {
  if (volid == nullptr || volid->is_null()) {
    return err_create(86896, 85002, "Unable to get volume by volume ID: the volume ID is missing.");
  }
  if (found == nullptr) {
    return err_create(86897, 85002,
                      "Unable to get volume by volume ID: the volume pointer is missing.");
  }
  std::string id = long_text(*volid);
  bool ending = false;
  errobj_t *error = look_up(
      retry_name("get_volume %s", id.c_str()), seconds, NO_VOLUME,
      [&] {
        found->clear();
        ending = mif_env().exiting();
        if (!ending) *found = get_vol_id(*volid, full);
        return ending || !found->empty();
      },
      [&] {
        return err_create(86898, 85005, "Volume ID '%s' is not in media database.",
                          {{MSG_ARG_VOLUME, id}});
      },
      [&](std::int32_t code, const std::string &why) {
        return err_create(145348, code, "Unable to query volume %s: %s",
                          {{MSG_ARG_VOLUME, id}, {MSG_ARG_ERRTEXT, why}});
      });
  if (!ending) return error;
  return err_create(208140, 85002, "Unable to query volume %s, process is exiting",
                    {{MSG_ARG_VOLUME, id}});
}

errobj_t *get_volumes_byname(std::string_view name, bool full, vol_list *found,
                             std::uint32_t seconds) {
  if (name.empty() || found == nullptr) return invalid_argument();
  std::string key(name);
  return look_up(
      retry_name("get_volumes_byname %s", key.c_str()), seconds, NO_VOLUME,
      [&] { return !(*found = get_vols_name(name, full)).empty(); },
      [&] {
        return err_create(86901, 85005, "Volume '%s' is not in media database.",
                          {{MSG_ARG_VOLUME, name}});
      },
      [&](std::int32_t code, const std::string &why) {
        return err_create(145349, code, "Unable to query volume '%s': %s",
                          {{MSG_ARG_VOLUME, name}, {MSG_ARG_ERRTEXT, why}});
      });
}

errobj_t *get_volume_byname(std::string_view name, bool full, vol_list *found,
                            std::uint32_t seconds) {
  if (name.empty() || found == nullptr) return invalid_argument();
  if (errobj_t *error = get_volumes_byname(name, full, found, seconds)) return error;
  if (found->empty()) {
    return err_create(4149, 81001, "volume %s query returned list without volumes\n",
                      {{MSG_ARG_VOLUME, name}});
  }
  if (found->size() > 1) {
    msg_print(4148, 81002, MSG_STDERR,
              "Duplicate entries found for volume %s, specify volume by volume id\n",
              {{MSG_ARG_VOLUME, name}});
    found->rows.resize(1);
  }
  return nullptr;
}

}  // namespace qvr

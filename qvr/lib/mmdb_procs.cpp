#include "mmdb_procs.h"

#include <algorithm>

namespace qvr {

namespace {

using enum mmdb_type;
using enum mmdb_form;

// Argument lists, by procedure number.
constexpr mmdb_arg_t args_50[] = {{id, optional}, {int64}};
constexpr mmdb_arg_t args_51[] = {{ss, optional}};
constexpr mmdb_arg_t args_52[] = {{id, optional}, {uint32}};
constexpr mmdb_arg_t args_53[] = {{id, array, "ids"}, {boolean, plain, "full"}};
constexpr mmdb_arg_t args_54[] = {
    {boolean, plain, "all"},         {string, plain, "client"}, {string, plain, "name"},
    {attributes, optional, "attrs"}, {int64, plain, "time"},    {int32, plain, "level"},
    {boolean, plain, "full"},
};
constexpr mmdb_arg_t args_55[] = {
    {string, plain, "client"}, {int64, array, "times"}, {boolean, plain, "full"}};
constexpr mmdb_arg_t args_56[] = {{id, optional}};
constexpr mmdb_arg_t args_57[] = {
    {string, plain, "client"},  {string, plain, "name"},  {attributes, optional, "attrs"},
    {range, optional, "range"}, {int32, plain, "level"},  {attributes, optional, "filter"},
    {id, optional, "last"},     {boolean, plain, "full"},
};
constexpr mmdb_arg_t args_58[] = {{string, plain, "client"}, {string, plain, "name"}};
constexpr mmdb_arg_t args_61[] = {{vol, optional}};
constexpr mmdb_arg_t args_63[] = {
    {string, plain, "family"}, {string, plain, "type"},  {uint32, plain, "flagmask"},
    {uint32, plain, "flags"},  {boolean, plain, "full"},
};
constexpr mmdb_arg_t args_64[] = {{id, optional, "volid"}, {boolean, plain, "full"}};
constexpr mmdb_arg_t args_65[] = {{string, plain, "volume"}, {boolean, plain, "full"}};
constexpr mmdb_arg_t args_68[] = {
    {string, plain, "pool"},
    {uint32, plain, "flagmask"},
    {uint32, plain, "flags"},
    {boolean, plain, "full"},
};
constexpr mmdb_arg_t args_69[] = {{string, plain, "barcode"}, {boolean, plain, "full"}};
constexpr mmdb_arg_t args_70[] = {
    {string, plain, "location"}, {range, plain, "range"}, {boolean, plain, "full"}};
constexpr mmdb_arg_t args_72[] = {{vol_filter, optional}, {boolean}};
constexpr mmdb_arg_t args_73[] = {{enumeration}, {string}};
constexpr mmdb_arg_t args_74[] = {{enumeration}, {boolean}};
constexpr mmdb_arg_t args_75[] = {{attributes, optional}};
constexpr mmdb_arg_t args_76[] = {{clidmap, optional, "entry"}};
constexpr mmdb_arg_t args_77[] = {{clidmap, optional}, {int32}};
constexpr mmdb_arg_t args_79[] = {{vol, optional}, {uint32}, {boolean}};
constexpr mmdb_arg_t args_80[] = {{vol, direct_list}, {uint32}, {boolean}};
constexpr mmdb_arg_t args_81[] = {{attributes, optional}, {boolean}};
constexpr mmdb_arg_t args_82[] = {{ss, direct_list}};
constexpr mmdb_arg_t args_83[] = {
    {id, optional}, {int64}, {int64}, {id, optional}, {char32, optional}};
constexpr mmdb_arg_t args_84[] = {{id, direct_list}};
constexpr mmdb_arg_t args_85[] = {{resource}, {int32}};
constexpr mmdb_arg_t args_86[] = {{ss_times, optional_list}};
constexpr mmdb_arg_t args_87[] = {{clidmap, optional}};
constexpr mmdb_arg_t args_88[] = {{clidmap, optional}, {values, optional}};
constexpr mmdb_arg_t args_89[] = {{id, optional}, {int64},  {int64},
                                  {id, optional}, {string}, {attributes, optional}};
constexpr mmdb_arg_t args_90[] = {
    {int64, array, "times"}, {attributes, optional, "attrs"}, {boolean, plain, "full"}};
constexpr mmdb_arg_t args_91[] = {{id, optional}, {int64}, {frag, optional}};
constexpr mmdb_arg_t args_93[] = {{id, optional}, {int64}};
constexpr mmdb_arg_t args_94[] = {{id, optional}, {uint32}, {uint32}};
constexpr mmdb_arg_t args_95[] = {{id, optional_array}, {id, optional}, {uint32}, {enumeration}};
constexpr mmdb_arg_t args_96[] = {
    {id, optional, "ssid"},          {int64, plain, "clone"},          {range, optional, "range"},
    {attributes, optional, "attrs"}, {attributes, optional, "filter"},
};
constexpr mmdb_arg_t args_97[] = {{ss, optional_list}, {id, optional}};
constexpr mmdb_arg_t args_98[] = {
    {vol, optional_list}, {ss, optional_list}, {clidmap, optional_list}};
constexpr mmdb_arg_t args_99[] = {{string128}, {boolean}};
constexpr mmdb_arg_t args_100[] = {{ss_ids, optional_list}};

constexpr mmdb_proc_t proc_rows[] = {
    {MMDB_NULL, "null", {}, mmdb_reply::none},
    {50, "", args_50, mmdb_reply::ss},
    {51, "", args_51, mmdb_reply::errinfo},
    {52, "", args_52, mmdb_reply::errinfo},
    {MMDB_FETCHSS_IDS, "mmdb_fetchss_ids", args_53, mmdb_reply::ss},
    {MMDB_GET_SS, "mmdb_get_ss", args_54, mmdb_reply::ss},
    {MMDB_GET_SS_TIMES_CLIENT, "mmdb_get_ss_times_client", args_55, mmdb_reply::ss},
    {56, "", args_56, mmdb_reply::ss},
    {MMDB_GET_SS_RANGE, "mmdb_get_ss_range", args_57, mmdb_reply::ssr},
    {MMDB_GET_CLIENTS, "mmdb_get_clients", args_58, mmdb_reply::ss},
    {60, "", args_56, mmdb_reply::vol},
    {61, "", args_61, mmdb_reply::errinfo},
    {62, "", args_52, mmdb_reply::errinfo},
    {MMDB_GET_VOLS_FAMILY, "mmdb_get_vols_family", args_63, mmdb_reply::vol},
    {MMDB_GET_VOL_ID, "mmdb_get_vol_id", args_64, mmdb_reply::vol},
    {MMDB_GET_VOLS_NAME, "mmdb_get_vols_name", args_65, mmdb_reply::vol},
    {MMDB_GET_VOLS_POOL, "mmdb_get_vols_pool", args_68, mmdb_reply::vol},
    {MMDB_GET_VOLS_BARCODE, "mmdb_get_vols_barcode", args_69, mmdb_reply::vol},
    {MMDB_GET_VOLS_LOCATION, "mmdb_get_vols_location", args_70, mmdb_reply::vol},
    {71, "", {}, mmdb_reply::vol},
    {72, "", args_72, mmdb_reply::volr},
    {73, "", args_73, mmdb_reply::errinfo},
    {74, "", args_74, mmdb_reply::errinfo},
    {75, "", args_75, mmdb_reply::errinfo},
    {MMDB_GET_CLIDMAP, "mmdb_get_clidmap", args_76, mmdb_reply::clidmap},
    {77, "", args_77, mmdb_reply::clidmap},
    {MMDB_FETCHCVR_IDS, "mmdb_fetchcvr_ids", args_53, mmdb_reply::ss},
    {79, "", args_79, mmdb_reply::errinfo},
    {80, "", args_80, mmdb_reply::volops},
    {81, "", args_81, mmdb_reply::volr},
    {82, "", args_82, mmdb_reply::ssop},
    {83, "", args_83, mmdb_reply::ss},
    {84, "", args_84, mmdb_reply::ssop},
    {85, "", args_85, mmdb_reply::errinfo},
    {86, "", args_86, mmdb_reply::ssop},
    {87, "", args_87, mmdb_reply::errinfo},
    {88, "", args_88, mmdb_reply::errinfo},
    {89, "", args_89, mmdb_reply::ss},
    {MMDB_GET_SS_TIMES, "mmdb_get_ss_times", args_90, mmdb_reply::ss},
    {MMDB_FRAGMENT_OP, "", args_91, mmdb_reply::errinfo},
    {93, "", args_93, mmdb_reply::attributes},
    {94, "", args_94, mmdb_reply::ids},
    {95, "", args_95, mmdb_reply::errinfo},
    {MMDB_GET_HISTORY, "mmdb_get_history", args_96, mmdb_reply::history},
    {97, "", args_97, mmdb_reply::errinfo},
    {98, "", args_98, mmdb_reply::errinfo},
    {99, "", args_99, mmdb_reply::bools},
    {100, "", args_100, mmdb_reply::errinfo},
};

}  // namespace

std::span<const mmdb_proc_t> mmdb_procs() {
  return proc_rows;
}

const mmdb_proc_t *mmdb_find_proc(std::uint32_t number) {
  const auto *row = std::ranges::lower_bound(proc_rows, number, {}, &mmdb_proc_t::number);
  return row != std::end(proc_rows) && row->number == number ? row : nullptr;
}

}  // namespace qvr

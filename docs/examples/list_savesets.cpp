// list_savesets SERVER CLIENT: lists the save sets of a client, newest last.
//
//   c++ -std=c++20 list_savesets.cpp $(pkg-config --cflags --libs qvrmmdb) -o list_savesets
#include <algorithm>
#include <clocale>
#include <cstdio>

#include <qvrmmdb/qvrmmdb.h>

namespace {

bool connect_to(const char *server) {
  qvr::mif_set_noretry(true);
  qvr::mif_set_server(server);
  return qvr::mif_connect() == qvr::MIF_CONNECTED;
}

void print(const qvr::ss_t &ss) {
  std::printf("%-12s %-20s %-6s %12llu  %.*s\n",
              qvr::ksui_text(ss.ssid, qvr::ksui_form::short_form).c_str(),
              qvr::date_time_short(ss.savetime), qvr::level_report_name(ss.level).data(),
              static_cast<unsigned long long>(ss.totalsize), static_cast<int>(ss.name.size()),
              ss.name.data());
}

}  // namespace

int main(int argc, char **argv) {
  std::setlocale(LC_ALL, "");
  if (argc != 3) {
    std::fputs("usage: list_savesets SERVER CLIENT\n", stderr);
    return 1;
  }
  qvr::ks_runtime_start();
  qvr::ks_set_progname("list_savesets");
  qvr::kstr_set_application(qvr::REELSCAN_APPLICATION, qvr::REELSCAN_PROCESS_KEY);
  qvr::gss_install();
  char host[256];
  qvr::ks_getlocalhost(host, sizeof host);
  qvr::qvr_client_init(host);

  qvr::ss_list found;
  if (connect_to(argv[1])) {
    qvr::ss_query_t query;
    query.all = true;
    query.client = argv[2];
    found = qvr::get_ss_query(query);
  }
  if (const qvr::errobj_t *error = qvr::mif_last_error()) {
    qvr::err_print(error);
    return 2;
  }
  std::sort(found.rows.begin(), found.rows.end(),
            [](const qvr::ss_t *a, const qvr::ss_t *b) { return a->savetime < b->savetime; });
  for (const qvr::ss_t *ss : found.rows) print(*ss);
  qvr::mif_close();
  return found.empty() ? 1 : 0;
}

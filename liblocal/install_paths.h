// Where an installation keeps its files. No other place of the sources spells such a path.
#pragma once

#include <string>
#include <string_view>

namespace qvr {

// Each directory, its default and the environment variable that moves it. "%" stands for the
// installation directory, which QVR_DIR_PATH moves, and with it all that lies below.
enum install_dir_t : int {
  INSTALL_ROOT,        // /opt/qvr          QVR_DIR_PATH
  INSTALL_DEBUG,       // /qvr/debug        QVR_DEBUG_DIR       marker files, "qvrdebugconfig"
  INSTALL_CHECKSUMS,   // /qvr/checksums    QVR_CHECKSUMS_DIR   statistics of streams
  INSTALL_ROOT_DEBUG,  // %/debug           QVR_ROOT_DEBUG_DIR  "fipsenable"
  INSTALL_TOKENS,      // %/tokens          QVR_TOKENS_DIR      users' tokens and their locks
  INSTALL_TMP,         // %/tmp             QVR_TMP_DIR         "ksdbg.tmp"
  INSTALL_CATALOG,     // %/locale          QVRCATALOGDIR       a subdirectory for each locale
  INSTALL_SSL,         // %/ssl             QVR_SSL_DIR         "openssl.cnf"
  INSTALL_DIR_COUNT,
};

// The directory without a slash at its end. Reads the environment at each call; a caller that must
// see one value for the life of the process keeps the result. An empty variable counts as unset.
// Any thread, as long as none changes the environment.
std::string install_dir(install_dir_t which);
// The directory of message catalogues: the installation's, or where there is none and QVRCATALOGDIR
// does not name one either, that which was installed with the running program.
std::string install_catalogues();
// The path of a file in it.
std::string install_path(install_dir_t which, std::string_view file);
// True when a file of that name exists in the debug directory, whatever it holds.
bool install_marker(std::string_view file);

// The table of simulated name service faults: "rdlr" in the debug directory, or QVR_FAULT_TABLE.
std::string install_fault_table();

}  // namespace qvr

#include <clocale>

#include "command.h"
#include "out_of_memory.h"

int main(int argc, char **argv) {
  qvr::install_out_of_memory();
  std::setlocale(LC_ALL, "");
  qvr::keep_standard_descriptors();
  qvr::widen_output();
  qvr::keep_freed_memory();
  return qvr::finish_output(qvr::run_command(argc, argv));
}

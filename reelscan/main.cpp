#include <clocale>

#include "command.h"

int main(int argc, char **argv) {
  std::setlocale(LC_ALL, "");
  qvr::keep_standard_descriptors();
  return qvr::finish_output(qvr::run_command(argc, argv));
}

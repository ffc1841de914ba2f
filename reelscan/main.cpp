#include <clocale>

#include "command.h"

int main(int argc, char **argv) {
  std::setlocale(LC_ALL, "");
  return qvr::finish_output(qvr::run_command(argc, argv));
}

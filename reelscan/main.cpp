#include <clocale>

int main() {
  std::setlocale(LC_ALL, "");
  return 0;
}

// msgextract: collects the messages of the sources into a template for translators.
//
//   msgextract -o TEMPLATE -v VERSION -b BASE SOURCE...
//
// File names in the template are relative to BASE. Exit status 1 when a file cannot be read or
// written, or nothing was found.
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "catalogue_template.h"

namespace {

struct source_t {
  std::string name;
  std::vector<qvr::source_token_t> tokens;
};

bool read_source(const std::string &path, const std::string &base, source_t &source) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return false;
  std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  source.name = path.starts_with(base) ? path.substr(base.size()) : path;
  source.tokens = qvr::source_tokens(text);
  return true;
}

int usage() {
  std::fputs("usage: msgextract -o template [-v version] [-b base] source...\n", stderr);
  return 1;
}

}  // namespace

int main(int argc, char **argv) {
  std::string output, version = "0", base;
  for (int option; (option = getopt(argc, argv, "o:v:b:")) != -1;) {
    if (option == '?') return usage();
    (option == 'o' ? output : option == 'v' ? version : base) = optarg;
  }
  if (output.empty() || optind == argc) return usage();
  if (!base.empty() && base.back() != '/') base += '/';

  std::vector<source_t> sources;
  for (int i = optind; i < argc; i++) {
    sources.emplace_back();
    if (!read_source(argv[i], base, sources.back())) {
      std::fprintf(stderr, "msgextract: cannot read %s\n", argv[i]);
      return 1;
    }
  }
  qvr::message_scan scan;
  for (const source_t &source : sources) scan.learn(source.tokens);
  for (const source_t &source : sources) scan.add(source.name, source.tokens);
  std::ofstream file(output, std::ios::binary | std::ios::trunc);
  file << qvr::catalogue_template(scan, version);
  file.close();
  if (!file) {
    std::fprintf(stderr, "msgextract: cannot write %s\n", output.c_str());
    return 1;
  }
  return scan.messages().empty() ? 1 : 0;
}

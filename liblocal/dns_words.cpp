#include "host_seams.h"

namespace qvr {

dns_words_t dns_words;

}  // namespace qvr

#include "msg_rings.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <vector>

#include "debug_line.h"
#include "debug_words.h"
#include "per_thread.h"

namespace qvr {

namespace {

class text_ring {
 public:
  text_ring(std::size_t count, std::size_t bytes) : count_(count), bytes_(bytes) {}

  char *next() {
    // Untouched pages of the block cost no memory, so that the whole ring is taken at once.
    if (!block_) block_ = std::make_unique_for_overwrite<char[]>(count_ * bytes_);
    char *buffer = block_.get() + next_ * bytes_;
    next_ = (next_ + 1) % count_;
    *buffer = '\0';
    return buffer;
  }

 private:
  std::size_t count_, bytes_, next_ = 0;
  std::unique_ptr<char[]> block_;
};

struct msg_rings_t {
  text_ring small{MSG_SMALL_RING, MSG_SMALL_BYTES};
  text_ring large{MSG_LARGE_RING, MSG_LARGE_BYTES};
  std::array<errobj_t, ERROBJ_RING> errors;
  std::size_t next_error = 0;
  std::vector<strtxt_t> texts;
  std::size_t next_text = 0;
};

msg_rings_t &rings() {
  return per_thread<msg_rings_t>::get();
}

// Reads the setting once for the process and tells of it.
std::size_t pool_slots() {
  static const char *const variable = std::getenv("MSG_STRUCTURED_TEXT_POOL_SIZE");
  if (variable == nullptr) return 32;
  int setting = std::atoi(variable);
  std::size_t slots = setting >= 128 ? 128 : setting >= 64 ? 64 : 32;
  static std::atomic<bool> told{false};
  if (!told.exchange(true)) {
    if (slots == 32) {
      KS_DEBUG(0, "Env MSG_STRUCTURED_TEXT_POOL_SIZE set to %d, leaving poolsize as 32\n", setting);
    } else if (slots == 64) {
      KS_DEBUG(0, "Env MSG_STRUCTURED_TEXT_POOL_SIZE set to %d, setting poolsize to 64\n", setting);
    } else {
      KS_DEBUG(0, "Env MSG_STRUCTURED_TEXT_POOL_SIZE set to %d, setting poolsize to 128\n",
               setting);
    }
  }
  return slots;
}

void empty_strtxt(strtxt_t &message, std::int32_t id) {
  message.id = id;
  message.format.clear();
  message.args.clear();
}

}  // namespace

char *msg_small_buffer() {
  return rings().small.next();
}

char *msg_large_buffer() {
  return rings().large.next();
}

errobj_t *msg_next_error() {
  msg_rings_t &mine = rings();
  errobj_t *error = &mine.errors[mine.next_error];
  mine.next_error = (mine.next_error + 1) % ERROBJ_RING;
  *error = errobj_t();
  return error;
}

strtxt_t *msg_next_strtxt() {
  msg_rings_t &mine = rings();
  if (mine.texts.empty()) {
    std::size_t slots = pool_slots();
    mine.texts.resize(slots);
    for (strtxt_t &slot : mine.texts) slot.id = STRTXT_FREE_ID;
  }
  strtxt_t *message = &mine.texts[mine.next_text];
  mine.next_text = (mine.next_text + 1) % mine.texts.size();
  if (message->id != STRTXT_FREE_ID && debug_words.level >= 9) {
    strict_print(9, "freeing unused structext with msgid %d\n", message->id);
  }
  empty_strtxt(*message, 0);
  return message;
}

void strtxt_release(strtxt_t *message) {
  if (message != nullptr) empty_strtxt(*message, STRTXT_FREE_ID);
}

}  // namespace qvr

// The XDR stream below every TCP call: the record marking of RFC 5531, section 11 (before each
// fragment a word, high bit on a record's last fragment, low 31 bits its length), and on that base
// scatter and gather transfer, batching, an encrypted mode in which every fragment is a ciphertext,
// and control messages whose header has bit 30 set.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "errobj.h"
#include "xdr.h"

namespace qvr {

enum xdrrec_type : std::uint32_t { XDRREC_SIMPLE = 0, XDRREC_VECTORED = 1 };

// Transfers answer with the bytes moved, or below 0 for a failure, which the transport remembers.
// A read of 0 bytes counts as a failure.
struct xdrrec_params {
  void *handle = nullptr;  // first argument of every transfer
  std::uint32_t send_type = XDRREC_SIMPLE;
  std::uint32_t send_size = 0;  // bytes; above 99 rounded up to a multiple of 4, else 4000
  std::int64_t (*simple_write)(void *handle, const std::uint8_t *bytes, std::size_t size) = nullptr;
  std::int64_t (*vectored_write)(void *handle, const std::uint8_t *bytes1, std::size_t size1,
                                 const std::uint8_t *bytes2, std::size_t size2) = nullptr;
  std::uint32_t receive_type = XDRREC_SIMPLE;
  std::uint32_t receive_size = 0;
  std::int64_t (*simple_read)(void *handle, std::uint8_t *bytes, std::size_t size) = nullptr;
  // May run into the second buffer.
  std::int64_t (*vectored_read)(void *handle, std::uint8_t *bytes1, std::size_t size1,
                                std::uint8_t *bytes2, std::size_t size2) = nullptr;
};
std::uint32_t xdrrec_buffer_size(std::uint32_t requested);

struct xdrrec_buf_t {
  std::uint8_t *data = nullptr;
  std::uint32_t size = 0;
};

// What a security layer hands to the stream. `context` is the first argument of all the others. The
// last three may be null.
struct xdrrec_crypt_ops {
  void *context = nullptr;
  errobj_t *(*encrypt)(void *context, const xdrrec_buf_t &in, xdrrec_buf_t &out) = nullptr;
  errobj_t *(*decrypt)(void *context, const xdrrec_buf_t &in, xdrrec_buf_t &out) = nullptr;
  // Takes back what encrypt or decrypt made.
  void (*release)(void *context, xdrrec_buf_t &buffer) = nullptr;
  // True when the key material is about to expire.
  bool (*needs_refresh)(void *context) = nullptr;
  errobj_t *(*refresh)(void *context) = nullptr;
  // Called when a control header arrives where a fragment was expected; it reads the message.
  errobj_t *(*reauth)(void *context) = nullptr;
  // May be empty. The stream keeps it with the table, so that what `context` points at lives as
  // long as the stream may call it.
  std::shared_ptr<void> owner;
};

// An entry of a control message. Sending, a null pointer ends the list; receiving, a size of 0.
struct xdrrec_raw_t {
  std::uint8_t *data = nullptr;
  std::uint32_t size = 0;            // XDRREC_RAW_REST, last entry only: all that is left
  std::vector<std::uint8_t> memory;  // where XDRREC_RAW_REST puts it; data and size name it
};
inline constexpr std::uint32_t XDRREC_RAW_REST = 0xffffffff;

enum xdrrec_command : unsigned {
  XDRREC_CRYPT_OFF = 0,        // xdrrec_crypt_ops* that receives the table, or null
  XDRREC_CRYPT_ON = 1,         // const xdrrec_crypt_ops*
  XDRREC_CRYPT_STATE = 2,      // uint32_t*
  XDRREC_SEND_RAW = 3,         // const xdrrec_raw_t*
  XDRREC_RECV_RAW = 4,         // xdrrec_raw_t*
  XDRREC_SET_POS_COUNTER = 5,  // uint64_t*, or null
  XDRREC_FLUSH = 6,            // nothing
};

using xdrrec_fragmax_callback = void (*)(void *argument, std::uint64_t length);

inline constexpr std::uint32_t XDRREC_FRAGMAX_DEFAULT = 104857600;
inline constexpr std::size_t XDRREC_LARGE_WRITE = 8000;  // from here on a block is not copied
inline constexpr std::size_t XDRREC_DIRECT_READ = 200;   // above it, into the caller's memory

// A stream belongs to one connection and one thread at a time. Every operation answers false on
// failure, the reason being the transport's. A read that failed for want of bytes loses none of
// those that came, but for a fragment of the encrypted mode: there the connection is of no further
// use.
class xdr_record_stream final : public XDR {
 public:
  ~xdr_record_stream() override;
  xdr_record_stream(const xdr_record_stream &) = delete;
  xdr_record_stream &operator=(const xdr_record_stream &) = delete;

  // Discards what is left of the current record, so that the next read meets the next one. With
  // `wait` refills read what is there, without it only the bytes still needed.
  bool skiprecord(bool wait);
  // True behind a skiprecord until the header of the next record has been read: who gave up waiting
  // for that record waits on for it without another skip, which would discard it.
  bool at_record_start() const { return at_record_start_; }
  // Bytes that the last skiprecord discarded.
  std::uint64_t skipped() const { return skipped_; }
  // Ends the record on the sending side; without `send_now` it may stay in the buffer and share a
  // write with the records behind it.
  bool endofrecord(bool send_now);
  // Sends what is buffered as a fragment that does not end the record.
  bool flush();

  // A fragment longer than `limit` (0: no limit) calls `callback` and fails the read; without a
  // callback it is only logged.
  void set_fragmax(std::uint32_t limit, xdrrec_fragmax_callback callback, void *argument);
  std::uint32_t fragmax() const { return fragmax_; }
  void set_single_fragment(bool on) { single_fragment_ = on; }
  // A counter of the caller's that every byte of an operation adds to; null takes it away.
  void set_position_counter(std::uint64_t *counter);

  // Encryption of every fragment from here on. Both ends of the record are put in order first.
  bool crypt_on(const xdrrec_crypt_ops &ops);
  bool crypt_off(xdrrec_crypt_ops *old_ops);
  bool encrypted() const { return encrypted_; }
  // Control messages; never encrypted.
  bool send_raw(const xdrrec_raw_t *entries);
  bool recv_raw(xdrrec_raw_t *entries);

  std::uint64_t remaining() const override;
  std::uint32_t get_position(xdr_op op) override;
  bool set_position(xdr_op op, std::uint32_t position) override;
  bool control(unsigned command, void *argument) override;

  // For the transport: true while bytes of a fragment are awaited, and the bytes of all fragments
  // begun so far; a header of length 0 moves neither.
  bool inside_fragment() const;
  std::uint64_t fragment_bytes_begun() const { return begun_; }

 protected:
  bool slow_get_bytes(void *to, std::size_t size) override;
  bool slow_put_bytes(const void *from, std::size_t size) override;
  bool slow_put_u32(std::uint32_t value) override;
  const std::uint8_t *slow_inline_get(std::size_t size) override;
  std::uint8_t *slow_inline_put(std::size_t size) override;

 private:
  friend std::unique_ptr<xdr_record_stream> xdrrec2_create(const xdrrec_params &params);
  struct control_row;
  xdr_record_stream() = default;

  // The windows of XDR show what may be taken (or filled) without asking; these two bring the
  // stream's own books in step with them, and open them again.
  void settle();
  void open_windows();

  // Receiving.
  bool next_fragment() { return encrypted_ ? crypt_set_input_fragment() : set_input_fragment(); }
  bool set_input_fragment();
  bool crypt_set_input_fragment();
  bool crypt_read_fragment(std::uint32_t header);
  bool read_head(std::uint32_t &header);
  bool begin_fragment(std::uint32_t header);
  bool check_fragmax(std::uint32_t length);
  bool fill(std::uint8_t *first, std::size_t *first_size, std::uint8_t *second,
            std::size_t *second_size, int full);
  bool internal_fill_input_bufs(std::uint8_t *first, std::size_t *first_size, std::uint8_t *second,
                                std::size_t *second_size, int full);
  bool internal2_fill_input_bufs(std::uint8_t *first, std::size_t *first_size, std::uint8_t *second,
                                 std::size_t *second_size, int full);
  bool refill(std::size_t at_most = SIZE_MAX);
  bool read_direct(std::uint8_t *to, std::size_t &size);
  bool buffered_read(std::uint8_t *to, std::size_t size);
  bool exact_read(std::uint8_t *to, std::size_t size);
  bool decrypt_next(std::uint32_t length);
  bool skip_fragment(bool wait);
  std::size_t buffered() const { return static_cast<std::size_t>(in_boundary_ - cur_); }

  // Sending.
  bool flush_out(bool end_of_record, const std::uint8_t *extra = nullptr,
                 std::size_t extra_size = 0);
  bool plain_flush(bool end_of_record, const std::uint8_t *extra, std::size_t extra_size);
  bool crypt_flush(bool end_of_record, const std::uint8_t *extra, std::size_t extra_size);
  bool crypt_send(std::uint32_t last_bit, const std::uint8_t *bytes, std::size_t size);
  bool send(const std::uint8_t *first, std::size_t first_size, const std::uint8_t *second,
            std::size_t second_size);
  void close_fragment();
  void reset_output();
  std::size_t fragment_size() const {
    return static_cast<std::size_t>(put_cur_ - frag_header_) - 4;
  }
  bool settle_for_switch();
  bool flush_closed();
  bool crypt_send_buffered(const std::uint8_t *end);
  void drop_decrypted();

  xdrrec_params params_;
  std::uint64_t *counter_ = nullptr;
  bool encrypted_ = false;
  xdrrec_crypt_ops crypt_;
  xdrrec_buf_t decrypted_;
  std::vector<std::uint8_t> ciphertext_;  // of a fragment that does not fit the receive buffer
  // In the encrypted mode: what lies in the receive buffer and has not been looked at.
  const std::uint8_t *leftover_ = nullptr;
  std::size_t leftover_size_ = 0;
  bool control_header_taken_ = false;
  bool in_reauth_ = false;
  bool in_ciphertext_ = false;
  std::uint64_t record_size_ = 0;  // of the record that is being read, in plain bytes
  bool damaged_ = false;  // a fragment of the encrypted mode did not come whole: the end of reading

  std::unique_ptr<std::uint8_t[]> out_memory_;
  std::uint8_t *out_base_ = nullptr;
  std::uint8_t *out_boundary_ = nullptr;
  std::uint8_t *frag_header_ = nullptr;
  std::uint8_t *put_settled_ = nullptr;
  bool frag_sent_ = false;
  bool single_fragment_ = false;
  std::uint32_t flushes_ = 0, flush_mark_ = 0;

  std::unique_ptr<std::uint8_t[]> in_memory_;
  std::uint8_t *buffer_base_ = nullptr;    // of the receive buffer
  const std::uint8_t *in_base_ = nullptr;  // of what is being read: that or a decrypted fragment
  const std::uint8_t *in_boundary_ = nullptr;
  const std::uint8_t *settled_ = nullptr;
  const std::uint8_t *frag_start_ = nullptr;
  std::int64_t fbtbc_ = 0;
  bool last_frag_ = true;
  bool at_record_start_ = false;
  std::uint8_t head_[4] = {};  // of the next fragment, as far as it has come
  std::size_t head_size_ = 0;
  std::uint32_t fills_ = 0, fill_mark_ = 0;
  std::uint64_t begun_ = 0;
  std::uint64_t skipped_ = 0;

  std::uint32_t fragmax_ = 0;
  xdrrec_fragmax_callback fragmax_callback_ = nullptr;
  void *fragmax_argument_ = nullptr;
};

// Makes a stream; null with errno ENOMEM, or for a buffer type that does not exist. The receiving
// side is empty: the first read must be preceded by xdrrec_skiprecord.
std::unique_ptr<xdr_record_stream> xdrrec2_create(const xdrrec_params &params);
// The two short forms.
std::unique_ptr<xdr_record_stream> xdrrec2_create_simple(
    void *handle, std::uint32_t send_size, std::uint32_t receive_size,
    decltype(xdrrec_params::simple_read) read, decltype(xdrrec_params::simple_write) write);
std::unique_ptr<xdr_record_stream> xdrrec2_create_vectored(
    void *handle, std::uint32_t send_size, std::uint32_t receive_size,
    decltype(xdrrec_params::vectored_read) read, decltype(xdrrec_params::vectored_write) write);

// The same operations for whoever holds the stream by its base. On a stream of another kind they
// fail or have no effect.
bool xdrrec_control(XDR &xdr, unsigned command, void *argument);
bool xdrrec_skiprecord(XDR &xdr, bool wait);
bool xdrrec_endofrecord(XDR &xdr, bool send_now);
void xdrrec_set_fragmax(XDR &xdr, std::uint32_t limit, xdrrec_fragmax_callback callback,
                        void *argument);
void xdrrec_set_single_fragment(XDR &xdr, bool on);

// Process-wide: whether fragment limits are enforced at all (on), and how many empty last
// fragments stayed buffered so far.
void xdrrec_enforce_fragmax(bool on);
std::uint64_t xdrrec_delayed_ends();

}  // namespace qvr

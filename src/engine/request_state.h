// What the engine threads share about a request in flight beyond the public records:
// atomic access to the fields that several threads touch without a common lock, and the
// engine's progress marks.
#pragma once

#include <cstddef>

#include "transfer_server.h"

namespace sdk {

// e_state is written under st_lock (sender, receive) or st_wait_lock (monitor) but read
// without a lock by the monitor and the API; acquire/release makes the fields written
// before a state change visible with it.
inline packet_state state_load(const packet_general_data_t *p) {
    return __atomic_load_n(&p->e_state, __ATOMIC_ACQUIRE);
}
inline void state_store(packet_general_data_t *p, packet_state s) {
    __atomic_store_n(&p->e_state, s, __ATOMIC_RELEASE);
}
// Changes the state only from `from`, so a reply stored meanwhile is never overwritten.
inline bool state_move(packet_general_data_t *p, packet_state from, packet_state to) {
    return __atomic_compare_exchange_n(&p->e_state, &from, to, false, __ATOMIC_ACQ_REL,
                                       __ATOMIC_ACQUIRE);
}
inline bool state_final(packet_state s) {
    return s == PACKET_WAIT_TIMEOUT || s == PACKET_END;
}

// The acknowledgement and polling settings are flags, read the same way everywhere (frame,
// flow rule, monitor): any n_no_ack but 0 means no reply is expected, any n_polling_state
// but 0 means polling. Settled: reading them as "is 1" in one place and "not 0" in another
// let a request with 2 in either field release its port while it was still being answered.
inline bool expects_reply(const packet_general_data_t *p) {
    return p->n_no_ack == EN_REQUEST_ACK;
}
inline bool polled(const packet_general_data_t *p) {
    return p->n_polling_state != 0;
}
// Only requests whose answer comes back through the port (a reply or a polling answer)
// hold their Ethernet port.
inline bool holds_port(const packet_general_data_t *p) {
    return expects_reply(p) || polled(p);
}

// n_enable: true from creation and never cleared by the engine. Settled: a request found
// disabled would be handed on unsent (and end by its time-out) rather than stay queued.
inline bool request_enabled(const packet_general_data_t *p) {
    return __atomic_load_n(&p->n_enable, __ATOMIC_ACQUIRE);
}

// Progress marks, kept in n_write_state (a field no other operation uses).
constexpr uint32_t kMarkUnsent = 16u;  // taken off its queue unsent (timed out while queued)
// Returns the marks as they were before.
inline uint32_t mark_set(packet_general_data_t *p, uint32_t m) {
    return __atomic_fetch_or(&p->n_write_state, m, __ATOMIC_ACQ_REL);
}
inline void mark_clear(packet_general_data_t *p, uint32_t m) {
    __atomic_fetch_and(&p->n_write_state, ~m, __ATOMIC_RELEASE);
}
inline bool mark_test(const packet_general_data_t *p, uint32_t m) {
    return (__atomic_load_n(&p->n_write_state, __ATOMIC_ACQUIRE) & m) != 0;
}

// Busy counters: raised by the sender, lowered by the monitor, read by the sender.
inline int32_t counter_load(const int32_t *p) {
    return __atomic_load_n(p, __ATOMIC_ACQUIRE);
}
inline void counter_add(int32_t *p, int32_t d) {
    __atomic_add_fetch(p, d, __ATOMIC_ACQ_REL);
}

inline send_queue_t *queue_of(queue_general_data_t *g) {
    return reinterpret_cast<send_queue_t *>(reinterpret_cast<char *>(g) -
                                            offsetof(send_queue_t, st_general));
}

// The label list of a channel (PACKET_VIDEO, PACKET_SENDER) or of a receiving card behind
// a port (PACKET_RECV); NULL when the kind, channel, port or card is unknown.
send_lable_manage_t *lable_list_of(packet_code_type e_type, uint32_t n_eth_id, uint32_t n_rvcard_id,
                                   uint32_t n_transfer_id);

}  // namespace sdk

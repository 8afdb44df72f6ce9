// The deadlines of the requests in flight, kept ordered in a binary heap: the monitor
// touches only what is due, and the trigger thread sleeps until the earliest deadline.
//
// Every accepted request is in the heap from its acceptance to its end (a queued one with
// no deadline), so the heap also counts the requests in flight and lists them for
// sdk_transfer_exit. The heap's lock is taken last: nothing else is locked while it is
// held.
#pragma once

#include <cstdint>
#include <vector>

#include "engine/inflight.h"

namespace sdk {

// Monotonic nanoseconds: the deadlines' clock.
uint64_t now_ns();

// Lists the request with the deadline (kNever: none yet). False when memory ran out.
bool deadline_add(InFlight *x, uint64_t n_due_ns);
// Moves an listed request's deadline; wakes the trigger when it becomes the earliest.
void deadline_set(InFlight *x, uint64_t n_due_ns);
// Takes the request off the heap for good (it ends). Returns whether the monitor is
// handling it at this moment (it then lets go of it by deadline_release).
bool deadline_remove(InFlight *x);
// The monitor takes the earliest due request off the heap and marks it busy; nullptr
// when nothing is due.
InFlight *deadline_take_due();
// The monitor is done with a request it took: back on the heap with a new deadline, or
// (kNotListed as the deadline) gone because it ended.
void deadline_release(InFlight *x, uint64_t n_due_ns, bool b_relist);
// Requests in the heap (accepted, not ended).
size_t deadline_count();
// Every listed request, for sdk_transfer_exit (no worker thread runs then).
std::vector<InFlight *> deadline_all();

// The trigger thread's wait: until the earliest deadline has come (true) or the engine
// stops (false). The monitor's run over what is due re-arms it (deadline_done).
bool deadline_wait_due();
void deadline_done();
// Wakes the trigger thread whatever it waits for.
void deadline_wake();

}  // namespace sdk

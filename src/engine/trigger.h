// The trigger thread's wake-up for an engine that was idle.
#pragma once

namespace sdk {

// Called once a request is in a monitor list: wakes the trigger thread if it sleeps
// because nothing was in flight.
void trigger_kick();
// Wakes the trigger thread whatever it waits for (the engine stops).
void trigger_wake();

}  // namespace sdk

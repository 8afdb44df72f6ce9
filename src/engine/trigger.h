// The trigger thread's wake-up when the engine stops.
#pragma once

namespace sdk {

// Wakes the trigger thread whatever it waits for (the engine stops).
void trigger_wake();

}  // namespace sdk

// A small cache of in-flight records: a round trip allocates one record of about 18 KB,
// and handing it back to the allocator cost more than building its frame. Released
// records (their locks destroyed) wait here for the next request.
#pragma once

#include "engine/inflight.h"

namespace sdk {

// A record's memory: from the cache, else newly allocated; nullptr when memory is out.
InFlight *record_take();
// Gives a record's memory back: kept while the cache has room, freed otherwise.
void record_give(InFlight *x);
// Frees every cached record (engine teardown).
void record_cache_drain();

}  // namespace sdk

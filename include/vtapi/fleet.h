/*
 * A fleet: many Collections at once in one thread, with a bound on how many run. The rest wait for
 * their turn. It is one descriptor to watch under an event loop, or one call that blocks until all
 * have ended. A fleet belongs to one thread at a time.
 *
 *   CollectionFleet* fleet = voltaris_createFleet(1000);
 *   for (each node) voltaris_addToFleet(fleet, session, query, NULL, tag);
 *   voltaris_runFleet(fleet, on_finished, context);
 *   voltaris_releaseFleet(fleet);
 */
#ifndef VTAPI_FLEET_H
#define VTAPI_FLEET_H

#include "vtapi/collection.h"

VT_BEGIN_DECLS

typedef struct CollectionFleet CollectionFleet;

/* FleetCounters: 16 bytes. All but finished are of now; finished counts all that ever ended. */
typedef struct FleetCounters {
  uint32_t waiting;  /* 0: for their turn */
  uint32_t running;  /* 4 */
  uint32_t ended;    /* 8: and not taken yet */
  uint32_t finished; /* 12 */
} FleetCounters;

/*
 * voltaris_createFleet returns an empty fleet that runs at most so many Collections at a time (512
 * for 0), or null without memory or a descriptor (FATAL). Each that runs takes one descriptor;
 * where the process has none left, the others wait until one of the fleet's has ended.
 */
VT_API CollectionFleet* voltaris_createFleet(uint32_t most_running);

/*
 * voltaris_addToFleet signs the Query as voltaris_startCollection does and puts it at the end of
 * those that wait; its limits begin with its turn. It returns the Collection, which stays the
 * fleet's until it is taken and may be looked at and cancelled, or null for the same reasons. tag
 * comes back with the Collection. May be called at any time, also from the callback.
 */
VT_API ReplyCollection* voltaris_addToFleet(CollectionFleet* fleet, Session* session, Query* query,
                                            const CollectionOptions* options, void* tag);

/*
 * What to wait for: one descriptor, the same for as long as the fleet exists, to become readable,
 * and the milliseconds after which there is something to do anyway: 0 at once, -1 never.
 */
VT_API int voltaris_getFleetDescriptor(const CollectionFleet* fleet);
VT_API int32_t voltaris_getFleetTimeout(const CollectionFleet* fleet);

/*
 * voltaris_stepFleet does what can be done now, without waiting, and returns 1 as long as any
 * Collection waits or runs, else 0.
 */
VT_API int32_t voltaris_stepFleet(CollectionFleet* fleet);

/*
 * voltaris_takeEnded hands over the Collection that has been over for longest, for
 * voltaris_releaseCollection, and its tag at *tag (which may be null); null when there is none.
 */
VT_API ReplyCollection* voltaris_takeEnded(CollectionFleet* fleet, void** tag);

/*
 * fleet_callback is told of a Collection that has ended, and how the fleet stands. It may take the
 * result; the Collection is released when it returns. 0 goes on, anything else cancels what is
 * left, of which the callback is told too. It may add to the fleet, and must not step, run or
 * release it.
 */
typedef int32_t (*fleet_callback)(void* context, ReplyCollection* collection, void* tag,
                                  const FleetCounters* counters);

/*
 * voltaris_runFleet steps and waits until every Collection has ended. With a null callback they are
 * left to be taken. Returns 0, or -1 when all that were left were cancelled, by the callback or
 * because the descriptor cannot be waited for.
 */
VT_API int32_t voltaris_runFleet(CollectionFleet* fleet, fleet_callback callback, void* context);

/* voltaris_cancelFleet cancels all that wait and run. */
VT_API void voltaris_cancelFleet(CollectionFleet* fleet);

/* voltaris_getFleetCounters returns the counters, which are the fleet's and change with it. */
VT_API const FleetCounters* voltaris_getFleetCounters(const CollectionFleet* fleet);

/* voltaris_releaseFleet cancels and releases everything that was not taken; null is ignored. */
VT_API void voltaris_releaseFleet(CollectionFleet* fleet);

VT_END_DECLS

#endif /* VTAPI_FLEET_H */

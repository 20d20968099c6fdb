// How the allocation front end records blocks in a zone (ZBZone.cpp).
#pragma once

#include "ZBAlloc.h"

// Records `pointer` in the zone's table; false when the table could not grow.
bool __ZBZoneTrackAllocation(ZBZone *zone, void *pointer) noexcept;
// Removes `pointer` from the zone's table; logs an Error when it is absent.
void __ZBZoneTrackDeallocation(ZBZone *zone, void *pointer) noexcept;

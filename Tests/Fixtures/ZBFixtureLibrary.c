/*
 * A small library that tests load as a stranger would: exported functions
 * three calls deep (fixture_level1 -> fixture_level2 -> fixture_level3,
 * the last calling the caller back), never inlined and never tail-called,
 * so that a backtrace taken in the callback names all three in order, and
 * a data export naming the build. Built once per kind of debug information.
 */
#include <stdint.h>

#define FIXTURE_EXPORT __declspec(dllexport)
#define FIXTURE_NOINLINE __attribute__((noinline))

typedef int (*FixtureCallback)(void *context);

/* Which build of this source the library is: "dwarf4", "dwarf5", ... */
FIXTURE_EXPORT const char fixture_build[] = FIXTURE_BUILD;

/* A counter the functions bump after their call, so that no call is the
   last thing a function does. */
static volatile int gCalls;

FIXTURE_EXPORT FIXTURE_NOINLINE int fixture_level3(FixtureCallback callback, void *context) {
  const int result = callback(context);
  gCalls = gCalls + 1;
  return result + 3;
}

FIXTURE_EXPORT FIXTURE_NOINLINE int fixture_level2(FixtureCallback callback, void *context) {
  const int result = fixture_level3(callback, context);
  gCalls = gCalls + 1;
  return result + 20;
}

FIXTURE_EXPORT FIXTURE_NOINLINE int fixture_level1(FixtureCallback callback, void *context) {
  const int result = fixture_level2(callback, context);
  gCalls = gCalls + 1;
  return result + 100;
}

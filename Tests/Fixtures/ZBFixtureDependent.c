/*
 * A library that imports from zb_fixture_absent.dll, which is built away
 * from the test programs: loading this one fails for want of that
 * dependency, and the error must name it.
 */
__declspec(dllimport) int fixture_absent_value(void);

__declspec(dllexport) int fixture_dependent_value(void) { return fixture_absent_value() + 1; }

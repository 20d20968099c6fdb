/* The dependency of zb_fixture_dependent.dll, kept out of the search path. */
__declspec(dllexport) int fixture_absent_value(void) { return 41; }

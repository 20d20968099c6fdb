// Dynamic libraries' part in the library's load-time start-up.
#pragma once

// Sets up the recursive lock over the open-library records and the two
// thread keys of the last-failure text. Runs once, before any library is
// opened.
void _ZBLibraryStartup() noexcept;

// What this version can't do yet is refused in one place, before anything is written.
#pragma once

#include <string_view>

// Does not return: says in one line that this version lacks `what` and ends the run with level 5.
[[noreturn]] void EndUnavailable(std::string_view what);

// Ends the run in that way where the preparation that the options ask for needs a formatter or boot code that this
// version lacks.
void RefuseUnavailableFormat();

// What this version can't do yet is refused in one place, before anything is written.
#pragma once

#include <string_view>

// Does not return: says in one line that this version lacks `what` and ends the run with level 5.
[[noreturn]] void EndUnavailable(std::string_view what);

#pragma once
// The one thing every part of the program shares by its nature: the program's name, which
// titles its message boxes and windows and names its storage folder. Everything else start-up
// makes travels in the AppContext.

namespace pw {

inline constexpr const char *AppTitle = "Pagewright 3.1";

} // namespace pw

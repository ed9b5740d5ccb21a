// Sees which symbols the program itself looks up. The linker's --wrap option puts it in between, so
// libraries' own lookups pass by.
#pragma once

#include <string>
#include <vector>

namespace ostrel_native {

/// The names that were given to dlsym so far, oldest first. Not for two threads at a time.
std::vector<std::string>& LookedUpSymbols();

}  // namespace ostrel_native

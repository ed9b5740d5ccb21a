// Whether a library's file is whole, asked before the dynamic loader maps it.
#pragma once

#include <string>

namespace ostrel_native {

/// What to say of a library that its file has been cut off: "<path>: file is cut off after <size>
/// of <size> bytes", as the loader words its own refusals. The loader maps such a file unseen, and
/// the process dies of SIGBUS where it reads beyond the end.
/// Empty for a whole file, and for all that the loader refuses or explains by itself: a file that
/// is absent, unreadable, not regular, not a 64-bit x86 shared object, or too short for its
/// headers. Empty as well for a name without a slash: only the loader knows which file that leads
/// to. The file must not be cut off between this and the loading; nor are the libraries examined
/// that this one needs. May throw `std::bad_alloc`. Thread: any.
std::string CutOffText(const std::string& path);

}  // namespace ostrel_native

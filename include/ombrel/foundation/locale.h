// Finding and loading the interface texts outside the host component: the
// command line and tests use the locale folder shipped with Ombrel.
#pragma once

#include <string>

namespace ombrel {

inline constexpr const char* kResourceFileName = "OmbrelDll.dat";

// The folder of the English texts: $OMBREL_LOCALE_DIR when set, else the
// installed share/ombrel/Locale/en, else the source tree's locale/en.
std::string DefaultLocaleDir();

// Loads dir/OmbrelDll.dat into the shared ResourceReader(); false when it cannot be read.
bool LoadResources(const std::string& dir);

}  // namespace ombrel

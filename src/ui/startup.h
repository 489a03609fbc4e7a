// Start-up of the component: which folder holds the interface texts and the
// help, in which language, and loading the texts.
//
// The folder comes from the host product's application-information library
// when one can be loaded (libappinfo.so: AppInfoInit, AppInfoGetAppDir,
// AppInfoGetLangDir, AppInfoGetLang, AppInfoTerm, each answering 0 on
// success and filling a caller's 256-byte buffer). Without it, the folder is
// the component's own folder + "/Locale/en" and the language "en". A language
// asked for explicitly (ombrel wizard --lang de) takes the folder
// Locale/<language> beside the others and that language.
#pragma once

#include <memory>
#include <string>

namespace ombrel {
class ICardStore;
}

namespace ombrel::ui {

inline constexpr const char* kAppInfoLibrary = "libappinfo.so";
inline constexpr const char* kHelpFolderName = "OmbrelHelp";

// Two-letter interface language; empty until start-up.
std::string& Language();

// A language to use instead of the host's or the default; empty for none.
void SetRequestedLanguage(const std::string& language);

// The folder the component's own files are found in: beside the library
// that holds this code when Locale/ is there (the build tree, or a private
// install), else the share/ombrel folder of its installation prefix.
std::string ComponentDir();

// The locale folder; sets Language().
std::string GetLocaleDir();

// Loads dir/OmbrelDll.dat into the shared resource reader and points the
// help at dir/OmbrelHelp; raises "Unable to load resource file. Please
// reinstall the application." when the file cannot be loaded.
void InitResources();

// Qt's own texts in that language, where the system has them.
void UseQtTexts(const std::string& language);

// The help folder InitResources pointed at; empty before.
const std::string& HelpDir();

// The component's card store manager replaced by a new one connected to
// store: the old one is disconnected and let go first. Raises when the new
// one cannot connect (it stays the shared manager nonetheless).
void ReplaceSharedManager(std::shared_ptr<ICardStore> store);

}  // namespace ombrel::ui

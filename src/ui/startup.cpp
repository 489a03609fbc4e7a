#include "ui/startup.h"

#include <dlfcn.h>

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QTranslator>

#include <filesystem>
#include <memory>

#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/locale.h"
#include "ombrel/foundation/messages.h"

namespace ombrel::ui {

namespace fs = std::filesystem;

namespace {

std::string& RequestedLanguage() {
  static std::string language;
  return language;
}

std::string& HelpFolder() {
  static std::string dir;
  return dir;
}

using InitFn = int (*)();
using TextFn = int (*)(char* buffer, int length);

// A buffer the library filled, cut at its first NUL and trimmed.
std::string BufferText(const char* buffer, size_t length) {
  return CString::TrimText(CutAtNul(std::string_view(buffer, length)));
}

// The application-information library: beside the component first, then
// wherever the system looks for libraries.
void* OpenAppInfo() {
  const fs::path beside = fs::path(ComponentDir()) / kAppInfoLibrary;
  if (void* lib = dlopen(beside.c_str(), RTLD_NOW | RTLD_LOCAL)) return lib;
  return dlopen(kAppInfoLibrary, RTLD_NOW | RTLD_LOCAL);
}

}  // namespace

std::string& Language() {
  static std::string language;
  return language;
}

void SetRequestedLanguage(const std::string& language) { RequestedLanguage() = language; }

std::string ComponentDir() {
  Dl_info info{};
  fs::path module;
  if (dladdr(reinterpret_cast<void*>(&ComponentDir), &info) != 0 && info.dli_fname) module = info.dli_fname;
  std::error_code ec;
  module = fs::weakly_canonical(module, ec);
  const fs::path dir = module.parent_path();
  if (fs::is_directory(dir / "Locale", ec)) return dir.string();
  const fs::path shared = dir.parent_path() / "share" / "ombrel";
  if (fs::is_directory(shared / "Locale", ec)) return shared.string();
  return dir.string();
}

std::string GetLocaleDir() {
  void* lib = OpenAppInfo();
  auto fn = [lib](const char* name) { return lib ? dlsym(lib, name) : nullptr; };
  auto init = reinterpret_cast<InitFn>(fn("AppInfoInit"));
  auto appDirFn = reinterpret_cast<TextFn>(fn("AppInfoGetAppDir"));
  auto langDirFn = reinterpret_cast<TextFn>(fn("AppInfoGetLangDir"));
  auto langFn = reinterpret_cast<TextFn>(fn("AppInfoGetLang"));
  auto term = reinterpret_cast<InitFn>(fn("AppInfoTerm"));

  char buffer[256];
  auto ask = [&buffer](TextFn f, std::string& out) {
    if (!f) return;
    std::fill(std::begin(buffer), std::end(buffer), '\0');
    if (f(buffer, static_cast<int>(sizeof buffer)) == 0) out = BufferText(buffer, sizeof buffer);
  };

  if (init) init();
  std::string appDir = ComponentDir();
  ask(appDirFn, appDir);
  std::string langDir = (fs::path(appDir) / "Locale" / "en").string();
  ask(langDirFn, langDir);
  Language() = "en";
  ask(langFn, Language());
  if (term) term();
  if (lib) dlclose(lib);

  if (!RequestedLanguage().empty()) {
    Language() = RequestedLanguage();
    langDir = (fs::path(appDir) / "Locale" / RequestedLanguage()).string();
  }
  return langDir;
}

void InitResources() {
  const std::string dir = GetLocaleDir();
  if (!LoadResources(dir)) RaiseTrap("Unable to load resource file. Please reinstall the application.");
  HelpFolder() = (fs::path(dir) / kHelpFolderName).string();
  UseQtTexts(Language());
}

void UseQtTexts(const std::string& language) {
  // Qt's own texts (the file dialog, a text box's menu) in the same language.
  static QTranslator* installed = nullptr;
  if (!QCoreApplication::instance()) return;
  if (installed) {
    QCoreApplication::removeTranslator(installed);
    delete installed;
    installed = nullptr;
  }
  if (language.empty() || language == "en") return;
  auto translator = std::make_unique<QTranslator>();
  if (translator->load(QString::fromStdString("qtbase_" + language), QLibraryInfo::path(QLibraryInfo::TranslationsPath)) &&
      QCoreApplication::installTranslator(translator.get()))
    installed = translator.release();
}

const std::string& HelpDir() { return HelpFolder(); }

void ReplaceSharedManager(std::shared_ptr<ICardStore> store) {
  if (auto& old = CardStoreMgr()) {
    old->Disconnect();
    old.reset();
  }
  auto mgr = std::make_shared<CCardStoreMgr>();
  CardStoreMgr() = mgr;
  mgr->SetCardStore(std::move(store));
  mgr->Connect();
}

}  // namespace ombrel::ui

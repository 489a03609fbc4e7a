#include "ombrel/foundation/locale.h"

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "ombrel/foundation/messages.h"

namespace ombrel {

namespace fs = std::filesystem;

std::string DefaultLocaleDir() {
  if (const char* env = std::getenv("OMBREL_LOCALE_DIR"); env && *env) return env;
  std::error_code ec;
  fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  if (!ec) {
    fs::path installed = exe.parent_path().parent_path() / "share" / "ombrel" / "Locale" / "en";
    if (fs::exists(installed / kResourceFileName, ec)) return installed.string();
  }
  return std::string(OMBREL_LOCALE_DIR) + "/en";
}

bool LoadResources(const std::string& dir) {
  auto& reader = ResourceReader();
  if (!reader) reader = std::make_shared<CResourceReader>();
  return reader->Load((fs::path(dir) / kResourceFileName).string());
}

}  // namespace ombrel

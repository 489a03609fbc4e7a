// A stand-in for the host product's application-information library: each
// function answers the environment variable of its name (0, the text copied
// into the caller's buffer) or fails (1) when it is not set.
#include <cstdlib>
#include <cstring>

namespace {
int Fill(const char* variable, char* buffer, int length) {
  const char* value = std::getenv(variable);
  if (!value || length <= 0) return 1;
  std::memset(buffer, 0, static_cast<size_t>(length));
  std::strncpy(buffer, value, static_cast<size_t>(length) - 1);
  return 0;
}
}  // namespace

extern "C" {
int AppInfoInit() { return 0; }
int AppInfoGetAppDir(char* buffer, int length) { return Fill("TEST_APPINFO_APPDIR", buffer, length); }
int AppInfoGetLangDir(char* buffer, int length) { return Fill("TEST_APPINFO_LANGDIR", buffer, length); }
int AppInfoGetLang(char* buffer, int length) { return Fill("TEST_APPINFO_LANG", buffer, length); }
int AppInfoTerm() { return 0; }
}

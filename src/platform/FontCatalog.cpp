#include "platform/FontCatalog.hpp"

#include <fontconfig/fontconfig.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <set>

#include "base/Text.hpp"
#include "kit/Subtitles.hpp"
#include "platform/TavorinPaths.hpp"

#if defined(__SANITIZE_ADDRESS__)
// fontconfig loses a block while parsing the system's own configuration, once per
// process, before any of our code holds a pattern. Every program that reads faces
// links this file, so the leak checker is told here, not in each program.
extern "C" const char* __lsan_default_suppressions() { return "leak:libfontconfig.so\n"; }
// A suppressed leak is no news: keep the programs' standard error their own.
extern "C" const char* __lsan_default_options() { return "print_suppressions=0"; }
#endif

namespace tavorin {

namespace {

using Text::lower;

bool holdsFaces(const std::filesystem::path& folder) {
  std::error_code error;
  if (!std::filesystem::is_directory(folder, error)) return false;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    const auto ext = lower(entry.path().extension().string());
    if (ext == ".ttf" || ext == ".otf") return true;
  }
  return false;
}

std::filesystem::path programFolder() {
  std::error_code error;
  const auto exe = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? std::filesystem::path() : exe.parent_path();
}

std::once_flag registration;
bool registered = false;

std::vector<std::string> installedFamilies() {
  FcInit();
  std::vector<std::string> out;
  FcPattern* pattern = FcPatternCreate();
  FcObjectSet* objects = FcObjectSetBuild(FC_FAMILY, nullptr);
  FcFontSet* set = FcFontList(nullptr, pattern, objects);
  if (set) {
    for (int i = 0; i < set->nfont; ++i) {
      // A face may carry several family names (localised ones); the first is its own.
      FcChar8* family = nullptr;
      if (FcPatternGetString(set->fonts[i], FC_FAMILY, 0, &family) == FcResultMatch && family)
        out.emplace_back(reinterpret_cast<const char*>(family));
    }
    FcFontSetDestroy(set);
  }
  FcObjectSetDestroy(objects);
  FcPatternDestroy(pattern);
  return out;
}

}  // namespace

std::optional<std::filesystem::path> FontCatalog::houseFolder() {
  std::vector<std::filesystem::path> candidates;
  if (auto chosen = Environment::value("TAVORIN_FONTS"); chosen && !chosen->empty())
    candidates.push_back(Environment::expandTilde(*chosen));
  const auto program = programFolder();
  if (!program.empty()) candidates.push_back(program.parent_path() / "share" / "tavorin" / "fonts");
#ifdef TAVORIN_SOURCE_FONTS
  candidates.emplace_back(TAVORIN_SOURCE_FONTS);
#endif
  for (const auto& folder : candidates)
    if (holdsFaces(folder)) return folder;
  return std::nullopt;
}

bool FontCatalog::registerHouseFaces() {
  std::call_once(registration, [] {
    FcInit();
    if (auto folder = houseFolder())
      registered = FcConfigAppFontAddDir(FcConfigGetCurrent(), reinterpret_cast<const FcChar8*>(folder->c_str()));
  });
  return registered;
}

bool FontCatalog::has(const std::string& family) {
  const auto wanted = lower(family);
  for (const auto& name : installedFamilies())
    if (lower(name) == wanted) return true;
  return false;
}

std::vector<std::string> FontCatalog::families(const std::string& filter) {
  registerHouseFaces();
  const auto needle = lower(filter);
  std::set<std::string> seen;
  std::vector<std::string> rest;
  for (auto& name : installedFamilies()) {
    if (!seen.insert(lower(name)).second) continue;
    if (Subtitles::isHouse(name)) continue;
    rest.push_back(std::move(name));
  }
  std::ranges::sort(rest, [](const std::string& a, const std::string& b) { return lower(a) < lower(b); });
  std::vector<std::string> out;
  for (auto house : Subtitles::houseFonts)
    if (seen.count(lower(std::string(house)))) out.emplace_back(house);
  out.insert(out.end(), rest.begin(), rest.end());
  std::erase_if(out, [&](const std::string& name) { return lower(name).find(needle) == std::string::npos; });
  return out;
}

FontCatalog::Report FontCatalog::report() {
  registerHouseFaces();
  Report out;
  out.folder = houseFolder();
  std::vector<std::string> missing;
  for (auto house : Subtitles::houseFonts) {
    const bool found = has(std::string(house));
    out.faces.emplace_back(std::string(house), found);
    if (!found) missing.emplace_back(house);
  }
  if (!missing.empty()) {
    std::string names;
    for (const auto& name : missing) names += (names.empty() ? "" : " and ") + name;
    out.note = names + (missing.size() == 1 ? " is" : " are") + " not installed; the studio draws with " +
               fallbackFace + " instead.";
  }
  return out;
}

}  // namespace tavorin
